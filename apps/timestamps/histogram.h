#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

namespace timestamps {

/// Start-stop histogram: how many stops came how long after the latest start at or before them.
///
/// A stop counts once, in bin floor((stop - start) / width); beyond the last bin it is dropped and counted as
/// such. At equal times the start comes first. Starts and stops may come out of order within `window` of
/// them. A stop that comes later is still counted against the starts remembered (the last `window`), or as
/// `late`; what a start that comes later would have changed stays as it was counted, see `lateStarts`.
///
/// Memory does not grow with the events. One thread at a time.
class StartStopHistogram
{
public:
    static constexpr std::size_t window = 65536;

    /// `binWidth` in clock periods, 1 or more; `bins` 1 or more. Start and stop channel may be the same: each
    /// event then stops the one before and starts the next.
    StartStopHistogram(std::uint8_t start, std::uint8_t stop, std::int64_t binWidth, std::size_t bins);

    void add(const PpTimest* events, std::size_t count);
    /// What came so far is counted now, whatever may come between: at the end, or to show it.
    void settle();
    /// Begins anew with the same settings.
    void clear();

    /// Counts by bin; like all that follow, of what is settled.
    const std::vector<std::uint64_t>& counts() const { return m_counts; }
    std::uint64_t starts() const { return m_startCount; }
    std::uint64_t lateStarts() const { return m_lateStarts; } ///< starts before what was settled already
    /// All, whatever became of them: the sum of the counts and of the three below.
    std::uint64_t stops() const { return m_stopCount; }
    std::uint64_t beyond() const { return m_beyond; }             ///< stops beyond the last bin
    std::uint64_t withoutStart() const { return m_withoutStart; } ///< stops before the first start
    std::uint64_t late() const { return m_late; } ///< stops too far out of order to find their start

private:
    static constexpr std::int64_t firstTime = std::numeric_limits<std::int64_t>::min();

    struct Event
    {
        std::int64_t time = firstTime;
        bool isStop = false; ///< with one channel for both: each event, which starts, too
    };

    void settle(std::size_t count);
    void countStop(std::int64_t time, bool hasStart, std::int64_t start);

    const std::uint8_t m_start;
    const std::uint8_t m_stop;
    const std::uint64_t m_binWidth;
    std::vector<std::uint64_t> m_counts;
    std::uint64_t m_startCount = 0;
    std::uint64_t m_stopCount = 0;
    std::uint64_t m_beyond = 0;
    std::uint64_t m_withoutStart = 0;
    std::uint64_t m_late = 0;
    std::uint64_t m_lateStarts = 0;
    std::vector<Event> m_events;        ///< not settled yet
    std::vector<std::int64_t> m_starts; ///< settled, ascending; the last `window`
    Event m_settled;                    ///< the last in order of those that are settled
    std::int64_t m_oldest = firstTime;  ///< the first of `m_starts` once there were earlier ones
};

} // namespace timestamps
