#pragma once

#include "instance.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

/// What a decoder does with the time of a channel event before it delivers it: one class for each way, chosen
/// once a packet. `event` takes the event's time and returns the time stamp to deliver; it may put virtual
/// events into `sink` first.
namespace tdc {

/// The divider is below 2.
struct Unaltered
{
    static constexpr bool alters = false;
    static constexpr bool oneEach = true;                ///< puts no events of its own
    static constexpr std::ptrdiff_t most() { return 1; } ///< events for one, itself included

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
    static constexpr bool alters = true;
    static constexpr bool oneEach = true;
    static constexpr std::ptrdiff_t most() { return 1; }

    explicit Folding(Tdc56Instance& owner)
        : Starts(owner)
    {
        const std::int64_t part = owner.startPeriod / owner.divider;
        if (part < 1) return;
        period = static_cast<std::uint64_t>(part);
        reciprocal = std::numeric_limits<std::uint64_t>::max() / period;
        wrap = reduced(std::numeric_limits<std::uint64_t>::max() - reciprocal * period + 1);
    }

    ~Folding() { markLast(); }

    Folding(const Folding&) = delete;
    Folding& operator=(const Folding&) = delete;

    template <class Sink> [[gnu::always_inline]] std::int64_t event(Sink&, std::int64_t time, bool start)
    {
        if (__builtin_expect(time != 0, 1) != 0) {
            times[count % 4] = time;
            count += start ? 1 : 0;
        } else if (start) {
            markLast();
            mark(time);
        }
        const auto value = static_cast<std::uint64_t>(time);
        if (period == 0) return time;
        const auto quotient = static_cast<std::uint64_t>(Wide{value} * reciprocal >> 64);
        const std::uint64_t rest = reduced(value - quotient * period);
        return static_cast<std::int64_t>(time < 0 ? reduced(rest + period - wrap) : rest);
    }

private:
    __extension__ using Wide = unsigned __int128;

    /// Only the last start and the one before it count (unless one is at 0, which is as good as none).
    void markLast()
    {
        for (std::size_t back = std::min<std::size_t>(count, 2); back > 0; --back)
            mark(times[(count - back) % 4]);
        count = 0;
    }

    std::uint64_t reduced(std::uint64_t rest) const { return std::min(rest, rest - period); }

    std::uint64_t period = 0; ///< 0: folds nothing
    /// At most 1 below 2^64 / period: the quotient of any 64 bits comes out right or 1 too small.
    std::uint64_t reciprocal = 0;
    std::uint64_t wrap = 0; ///< 2^64 modulo period

    // Starts are gathered without a branch, which could not be foreseen.
    std::int64_t times[4] = {}; ///< of the latest starts, and of the event after them
    std::size_t count = 0;      ///< starts that are not marked yet
};

/// The divider is 2 or more, and the start period is measured: `divider` events follow each start, as the
/// stream passes their times.
class VirtualEvents : private Starts
{
public:
    static constexpr bool alters = true;
    static constexpr bool oneEach = false;
    std::ptrdiff_t most() const { return std::ptrdiff_t{divider} + 1; }

    explicit VirtualEvents(Tdc56Instance& owner)
        : Starts(owner)
        , divider(owner.divider)
    {
        divide();
    }

    template <class Sink> [[gnu::always_inline]] std::int64_t event(Sink& sink, std::int64_t time, bool start)
    {
        const std::int64_t elapsed = sinceStart(time);
        if (elapsed >= nextWhole) putDue(sink, static_cast<double>(elapsed));
        if (start) {
            mark(time);
            divide();
        }
        return time;
    }

private:
    template <class Sink> [[gnu::always_inline]] void putDue(Sink& sink, double elapsed)
    {
        while (elapsed >= next) {
            if (sink.onlyCounts()) {
                const std::int32_t before = virtualCount;
                virtualCount = due(elapsed, part, divider);
                sink.pass(virtualCount - before);
            } else {
                // `next` is at most 2^63, which does not fit a signed number.
                const auto since = next < exact ? static_cast<std::uint64_t>(static_cast<std::int64_t>(next))
                                                : static_cast<std::uint64_t>(next);
                sink.put(static_cast<std::int64_t>(lastStart + since), 0, 1);
                ++virtualCount;
            }
            next = threshold();
        }
        findNext();
    }

    double threshold() const { return virtualCount < divider ? (virtualCount + 1.0) * part : never; }

    void findNext()
    {
        next = threshold();
        nextWhole = static_cast<std::int64_t>(std::min(next, exact));
    }

    void divide()
    {
        part = measuredPeriod > 0 ? static_cast<double>(measuredPeriod) / divider : never;
        findNext();
    }

    /// The virtual events up to `elapsed` after a start, without a loop over them.
    static std::int32_t due(double elapsed, double part, std::int32_t divider)
    {
        // The quotient is rounded, and so are the products that count.
        auto events = static_cast<std::int32_t>(std::min(elapsed / part, static_cast<double>(divider)));
        while (events < divider && elapsed >= (events + 1.0) * part) ++events;
        while (elapsed < events * part) --events;
        return events;
    }

    static constexpr double exact = 9007199254740992; ///< 2^53: up to here it has every whole number
    static constexpr double never = std::numeric_limits<double>::infinity();

    std::int32_t divider;
    double part = 0;            ///< clock periods between two virtual events
    double next = never;        ///< from the last start to the next virtual event
    std::int64_t nextWhole = 0; ///< without its fraction, at most `exact`: so much must have elapsed at least
};

} // namespace tdc
