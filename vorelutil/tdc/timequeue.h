#pragma once

#include "tdc56.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Events that wait for their time: pushed in any order, popped by time, then channel.
///
/// Channels 0 to 7 only. An event whose time needs no more than 61 bits (sign included) is one 64-bit key,
/// time above channel; as soon as one needs more, all are kept as whole records until the queue is empty
/// again.
///
/// Costs: pushing appends. Popping sorts what was pushed since the last pop and merges it with what was left
/// then; an event takes part in O(log n) merges while it waits, so that many waiting events do not make the
/// others' pops slow. Whole records take O(log n) steps each.
/// Memory: room for up to four times the keys that wait, or twice the records; while sorting, once more for
/// what is sorted. Room for 65536 events is kept until `clear`, so that a steady stream allocates nothing.
class TimeQueue
{
public:
    /// Whether the time of a key can hold `time`: -2^60 to 2^60 - 1.
    static bool fits(std::int64_t time)
    {
        return (static_cast<std::uint64_t>(time) + (std::uint64_t{1} << 60)) >> 61 == 0;
    }

    /// The key of an event whose time fits. Keys compare as (time, channel) does.
    static std::uint64_t key(std::int64_t time, std::uint8_t channel)
    {
        return ((static_cast<std::uint64_t>(time) << 3) | channel) ^ (std::uint64_t{1} << 63);
    }

    /// May throw `std::bad_alloc` or `std::length_error`; the queue is then as it was.
    void push(std::int64_t time, std::uint8_t channel);

    /// For loops that add many events: room for `count` keys behind the last event, to be filled from the
    /// front on and confirmed by `commit`; null when the queue holds whole records at present. Throws as
    /// `push` does.
    std::uint64_t* reserve(std::size_t count);
    /// The first `count` keys of the room that `reserve` gave are events now; 0 or no call: none are.
    void commit(std::size_t count) { m_end += count; }

    /// Moves the events up to `time`, earliest first, to `output`, at most `capacity`. Result: how many.
    /// Throws as `push` does; no event is lost then.
    std::size_t pop(std::int64_t time, PpTimest* output, std::size_t capacity);

    std::size_t size() const;

    /// Drops all events and gives their memory back.
    void clear();

private:
    /// A part of `m_keys` that ascends.
    struct Run
    {
        std::size_t begin;
        std::size_t end;
        std::size_t size() const { return end - begin; }
    };

    void becomeRecords();
    std::size_t popRecords(std::int64_t time, PpTimest* output, std::size_t capacity);
    void balanceRuns();
    void sortTail();
    std::size_t takeKeys(std::uint64_t last, PpTimest* output, std::size_t capacity);
    void closeGaps();

    std::vector<std::uint64_t> m_keys; ///< runs, with gaps where keys were popped; tail; free room
    std::vector<Run> m_runs;           ///< oldest first; in the order of their places
    std::size_t m_tail = 0;            ///< where the keys begin that were pushed since the last pop
    std::size_t m_end = 0;             ///< where they end and the free room begins
    std::vector<std::uint64_t> m_scratch;

    std::vector<PpTimest> m_records; ///< not empty: all events are here, none in `m_keys`
    std::size_t m_heaped = 0;        ///< so many of them are a heap, earliest at the top; the rest is new
};
