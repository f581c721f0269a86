#pragma once

#include "instance.h"
#include "virtualevents.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

/// What the decoders have in common. Each format is one loop, a template of where the events go (a sink) and
/// of what becomes of their times (virtualevents.h); `decode` runs it with those that the instance asks for.
///
/// A loop goes from record to record while the sink has room for all events of one. `put` takes a time stamp,
/// a code, and whether to deliver it at all: the fast sinks always store, and move on only if the event is to
/// be delivered, which costs no branch.
namespace tdc {

/// A condition that the compiler moves out of a loop's way.
inline bool rarely(bool condition)
{
    return __builtin_expect(condition ? 1 : 0, 0) != 0;
}

constexpr std::array<std::uint8_t, 9> markerCodes = {100, 101, 102, 103, 104, 200, 201, 202, 203};

/// The flat buffer, while what one record may bring fits without a look.
class FlatSink
{
public:
    /// `most` events are put for one of the stream's at most.
    FlatSink(Tdc56Instance& owner, std::ptrdiff_t most)
        : instance(owner)
        , mostEach(most)
        , next(owner.buffer + std::min(owner.count, std::int32_t{tdc56Capacity}))
    {
    }

    /// When the buffer was full at first, nothing was put.
    ~FlatSink()
    {
        if (instance.count < tdc56Capacity)
            instance.count = static_cast<std::int32_t>(next - instance.buffer);
    }

    FlatSink(const FlatSink&) = delete;
    FlatSink& operator=(const FlatSink&) = delete;

    std::ptrdiff_t room() const { return (instance.buffer + tdc56Capacity - next) / mostEach; }
    bool fits(std::ptrdiff_t events) const
    {
        return instance.buffer + tdc56Capacity - next >= events * mostEach;
    }
    static constexpr bool onlyCounts() { return false; }
    static void pass(std::int32_t) {}

    void put(std::int64_t stamp, std::uint8_t code, unsigned deliver)
    {
        next->time = stamp; // the padding is 0 since the instance was made
        next->channel = code;
        next += deliver;
    }

    /// The first `events` of three.
    void putFirst(const std::int64_t (&stamps)[3], const std::uint64_t (&codes)[3], std::size_t events)
    {
        next[0].time = stamps[0];
        next[0].channel = static_cast<std::uint8_t>(codes[0]);
        next[1].time = stamps[1];
        next[1].channel = static_cast<std::uint8_t>(codes[1]);
        next[2].time = stamps[2];
        next[2].channel = static_cast<std::uint8_t>(codes[2]);
        next += events;
    }

private:
    Tdc56Instance& instance;
    const std::ptrdiff_t mostEach;
    PpTimest* next;
};

/// Whatever the instance's state: to the queue while sorting, to the flat buffer, beyond its end counted.
class AnySink
{
public:
    explicit AnySink(Tdc56Instance& owner)
        : instance(owner)
        , count(owner.count)
        , sorting(owner.sorting)
    {
    }

    ~AnySink() { instance.count = count; }

    AnySink(const AnySink&) = delete;
    AnySink& operator=(const AnySink&) = delete;

    static constexpr std::ptrdiff_t room() { return std::numeric_limits<std::ptrdiff_t>::max(); }
    static constexpr bool fits(std::ptrdiff_t) { return true; }

    void put(std::int64_t stamp, std::uint8_t code, unsigned deliver)
    {
        if (deliver == 0) return;
        if (sorting && code < 8) {
            instance.queue.push(Tdc56Instance::wrappingSum(stamp, instance.offsets[code]), code);
        } else if (count < tdc56Capacity) {
            instance.buffer[count].time = stamp;
            instance.buffer[count].channel = code;
            ++count;
        } else {
            pass(1);
        }
    }

    void putFirst(const std::int64_t (&stamps)[3], const std::uint64_t (&codes)[3], std::size_t events)
    {
        for (std::size_t i = 0; i < events; ++i) put(stamps[i], static_cast<std::uint8_t>(codes[i]), 1);
    }

    /// Whether events of channel 0 are lost from now on, but for their number.
    bool onlyCounts() const { return !sorting && count >= tdc56Capacity; }

    void pass(std::int32_t events)
    {
        count += std::min(events, std::numeric_limits<std::int32_t>::max() - count);
    }

private:
    Tdc56Instance& instance;
    std::int32_t count;
    bool sorting;
};

/// The queue, while sorting, for loops that know how many events come at most.
class SortingSink
{
public:
    SortingSink(Tdc56Instance& owner, std::size_t most)
        : instance(owner)
        , rest(owner)
        , begin(owner.queue.reserve(most))
        , next(begin)
    {
        std::copy(std::begin(owner.offsets), std::end(owner.offsets), offsets);
    }

    ~SortingSink()
    {
        if (next != nullptr) instance.queue.commit(static_cast<std::size_t>(next - begin));
    }

    SortingSink(const SortingSink&) = delete;
    SortingSink& operator=(const SortingSink&) = delete;

    static constexpr std::ptrdiff_t room() { return std::numeric_limits<std::ptrdiff_t>::max(); }
    static constexpr bool fits(std::ptrdiff_t) { return true; }

    void put(std::int64_t stamp, std::uint8_t code, unsigned deliver)
    {
        if (code >= 8) return rest.put(stamp, code, deliver);
        const std::int64_t time = Tdc56Instance::wrappingSum(stamp, offsets[code]);
        if (next == nullptr || !TimeQueue::fits(time)) {
            if (deliver != 0) putRecord(time, code, instance.queue, begin, std::exchange(next, nullptr));
            return;
        }
        *next = TimeQueue::key(time, code);
        next += deliver;
    }

    void putFirst(const std::int64_t (&stamps)[3], const std::uint64_t (&codes)[3], std::size_t events)
    {
        for (std::size_t i = 0; i < events; ++i) put(stamps[i], static_cast<std::uint8_t>(codes[i]), 1);
    }

private:
    /// From the first time on that does not fit a key the queue takes the events one by one. It has the keys
    /// then, even if it throws: `next` must be null already.
    static void putRecord(std::int64_t time, std::uint8_t code, TimeQueue& queue, const std::uint64_t* begin,
                          const std::uint64_t* end)
    {
        if (end != nullptr) queue.commit(static_cast<std::size_t>(end - begin));
        queue.push(time, code);
    }

    Tdc56Instance& instance;
    AnySink rest; ///< markers and channels from 8 on
    std::uint64_t* begin;
    std::uint64_t* next; ///< null: no key any more
    std::int32_t offsets[8];
};

/// Runs `loop(sink, step)`, twice where the flat buffer may become full in between: it goes on where it
/// stopped. `most` is the number of events in the packet at most, markers not counted.
template <class Step, class Loop> void decodeWith(Tdc56Instance& instance, std::size_t most, Loop& loop)
{
    if constexpr (Step::oneEach) {
        if (instance.sorting) {
            Step step(instance);
            SortingSink sink(instance, most);
            loop(sink, step);
            return;
        }
    }
    if (!instance.sorting) {
        Step step(instance); // one for each loop: it stays in registers in this one
        FlatSink sink(instance, step.most());
        loop(sink, step);
    }
    Step step(instance);
    AnySink sink(instance);
    loop(sink, step);
}

template <class Loop> void decode(Tdc56Instance& instance, std::size_t most, Loop loop)
{
    if (instance.divider < 2)
        decodeWith<Unaltered>(instance, most, loop);
    else if (instance.startPeriod != 0)
        decodeWith<Folding>(instance, most, loop);
    else
        decodeWith<VirtualEvents>(instance, most, loop);
}

/// What the formats 52 and 60b deliver for their 6-bit codes under a marker mask.
struct CodeTable
{
    static constexpr std::uint32_t channels = 32; ///< codes below are channels

    std::array<std::uint8_t, 64> code = {};
    std::array<std::uint8_t, 64> deliver = {}; ///< 0 or 1

    explicit CodeTable(std::uint32_t markerMask)
    {
        // Mask bit of each code from 33 on.
        static constexpr std::array<std::uint8_t, 9> markerBits = {0, 1, 2, 3, 5, 6, 7, 8, 4};
        for (std::size_t channel = 0; channel < channels; ++channel) {
            code[channel] = static_cast<std::uint8_t>(channel);
            deliver[channel] = 1;
        }
        for (std::size_t i = 0; i < markerBits.size(); ++i) {
            code[33 + i] = markerCodes[markerBits[i]];
            deliver[33 + i] = (markerMask >> markerBits[i]) & 1U;
        }
    }
};

} // namespace tdc
