#pragma once

#include "repaintgate.h"
#include "safesave.h"
#include "scansettings.h"

#include <QMainWindow>
#include <QTimer>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTabWidget;
class Simulator;

namespace bench {

class Console;
class FirmwarePanel;
class GroupsPanel;
class ImagePlot;
class LogView;
class ProfilePlot;
class ScanPanel;
class TimeStampPanel;
class ValuePanel;

/// The console's window: the link, pages for scans, values, time stamps, firmware and data groups, and the
/// trace log below both.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// `console` must outlive the window, and so must the embedded controller; null: there is none.
    explicit MainWindow(Console* console, Simulator* simulator = nullptr, QWidget* parent = nullptr);
    ~MainWindow() override;

    /// What the fields offer at the start.
    void setAddress(const QString& host, int port);
    void setScanSettings(const ScanSettings& settings);
    /// The log that the window follows.
    void followLog(const QString& path);

    enum class Page
    {
        Scan,
        Values,
        TimeStamps,
        Firmware,
        DataGroups
    };

    ValuePanel* values() const { return m_values; }
    TimeStampPanel* timeStamps() const { return m_timeStamps; }
    GroupsPanel* dataGroups() const { return m_dataGroups; }
    FirmwarePanel* firmware() const { return m_firmware; }
    /// Brings a page to the front.
    void showPage(Page page);

    /// Brings everything that is shown up to date, as before a picture is taken.
    void refreshNow();

protected:
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* makeLinkRow();
    QWidget* makeScanPage();
    QWidget* makeSaveGroup();
    QWidget* makeImagePanel();
    void makeStatusBar();
    void connectSignals();

    void repaintPlots();
    void updateState();
    void updateScanText();
    void updatePasses();
    void showMessage(const QString& text, bool isProblem);
    void toggleLink();
    void toggleLog();
    void saveAs(Snapshot snapshot, ScanKind kind, const QString& suggestion, const QString& filter);
    void showVoidLegend(bool show);

    Console* m_console;
    RepaintGate m_gate;
    bool m_closing = false; ///< the window closes when the link has ended
    QTimer m_textTimer;     ///< progress texts, a few times a second

    QTabWidget* m_pages = nullptr;
    ValuePanel* m_values = nullptr;
    TimeStampPanel* m_timeStamps = nullptr;
    FirmwarePanel* m_firmware = nullptr;
    GroupsPanel* m_dataGroups = nullptr;
    QLineEdit* m_host = nullptr;
    QSpinBox* m_port = nullptr;
    QPushButton* m_connect = nullptr;
    ScanPanel* m_scanPanel = nullptr;
    QPushButton* m_logButton = nullptr;
    QComboBox* m_pass = nullptr;
    QLabel* m_imageText = nullptr;
    QLabel* m_voidSample = nullptr;
    QLabel* m_voidText = nullptr;
    ImagePlot* m_image = nullptr;
    ProfilePlot* m_line = nullptr;
    ProfilePlot* m_stream = nullptr;
    LogView* m_log = nullptr;
    QLabel* m_linkText = nullptr;
    QLabel* m_scanText = nullptr;
    QLabel* m_message = nullptr;
};

} // namespace bench
