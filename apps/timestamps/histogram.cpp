#include "histogram.h"

#include <algorithm>

namespace timestamps {

StartStopHistogram::StartStopHistogram(std::uint8_t start, std::uint8_t stop, std::int64_t binWidth,
                                       std::size_t bins)
    : m_start(start)
    , m_stop(stop)
    , m_binWidth(static_cast<std::uint64_t>(std::max<std::int64_t>(binWidth, 1)))
    , m_counts(std::max<std::size_t>(bins, 1))
{
    m_events.reserve(2 * window);
}

void StartStopHistogram::add(const PpTimest* events, std::size_t count)
{
    for (const PpTimest* event = events; event != events + count; ++event) {
        if (event->channel != m_start && event->channel != m_stop) continue;
        m_events.push_back({event->time, event->channel == m_stop});
        if (m_events.size() == 2 * window) settle(window);
    }
}

void StartStopHistogram::settle()
{
    settle(m_events.size());
}

/// Settles the earliest `count` events that are not.
void StartStopHistogram::settle(std::size_t count)
{
    const auto earlier = [](const Event& a, const Event& b) {
        return a.time != b.time ? a.time < b.time : a.isStop < b.isStop;
    };
    if (!std::is_sorted(m_events.begin(), m_events.end(), earlier))
        std::sort(m_events.begin(), m_events.end(), earlier);

    const bool sameChannel = m_start == m_stop;
    const std::size_t former = m_starts.size();
    std::size_t next = 0; // of the former starts; some may lie behind late events
    bool hasStart = false;
    std::int64_t start = 0;
    const auto end = m_events.begin() + static_cast<std::ptrdiff_t>(count);
    for (auto event = m_events.begin(); event != end; ++event) {
        for (; next < former && m_starts[next] <= event->time; ++next) {
            start = hasStart ? std::max(start, m_starts[next]) : m_starts[next];
            hasStart = true;
        }
        const bool late = event->time < m_oldest;
        if (event->isStop && late) {
            ++m_stopCount;
            ++m_late;
        } else if (event->isStop) {
            countStop(event->time, hasStart, start);
        }
        if (event->isStop && !sameChannel) continue;
        ++m_startCount;
        if (earlier(*event, m_settled)) ++m_lateStarts;
        if (late) continue;
        hasStart = true;
        start = event->time;
        m_starts.push_back(start);
    }
    if (count > 0) m_settled = std::max(m_settled, *(end - 1), earlier);
    m_events.erase(m_events.begin(), end);

    std::inplace_merge(m_starts.begin(), m_starts.begin() + static_cast<std::ptrdiff_t>(former),
                       m_starts.end());
    if (m_starts.size() > window) {
        m_starts.erase(m_starts.begin(), m_starts.end() - static_cast<std::ptrdiff_t>(window));
        m_oldest = m_starts.front();
    }
}

void StartStopHistogram::countStop(std::int64_t time, bool hasStart, std::int64_t start)
{
    ++m_stopCount;
    if (!hasStart) {
        ++m_withoutStart;
        return;
    }
    const std::uint64_t bin =
        (static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(start)) / m_binWidth;
    if (bin < m_counts.size())
        ++m_counts[bin];
    else
        ++m_beyond;
}

void StartStopHistogram::clear()
{
    std::fill(m_counts.begin(), m_counts.end(), 0);
    m_startCount = m_stopCount = m_beyond = m_withoutStart = m_late = m_lateStarts = 0;
    m_events.clear();
    m_starts.clear();
    m_settled = Event{};
    m_oldest = firstTime;
}

} // namespace timestamps
