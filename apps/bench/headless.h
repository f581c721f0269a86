#pragma once

#include "apps/timestamps/histogram.h"
#include "console.h"

#include <memory>
#include <QHash>
#include <QTimer>
#include <QVector>

namespace bench {

class MainWindow;

/// Takes the console's roads by itself: values through their fields, a sweep, an area, a line, a stream with
/// its log, time stamps; then the area goes on until the time is over.
///
/// The files hold the first whole frame of each kind, of the stream's samples exactly that frame's, and the
/// first events of the time-stamp stream, so that their contents depend on the controller alone.
class HeadlessRun : public QObject
{
    Q_OBJECT

public:
    /// `console` and `window` must outlive the run. The console is to be connected by the caller, the folder
    /// to exist.
    HeadlessRun(Console* console, MainWindow* window, const QString& folder, const ScanSettings& scan,
                double seconds, QObject* parent = nullptr);

    /// Ends the run early, as a failure.
    void interrupt();

signals:
    /// The run is over. Empty: every road was taken; else what went wrong.
    void finished(const QString& failure);

private:
    enum class Step
    {
        Values,
        Sweep,
        Area,
        Line,
        Stream,
        TimeStamps,
        Dwell,
        Ending
    };

    void begin(Step step);
    void enterValues();
    void startSweep();
    void onAcknowledged(int number, int reason, int value);
    void checkFields();
    void onSweepEnded(bool done);
    void onFrame(ScanKind kind);
    void startTimeStamps();
    void onEvents(const PpTimest* events, std::size_t count);
    void saveTimeStamps();
    void onStopped();
    void onScanFailed(const QString& text);
    void onStopFailed(const QString& text);
    void onTimeOver();
    void save(Snapshot snapshot, ScanKind kind, const char* name);
    void fail(const QString& text);
    void finish();
    bool writePictures();
    bool writeSummary();
    QString path(const char* name) const;
    QString stepName() const;

    Console* m_console;
    MainWindow* m_window;
    QString m_folder;
    ScanSettings m_settings;
    double m_seconds;
    QTimer m_deadline;
    Step m_step = Step::Values;
    QVector<int> m_entered;    ///< indices of the values that are not confirmed yet
    QHash<int, int> m_reading; ///< requests that are under way: number to index of the value
    QString m_problem;         ///< the last one that the console told
    bool m_haveFrame = false;  ///< of this step
    EventLog m_events;
    std::unique_ptr<timestamps::StartStopHistogram> m_histogram; ///< of what is in `m_events`
    bool m_eventsDone = false;
    bool m_over = false;
};

} // namespace bench
