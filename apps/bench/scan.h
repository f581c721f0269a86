#pragma once

#include "scansettings.h"

#include <cstdint>
#include <memory>
#include <QHash>
#include <QObject>
#include <QTimer>
#include <vector>

class ControllerLink;
class FrameBuffer;

namespace controller {
struct TelegramView;
}

namespace bench {

/// A frame that nobody changes any more, shared by all who look at it.
using SharedFrame = std::shared_ptr<const FrameBuffer>;

/// One scan at a time over a controller link: sets it up, collects its samples into frames, stops it.
///
/// Every setting is confirmed by the controller before the next step. Samples are told in blocks of any
/// length; they are cut at frame boundaries, so that each frame is complete by itself. Before positions reach
/// 2^30 the scan is stopped for a moment at a frame boundary and goes on at a low position; no sample is lost
/// or doubled. GUI thread only.
class Scan : public QObject
{
    Q_OBJECT

public:
    enum class State
    {
        Idle,
        Preparing,
        Running,
        RestartStopping,
        RestartPlacing,
        Stopping
    };

    explicit Scan(ControllerLink* link, QObject* parent = nullptr);
    ~Scan() override;

    /// Position from which scans start, as the controller stated it.
    void setFirstPosition(int position) { m_firstPosition = position; }

    /// Starts to set up a scan. False when one is running or the link is not connected.
    bool start(const ScanSettings& settings);
    /// Stops; `stopped` follows when the controller has confirmed, else `stopFailed`. Nothing happens when
    /// idle.
    void stop();

    State state() const { return m_state; }
    bool isIdle() const { return m_state == State::Idle; }
    const ScanSettings& settings() const { return m_settings; }

    /// The frame that is being filled; null before the first scan. A scan that the controller did not start
    /// leaves frame and settings of the one before.
    const FrameBuffer* running() const { return m_running.get(); }

    /// Counters since construction, but `restarts`: since the start of the scan.
    qint64 sampleCount() const { return m_samples; }
    qint64 frameCount() const { return m_frames; } ///< whole frames
    qint64 gapCount() const { return m_gaps; }     ///< blocks that did not continue where the last one ended
    qint64 refusedCount() const { return m_refused; } ///< sample telegrams with positions that cannot be
    int restarts() const { return m_restarts; }

    static constexpr int confirmTimeoutMilliseconds = 10000;
    static constexpr qint64 loggedFaults = 100; ///< of each kind; more are counted alone

signals:
    void stateChanged();
    /// Samples of the running frame, in order and within one frame. `data` is valid during the signal only.
    void samplesAdded(const int* data, int count);
    /// A frame is whole: every sample of it was received, in order. Comes after its last `samplesAdded`.
    void frameDone(const bench::SharedFrame& frame);
    /// The scan has ended as it was asked to, and the controller has confirmed that.
    void stopped();
    /// The controller may go on: it refused to stop or did not confirm it, and the scan is running still; or
    /// the link was closed on purpose, and the scan is idle. `text` is for people.
    void stopFailed(const QString& text);
    /// The scan has ended otherwise; `text` is for people. `started`: the controller had confirmed the start.
    void failed(const QString& text, bool started);

private:
    void onAcknowledged(int number, int address, int index, int reason, int value);
    void onTold(const controller::TelegramView& telegram);
    void onLinkState();

    void addBlock(const int* data, std::size_t count, qint64 position);
    void addWithinFrame(const int* data, int count, qint64 position);
    void finishFrame(qint64 nextPosition);
    void restartIfDue(qint64 nextPosition);
    std::shared_ptr<FrameBuffer> freeBuffer();

    bool request(int address, qint64 value, const char* name);
    bool requestStop();
    void proceed();
    void onUnconfirmed();
    bool isStopUnderWay() const;
    void stopHasFailed(const QString& text);
    void goOn(const QString& text);
    void goIdle();
    void setState(State state);
    void end(const QString& failure);

    ControllerLink* m_link;
    ScanSettings m_settings;
    State m_state = State::Idle;
    ScanSettings m_earlierSettings; ///< until the start is confirmed
    std::shared_ptr<FrameBuffer> m_earlier;
    bool m_started = false; ///< the controller has confirmed the start
    qint64 m_firstPosition = 0;
    QHash<int, QString> m_waiting; ///< requests without an answer: number to what was asked, in words
    QTimer m_confirmTimer;

    std::shared_ptr<FrameBuffer> m_running;
    std::vector<std::shared_ptr<FrameBuffer>> m_pool; ///< buffers of this geometry, used again when free
    std::vector<std::int32_t> m_block;                ///< one telegram's samples
    qint64 m_expected = -1;                           ///< position of the next sample; -1: none received yet
    bool m_frameWhole = false;   ///< every sample since the frame's start was received in order
    bool m_accepting = false;    ///< the controller's samples belong to this scan
    bool m_limitReached = false; ///< a restart is due or under way

    qint64 m_samples = 0;
    qint64 m_frames = 0;
    qint64 m_gaps = 0;
    qint64 m_refused = 0;
    int m_restarts = 0;
};

} // namespace bench
