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
    void commit(std::size_t count);

    /// Moves the events up to `time`, earliest first, to `output`, at most `capacity`. Result: how many.
    std::size_t pop(std::int64_t time, PpTimest* output, std::size_t capacity);

    std::size_t size() const;

    /// Drops all events and gives their memory back.
    void clear();
};
