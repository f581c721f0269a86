#include "instance.h"
#include "tdc56.h"

namespace {

constexpr std::uint8_t firstMarker = 100;
constexpr std::uint8_t firstHighMarker = 200;

/// Formats 56 and 52: one word a record, the low `bits` of the time and what `code` makes of the channel.
/// The high word is written when the high part has grown, and the event follows with the next word.
template <int bits, class HighBits, class Code>
int encodeWords(Tdc56Instance* instance, const PpTimest* events, int* count, std::uint32_t* output,
                int capacity, HighBits highBits, Code code)
{
    constexpr std::uint32_t lowMask = (std::uint32_t{1} << bits) - 1;
    int consumed = 0;
    int written = 0;
    while (consumed < *count && written < capacity) {
        const PpTimest& event = events[consumed];
        const auto time = static_cast<std::uint64_t>(event.time);
        const std::uint32_t high = static_cast<std::uint32_t>(time >> bits) & lowMask;
        if (high > instance->lastEncodedHigh) {
            output[written++] = high | highBits(event.channel);
            instance->lastEncodedHigh = high;
        } else {
            output[written++] = (static_cast<std::uint32_t>(time) & lowMask) | code(event.channel);
            ++consumed;
        }
    }
    *count = consumed;
    return written;
}

/// The code of format 52, at its place in the word; what does not fit the six bits is cut off.
std::uint32_t code52(std::uint32_t channel)
{
    if (channel == 104) return 41U << 26;
    if (channel >= firstHighMarker) return (channel - 163) << 26;
    if (channel >= firstMarker) return (channel - 67) << 26;
    return channel << 26;
}

/// Time of a marker's carrier: the grid's last point at or before `time` (for a negative time: the next
/// one after it), and the marker's flag.
std::uint64_t carrierTime(std::int64_t time, std::uint8_t marker)
{
    const int bit = marker % 100 + (marker >= firstHighMarker ? 5 : 0);
    // There are no markers 164 to 199; their 2^64 and above is 0 in arithmetic that wraps.
    const std::uint64_t flag = bit < 64 ? std::uint64_t{1} << bit : 0;
    return static_cast<std::uint64_t>(time / 5000 * 5000) + flag;
}

/// Writes bytes as far as they are inside; the position advances in any case.
class ByteWriter
{
public:
    ByteWriter(std::uint8_t* output, std::int64_t capacity)
        : m_output(output)
        , m_capacity(capacity)
    {
    }
    bool full() const { return m_position >= m_capacity; }
    std::int64_t position() const { return m_position; }
    void skip() { ++m_position; }
    /// The low `size` bytes of a value, lowest first.
    void put(std::uint64_t value, int size)
    {
        for (; size > 0; --size, value >>= 8, ++m_position)
            if (!full()) m_output[m_position] = static_cast<std::uint8_t>(value);
    }

private:
    std::uint8_t* m_output;
    std::int64_t m_capacity;
    std::int64_t m_position = 0;
};

} // namespace

int tdc56Encode(Tdc56Instance* instance, const PpTimest* events, int* count, uint32_t* output, int capacity)
{
    // Kept: the channel stands in the high word too.
    return encodeWords<28>(
        instance, events, count, output, capacity,
        [](std::uint32_t channel) { return channel << 29 | 0x10000000U; },
        [](std::uint32_t channel) { return channel << 29; });
}

int tdc56Encode52(Tdc56Instance* instance, const PpTimest* events, int* count, uint32_t* output, int capacity)
{
    return encodeWords<26>(
        instance, events, count, output, capacity, [](std::uint32_t) { return 0xFC000000U; }, code52);
}

int tdc56Encode60(Tdc56Instance* instance, const PpTimest* events, int* count, uint32_t* output, int capacity)
{
    constexpr std::uint64_t low30 = 0x3FFFFFFF;
    const int available = *count;
    *count = 0;
    if (available <= 0 || capacity < 2) return 0;

    const auto first = static_cast<std::uint64_t>(events[0].time);
    output[0] = static_cast<std::uint32_t>(first & low30);
    output[1] = static_cast<std::uint32_t>((first >> 30) & low30) | 0x80000000U;
    instance->lastEncodedHigh = first;
    int written = 2;
    for (; *count < available && capacity - written >= 2; ++*count) {
        const PpTimest& event = events[*count];
        const bool marker = event.channel >= firstMarker;
        const std::uint64_t time =
            marker ? carrierTime(event.time, event.channel) : static_cast<std::uint64_t>(event.time);
        const std::uint32_t channel = marker ? 6 : event.channel; // of which three bits are kept
        const std::uint64_t delta = time - instance->lastEncodedHigh;
        instance->lastEncodedHigh = time;
        output[written++] = static_cast<std::uint32_t>(delta & low30) | 0x40000000U;
        output[written++] =
            (static_cast<std::uint32_t>(delta >> 30) & 0x07FFFFFFU) | channel << 27 | 0xC0000000U;
    }
    return written;
}

int tdc56Encode60b(Tdc56Instance* /*instance*/, const PpTimest* events, int* count, uint8_t* output,
                   int capacity)
{
    ByteWriter bytes(output, std::int64_t{capacity} * 4);
    int consumed = 0;
    for (; consumed < *count && !bytes.full(); ++consumed) {
        const std::int64_t time = events[consumed].time;
        const auto value = static_cast<std::uint64_t>(time);
        const std::uint64_t code = std::uint64_t{events[consumed].channel} * 4;
        // Kept: these are not the records that the decoder reads.
        if (time > 0xFFFFFFFF) {
            bytes.put(value * 4, 8);
            bytes.put(code & 0xFF, 3);
        } else if (time > 0xFFFFFF) {
            bytes.put(value, 4);
            bytes.skip();
        } else if (time > 0xFFFF) {
            bytes.put(code + 1, 1);
            bytes.put(value, 3);
        } else if (time > 0) {
            bytes.put(code + 1, 1);
            bytes.put(value, 2);
        }
    }
    *count = consumed;
    return static_cast<int>(bytes.position() / 4);
}
