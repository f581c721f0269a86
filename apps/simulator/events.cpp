#include "events.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr std::int64_t clocksPerSecond = 1000 * 1000 * 1000;
constexpr std::int64_t lead = 1000; ///< from the beginning, or a new rate, to the first start
constexpr std::int32_t periodsPerSecond = 100 * 1000; ///< about, unless the rate is too low for it
constexpr std::int32_t leastEventsPerPeriod = 5;
constexpr std::uint64_t startsPerMarker = 1000;
constexpr std::int64_t markerGrid = 5000; ///< the markers' times are multiples
constexpr std::int64_t markerGap = 512;   ///< after a marker, without other events

struct Decay
{
    std::uint32_t below; ///< chosen by a number of 0 to 65535 below this one; first match wins
    double delay;        ///< in clocks
    double lifetime;     ///< in clocks
};

// clang-format off
/// Of the channels 1 to 4. Beyond the last one: background.
constexpr Decay decays[] = {
    {20972,  500.0,  400.0}, // 32 %
    {36700,  800.0,  900.0}, // 24 %
    {47186, 1200.0, 1800.0}, // 16 %
    {52429, 2000.0, 3000.0}, //  8 %
};
// clang-format on

/// A well mixed number of two.
std::uint64_t mixed(std::uint64_t seed, std::uint64_t number)
{
    std::uint64_t h = seed * 0xD1342543DE82EF95u + number * 0x9E3779B97F4A7C15u;
    h = (h ^ (h >> 30)) * 0xBF58476D1CE4E5B9u;
    h = (h ^ (h >> 27)) * 0x94D049BB133111EBu;
    return h ^ (h >> 31);
}

} // namespace

EventSource::EventSource(std::uint32_t seed, std::int32_t eventsPerSecond)
    : m_seed(seed)
{
    setRate(eventsPerSecond, 0);
}

void EventSource::setRate(std::int32_t eventsPerSecond, std::int64_t now)
{
    const std::int32_t events =
        std::max((eventsPerSecond + periodsPerSecond / 2) / periodsPerSecond, leastEventsPerPeriod);
    m_eventsPerPeriod = std::size_t(events);
    m_period = (events * clocksPerSecond + eventsPerSecond / 2) / eventsPerSecond;
    m_nextStart = now + lead;
    m_count = m_taken = 0;
}

std::size_t EventSource::take(std::int64_t until, PpTimest* out, std::size_t room)
{
    std::size_t n = 0;
    while (n < room) {
        if (m_taken == m_count) {
            if (m_nextStart > until) break;
            makePeriod();
        }
        const std::uint64_t key = m_keys[m_taken];
        const std::int64_t time = m_start + std::int64_t(key >> 8);
        if (time > until) break;
        out[n++] = {time, std::uint8_t(key), {}};
        ++m_taken;
    }
    return n;
}

/// Time after the start, and channel, of the event that 64 random bits stand for.
std::int64_t EventSource::decay(std::uint64_t draw, std::uint32_t* channel) const
{
    const std::uint32_t choice = draw & 0xFFFF;
    const double fraction = double((draw >> 18) + 1) * 0x1p-46; // above 0, up to 1
    *channel = 1;
    for (const Decay& each : decays) {
        if (choice >= each.below) {
            ++*channel;
            continue;
        }
        const std::int64_t after = std::int64_t(each.delay - each.lifetime * std::log(fraction));
        return after < m_period ? after : after % m_period;
    }
    *channel = 1 + ((draw >> 16) & 3);
    return std::int64_t((1.0 - fraction) * double(m_period));
}

void EventSource::makePeriod()
{
    m_start = m_nextStart;
    m_nextStart += m_period;
    m_taken = 0;
    m_count = m_eventsPerPeriod;
    ++m_starts;
    ++m_number;

    // A carrier of markers on the wire may stand for a time of up to 511 clocks after theirs.
    const bool marked = m_starts % startsPerMarker == 0;
    const std::int64_t marker = (m_start / markerGrid + 1) * markerGrid - m_start;
    m_keys[0] = 0; // the start
    for (std::size_t i = 1; i < m_eventsPerPeriod; ++i) {
        std::uint32_t channel = 0;
        std::int64_t time = decay(mixed(m_seed, m_number++), &channel);
        if (marked && time >= marker && time < marker + markerGap) time += markerGap;
        m_keys[i] = std::uint64_t(time) << 8 | channel;
    }
    if (marked) {
        // 100 always; every tenth time 101, too, and between those one of the others in turn.
        static constexpr std::uint8_t others[] = {101, 102, 103, 104, 200, 201, 202, 203};
        const std::size_t turn = std::size_t(m_starts / startsPerMarker % 10);
        const std::uint64_t time = std::uint64_t(marker) << 8;
        m_keys[m_count++] = time | 100;
        if (turn < std::size(others)) m_keys[m_count++] = time | others[turn];
    }
    std::sort(m_keys.begin() + 1, m_keys.begin() + std::ptrdiff_t(m_count));
}
