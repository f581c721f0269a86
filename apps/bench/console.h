#pragma once

#include "eventlog.h"
#include "safesave.h"
#include "scan.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class ControllerLink;

namespace bench {

class FirmwareRoad;
class TimeStampRoad;

/// The instrument console without its window: link, scan, frames, time stamps, firmware, running logs,
/// saving.
///
/// The window shows it, the run without a window drives it, tests use it as it is. GUI thread only. While a
/// controller sends more than can be processed, events are handled between its telegrams.
class Console : public QObject
{
    Q_OBJECT

public:
    explicit Console(QObject* parent = nullptr);
    ~Console() override;

    ControllerLink* link() const { return m_link; }
    Scan* scan() const { return m_scan; }
    TimeStampRoad* timeStamps() const { return m_timeStamps; }
    FirmwareRoad* firmware() const { return m_firmware; }

    void connectTo(const QString& host, int port);
    /// Ends the link. A running scan or time-stamp stream is stopped before, a download is cancelled, and who
    /// hears `leaving` may do more: the link then ends when the controller has answered, or after
    /// `stopMilliseconds` without an answer.
    void disconnectFrom();
    /// During `leaving`: the link is to stay until `release`, called once for each.
    void hold() { ++m_holds; }
    void release();
    static constexpr int stopMilliseconds = 1000;
    /// Connected, and the controller has said where its positions begin: scans can start.
    bool isReady() const { return m_ready; }

    /// Starts a scan; what stands in its way is told through `message`.
    bool startScan(const ScanSettings& settings);

    /// Stops the scan, or what the controller acquires that is no scan of this console.
    void stopScan();
    /// There is something to stop.
    bool canStop() const { return m_stillAcquiring || !m_scan->isIdle(); }

    /// The last whole frame of a kind; null when there is none yet.
    SharedFrame lastFrame(ScanKind kind) const;
    /// The frame that is being filled, when it is of this kind; else null.
    const FrameBuffer* runningFrame(ScanKind kind) const;

    /// Saves the last whole frame of a kind, or what there is of the first one. Told through `message` too.
    SaveResult save(Snapshot snapshot, ScanKind kind, const QString& target, bool forward);

    /// Logs the samples that arrive from now on. Told through `message` too, as the end is.
    SaveResult startLog(const QString& target);
    SaveResult stopLog();
    bool isLogging() const { return m_log.isRunning(); }
    qint64 loggedCount() const { return m_log.count(); }

    /// Starts the time-stamp stream; what stands in its way is told through `message`.
    bool startTimeStamps();

    /// Saves the histogram as it is.
    SaveResult saveHistogram(const QString& target);
    /// Saves the events that are decoded from now on, until the stream that they are of ends. Told through
    /// `message` too, as the end is.
    SaveResult startEventLog(const QString& target);
    /// The file is read back and gets its name in the background; what became of it is told.
    void stopEventLog();
    /// An event log that has ended is still being read back. None can be started.
    bool isCheckingEvents() const { return m_checkedLog.valid(); }
    /// Waits until it is not.
    void finishEventLog();
    bool isLoggingEvents() const { return m_eventLog.isRunning(); }
    std::uint64_t loggedEvents() const { return m_eventLog.count(); }

    /// Tells the operator: emits `message`, and writes to the trace log.
    void tell(const QString& text, bool isProblem);

signals:
    void readyChanged(bool ready);
    /// The link is about to end.
    void leaving();
    /// The controller goes on, or no longer goes on, with what is no scan of this console.
    void stillAcquiringChanged();
    /// A frame is whole; `lastFrame` returns it.
    void frameDone(bench::ScanKind kind);
    /// A log of events was begun, has ended, or is saved.
    void eventLogChanged();
    /// Something for the operator to read; it is in the trace log, too.
    void message(const QString& text, bool isProblem);
    /// What was told with this text is over.
    void overcome(const QString& text);

private:
    void onLinkState();
    void endLink();
    void endLinkIfLeaving();
    void onScanEnded();
    void onStreamState();
    void askForAcquisition();
    void setStillAcquiring(bool acquiring);
    void watch();
    void breathe();
    void handleEventsIfDue();
    void onAcknowledged(int number, int address, int index, int reason, int value);
    void setReady(bool ready);
    SaveResult told(const SaveResult& result);

    ControllerLink* m_link;
    Scan* m_scan;
    TimeStampRoad* m_timeStamps;
    FirmwareRoad* m_firmware;
    RunningLog m_log;
    EventLog m_eventLog;
    std::future<SaveResult> m_checkedLog; ///< valid until its result was told
    QTimer m_checkTimer;
    QTimer m_heartbeat; ///< fires when the event loop runs
    QElapsedTimer m_sinceHeartbeat;
    SharedFrame m_frames[3];      ///< by kind
    int m_positionRequest = 0;    ///< number of the request for the first position; 0: none under way
    int m_acquisitionRequest = 0; ///< of the request for what is acquired
    int m_stopRequest = 0;        ///< of the request to stop what is no scan of ours
    bool m_positionKnown = false;
    bool m_stillAcquiring = false;
    int m_holds = 0;            ///< until the link may end
    bool m_scanStops = false;   ///< the link ends after it
    bool m_streamStops = false; ///< the same of the time stamps
    QTimer m_leaveTimer;        ///< active: the link ends when the scan has stopped, at the latest then
    QTimer m_watchTimer;
    qint64 m_arrived = 0;      ///< telegrams from the controller
    qint64 m_arrivedThen = -1; ///< when they were last looked at
    int m_quietWatches = 0;    ///< since one came
    bool m_ready = false;
};

/// What the files call the signal of a kind of scan.
QString channelName(ScanKind kind);

} // namespace bench
