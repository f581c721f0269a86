#pragma once

#include "apps/timestamps/histogram.h"
#include "apps/timestamps/streamdecoder.h"

#include <array>
#include <memory>
#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>

class ControllerLink;

namespace controller {
struct TelegramView;
}

namespace bench {

/// What the operator chooses for a time-stamp stream. Times are in clock periods.
struct TimeStampSettings
{
    timestamps::Settings decoder; ///< format, offsets, divider, start period; all markers
    int rate = 100000;            ///< events per second that the controller is asked for
    int start = 0;                ///< channels, or marker codes, of the histogram
    int stop = 1;
    int binWidth = 10;
    int bins = 500;
};

/// The channel that a format starts its periods with: 5 in format 60, else 0.
int startChannel(timestamps::Format format);

/// From the controller's time-stamp packets to rates and a start-stop histogram.
///
/// A start ends what the controller may be streaming, sets the rate and then the format, each confirmed
/// before the next step; packets count from then on, so that a stream is decoded from its beginning. Packets
/// of another format than was asked for, or while nothing was asked for, are strays: counted, not decoded. A
/// stream that a lost link has ended is not started again by itself, and whoever starts one begins with a new
/// decoder.
///
/// Settings may change at any time and take effect at once, see `setSettings`. GUI thread only.
class TimeStampRoad : public QObject
{
    Q_OBJECT

public:
    enum class State
    {
        Idle,
        Preparing,
        Running,
        Stopping
    };

    static constexpr int confirmTimeoutMilliseconds = 10000;
    static constexpr qint64 rateClocks = 500000000; ///< of the stream's time, over which rates are taken
    static constexpr int quietMilliseconds = 5000;  ///< without a fault, after which the next one is told

    /// `link` must outlive the road.
    explicit TimeStampRoad(ControllerLink* link, QObject* parent = nullptr);
    ~TimeStampRoad() override;

    /// Another format begins the stream anew. Another offset, divider or start period begins a new decoder
    /// and clears everything; what concerns the histogram alone clears that. Another rate is sent, and clears
    /// the histogram when it is confirmed. Told through `message` while a stream runs. Values are brought
    /// within their ranges.
    void setSettings(const TimeStampSettings& settings);
    const TimeStampSettings& settings() const { return m_settings; }

    /// False when the link is not connected or a stream is running.
    bool start();
    /// What waits in the order of time comes out, and nothing more is decoded; `stopped` follows when the
    /// controller has confirmed, else `failed`. Ends what the controller streams for nobody, too. Nothing
    /// happens when there is nothing to stop.
    void stop();
    /// Counts, rates, histogram and faults begin anew; the stream goes on.
    void clear();

    State state() const { return m_state; }
    bool isIdle() const { return m_state == State::Idle; }
    /// There is something to stop.
    bool canStop() const;
    /// Why the last stream ended, or did not begin, if nobody stopped it; else empty. For people.
    const QString& endText() const { return m_endText; }
    /// The divider that the decoder has; with offsets it can be less than what was set.
    int divider() const { return m_divider; }

    /// What came since the start, the last change of a decoder's setting, or `clear`.
    struct Totals
    {
        timestamps::Summary decoded;
        qint64 strays = 0; ///< packets
        std::uint64_t events = 0;
        std::uint64_t markers = 0;
        qint64 time = 0; ///< of the stream, in clock periods
    };
    const Totals& totals() const { return m_totals; }
    /// Events per second of the stream's own time, over its last half second, or over what there is; while
    /// that time rests, per second of real time. NaN when nothing is measured: without a stream, when no
    /// packet has come for 1 s, and at the beginning.
    double channelRate(int channel) const;
    double markerRate(int marker) const;

    /// What came so far is counted in it by then.
    const timestamps::StartStopHistogram& settledHistogram();

    /// Since construction, whatever was cleared.
    std::uint64_t eventCount() const { return m_events; }
    std::uint64_t faultCount() const { return m_faultCount; }

signals:
    void stateChanged();
    /// A packet was decoded, or something was cleared.
    void changed();
    /// Between parts of a packet whose decoding may take long: a slot may handle events.
    void partDecoded();
    /// In the order in which they are delivered; `events` is valid during the signal only.
    void eventsDecoded(const PpTimest* events, std::size_t count);
    /// The controller has confirmed that it stopped.
    void stopped();
    /// The stream has ended otherwise, or goes on although it should have stopped; `text` is for people.
    void failed(const QString& text);
    /// For the operator to read.
    void message(const QString& text, bool isProblem);

private:
    void onAcknowledged(int number, int reason, int value);
    void onTold(const controller::TelegramView& telegram);
    void onLinkState();
    void onUnconfirmed();
    bool request(int address, int value, const QString& name);
    bool requestStop();
    void prepare();
    void proceed();
    void goIdle();
    void fail(const QString& text);
    void setState(State state);

    void decode(const controller::TelegramView& telegram);
    void countDecoded();
    void drain();
    void take(const PpTimest* events, std::size_t count);
    void renewDecoder();
    void renewHistogram();
    void tellFaults();

    /// Counts by channel, then by marker.
    using Counts = std::array<std::uint64_t, timestamps::channelCount + timestamps::markerCount>;
    static Counts countsOf(const timestamps::Summary& summary);
    void beginRates();
    void beginRateWindow(const Counts& counts, qint64 now);
    void measureRates();
    bool isMeasuring() const;
    std::size_t wordsPerPart() const;

    struct Fault
    {
        std::uint64_t count = 0;
        QElapsedTimer last; ///< when it grew
    };

    ControllerLink* m_link;
    TimeStampSettings m_settings;
    State m_state = State::Idle;
    bool m_accepting = false;      ///< the controller's packets belong to this stream
    bool m_strayStream = false;    ///< packets come, and nothing was asked for
    QHash<int, QString> m_waiting; ///< requests without an answer: number to what was asked, in words
    int m_rateRequest = 0;         ///< number of the request for another rate while the stream runs
    QTimer m_confirmTimer;
    QString m_endText;

    std::shared_ptr<timestamps::StreamDecoder> m_decoder;
    const timestamps::StreamDecoder* m_decoding = nullptr; ///< that hands over events
    std::shared_ptr<timestamps::StreamDecoder> m_drained;  ///< the decoder, once it was
    int m_divider = 1;
    timestamps::StreamDecoder::Sink m_sink;
    std::unique_ptr<timestamps::StartStopHistogram> m_histogram;
    Totals m_totals;
    timestamps::Summary m_base; ///< of the decoder, when it was cleared
    std::uint64_t m_events = 0;
    std::uint64_t m_faultCount = 0;
    QElapsedTimer m_sincePacket;
    QElapsedTimer m_rateClock; ///< since the window began; invalid: there is none yet
    Counts m_rateCounts = {};  ///< at `m_rateTime`, when it began
    qint64 m_rateTime = 0;
    qint64 m_lastTime = 0;      ///< of the stream, at the last packet
    QElapsedTimer m_sinceMoved; ///< since that time changed
    std::array<double, std::tuple_size<Counts>::value> m_rates = {};
    bool m_ratesWhole = false; ///< over a whole window
    std::array<Fault, 4> m_faults;
};

} // namespace bench
