#pragma once

#include <QTimer>
#include <QWidget>

class QGroupBox;
class QLabel;
class QProgressBar;
class QPushButton;

namespace bench {

class Console;
class FirmwareRoad;
struct FirmwareRemark;

/// A firmware image beside the device: what both are, how they compare, and the download.
///
/// An image is opened with the button, or dropped on the page. A download is asked for twice: the second
/// time with both named. All that an image says of itself is shown as plain text, without control characters
/// and not without end; what does not fit into its line is shown by the tool tip.
class FirmwarePanel : public QWidget
{
    Q_OBJECT

public:
    /// `console` must outlive the panel.
    explicit FirmwarePanel(Console* console, QWidget* parent = nullptr);
    ~FirmwarePanel() override;

    /// Asks whether the image shall be downloaded; without an image or a link it says why not.
    void askForDownload();

    enum Line
    {
        Name,
        Kind,
        Product,
        Version,
        Part,
        Size,
        Remark,    ///< what is odd about the image
        OpenError, ///< why the last file was not opened
        DeviceProduct,
        DeviceVersion,
        Match, ///< of the products
        Order, ///< of the versions
        Pace,  ///< progress in numbers
        Result,
        LineCount
    };
    /// What is shown there.
    QString text(Line line) const;
    QPushButton* downloadButton() const { return m_download; }
    QPushButton* cancelButton() const { return m_cancel; }
    QProgressBar* bar() const { return m_bar; }

    /// Brings everything up to date.
    void refreshNow();

protected:
    void changeEvent(QEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    QGroupBox* makeImageGroup();
    QGroupBox* makeDeviceGroup();
    QGroupBox* makeDownloadGroup();
    void askForImage();
    void showImage();
    void showDevice();
    void showRemark(Line line, const FirmwareRemark& remark);
    void showDownload();
    void setText(Line line, const QString& text);
    void setColour(Line line, const QColor& colour);

    Console* m_console;
    FirmwareRoad* m_road;
    QLabel* m_lines[LineCount] = {};
    QPushButton* m_open = nullptr;
    QPushButton* m_download = nullptr;
    QPushButton* m_cancel = nullptr;
    QProgressBar* m_bar = nullptr;
    QTimer m_showTimer; ///< while a download goes on
};

} // namespace bench
