#pragma once

#include "repaintgate.h"
#include "timestamproad.h"

#include <QTimer>
#include <QVector>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLayout;
class QPushButton;
class Savable;
class UnitEdit;

namespace bench {

class Console;
class HistogramPlot;
class RateTable;

/// A time-stamp stream: its settings, the start-stop histogram as it grows, rates, and what went wrong.
///
/// A change of a field takes effect at once. All fields are settings that a store may keep. Painted about ten
/// times a second, and only while it is seen.
class TimeStampPanel : public QWidget
{
    Q_OBJECT

public:
    enum Field
    {
        Rate,
        StartChannel,
        StopChannel,
        BinWidth,
        Bins,
        Divider,
        StartPeriod,
        Offset0, ///< and those of the channels 1 to 7
        FieldCount = Offset0 + 8
    };

    /// `console` must outlive the panel, and so must `*selectOnFocus`, which its fields look at.
    TimeStampPanel(Console* console, const bool* selectOnFocus, QWidget* parent = nullptr);
    ~TimeStampPanel() override;

    UnitEdit* field(int which) const { return m_fields[which]; }
    HistogramPlot* plot() const { return m_plot; }
    RateTable* table() const { return m_table; }
    /// What is said of faults; empty: there were none.
    QString problemText() const;

    /// What the fields say.
    TimeStampSettings settings() const;
    /// Fills the fields, which takes effect as if they were entered.
    /// `isKept`: and as if it were the operator's choice, which the store keeps.
    void setSettings(const TimeStampSettings& settings, bool isKept = true);

    /// Brings everything up to date, also where it is not seen.
    void refreshNow();

protected:
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private slots:
    void savableChanged(QString name, QString value);

private:
    QGroupBox* makeStreamGroup();
    QGroupBox* makeHistogramGroup();
    QGroupBox* makeDecoderGroup();
    QGroupBox* makeSaveGroup();
    UnitEdit* makeField(int which, const bool* selectOnFocus);
    QLayout* makePair(int first, int second);
    void setValue(int which, qint64 value);
    void chooseFormat();
    void apply(bool isKept = true);
    void setTabOrders();
    void updateState();
    void updateTexts();
    void repaintNow();
    void applyColours();
    void saveHistogram();
    void toggleEventLog();

    Console* m_console;
    TimeStampRoad* m_road;
    RepaintGate m_gate;
    timestamps::Format m_format = timestamps::Format::F56; ///< chosen last
    QVector<UnitEdit*> m_fields;
    QVector<Savable*> m_stored; ///< of the fields, in their order
    Savable* m_storedFormat = nullptr;
    Savable* m_storedScale = nullptr;
    QComboBox* m_formatBox = nullptr;
    QCheckBox* m_logBox = nullptr;
    QPushButton* m_start = nullptr;
    QPushButton* m_stop = nullptr;
    QPushButton* m_clearButton = nullptr;
    QPushButton* m_histogramButton = nullptr;
    QPushButton* m_eventsButton = nullptr;
    QTimer m_ageTimer;
    HistogramPlot* m_plot = nullptr;
    RateTable* m_table = nullptr;
    QLabel* m_streamText = nullptr;
    QLabel* m_histogramText = nullptr;
    QLabel* m_problemText = nullptr;
};

} // namespace bench
