#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <queue>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

/// From a stream of packet words to events and histograms, for the programs.
namespace timestamps {

/// Numbered as the controller does.
enum class Format
{
    F56 = 1,
    F52 = 2,
    F52x = 3,
    F60 = 4,
    F60b = 5
};

constexpr int channelCount = 32;
constexpr int markerCount = 9;
extern const std::array<std::uint8_t, markerCount> markerCodes; ///< 100 to 104, 200 to 203

struct Settings
{
    Format format = Format::F56;
    std::uint32_t markerMask = 0x1FF;
    std::array<std::int32_t, 8> offsets = {}; ///< clock periods; all 0: not sorted
    std::int32_t divider = 1;                 ///< below 2: off; up to 16383 no event can get lost
    std::int64_t startPeriod = 0;             ///< clock periods; 0: is measured

    bool sorts() const;
    bool makesVirtualEvents() const;
};

/// Counted since the decoder was made.
struct Summary
{
    std::uint64_t words = 0; ///< read; format 60b: bytes
    std::array<std::uint64_t, channelCount> channels = {};
    std::array<std::uint64_t, markerCount> markers = {};
    std::uint64_t wordsBeforeHigh = 0; ///< event words dropped because no high word had come before them
    std::uint64_t orderingErrors = 0;  ///< format 60: words without a partner, skipped
    std::uint64_t lost = 0;            ///< events that exceeded the flat buffer (dividers above 16383)
    std::uint64_t cutBytes = 0;        ///< at the end of the stream: of a word or record that is not whole
};

/// Decodes a stream of any length in bounded memory and loses nothing: cuts it into packets that cannot
/// exceed the instance's buffer, keeps what is not whole for the next call, drains the queue at the end, and
/// merges what does not pass the queue (markers, channels above 7) into what does.
///
/// With offsets the events of a stream whose times ascend come in the order of their times; at equal times
/// channels 0 to 7 come first, by number. Events wait until no earlier one can come any more, also for one
/// with a negative offset: nothing depends on how the stream was cut. Some may still come late: virtual
/// events of format 60 that are due while only markers come, any event where the offsets differ by nearly
/// 2^31 or more, and what a stream brings that itself goes back in time. What waits takes memory: the events
/// within the largest difference between two offsets, or between 0 and one (16 to 40 bytes each).
///
/// With offsets and folding there is no such order: folded times begin anew all the time, and what is folded,
/// and shifted, comes sorted only among what is decoded at once, which depends on how the stream was cut.
///
/// Format 60: only adjacent first and second words are decoded; every other word is skipped and counted, so
/// that a missing word costs its record alone.
///
/// One thread at a time. May throw `std::bad_alloc`, and whatever the sink throws; decode no further then.
class StreamDecoder
{
public:
    /// Takes a batch of events, in the order in which the library delivers them; valid during the call.
    using Sink = std::function<void(const PpTimest* events, std::size_t count)>;

    explicit StreamDecoder(const Settings& settings);
    ~StreamDecoder();
    StreamDecoder(const StreamDecoder&) = delete;
    StreamDecoder& operator=(const StreamDecoder&) = delete;

    /// The next `size` bytes of the stream, cut anywhere. Words are little-endian.
    void decode(const void* data, std::size_t size, const Sink& sink);
    /// The stream is over: what waits in the queue comes out. Nothing may be decoded after it.
    void finish(const Sink& sink);

    /// Up to what was decoded so far.
    const Summary& summary() const;
    /// The stream's time, in clock periods.
    std::int64_t time() const;

private:
    struct Free
    {
        void operator()(Tdc56Instance* instance) const { tdc56DeInit(instance); }
    };
    using Instance = std::unique_ptr<Tdc56Instance, Free>;

    struct Waiting
    {
        PpTimest event;
        std::uint64_t order; ///< in which they came
    };
    struct ComesLater
    {
        bool operator()(const Waiting& a, const Waiting& b) const
        {
            return a.event.time != b.event.time ? a.event.time > b.event.time : a.order > b.order;
        }
    };

    void setOffsets();
    std::size_t eventsPerEvent() const;
    std::size_t packetSize() const;
    std::size_t decodePacket(const Sink& sink);
    void decodeWords(const std::uint32_t* words, std::size_t count, const Sink& sink);
    std::size_t keepPairs(std::size_t count, std::size_t* kept);
    void decodeOneByOne(std::uint32_t first, std::uint32_t second, const Sink& sink);
    void deliver(const Sink& sink);
    void deliverSorted(std::int64_t limit, const Sink& sink);
    void takeAside();
    const PpTimest* firstWaiting() const;
    void takeWaiting(const PpTimest* first);
    void hand(const PpTimest* events, std::size_t count, const Sink& sink);
    void summarize();

    const Settings m_settings;
    Instance m_instance; ///< while sorting: channels 0 to 7 alone
    Instance m_aside;    ///< while sorting, formats with markers: what does not pass the queue; else null
    bool m_sorting = false;
    std::int64_t m_delay = 0;        ///< added to all offsets, so that none is negative; taken off again
    const bool m_oneByOne;           ///< format 60: not even one record's events fit the buffer
    const std::size_t m_packetBytes; ///< the most that is decoded at once
    std::size_t m_filled = 0;        ///< bytes in `m_packet`
    std::int64_t m_time = 0;         ///< the stream's, before draining
    std::uint64_t m_bytes = 0;       ///< read
    Summary m_summary;
    std::array<std::uint64_t, 256> m_counts = {}; ///< events by code
    std::vector<std::uint32_t> m_packet;
    std::vector<PpTimest> m_events; ///< room for one pop
    std::vector<PpTimest> m_merged;
    std::deque<PpTimest> m_waiting; ///< set aside, ascending
    std::priority_queue<Waiting, std::vector<Waiting>, ComesLater>
        m_waitingBack;                                                 ///< those that lay before one
    std::int64_t m_highest = std::numeric_limits<std::int64_t>::min(); ///< of `m_waiting` so far
    std::uint64_t m_order = 0;                                         ///< of `m_waitingBack` so far
};

} // namespace timestamps
