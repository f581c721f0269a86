#pragma once

#include <cstdint>
#include <vorelutil/tdc/tdc56.h>

/// The time-stamp encoders once more, as plain as the decoders of literaltdc.h.
namespace literal {

struct Encoder
{
    std::uint64_t lastHigh = 0; ///< format 60: the time before

    int encode56(const PpTimest* events, int* count, std::uint32_t* output, int capacity)
    {
        int consumed = 0, written = 0;
        while (consumed < *count && written < capacity) {
            const auto t = static_cast<std::uint64_t>(events[consumed].time);
            const std::uint32_t channel = events[consumed].channel;
            const std::uint64_t h = (t >> 28) & 0x0FFFFFFF;
            if (h > lastHigh) {
                output[written] = static_cast<std::uint32_t>(h) | channel << 29 | 0x10000000U;
                lastHigh = h;
            } else {
                output[written] = static_cast<std::uint32_t>(t & 0x0FFFFFFF) | channel << 29;
                ++consumed;
            }
            ++written;
        }
        *count = consumed;
        return written;
    }

    int encode52(const PpTimest* events, int* count, std::uint32_t* output, int capacity)
    {
        int consumed = 0, written = 0;
        while (consumed < *count && written < capacity) {
            const auto t = static_cast<std::uint64_t>(events[consumed].time);
            const std::uint64_t h = (t >> 26) & 0x03FFFFFF;
            if (h > lastHigh) {
                output[written] = static_cast<std::uint32_t>(h) | 0xFC000000U;
                lastHigh = h;
            } else {
                std::uint32_t code = events[consumed].channel;
                if (code == 104)
                    code = 41;
                else if (code >= 100 && code <= 199)
                    code -= 67;
                else if (code >= 200)
                    code -= 163;
                output[written] = static_cast<std::uint32_t>(t & 0x03FFFFFF) | code << 26;
                ++consumed;
            }
            ++written;
        }
        *count = consumed;
        return written;
    }

    int encode60(const PpTimest* events, int* count, std::uint32_t* output, int capacity)
    {
        const int available = *count;
        const int even = capacity - capacity % 2;
        *count = 0;
        if (available <= 0 || even < 2) return 0;
        const auto first = static_cast<std::uint64_t>(events[0].time);
        output[0] = static_cast<std::uint32_t>(first & 0x3FFFFFFF);
        output[1] = static_cast<std::uint32_t>((first >> 30) & 0x3FFFFFFF) | 0x80000000U;
        lastHigh = first;
        int written = 2;
        while (*count < available && written < even) {
            const PpTimest& event = events[*count];
            auto to = static_cast<std::uint64_t>(event.time);
            std::uint32_t channel = event.channel;
            if (channel >= 100) {
                const std::uint32_t bit = channel % 100 + (channel >= 200 ? 5 : 0);
                to = static_cast<std::uint64_t>((event.time / 5000) * 5000);
                if (bit < 64) to += std::uint64_t{1} << bit; // 2^64 wraps to 0
                channel = 6;
            }
            const std::uint64_t delta = to - lastHigh;
            lastHigh = to;
            output[written] = static_cast<std::uint32_t>(delta & 0x3FFFFFFF) | 0x40000000U;
            output[written + 1] =
                static_cast<std::uint32_t>((delta >> 30) & 0x07FFFFFF) | channel << 27 | 0xC0000000U;
            written += 2;
            ++*count;
        }
        return written;
    }

    static int encode60b(const PpTimest* events, int* count, std::uint8_t* output, int capacity)
    {
        const std::int64_t size = std::int64_t{capacity} * 4;
        std::int64_t position = 0;
        const auto write = [&](std::uint64_t byte) {
            if (position < size) output[position] = static_cast<std::uint8_t>(byte);
            ++position;
        };
        int consumed = 0;
        for (; consumed < *count && position < size; ++consumed) {
            const std::int64_t v = events[consumed].time;
            const auto bits = static_cast<std::uint64_t>(v);
            const std::uint64_t channel = events[consumed].channel;
            if (v > 0xFFFFFFFF) {
                for (int i = 0; i < 8; ++i) write(bits * 4 >> (8 * i));
                write(channel * 4);
                write(0);
                write(0);
            } else if (v > 0xFFFFFF) {
                for (int i = 0; i < 4; ++i) write(bits >> (8 * i));
                ++position;
            } else if (v > 0) {
                write(channel * 4 + 1);
                write(bits);
                write(bits >> 8);
                if (v > 0xFFFF) write(bits >> 16);
            }
        }
        *count = consumed;
        return static_cast<int>(position / 4);
    }
};

} // namespace literal
