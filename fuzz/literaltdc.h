#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <limits>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

/// The time-stamp decoders once more, slow and one stated step at a time: what the library's are compared
/// with, and what their speed is measured against. It shares nothing with the library but the record.
namespace literal {

/// Sums and differences of times wrap.
inline std::int64_t sum(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

inline std::int64_t difference(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

/// Never negative; `period` is above 0.
inline std::int64_t modulo(std::int64_t time, std::int64_t period)
{
    const std::int64_t rest = time % period;
    return rest < 0 ? rest + period : rest;
}

/// The lowest `bits` of a value as two's complement.
inline std::int64_t extended(std::uint64_t value, int bits)
{
    const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
    const std::uint64_t kept = value & ((sign << 1) - 1);
    return static_cast<std::int64_t>((kept ^ sign) - sign);
}

struct Instance
{
    static constexpr std::int32_t capacity = 16384;

    std::int64_t time = 0;
    std::int64_t highBase = -1;
    std::uint64_t lastStart = 0;
    std::int64_t measuredPeriod = 0;
    std::int64_t startPeriod = 0;
    std::uint32_t carryWord = 0;
    std::int32_t virtualCount = 0;
    std::int32_t count = 0;
    std::vector<PpTimest> buffer = std::vector<PpTimest>(capacity);
    std::deque<PpTimest> queue;
    std::int32_t divider = 1;
    bool sorting = false;
    std::int32_t offsets[8] = {};
    std::uint64_t droppedWords = 0;
    std::uint64_t orderingErrors = 0;

    void reset()
    {
        time = 0;
        highBase = -1;
        lastStart = 0;
        measuredPeriod = 0;
        startPeriod = 0;
        carryWord = 0;
        virtualCount = 0;
        count = 0;
        divider = 1;
        sorting = false;
        droppedWords = 0;
        orderingErrors = 0;
    }

    void setOffsets(const std::int32_t* values)
    {
        bool any = false;
        if (values != nullptr) {
            std::copy(values, values + 8, offsets);
            any = std::any_of(values, values + 8, [](std::int32_t value) { return value != 0; });
        }
        if (any != sorting) flush();
        sorting = any;
    }

    void setDivider(std::int32_t value) { divider = value; }
    void setStartPeriod(std::int64_t value) { startPeriod = value; }

    void store(std::int64_t stamp, std::uint8_t channel)
    {
        if (count < capacity) buffer[static_cast<std::size_t>(count)] = PpTimest{stamp, channel, {}};
        if (count < std::numeric_limits<std::int32_t>::max()) ++count;
    }

    void push(std::int64_t stamp, std::uint8_t channel)
    {
        if (sorting && channel < 8)
            queue.push_back(PpTimest{sum(stamp, offsets[channel]), channel, {}});
        else
            store(stamp, channel);
    }

    void flush()
    {
        queue.clear();
        count = 0;
    }

    /// What `tdc56Pop` writes, and nothing else, is in `output` afterwards.
    void pop(std::vector<PpTimest>* output)
    {
        output->clear();
        if (!sorting) {
            output->assign(buffer.begin(), buffer.begin() + std::min(count, capacity));
            count = 0;
            return;
        }
        std::sort(queue.begin(), queue.end(), [](const PpTimest& a, const PpTimest& b) {
            return a.time != b.time ? a.time < b.time : a.channel < b.channel;
        });
        while (!queue.empty() && queue.front().time <= time && output->size() < capacity) {
            output->push_back(queue.front());
            queue.pop_front();
        }
    }

    /// The step of the virtual events. Result: the time stamp to deliver.
    std::int64_t virtualEvents(bool isStart)
    {
        std::int64_t stamp = time;
        if (divider < 2) return stamp;
        if (startPeriod != 0) {
            const std::int64_t part = startPeriod / divider;
            if (part > 0) stamp = modulo(time, part);
        } else if (measuredPeriod > 0) {
            const double part = static_cast<double>(measuredPeriod) / divider;
            const auto elapsed = static_cast<double>(difference(time, static_cast<std::int64_t>(lastStart)));
            while (elapsed >= (virtualCount + 1.0) * part && virtualCount < divider) {
                const auto since = static_cast<std::uint64_t>((virtualCount + 1.0) * part); // up to 2^63
                push(static_cast<std::int64_t>(lastStart + since), 0);
                ++virtualCount;
            }
        }
        if (isStart) {
            if (lastStart != 0) measuredPeriod = difference(time, static_cast<std::int64_t>(lastStart));
            lastStart = static_cast<std::uint64_t>(time);
            virtualCount = 0;
        }
        return stamp;
    }

    /// The time of an event word of the formats 56 and 52x.
    void advance(std::uint32_t low)
    {
        std::int64_t t = sum(highBase, low);
        if (time > t) {
            highBase = sum(highBase, 0x10000000);
            t = sum(highBase, low);
        }
        time = t;
    }

    void decode56(const std::uint32_t* words, int wordCount)
    {
        for (int i = 0; i < wordCount; ++i) {
            const std::uint32_t word = words[i];
            if ((word & 0x10000000U) != 0) {
                highBase = std::int64_t{word & 0x0FFFFFFFU} << 28;
            } else if (highBase < 0) {
                ++droppedWords;
            } else {
                advance(word & 0x0FFFFFFFU);
                const auto channel = static_cast<std::uint8_t>(word >> 29);
                const std::int64_t stamp = virtualEvents(channel == 0);
                push(stamp, channel);
            }
        }
    }

    /// What formats 52 and 60b deliver for a code.
    void deliver(std::uint32_t code, std::uint32_t mask)
    {
        const auto marker = [&](std::uint32_t bit, std::uint32_t name) {
            if (((mask >> bit) & 1U) != 0) store(time, static_cast<std::uint8_t>(name));
        };
        if (code < 32) {
            const std::int64_t stamp = virtualEvents(false);
            push(stamp, static_cast<std::uint8_t>(code));
        } else if (code >= 33 && code <= 36) {
            marker(code - 33, code + 67);
        } else if (code >= 37 && code <= 40) {
            marker(code - 32, code + 163);
        } else if (code == 41) {
            marker(4, 104);
        }
    }

    void decode52(const std::uint32_t* words, int wordCount, std::uint32_t mask)
    {
        for (int i = 0; i < wordCount; ++i) {
            const std::uint32_t code = words[i] >> 26;
            const std::int64_t value = words[i] & 0x03FFFFFFU;
            if (code == 63) {
                highBase = value << 26;
            } else if (highBase < 0) {
                ++droppedWords;
            } else {
                time = sum(highBase, value);
                deliver(code, mask);
            }
        }
    }

    int decode52x(const std::uint32_t* words, int wordCount, PpTimest* output)
    {
        int written = 0;
        for (int i = 0; i < wordCount; ++i) {
            const std::uint32_t word = words[i];
            if ((word & 0x80000000U) == 0) {
                highBase = std::int64_t{word & 0x0FFFFFFFU} << 28;
            } else if (highBase < 0) {
                ++droppedWords;
            } else {
                advance(word & 0x0FFFFFFFU);
                output[written++] = PpTimest{time, static_cast<std::uint8_t>((word >> 28) & 7U), {}};
            }
        }
        return written;
    }

    void event60(std::int64_t delta, std::uint32_t channel, std::uint32_t mask)
    {
        time = sum(time, delta);
        if (channel <= 5) {
            const std::int64_t stamp = virtualEvents(channel == 5);
            push(stamp, static_cast<std::uint8_t>(channel));
        } else if (channel == 6) {
            static constexpr std::uint8_t codes[] = {100, 101, 102, 103, 104, 200, 201, 202, 203};
            const std::int64_t m = modulo(time, 5000);
            for (int bit = 0; bit <= 8; ++bit) {
                const bool set = (((mask & static_cast<std::uint32_t>(m)) >> bit) & 1U) != 0;
                if (set) store(difference(time, m), codes[bit]);
            }
        }
    }

    void record60(std::uint32_t lo, std::uint32_t hi, std::uint32_t mask)
    {
        const std::uint64_t wide = (std::uint64_t{hi & 0x3FFFFFFFU} << 30) + (lo & 0x3FFFFFFFU);
        const std::uint32_t type = ((hi >> 30) & 1U) * 2 + ((lo >> 30) & 1U);
        if (type == 0) {
            time = static_cast<std::int64_t>(wide);
        } else if (time == 0) {
            return;
        } else if (type == 1) {
            event60(extended(lo, 17), (lo >> 17) & 7U, mask);
            event60(extended(((lo >> 20) & 0x3FFU) | ((hi & 0x7FU) << 10), 17), (hi >> 7) & 7U, mask);
            event60(extended(hi >> 10, 17), (hi >> 27) & 7U, mask);
        } else if (type == 2) {
            event60(extended(lo, 27), (lo >> 27) & 7U, mask);
            event60(extended(hi, 27), (hi >> 27) & 7U, mask);
        } else {
            event60(extended(wide, 57), (hi >> 27) & 7U, mask);
        }
    }

    int decode60(const std::uint32_t* words, int wordCount, std::uint32_t mask)
    {
        const auto isSecond = [](std::uint32_t word) { return (word & 0x80000000U) != 0; };
        if (wordCount <= 0) return static_cast<int>(carryWord);
        if (wordCount >= 2 && isSecond(words[0]) == isSecond(words[1])) {
            ++orderingErrors;
            return static_cast<int>(words[0]);
        }
        int next = 0;
        if (isSecond(words[0])) {
            if (carryWord != 0) record60(carryWord, words[0], mask);
            next = 1;
        }
        for (; wordCount - next >= 2; next += 2) {
            if (isSecond(words[next]) || !isSecond(words[next + 1])) {
                ++orderingErrors;
                carryWord = 0;
                return 0;
            }
            record60(words[next], words[next + 1], mask);
        }
        const std::uint32_t last = words[wordCount - 1];
        carryWord = isSecond(last) ? 0 : last;
        return static_cast<int>(carryWord);
    }

    /// `length` as in `tdc56Decode60b`.
    void decode60b(const std::uint8_t* data, int length, std::uint32_t mask)
    {
        const std::int64_t size = length > 0 ? std::int64_t{length} * 4 : -std::int64_t{length};
        for (std::int64_t position = 0; position < size;) {
            static constexpr std::int64_t sizes[] = {3, 4, 5, 8};
            const std::uint32_t type = data[position] & 3U;
            const std::uint32_t code = data[position] >> 2;
            const std::int64_t taken = sizes[type];
            if (taken > size - position) return;
            std::uint64_t value = 0;
            for (std::int64_t i = taken - 1; i >= (type == 3 ? 0 : 1); --i)
                value = value << 8 | data[position + i];
            position += taken;
            if (type == 3) {
                time = extended(value >> 2, 62);
            } else if (time >= 0) {
                time = sum(time, extended(value, static_cast<int>(taken - 1) * 8));
                deliver(code, mask);
            }
        }
    }
};

} // namespace literal
