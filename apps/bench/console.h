#pragma once

#include "safesave.h"
#include "scan.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class ControllerLink;

namespace bench {

/// The instrument console without its window: link, scan, frames, running log, saving.
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

    void connectTo(const QString& host, int port);
    /// Ends a running scan with the link; the controller is told to stop, but not waited for.
    void disconnectFrom();
    /// Connected, and the controller has said where its positions begin: scans can start.
    bool isReady() const { return m_ready; }

    /// Starts a scan; what stands in its way is told through `message`.
    bool startScan(const ScanSettings& settings);

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

signals:
    void readyChanged(bool ready);
    /// A frame is whole; `lastFrame` returns it.
    void frameDone(bench::ScanKind kind);
    /// Something for the operator to read; it is in the trace log, too.
    void message(const QString& text, bool isProblem);

private:
    void onLinkState();
    void breathe();
    void onAcknowledged(int number, int address, int index, int reason, int value);
    void setReady(bool ready);
    void tell(const QString& text, bool isProblem);
    SaveResult told(const SaveResult& result);

    ControllerLink* m_link;
    Scan* m_scan;
    RunningLog m_log;
    QTimer m_heartbeat; ///< fires when the event loop runs
    QElapsedTimer m_sinceHeartbeat;
    SharedFrame m_frames[3];   ///< by kind
    int m_positionRequest = 0; ///< number of the request for the first position; 0: none under way
    bool m_positionKnown = false;
    bool m_ready = false;
};

/// What the files call the signal of a kind of scan.
QString channelName(ScanKind kind);

} // namespace bench
