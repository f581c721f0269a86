#include "streamencoder.h"

#include <algorithm>

namespace timestamps {
namespace {

constexpr std::size_t pieceEvents = 2047; ///< format 60: with the absolute time, 4096 words
constexpr std::size_t longestEvent = 11;  ///< format 60b: bytes
constexpr std::int64_t markerGrid = 5000; ///< format 60

/// What a format has bits for.
struct Range
{
    std::int64_t first, last; ///< times
    int channels;
    bool markers;
};

Range rangeOf(Format format)
{
    constexpr std::int64_t one = 1;
    switch (format) {
    case Format::F52:
        return {0, (one << 52) - 1, 32, true};
    case Format::F60: // at time 0 nothing is delivered
        return {1, (one << 60) - 1, 6, true};
    case Format::F60b: // events at 0 write nothing
        return {1, (one << 61) - 1, 64, false};
    default:
        return {0, (one << 56) - 1, 8, false};
    }
}

bool isMarker(std::uint8_t channel)
{
    return std::find(markerCodes.begin(), markerCodes.end(), channel) != markerCodes.end();
}

/// The time to which the encoder of format 60 moves for an event: a marker's carries its flag.
std::int64_t carriedTime(const PpTimest& event)
{
    if (event.channel < 100) return event.time;
    const int flag = event.channel % 100 + (event.channel >= 200 ? 5 : 0);
    return event.time / markerGrid * markerGrid + (std::int64_t{1} << flag);
}

/// Bytes of an event of format 60b.
std::size_t sizeOf60b(std::int64_t time)
{
    if (time > 0xFFFFFFFF) return longestEvent;
    if (time > 0xFFFFFF) return 5;
    return time > 0xFFFF ? 4 : 3;
}

} // namespace

StreamEncoder::StreamEncoder(Format format)
    : m_format(format)
    , m_instance(tdc56Init())
{
}

std::size_t StreamEncoder::encode(const PpTimest* events, std::size_t count, const Sink& sink)
{
    if (!m_begun && (m_format == Format::F56 || m_format == Format::F52)) {
        const std::uint32_t highWord = m_format == Format::F56 ? 0x10000000 : 0xFC000000;
        sink(&highWord, sizeof highWord);
    }
    m_begun = true;
    std::size_t good = 0;
    while (good < count && carries(events[good])) m_previous = events[good++].time;
    for (std::size_t done = 0; done < good;) {
        const std::size_t piece = pieceOf(events + done, good - done);
        sink(m_words.data(), encodePiece(events + done, piece));
        done += piece;
    }
    return good;
}

bool StreamEncoder::carries(const PpTimest& event)
{
    const Range range = rangeOf(m_format);
    const bool marker = range.markers && isMarker(event.channel);
    const int highShift = m_format == Format::F52 ? 26 : 0;
    if (!marker && event.channel >= range.channels) {
        m_problem = "the format has no channel " + std::to_string(event.channel) + ", only 0 to " +
                    std::to_string(range.channels - 1) + (range.markers ? " and markers" : "");
    } else if (event.time < range.first || event.time > range.last) {
        m_problem = "time " + std::to_string(event.time) + " is outside the format's, " +
                    std::to_string(range.first) + " to " + std::to_string(range.last);
    } else if ((m_format == Format::F56 || m_format == Format::F52) &&
               event.time >> highShift < m_previous >> highShift) {
        m_problem = "time " + std::to_string(event.time) + " comes after " + std::to_string(m_previous) +
                    ", and the format knows no way back";
    } else if (m_format == Format::F60 && marker && event.time % markerGrid != 0) {
        m_problem = "time " + std::to_string(event.time) + " of a marker is no multiple of " +
                    std::to_string(markerGrid) + ", as the format has it";
    } else {
        return true;
    }
    return false;
}

/// How many of the events go into one call of the encoder.
std::size_t StreamEncoder::pieceOf(const PpTimest* events, std::size_t count) const
{
    count = std::min(count, pieceEvents);
    if (m_format != Format::F60) return count;
    constexpr std::int64_t largest = std::int64_t{1} << 56; // a record's delta lies below
    std::int64_t previous = events[0].time;
    for (std::size_t i = 0; i < count; ++i) {
        const std::int64_t time = carriedTime(events[i]);
        if (time - previous >= largest || time - previous < -largest) return i;
        previous = time;
    }
    return count;
}

/// To the front of `m_words`. Result: bytes.
std::size_t StreamEncoder::encodePiece(const PpTimest* events, std::size_t count)
{
    m_words.assign(count * 3 + 2, 0); // enough for all formats; 60b leaves gaps
    const auto room = static_cast<int>(m_words.size());
    auto consumed = static_cast<int>(count);
    int words = 0;
    switch (m_format) {
    case Format::F52:
        words = tdc56Encode52(m_instance.get(), events, &consumed, m_words.data(), room);
        break;
    case Format::F60:
        words = tdc56Encode60(m_instance.get(), events, &consumed, m_words.data(), room);
        break;
    case Format::F60b: {
        tdc56Encode60b(m_instance.get(), events, &consumed, reinterpret_cast<std::uint8_t*>(m_words.data()),
                       room);
        std::size_t bytes = 0; // the encoder tells words, rounded down
        for (std::size_t i = 0; i < count; ++i) bytes += sizeOf60b(events[i].time);
        return bytes;
    }
    default:
        words = tdc56Encode(m_instance.get(), events, &consumed, m_words.data(), room);
    }
    return static_cast<std::size_t>(words) * sizeof(std::uint32_t);
}

} // namespace timestamps
