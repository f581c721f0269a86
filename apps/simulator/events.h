#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vorelutil/tdc/tdc56.h>

/// The events of a simulated time-to-digital converter: a pure function of seed, rate and event number.
///
/// Channel 0 starts periodically. Channels 1 to 4 answer each start after a delay, with an exponential decay
/// of their own, over a flat background; what a decay has left when the next start comes falls into the next
/// period, as it does when every start has had the same past. Markers come every 1000 starts. See
/// docs/simulator.md for the numbers. Times are clock periods of 1 ns. One thread at a time.
class EventSource
{
public:
    /// `eventsPerSecond`: 1 to 5000000, starts included and markers not.
    EventSource(std::uint32_t seed, std::int32_t eventsPerSecond);

    /// Another rate from `now` on, which must not lie before an event that was taken: a new period begins
    /// 1000 clocks later, and what the one under way still had does not happen.
    void setRate(std::int32_t eventsPerSecond, std::int64_t now);

    /// Writes the next events up to the time `until` (included), at most `room`; returns their number. They
    /// ascend, the first one is at 1000; at equal times channels come before markers, lower codes first.
    /// What is taken does not depend on how it is cut into calls.
    std::size_t take(std::int64_t until, PpTimest* out, std::size_t room);

private:
    static constexpr std::size_t maxEvents = 50; ///< of a period, without markers
    static constexpr std::size_t markerCount = 9;

    void makePeriod();
    std::int64_t decay(std::uint64_t draw, std::uint32_t* channel) const;

    std::uint64_t m_seed;
    std::size_t m_eventsPerPeriod;
    std::int64_t m_period;
    std::int64_t m_start = 0;     ///< of the period in `m_keys`
    std::int64_t m_nextStart = 0; ///< of the period after it
    std::uint64_t m_starts = 0;
    std::uint64_t m_number = 0; ///< events drawn, in all rates
    /// The period's events in order: time after its start << 8, plus the code.
    std::array<std::uint64_t, maxEvents + markerCount> m_keys{};
    std::size_t m_count = 0; ///< in `m_keys`
    std::size_t m_taken = 0; ///< of them
};
