#pragma once

#include <QHash>
#include <QVector>
#include <QWidget>
#include <vorelutil/widgets/savable.h>

class DblEdit;
class QCheckBox;
class QFormLayout;
class QLabel;
class Simulator;
class UEditSpec;
class UnitEdit;

namespace bench {

class Console;
class GaugeBar;
class SweepPlot;
class SweepWatch;
class TicAxis;
class ValueRoad;

/// The controller's parameters in value fields, its read-back on a gauge, and a voltage sweep with its plot.
///
/// Step widths, the gauge's scale and alarm and the selection switch are settings that a store may keep.
class ValuePanel : public QWidget
{
    Q_OBJECT

public:
    /// `console` must outlive the panel. `simulator`, whose manners the panel offers to change, may be null;
    /// else it must outlive the panel, too.
    ValuePanel(Console* console, Simulator* simulator, QWidget* parent = nullptr);
    ~ValuePanel() override;

    /// The first field that is bound to an address; null: none.
    UnitEdit* field(int address) const;
    UEditSpec* sweepField() const { return m_sweepField; }
    SweepWatch* sweepWatch() const { return m_sweepWatch; }
    SweepPlot* sweepPlot() const { return m_sweepPlot; }
    /// The selection switch, for other fields that look at it.
    const bool* selectOnFocus() const { return &m_selectOnFocus; }

protected:
    void changeEvent(QEvent* event) override;

private slots:
    void savableChanged(QString name, QString value);

private:
    QWidget* makeValueGroup();
    QWidget* makeGaugeGroup();
    QWidget* makeSweepGroup();
    QWidget* makeSimulatorGroup(Simulator* simulator);
    UnitEdit* addField(QFormLayout* form, int address, const QString& label, bool isEntry = true);
    void bind(int address, UnitEdit* field, const QString& label, bool isEntry);
    void shareSteps();
    void keepSteps(UnitEdit* field);
    void leave();
    void applyColours();
    void applyScale();
    void showReadBack(int raw);
    void showAlarm();
    void plotReadBack(int number, int reason, int raw);

    Console* m_console;
    ValueRoad* m_road;
    struct Steps
    {
        bool useRel;
        int relStep;
        double absStep;
    };
    QVector<QPair<int, UnitEdit*>> m_fields; ///< with their addresses
    QHash<QString, Steps> m_steps;           ///< told last in a group
    bool m_holdsLink = false;                ///< until the end of a sweep is confirmed
    bool m_selectOnFocus = true;             ///< the fields look at it
    QCheckBox* m_selectBox = nullptr;
    GaugeBar* m_gauge = nullptr;
    TicAxis* m_axis = nullptr;
    DblEdit* m_fullScale = nullptr;
    DblEdit* m_alarm = nullptr;
    QLabel* m_alarmText = nullptr;
    UEditSpec* m_sweepField = nullptr;
    SweepWatch* m_sweepWatch = nullptr;
    SweepPlot* m_sweepPlot = nullptr;
    QHash<int, QPair<int, bool>> m_readings; ///< under way, by number: point of a sweep, backward
    Savable m_storedScale;
    Savable m_storedAlarm;
    Savable m_storedSelection;
};

} // namespace bench
