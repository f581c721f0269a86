#include "packets.h"

#include "apps/controller/addresses.h"

#include <algorithm>
#include <limits>

using namespace controller;

namespace {

constexpr std::uint8_t firstMarker = 100;
constexpr std::uint32_t startChannel60 = 5;
constexpr std::uint32_t carrierChannel60 = 6;
constexpr std::uint32_t idleCode = 63; ///< of format 60b: delivers nothing

bool isMarker(const PpTimest& event)
{
    return event.channel >= firstMarker;
}

/// Place of a marker's bit among the flags of format 60: 100 to 104, then 200 to 203.
std::uint32_t markerBit(std::uint8_t code)
{
    return code < 200 ? code - 100u : code - 195u;
}

/// Code of formats 52 and 60b.
std::uint32_t code60b(std::uint8_t channel)
{
    if (channel < firstMarker) return channel;
    if (channel == 104) return 41;
    return channel < 200 ? channel - 67u : channel - 163u;
}

/// Whether a two's complement number of so many bits can hold the value.
bool fits(std::int64_t value, int bits)
{
    const std::int64_t limit = std::int64_t(1) << (bits - 1);
    return value >= -limit && value < limit;
}

/// The value's lowest bits.
std::uint32_t low(std::int64_t value, int bits)
{
    return std::uint32_t(std::uint64_t(value) & ((std::uint64_t(1) << bits) - 1));
}

} // namespace

PacketWriter::PacketWriter()
    : m_encoder(tdc56Init())
{
    m_steps.reserve(maxEvents);
    m_bytes.reserve(4 * maxWords);
}

void PacketWriter::begin(std::int32_t format)
{
    m_format = format;
    tdc56Reset(m_encoder.get());
}

std::size_t PacketWriter::write(std::int64_t time, const PpTimest* events, std::size_t count,
                                std::uint32_t* words)
{
    switch (m_format) {
    case timeStamps56:
        words[0] = 0x10000000u | low(time >> 28, 28);
        return 1 + encode(events, count, words + 1);
    case timeStamps52:
        words[0] = 0xFC000000u | low(time >> 26, 26);
        return 1 + encode(events, count, words + 1);
    case timeStamps52x:
        return write52x(time, events, count, words);
    case timeStamps60:
        return write60(time, events, count, words);
    case timeStamps60b:
        return write60b(time, events, count, words);
    default:
        return 0;
    }
}

/// Formats 56, without the markers, and 52. The encoder writes a high word whenever the high part has grown.
std::size_t PacketWriter::encode(const PpTimest* events, std::size_t count, std::uint32_t* words)
{
    const auto encoder = m_format == timeStamps56 ? tdc56Encode : tdc56Encode52;
    const PpTimest* const end = events + count;
    std::size_t n = 0;
    while (events != end) {
        const PpTimest* const stop = m_format == timeStamps56 ? std::find_if(events, end, isMarker) : end;
        int part = int(stop - events);
        n += std::size_t(encoder(m_encoder.get(), events, &part, words + n, int(maxWords - 1 - n)));
        events = stop == end ? end : stop + 1;
    }
    return n;
}

std::size_t PacketWriter::write52x(std::int64_t time, const PpTimest* events, std::size_t count,
                                   std::uint32_t* words)
{
    std::int64_t high = time >> 28;
    std::size_t n = 0;
    words[n++] = low(high, 28);
    for (const PpTimest* event = events; event != events + count; ++event) {
        if (isMarker(*event)) continue;
        if (event->time >> 28 != high) {
            high = event->time >> 28;
            words[n++] = low(high, 28);
        }
        words[n++] = 0x80000000u | std::uint32_t(event->channel) << 28 | low(event->time, 28);
    }
    return n;
}

/// An absolute time, then in each record as many events as their deltas allow: three, two or one.
std::size_t PacketWriter::write60(std::int64_t time, const PpTimest* events, std::size_t count,
                                  std::uint32_t* words)
{
    m_steps.clear();
    std::int64_t before = time;
    for (const PpTimest* event = events; event != events + count; ++event) {
        std::int64_t at = event->time;
        std::uint32_t channel = event->channel == 0 ? startChannel60 : event->channel;
        if (isMarker(*event)) { // markers of one time share a carrier
            channel = carrierChannel60;
            at += std::int64_t(1) << markerBit(event->channel);
            for (; event + 1 != events + count && isMarker(event[1]) && event[1].time == event->time; ++event)
                at += std::int64_t(1) << markerBit(event[1].channel);
        }
        m_steps.push_back({at - before, channel});
        before = at;
    }

    std::size_t n = 0;
    words[n++] = low(time, 30);
    words[n++] = 0x80000000u | low(time >> 30, 30);
    const auto fit = [this](std::size_t first, std::size_t number, int bits) {
        if (m_steps.size() - first < number) return false;
        return std::all_of(m_steps.begin() + std::ptrdiff_t(first),
                           m_steps.begin() + std::ptrdiff_t(first + number),
                           [bits](const Step& step) { return fits(step.delta, bits); });
    };
    for (std::size_t i = 0; i < m_steps.size();) {
        const Step* const step = &m_steps[i];
        if (fit(i, 3, 17)) {
            const std::uint32_t middle = low(step[1].delta, 17);
            words[n++] =
                0x40000000u | low(step[0].delta, 17) | step[0].channel << 17 | (middle & 0x3FF) << 20;
            words[n++] = 0x80000000u | middle >> 10 | step[1].channel << 7 | low(step[2].delta, 17) << 10 |
                         step[2].channel << 27;
            i += 3;
        } else if (fit(i, 2, 27)) {
            words[n++] = low(step[0].delta, 27) | step[0].channel << 27;
            words[n++] = 0xC0000000u | low(step[1].delta, 27) | step[1].channel << 27;
            i += 2;
        } else {
            words[n++] = 0x40000000u | low(step[0].delta, 30);
            words[n++] = 0xC0000000u | low(step[0].delta >> 30, 27) | step[0].channel << 27;
            i += 1;
        }
    }
    return n;
}

/// An absolute time, then each event in the shortest record.
std::size_t PacketWriter::write60b(std::int64_t time, const PpTimest* events, std::size_t count,
                                   std::uint32_t* words)
{
    m_bytes.clear();
    const auto put = [this](std::uint64_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) m_bytes.push_back(std::uint8_t(value >> (8 * i)));
    };
    put(std::uint64_t(time) << 2 | 3, 8);
    for (const PpTimest* event = events; event != events + count; ++event) {
        std::int64_t delta = event->time - time;
        time = event->time;
        if (!fits(delta, 32)) {
            put(std::uint64_t(time) << 2 | 3, 8);
            delta = 0;
        }
        const int type = fits(delta, 16) ? 0 : fits(delta, 24) ? 1 : 2;
        put(code60b(event->channel) << 2 | std::uint32_t(type), 1);
        put(std::uint64_t(delta), type + 2);
    }
    // To whole words, with records of 3 and 5 bytes.
    while (m_bytes.size() % 4 != 0) {
        const bool five = m_bytes.size() % 4 == 3;
        put(idleCode << 2 | (five ? 2 : 0), 1);
        put(0, five ? 4 : 2);
    }
    const std::size_t n = m_bytes.size() / 4;
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* const b = &m_bytes[4 * i];
        words[i] = std::uint32_t(b[0]) | std::uint32_t(b[1]) << 8 | std::uint32_t(b[2]) << 16 |
                   std::uint32_t(b[3]) << 24;
    }
    return n;
}
