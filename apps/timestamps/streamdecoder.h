#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
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
/// One thread at a time.
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
    /// The stream is over: what waits in the queue comes out.
    void finish(const Sink& sink);

    /// Up to what was decoded so far.
    const Summary& summary() const;
    /// The stream's time, in clock periods.
    std::int64_t time() const;
};

} // namespace timestamps
