#include "tdcdecode.h"

#include "tdc56.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace {

using namespace tdc;

// How a word of each of the one-word formats is read.

struct Format56
{
    static constexpr int lowBits = 28;
    static constexpr bool wraps = true;
    static bool isHigh(std::uint32_t word) { return (word & 0x10000000U) != 0; }
    static std::uint32_t code(std::uint32_t word) { return word >> 29; }
};

struct Format52x
{
    static constexpr int lowBits = 28;
    static constexpr bool wraps = true;
    static bool isHigh(std::uint32_t word) { return (word & 0x80000000U) == 0; }
    static std::uint32_t code(std::uint32_t word) { return (word >> 28) & 7U; }
};

struct Format52
{
    static constexpr int lowBits = 26;
    static constexpr bool wraps = false; // kept: the low part is added as it stands
    static bool isHigh(std::uint32_t word) { return word >> 26 == 63; }
    static std::uint32_t code(std::uint32_t word) { return word >> 26; }
};

/// Skips what comes before the first high word, and counts it.
template <class Format>
const std::uint32_t* skipToHigh(Tdc56Instance& instance, const std::uint32_t* word, const std::uint32_t* end)
{
    if (instance.highBase >= 0) return word;
    const std::uint32_t* const first = word;
    while (word != end && !Format::isHigh(*word)) ++word;
    instance.droppedWords += static_cast<std::uint64_t>(word - first);
    return word;
}

/// Calls `event(time, code)` for each event word, while there is room. Result: where it stopped.
template <class Format, class Sink, class Event>
const std::uint32_t* decodeWords(Tdc56Instance& instance, const std::uint32_t* word, const std::uint32_t* end,
                                 const Sink& sink, Event event)
{
    constexpr std::uint32_t lowMask = (1U << Format::lowBits) - 1;
    std::int64_t time = instance.time;
    std::int64_t high = instance.highBase;
    while (const std::ptrdiff_t most = std::min(end - word, sink.room())) {
        for (const std::uint32_t* const stop = word + most; word != stop; ++word) {
            const std::uint32_t value = *word & lowMask;
            if (Format::isHigh(*word)) {
                high = std::int64_t{value} << Format::lowBits;
                continue;
            }
            std::int64_t now = Tdc56Instance::wrappingSum(high, value);
            if (rarely(Format::wraps && time > now)) {
                high = Tdc56Instance::wrappingSum(high, lowMask + 1);
                now = Tdc56Instance::wrappingSum(high, value);
            }
            time = now;
            event(now, Format::code(*word));
        }
    }
    instance.time = time;
    instance.highBase = high;
    return word;
}

/// The caller's array.
struct CallerSink
{
    PpTimest* next;

    static constexpr std::ptrdiff_t room() { return std::numeric_limits<std::ptrdiff_t>::max(); }
};

} // namespace

void tdc56Decode(Tdc56Instance* instance, const uint32_t* words, int count)
{
    if (count <= 0) return;
    const std::uint32_t* const end = words + count;
    const std::uint32_t* word = skipToHigh<Format56>(*instance, words, end);
    decode(*instance, static_cast<std::size_t>(end - word), [&](auto& sink, auto& step) {
        word =
            decodeWords<Format56>(*instance, word, end, sink, [&](std::int64_t time, std::uint32_t channel) {
                sink.put(step.event(sink, time, channel == 0), static_cast<std::uint8_t>(channel), 1);
            });
    });
}

void tdc56Decode52(Tdc56Instance* instance, const uint32_t* words, int count, uint32_t markerMask)
{
    if (count <= 0) return;
    const CodeTable table(markerMask);
    const std::uint32_t* const end = words + count;
    const std::uint32_t* word = skipToHigh<Format52>(*instance, words, end);
    decode(*instance, static_cast<std::size_t>(end - word), [&](auto& sink, auto& step) {
        word = decodeWords<Format52>(*instance, word, end, sink, [&](std::int64_t time, std::uint32_t code) {
            const std::int64_t stamp = code < CodeTable::channels ? step.event(sink, time, false) : time;
            sink.put(stamp, table.code[code], table.deliver[code]);
        });
    });
}

int tdc56Decode52x(Tdc56Instance* instance, const uint32_t* words, int count, PpTimest* output)
{
    if (count <= 0) return 0;
    const std::uint32_t* const end = words + count;
    const std::uint32_t* const word = skipToHigh<Format52x>(*instance, words, end);
    CallerSink sink{output};
    decodeWords<Format52x>(*instance, word, end, sink, [&](std::int64_t time, std::uint32_t channel) {
        *sink.next++ = PpTimest{time, static_cast<std::uint8_t>(channel), {}};
    });
    return static_cast<int>(sink.next - output);
}
