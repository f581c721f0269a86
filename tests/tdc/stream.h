#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>
#include <vorelutil/tdc/instance.h>

constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();

using Words = std::vector<std::uint32_t>;                 ///< bytes for 60b
using Events = std::vector<std::pair<std::int64_t, int>>; ///< time, channel

enum class Format
{
    f56,
    f52,
    f52x,
    f60,
    f60b
};

/// An instance, and what it delivered.
struct Stream
{
    const std::unique_ptr<Tdc56Instance, void (*)(Tdc56Instance*)> owner{tdc56Init(), tdc56DeInit};
    Tdc56Instance* const instance = owner.get();
    std::uint32_t mask = 0x1FF;
    Events events;
    int result = 0; ///< of format 60
    std::vector<PpTimest> output = std::vector<PpTimest>(tdc56Capacity);

    /// Packets that are written down are in heap blocks of their size: the address sanitizer sees what is
    /// read behind them.
    void decode(Format format, const Words& packet)
    {
        const std::vector<std::uint8_t> bytes(packet.begin(), packet.end());
        const auto count = static_cast<int>(packet.size());
        std::vector<PpTimest> out(packet.size());
        if (format == Format::f56) tdc56Decode(instance, packet.data(), count);
        if (format == Format::f52) tdc56Decode52(instance, packet.data(), count, mask);
        if (format == Format::f52x) take(out, tdc56Decode52x(instance, packet.data(), count, out.data()));
        if (format == Format::f60) result = tdc56Decode60(instance, packet.data(), count, mask);
        if (format == Format::f60b) tdc56Decode60b(instance, bytes.data(), -count, mask);
    }
    int pop()
    {
        const int count = tdc56Pop(instance, output.data());
        take(output, count);
        return count;
    }
    void feed(Format format, const Words& packet)
    {
        decode(format, packet);
        pop();
    }
    void push(std::int64_t time, int channel) const
    {
        tdc56Push(instance, time, static_cast<std::uint8_t>(channel));
    }
    Events taken()
    {
        events.clear();
        pop();
        return events;
    }

private:
    void take(const std::vector<PpTimest>& from, int count)
    {
        for (const PpTimest* event = from.data(); count > 0; ++event, --count)
            events.emplace_back(event->time, event->channel);
    }
};
