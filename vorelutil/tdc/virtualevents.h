#pragma once

#include "instance.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

/// What a decoder does with the time of a channel event before it delivers it: one class for each way, chosen
/// once a packet. `event` takes the event's time and returns the time stamp to deliver; it may put virtual
/// events into `sink` first.
namespace tdc {

/// The divider is below 2.
struct Unaltered
{
    static constexpr bool oneEach = true; ///< puts no events of its own

    explicit Unaltered(Tdc56Instance&) {}

    template <class Sink> std::int64_t event(Sink&, std::int64_t time, bool) { return time; }
};

/// Marks start events: the time between the last two is the measured period.
class Starts
{
public:
    explicit Starts(Tdc56Instance& owner)
        : instance(owner)
        , lastStart(owner.lastStart)
        , measuredPeriod(owner.measuredPeriod)
        , virtualCount(owner.virtualCount)
    {
    }

    ~Starts()
    {
        instance.lastStart = lastStart;
        instance.measuredPeriod = measuredPeriod;
        instance.virtualCount = virtualCount;
    }

    Starts(const Starts&) = delete;
    Starts& operator=(const Starts&) = delete;

protected:
    std::int64_t sinceStart(std::int64_t time) const
    {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(time) - lastStart);
    }

    void mark(std::int64_t time)
    {
        if (lastStart != 0) measuredPeriod = sinceStart(time);
        lastStart = static_cast<std::uint64_t>(time);
        virtualCount = 0;
    }

    Tdc56Instance& instance;
    std::uint64_t lastStart;
    std::int64_t measuredPeriod;
    std::int32_t virtualCount;
};

/// The divider is 2 or more, and the start period is set: events are folded onto one sub-period.
class Folding : private Starts
{
public:
    static constexpr bool oneEach = true;

    explicit Folding(Tdc56Instance& owner)
        : Starts(owner)
    {
        const std::int64_t part = owner.startPeriod / owner.divider;
        if (part < 1) return; // folds nothing
        period = static_cast<std::uint64_t>(part);
        reciprocal = std::numeric_limits<std::uint64_t>::max() / period;
    }

    template <class Sink> std::int64_t event(Sink&, std::int64_t time, bool start)
    {
        if (start) mark(time);
        return period == 0 ? time : folded(time);
    }

private:
    __extension__ using Wide = unsigned __int128;

    /// Never negative. `reciprocal` is at most 1 below 2^64 / period, so that the quotient of a time below
    /// 2^63 comes out right or 1 too small.
    std::int64_t folded(std::int64_t time) const
    {
        const auto value = static_cast<std::uint64_t>(time);
        if (time < 0) {
            const std::uint64_t rest = (0 - value) % period;
            return static_cast<std::int64_t>(rest == 0 ? 0 : period - rest);
        }
        const auto quotient = static_cast<std::uint64_t>(Wide{value} * reciprocal >> 64);
        const std::uint64_t rest = value - quotient * period;
        return static_cast<std::int64_t>(rest < period ? rest : rest - period);
    }

    std::uint64_t period = 0; ///< 0: folds nothing
    std::uint64_t reciprocal = 0;
};

/// The divider is 2 or more, and the start period is measured: `divider` events follow each start, as the
/// stream passes their times.
class VirtualEvents : private Starts
{
public:
    static constexpr bool oneEach = false;

    explicit VirtualEvents(Tdc56Instance& owner)
        : Starts(owner)
        , divider(owner.divider)
    {
        divide();
    }

    template <class Sink> std::int64_t event(Sink& sink, std::int64_t time, bool start)
    {
        const auto elapsed = static_cast<double>(sinceStart(time));
        while (elapsed >= next) {
            if (sink.onlyCounts()) {
                sink.pass(passUpTo(elapsed));
                break;
            }
            // `next` is at most 2^63, which does not fit a signed number.
            sink.put(static_cast<std::int64_t>(lastStart + static_cast<std::uint64_t>(next)), 0, true);
            ++virtualCount;
            findNext();
        }
        if (start) {
            mark(time);
            divide();
        }
        return time;
    }

private:
    double after(std::int32_t events) const { return (events + 1.0) * part; }

    void findNext() { next = virtualCount < divider ? after(virtualCount) : never; }

    void divide()
    {
        if (measuredPeriod > 0) {
            part = static_cast<double>(measuredPeriod) / divider;
            findNext();
        } else {
            next = never;
        }
    }

    /// Takes all events that are due as made, without a loop over them. Result: how many.
    std::int32_t passUpTo(double elapsed)
    {
        const std::int32_t before = virtualCount;
        virtualCount = static_cast<std::int32_t>(std::min(elapsed / part, static_cast<double>(divider)));
        // The quotient is rounded, and so are the products that count.
        while (virtualCount < divider && elapsed >= after(virtualCount)) ++virtualCount;
        while (virtualCount > before && elapsed < after(virtualCount - 1)) --virtualCount;
        findNext();
        return virtualCount - before;
    }

    static constexpr double never = std::numeric_limits<double>::infinity();

    std::int32_t divider;
    double part = 0;     ///< clock periods between two virtual events
    double next = never; ///< from the last start to the next virtual event
};

} // namespace tdc
