#include "streamdecoder.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <QtGlobal>

namespace timestamps {
namespace {

static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "words are decoded as they stand in the stream");

constexpr auto capacity = static_cast<std::size_t>(tdc56Capacity);
constexpr std::size_t wordSize = sizeof(std::uint32_t);
constexpr std::size_t carrierMarkers = markerCount; ///< format 60: one event may stand for all of them
constexpr std::size_t recordEvents = 3;             ///< format 60: in one record
constexpr std::int64_t markerLag = 4999;            ///< format 60: markers may lie that far behind

/// What a record of format 60 holds.
struct Record
{
    struct Event
    {
        std::int64_t delta;
        std::uint32_t channel;
    };
    std::size_t count = 0; ///< 0: not one of several events
    Event events[recordEvents] = {};
};

std::int64_t signExtended(std::uint32_t value, int bits)
{
    const std::uint32_t sign = std::uint32_t{1} << (bits - 1);
    return static_cast<std::int64_t>(value ^ sign) - static_cast<std::int64_t>(sign);
}

Record severalEvents(std::uint32_t lo, std::uint32_t hi)
{
    switch ((hi >> 30 & 1) * 2 + (lo >> 30 & 1)) {
    case 1:
        return {3,
                {{signExtended(lo & 0x1FFFF, 17), lo >> 17 & 7},
                 {signExtended((lo >> 20 & 0x3FF) | (hi & 0x7F) << 10, 17), hi >> 7 & 7},
                 {signExtended(hi >> 10 & 0x1FFFF, 17), hi >> 27 & 7}}};
    case 2:
        return {2,
                {{signExtended(lo & 0x7FFFFFF, 27), lo >> 27 & 7},
                 {signExtended(hi & 0x7FFFFFF, 27), hi >> 27 & 7}}};
    default:
        return {};
    }
}

/// An absolute-time record of format 60.
void appendTime(std::vector<std::uint32_t>* words, std::uint64_t time)
{
    words->push_back(static_cast<std::uint32_t>(time & 0x3FFFFFFF));
    words->push_back(static_cast<std::uint32_t>(time >> 30 & 0x3FFFFFFF) | 0x80000000);
}

/// A record of one event.
void appendEvent(std::vector<std::uint32_t>* words, std::int64_t delta, std::uint32_t channel)
{
    const auto bits = static_cast<std::uint64_t>(delta);
    words->push_back(static_cast<std::uint32_t>(bits & 0x3FFFFFFF) | 0x40000000);
    words->push_back(static_cast<std::uint32_t>(bits >> 30 & 0x07FFFFFF) | channel << 27 | 0xC0000000);
}

/// A packet of format 60 that delivers nothing and moves the time on to the last one there is.
std::vector<std::uint32_t> packetToTheEnd()
{
    constexpr std::uint64_t lastTime = (std::uint64_t{1} << 60) - 1;
    constexpr std::uint64_t lastDelta = (std::uint64_t{1} << 56) - 1;
    constexpr std::uint32_t ignoredChannel = 7;
    std::vector<std::uint32_t> words;
    appendTime(&words, lastTime);
    auto rest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) - lastTime;
    while (rest > 0) {
        const std::uint64_t delta = std::min(rest, lastDelta);
        appendEvent(&words, static_cast<std::int64_t>(delta), ignoredChannel);
        rest -= delta;
    }
    return words;
}

std::int64_t wrappingDifference(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

} // namespace

const std::array<std::uint8_t, markerCount> markerCodes = {100, 101, 102, 103, 104, 200, 201, 202, 203};

bool Settings::sorts() const
{
    return format != Format::F52x &&
           std::any_of(offsets.begin(), offsets.end(), [](std::int32_t offset) { return offset != 0; });
}

bool Settings::makesVirtualEvents() const
{
    return divider >= 2 && startPeriod == 0 && (format == Format::F56 || format == Format::F60);
}

StreamDecoder::StreamDecoder(const Settings& settings)
    : m_settings(settings)
    , m_instance(tdc56Init())
    , m_oneByOne(recordEvents * eventsPerEvent() > capacity)
    , m_packetBytes(packetSize())
    , m_packet(capacity)
    , m_events(capacity)
{
    if (settings.sorts()) setOffsets();
    tdc56SetDivider(m_instance.get(), settings.divider);
    tdc56SetStartPeriod(m_instance.get(), settings.startPeriod);
    if (m_sorting && settings.format != Format::F56) {
        m_aside.reset(tdc56Init());
        tdc56SetStartPeriod(m_aside.get(), settings.startPeriod);
        // It shall fold, but make no virtual events: those are channel 0's and pass the queue.
        if (settings.startPeriod != 0) tdc56SetDivider(m_aside.get(), settings.divider);
    }
}

StreamDecoder::~StreamDecoder() = default;

void StreamDecoder::setOffsets()
{
    std::array<std::int32_t, 8> offsets = m_settings.offsets;
    const auto [least, most] = std::minmax_element(offsets.begin(), offsets.end());
    m_sorting = true;
    // An event may still come with the stream's time plus the least offset, a marker of format 60 with a
    // time of its own; what is delivered has to lie before both.
    const std::int64_t lag = m_settings.format == Format::F60 ? markerLag : 0;
    m_delay = std::min(lag + 1 - std::min(*least, 0),
                       std::int64_t{std::numeric_limits<std::int32_t>::max()} - *most);
    for (std::int32_t& offset : offsets) offset = static_cast<std::int32_t>(offset + m_delay);
    tdc56SetOffsets(m_instance.get(), offsets.data());
}

/// Events that one may bring along, itself included.
std::size_t StreamDecoder::eventsPerEvent() const
{
    return m_settings.makesVirtualEvents() ? static_cast<std::size_t>(m_settings.divider) + 1 : 1;
}

/// The most bytes of which no event exceeds the instance's buffer, at least one record.
std::size_t StreamDecoder::packetSize() const
{
    const std::size_t perEvent = eventsPerEvent();
    switch (m_settings.format) {
    case Format::F56:
        return std::max<std::size_t>(capacity / perEvent, 1) * wordSize;
    case Format::F60: {
        const std::size_t perRecord = recordEvents * std::max(perEvent, carrierMarkers);
        return std::max<std::size_t>(capacity / perRecord, 1) * 2 * wordSize;
    }
    case Format::F60b: // the shortest record has 3 bytes
        return capacity * 3;
    default:
        return capacity * wordSize;
    }
}

void StreamDecoder::decode(const void* data, std::size_t size, const Sink& sink)
{
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    auto* const packet = reinterpret_cast<std::uint8_t*>(m_packet.data());
    m_bytes += size;
    while (size > 0) {
        const std::size_t piece = std::min(size, m_packetBytes - m_filled);
        std::memcpy(packet + m_filled, bytes, piece);
        bytes += piece;
        size -= piece;
        m_filled += piece;
        const std::size_t used = decodePacket(sink);
        m_filled -= used;
        std::memmove(packet, packet + used, m_filled);
    }
    summarize();
}

/// Decodes what is whole of the packet. Result: the bytes that it took.
std::size_t StreamDecoder::decodePacket(const Sink& sink)
{
    const std::uint32_t* const words = m_packet.data();
    std::size_t count = m_filled / wordSize;
    std::size_t used = count * wordSize;
    switch (m_settings.format) {
    case Format::F60: {
        std::size_t kept = 0;
        used = keepPairs(count, &kept) * wordSize;
        if (kept == 2 && m_oneByOne && severalEvents(words[0], words[1]).count > 0)
            decodeOneByOne(words[0], words[1], sink);
        else
            decodeWords(words, kept, sink);
        break;
    }
    case Format::F60b: {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(words);
        used = static_cast<std::size_t>(tdc56Cut60b(bytes, static_cast<int>(m_filled)));
        if (used == 0) break;
        const auto length = -static_cast<int>(used);
        tdc56Decode60b(m_instance.get(), bytes, length, m_sorting ? 0 : m_settings.markerMask);
        if (m_aside) tdc56Decode60b(m_aside.get(), bytes, length, m_settings.markerMask);
        deliver(sink);
        break;
    }
    default:
        decodeWords(words, count, sink);
    }
    return used;
}

void StreamDecoder::decodeWords(const std::uint32_t* words, std::size_t count, const Sink& sink)
{
    if (count == 0) return;
    const auto length = static_cast<int>(count);
    const std::uint32_t mask = m_sorting ? 0 : m_settings.markerMask;
    switch (m_settings.format) {
    case Format::F52:
        tdc56Decode52(m_instance.get(), words, length, mask);
        if (m_aside) tdc56Decode52(m_aside.get(), words, length, m_settings.markerMask);
        break;
    case Format::F52x: {
        const int written = tdc56Decode52x(m_instance.get(), words, length, m_events.data());
        m_time = tdc56GetTime(m_instance.get());
        hand(m_events.data(), static_cast<std::size_t>(written), sink);
        return;
    }
    case Format::F60:
        tdc56Decode60(m_instance.get(), words, length, mask);
        if (m_aside) tdc56Decode60(m_aside.get(), words, length, m_settings.markerMask);
        break;
    default:
        tdc56Decode(m_instance.get(), words, length);
    }
    deliver(sink);
}

/// Closes up the whole records of format 60 at the front of the packet, `*kept` words. Result: the words
/// looked at; a first word at the end is not, as its second one may come.
std::size_t StreamDecoder::keepPairs(std::size_t count, std::size_t* kept)
{
    std::uint32_t* const words = m_packet.data();
    const auto isSecond = [](std::uint32_t word) { return word >> 31 != 0; };
    std::size_t next = 0;
    *kept = 0;
    while (next < count) {
        if (!isSecond(words[next])) {
            if (next + 1 == count) break;
            if (isSecond(words[next + 1])) {
                words[(*kept)++] = words[next++];
                words[(*kept)++] = words[next++];
                continue;
            }
        }
        ++m_summary.orderingErrors;
        ++next;
    }
    return next;
}

/// A record of format 60 as records of one event each: the same events at the same times.
void StreamDecoder::decodeOneByOne(std::uint32_t first, std::uint32_t second, const Sink& sink)
{
    if (m_time == 0) return; // no absolute time yet: it delivers nothing
    const Record record = severalEvents(first, second);
    std::vector<std::uint32_t> words;
    words.reserve(4);
    for (std::size_t i = 0; i < record.count; ++i) {
        words.clear();
        std::int64_t delta = record.events[i].delta;
        if (m_time == 0) { // amid a record that is a time as any other
            appendTime(&words, 1);
            --delta;
        }
        appendEvent(&words, delta, record.events[i].channel);
        decodeWords(words.data(), words.size(), sink);
    }
}

void StreamDecoder::deliver(const Sink& sink)
{
    m_time = tdc56GetTime(m_instance.get());
    if (m_sorting) {
        const std::int64_t first = std::numeric_limits<std::int64_t>::min();
        deliverSorted(m_time < first + m_delay ? first : m_time - m_delay, sink);
        return;
    }
    const auto counted = static_cast<std::size_t>(tdc56GetCount(m_instance.get()));
    if (counted > capacity) m_summary.lost += counted - capacity;
    const int popped = tdc56Pop(m_instance.get(), m_events.data());
    hand(m_events.data(), static_cast<std::size_t>(popped), sink);
}

/// What the queue has ready, and what was set aside up to `limit`.
void StreamDecoder::deliverSorted(std::int64_t limit, const Sink& sink)
{
    if (m_aside) takeAside();
    std::size_t popped = 0;
    const PpTimest* first = nullptr;
    do {
        popped = static_cast<std::size_t>(tdc56Pop(m_instance.get(), m_events.data()));
        m_merged.clear();
        for (std::size_t i = 0; i < popped; ++i) {
            PpTimest event = m_events[i];
            event.time = wrappingDifference(event.time, m_delay);
            while ((first = firstWaiting()) != nullptr && first->time < event.time) takeWaiting(first);
            m_merged.push_back(event);
        }
        while (popped < capacity && (first = firstWaiting()) != nullptr && first->time <= limit)
            takeWaiting(first);
        hand(m_merged.data(), m_merged.size(), sink);
    } while (popped == capacity);
}

void StreamDecoder::takeAside()
{
    const int popped = tdc56Pop(m_aside.get(), m_events.data());
    for (int i = 0; i < popped; ++i) {
        const PpTimest& event = m_events[static_cast<std::size_t>(i)];
        if (event.channel < 8) continue;
        if (event.time >= m_highest) {
            m_highest = event.time;
            m_waiting.push_back(event);
        } else {
            m_waitingBack.push({event, m_order++});
        }
    }
}

/// The earliest event that was set aside, null when there is none. At equal times the one that came first: it
/// is in `m_waiting`, which takes no event that lies before another one.
const PpTimest* StreamDecoder::firstWaiting() const
{
    if (m_waitingBack.empty()) return m_waiting.empty() ? nullptr : &m_waiting.front();
    const PpTimest& back = m_waitingBack.top().event;
    return m_waiting.empty() || back.time < m_waiting.front().time ? &back : &m_waiting.front();
}

/// Moves it to `m_merged`.
void StreamDecoder::takeWaiting(const PpTimest* first)
{
    m_merged.push_back(*first);
    if (!m_waiting.empty() && first == &m_waiting.front())
        m_waiting.pop_front();
    else
        m_waitingBack.pop();
}

void StreamDecoder::hand(const PpTimest* events, std::size_t count, const Sink& sink)
{
    if (count == 0) return;
    for (std::size_t i = 0; i < count; ++i) ++m_counts[events[i].channel];
    sink(events, count);
}

void StreamDecoder::finish(const Sink& sink)
{
    m_summary.cutBytes = m_filled;
    m_filled = 0;
    if (m_sorting) {
        const std::vector<std::uint32_t> words = packetToTheEnd();
        tdc56Decode60(m_instance.get(), words.data(), static_cast<int>(words.size()), 0);
        deliverSorted(std::numeric_limits<std::int64_t>::max(), sink);
    }
    summarize();
}

void StreamDecoder::summarize()
{
    m_summary.words = m_settings.format == Format::F60b ? m_bytes : m_bytes / wordSize;
    for (std::size_t i = 0; i < channelCount; ++i) m_summary.channels[i] = m_counts[i];
    for (std::size_t i = 0; i < markerCount; ++i) m_summary.markers[i] = m_counts[markerCodes[i]];
    m_summary.wordsBeforeHigh = tdc56GetDroppedWords(m_instance.get());
}

const Summary& StreamDecoder::summary() const
{
    return m_summary;
}

std::int64_t StreamDecoder::time() const
{
    return m_time;
}

} // namespace timestamps
