#pragma once

#include "tdc56.h"
#include "timequeue.h"

#include <cstddef>
#include <cstdint>
#include <limits>

/// See tdc56.h. The members stand in the order in which the family has always had them.
struct Tdc56Instance
{
    std::int64_t time = 0;           ///< latest decoded time stamp
    std::int64_t highBase = -1;      ///< added to the low parts; below 0: no high word seen yet
    std::uint64_t lastStart = 0;     ///< time of the last start event; 0: none yet
    std::int64_t measuredPeriod = 0; ///< between the last two start events; 0: not known
    std::int64_t startPeriod = 0;    ///< set by the caller; 0: is measured
    std::uint32_t carryWord = 0;     ///< format 60: first word of a record, from the packet before; 0: none
    std::int32_t virtualCount = 0;   ///< virtual events since the last start
    std::int32_t count = 0;          ///< events that went to `buffer`, those beyond its capacity included
    PpTimest buffer[tdc56Capacity] = {};
    TimeQueue queue;
    std::uint64_t lastEncodedHigh = 0; ///< formats 56 and 52: high part last written; 60: time before
    std::int32_t divider = 1;          ///< virtual events a start period; below 2: off
    bool sorting = false;              ///< some offset is not 0
    std::int32_t offsets[8] = {};
    std::uint64_t droppedWords = 0;   ///< before the first high word
    std::uint64_t orderingErrors = 0; ///< packets

    /// A marker, or whatever does not go to the queue.
    void store(std::int64_t stamp, std::uint8_t channel)
    {
        if (count < tdc56Capacity) buffer[count] = PpTimest{stamp, channel, {}};
        if (count < std::numeric_limits<std::int32_t>::max()) ++count;
    }

    /// A channel event: to the queue while sorting and the channel is below 8, else to the flat buffer.
    void add(std::int64_t stamp, std::uint8_t channel)
    {
        if (sorting && channel < 8)
            queue.push(wrappingSum(stamp, offsets[channel]), channel);
        else
            store(stamp, channel);
    }

    static std::int64_t wrappingSum(std::int64_t a, std::int64_t b)
    {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
    }
};
