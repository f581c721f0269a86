#pragma once

#include "literaltdc.h"

#include <cstdlib>
#include <cstring>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

/// What the fuzz targets of the packet formats have in common: the input is a list of steps, which the
/// library and the literal decoder both take; after each, all that can be seen of them must be the same.
namespace tdcfuzz {

/// The library's instance beside the literal one.
struct Twin
{
    Tdc56Instance* ours = tdc56Init();
    literal::Instance stated;
    std::uint32_t mask = 0x1FF; ///< of markers
    bool equal = true;          ///< that all results were the same so far
    std::size_t compared = 0;   ///< events

    Twin() = default;
    Twin(const Twin&) = delete;
    Twin& operator=(const Twin&) = delete;
    ~Twin() { tdc56DeInit(ours); }

    void setDivider(std::int32_t divider)
    {
        tdc56SetDivider(ours, divider);
        stated.setDivider(divider);
    }
    void setStartPeriod(std::int64_t period)
    {
        tdc56SetStartPeriod(ours, period);
        stated.setStartPeriod(period);
    }
    void setOffsets(const std::int32_t* offsets)
    {
        tdc56SetOffsets(ours, offsets);
        stated.setOffsets(offsets);
    }
    void push(std::int64_t time, std::uint8_t channel)
    {
        tdc56Push(ours, time, channel);
        stated.push(time, channel);
    }
    void reset()
    {
        tdc56Reset(ours);
        stated.reset();
    }
    void flush()
    {
        tdc56Flush(ours);
        stated.flush();
    }
    /// Result: the number of records.
    std::size_t pop()
    {
        static std::vector<PpTimest> popped(tdc56Capacity); // the room, and no more
        const std::int32_t count = tdc56Pop(ours, popped.data());
        stated.pop(&m_expected);
        compare(popped, m_expected, count);
        return m_expected.size();
    }

    void decode56(const std::vector<std::uint32_t>& words)
    {
        tdc56Decode(ours, words.data(), size(words));
        stated.decode56(words.data(), size(words));
    }
    void decode52(const std::vector<std::uint32_t>& words)
    {
        tdc56Decode52(ours, words.data(), size(words), mask);
        stated.decode52(words.data(), size(words), mask);
    }
    void decode52x(const std::vector<std::uint32_t>& words)
    {
        std::vector<PpTimest> events(words.size());
        std::vector<PpTimest> expected(words.size());
        const int count = tdc56Decode52x(ours, words.data(), size(words), events.data());
        expected.resize(
            static_cast<std::size_t>(stated.decode52x(words.data(), size(words), expected.data())));
        compare(events, expected, count);
    }
    void decode60(const std::vector<std::uint32_t>& words)
    {
        const int result = tdc56Decode60(ours, words.data(), size(words), mask);
        equal = result == stated.decode60(words.data(), size(words), mask) && equal;
    }
    /// \param inWords whether the length is given so; the bytes must be a multiple of four.
    void decode60b(const std::vector<std::uint8_t>& bytes, bool inWords)
    {
        const int length = inWords ? size(bytes) / 4 : -size(bytes);
        tdc56Decode60b(ours, bytes.data(), length, mask);
        stated.decode60b(bytes.data(), length, mask);
    }

    /// Whether the two cannot be told apart.
    bool same() const
    {
        return equal && tdc56GetTime(ours) == stated.time && tdc56GetCount(ours) == stated.count &&
               tdc56GetQueued(ours) == stated.queue.size() &&
               tdc56GetDroppedWords(ours) == stated.droppedWords &&
               tdc56GetOrderingErrors(ours) == stated.orderingErrors &&
               tdc56GetDivider(ours) == stated.divider &&
               tdc56GetActive(ours) == (stated.sorting || stated.divider > 1);
    }

private:
    template <class Element> static int size(const std::vector<Element>& packet)
    {
        return static_cast<int>(packet.size());
    }
    void compare(const std::vector<PpTimest>& events, const std::vector<PpTimest>& expected, int count)
    {
        compared += expected.size();
        equal = equal && count == static_cast<int>(expected.size()) &&
                (count == 0 ||
                 std::memcmp(events.data(), expected.data(), expected.size() * sizeof(PpTimest)) == 0);
    }

    std::vector<PpTimest> m_expected;
};

/// The bytes of an input; zeros behind its end.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_data(data)
        , m_left(size)
    {
    }
    bool empty() const { return m_left == 0; }
    template <class Value> Value take()
    {
        Value value{};
        fill(&value, 1);
        return value;
    }
    /// In heap blocks of exactly their size, so that nobody reads past the end unseen.
    template <class Element> std::vector<Element> packet(std::size_t count)
    {
        std::vector<Element> elements(std::min(count, m_left / sizeof(Element)));
        fill(elements.data(), elements.size());
        return elements;
    }

private:
    template <class Value> void fill(Value* values, std::size_t count)
    {
        const std::size_t size = std::min(m_left, count * sizeof(Value));
        if (size > 0) std::memcpy(values, m_data, size);
        m_data += size;
        m_left -= size;
    }

    const std::uint8_t* m_data;
    std::size_t m_left;
};

/// One setting, from the input.
inline void set(Twin& twin, unsigned which, Input& input)
{
    std::int32_t offsets[8] = {};
    switch (which) {
    case 0:
        return twin.setDivider(input.take<std::int8_t>() % 20);
    case 1:
        return twin.setStartPeriod(input.take<std::int64_t>());
    case 2:
        return twin.setStartPeriod(input.take<std::uint16_t>());
    case 3:
        for (std::int32_t& offset : offsets) offset = input.take<std::int32_t>();
        return twin.setOffsets(offsets);
    case 4:
        for (std::int32_t& offset : offsets) offset = input.take<std::int8_t>();
        return twin.setOffsets(offsets);
    case 5:
        return twin.setOffsets(nullptr);
    case 6:
        twin.mask = input.take<std::uint32_t>();
        return;
    case 7:
        return twin.reset();
    case 8:
        return twin.flush();
    default:
        return twin.setDivider(input.take<std::int32_t>());
    }
}

/// Takes the steps of the input: the low three bits of a byte say which, the others are its argument.
///   0 to 2  a packet of so many elements; 1: `decode` makes it a tidy one; 2: the same ones again and again
///   3       taking events out       4, 5  a setting       6, 7  an event of the caller's
/// \param decode called with the twin, the elements, and whether the packet shall be tidy.
template <class Element, class Decode> int run(const std::uint8_t* data, std::size_t size, Decode decode)
{
    constexpr std::size_t mostElements = 60000;
    constexpr std::size_t mostQueued = 40000;
    Twin twin;
    Input input(data, size);
    const auto check = [&twin] {
        if (!twin.same()) std::abort();
    };
    for (std::size_t taken = 0; !input.empty() && taken < mostElements;) {
        const auto step = input.take<std::uint8_t>();
        const unsigned argument = step >> 3;
        if ((step & 7U) <= 2) {
            std::vector<Element> packet = input.packet<Element>(argument);
            const std::size_t times = (step & 7U) == 2 ? std::size_t{input.take<std::uint8_t>()} * 4 : 1;
            const std::vector<Element> once = packet;
            for (std::size_t i = 1; i < times; ++i) packet.insert(packet.end(), once.begin(), once.end());
            packet.shrink_to_fit();
            decode(twin, packet, (step & 7U) == 1);
            taken += packet.size();
        } else if ((step & 7U) == 3) {
            twin.pop();
        } else if ((step & 7U) <= 5) {
            set(twin, argument % 10, input);
            // A large divider may fold, but it would make millions of events.
            if (twin.stated.startPeriod == 0 && twin.stated.divider > 20) twin.setDivider(20);
        } else {
            const auto time = input.take<std::int64_t>();
            twin.push(time, static_cast<std::uint8_t>(argument));
        }
        check();
        if (twin.stated.queue.size() > mostQueued) twin.flush();
    }
    // The latest absolute time: whatever waits in the queue comes out.
    twin.decode60b({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}, false);
    while (twin.pop() > 0) check();
    check();
    return 0;
}

} // namespace tdcfuzz
