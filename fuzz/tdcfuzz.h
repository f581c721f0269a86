#pragma once

#include "literalencode.h"
#include "literaltdc.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

/// What the fuzz targets of the packet formats have in common: the input is a list of steps, which the
/// library and its literal form both take; after each, all that can be seen of them must be the same.
namespace tdcfuzz {

/// The library's instance beside the literal one.
struct Twin
{
    Tdc56Instance* ours = tdc56Init();
    literal::Instance stated;
    literal::Encoder encoder;
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
        encoder.lastHigh = 0;
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

    /// By one of four encoders, to more than the capacity's room, of which the rest must stay as it was.
    void encode(unsigned which, const std::vector<PpTimest>& events, int capacity)
    {
        const std::size_t words = static_cast<std::size_t>(std::max(capacity, 0)) + 4;
        const std::vector<std::uint32_t> room(words, 0xA5A5A5A5U); // 60b leaves bytes as they were
        const std::vector<std::uint8_t> bytes(words * 4, 0xA5);
        literal::Encoder& e = encoder;
        switch (which) {
        case 0:
            return encodeBoth(
                tdc56Encode, [&e](auto... a) { return e.encode56(a...); }, events, room, capacity);
        case 1:
            return encodeBoth(
                tdc56Encode52, [&e](auto... a) { return e.encode52(a...); }, events, room, capacity);
        case 2:
            return encodeBoth(
                tdc56Encode60, [&e](auto... a) { return e.encode60(a...); }, events, room, capacity);
        default:
            return encodeBoth(tdc56Encode60b, literal::Encoder::encode60b, events, bytes, capacity);
        }
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
    template <class Ours, class Stated, class Element>
    void encodeBoth(Ours encodeOurs, Stated encodeStated, const std::vector<PpTimest>& events,
                    const std::vector<Element>& room, int capacity)
    {
        std::vector<Element> output = room;
        std::vector<Element> expected = room;
        int consumed = size(events);
        int expectedConsumed = consumed;
        const int written = encodeOurs(ours, events.data(), &consumed, output.data(), capacity);
        equal = encodeStated(events.data(), &expectedConsumed, expected.data(), capacity) == written &&
                consumed == expectedConsumed && output == expected && equal;
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

/// Many events of the caller's, at times one apart.
inline void pushMany(Twin& twin, int count, std::int64_t time, std::uint8_t channel)
{
    for (int i = 0; i < count; ++i) twin.push(literal::sum(time, i), channel);
}

/// One setting, or another call than a decoder's, from the input.
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
    case 9:
        return twin.setDivider(input.take<std::int32_t>());
    case 10: { // more than the flat buffer holds, at most
        const int count = input.take<std::uint16_t>() % 17001;
        const auto time = input.take<std::int64_t>();
        return pushMany(twin, count, time, input.take<std::uint8_t>());
    }
    case 11: { // markers, until the flat buffer has room for so many
        const int room = input.take<std::uint16_t>() % 1024;
        return pushMany(twin, tdc56Capacity - room - twin.stated.count, 0, 100);
    }
    case 12:
        return twin.setDivider(input.take<std::uint16_t>() % 1000);
    default: { // a period measured by format 56, which those without starts use, too
        const auto first = input.take<std::uint32_t>() & 0x0FFFFFFFU;
        const auto second = input.take<std::uint32_t>() & 0x0FFFFFFFU;
        return twin.decode56({0x10000000U, first, second});
    }
    }
}

/// Events of the input to an encoder: 9 bytes each, the time shifted right by `shift`.
inline void encode(Twin& twin, unsigned which, int shift, Input& input)
{
    const int capacity = input.take<std::int8_t>();
    std::vector<PpTimest> events(input.take<std::uint8_t>() % 64);
    for (PpTimest& event : events) {
        event.time = input.take<std::int64_t>() >> shift;
        event.channel = input.take<std::uint8_t>();
    }
    twin.encode(which, events, capacity);
}

/// Brings the time to its latest, so that, while sorting, whatever waits in the queue comes out.
inline void bringToEnd(Twin& twin)
{
    constexpr std::uint32_t ignored = 7U << 27; // a channel
    std::vector<std::uint32_t> words = {0x3FFFFFFFU, 0xBFFFFFFFU};
    for (int i = 0; i < 112; ++i) { // 2^60 - 1 + 112 * (2^56 - 1) + 112 = 2^63 - 1
        words.push_back(0x7FFFFFFFU);
        words.push_back(0xC3FFFFFFU | ignored);
    }
    words.push_back(0x40000000U + 112);
    words.push_back(0xC0000000U | ignored);
    twin.decode60(words);
    if (twin.stated.time != std::numeric_limits<std::int64_t>::max()) std::abort();
}

/// Takes the steps of the input: the low three bits of a byte say which, the others are its argument.
///   0 to 2  a packet of so many elements; 1: made tidy; 2: the same ones again and again
///   3       taking events out
///   4       a setting or another call
///   5       a run: so many elements, again and again, made plain; one of them may stay as the input has it
///   6       an event of the caller's
///   7       events to an encoder
///
/// A `Format` has, for a packet of its `Element`s,
///   tidy    which makes it one that is not dropped whole
///   plain   which makes it one of channel events alone; `narrow`: with small or even differences of time
///   decode  by both instances
template <class Format> int run(const std::uint8_t* data, std::size_t size)
{
    using Element = typename Format::Element;
    constexpr std::size_t mostElements = 60000;
    constexpr std::size_t mostQueued = 40000;
    std::size_t virtualsLeft = 200000; // at most, were all of them to come
    Twin twin;
    Input input(data, size);
    const auto check = [&twin] {
        if (!twin.same()) std::abort();
    };
    for (std::size_t taken = 0; !input.empty() && taken < mostElements;) {
        const auto step = input.take<std::uint8_t>();
        const unsigned kind = step & 7U;
        const unsigned argument = step >> 3;
        if (kind <= 2 || kind == 5) {
            std::vector<Element> packet = input.packet<Element>(argument);
            const auto repeat = [&packet](std::size_t times) {
                const std::vector<Element> once = packet;
                for (std::size_t i = 1; i < times; ++i) packet.insert(packet.end(), once.begin(), once.end());
            };
            if (kind == 1) Format::tidy(twin, packet);
            if (kind == 2) repeat(std::size_t{input.take<std::uint8_t>()} * 4);
            if (kind == 5) {
                const auto how = input.take<std::uint8_t>();
                repeat((how & 0x3FU) * 8);
                Format::plain(packet, (how & 0x80U) != 0);
                if ((how & 0x40U) != 0 && !packet.empty()) {
                    const std::size_t place = input.take<std::uint16_t>() % packet.size();
                    packet[place] = input.take<Element>();
                }
            }
            if (twin.stated.divider > 1 && twin.stated.startPeriod == 0) {
                const auto divider = static_cast<std::size_t>(twin.stated.divider);
                packet.resize(std::min(packet.size(), virtualsLeft / divider));
                virtualsLeft -= packet.size() * divider;
            }
            packet.shrink_to_fit();
            Format::decode(twin, packet, kind == 1);
            taken += packet.size();
        } else if (kind == 3) {
            twin.pop();
        } else if (kind == 4) {
            set(twin, argument % 14, input);
            // A large divider may fold, but it would make millions of events.
            if (twin.stated.startPeriod == 0 && twin.stated.divider > 1000) twin.setDivider(1000);
        } else if (kind == 6) {
            twin.push(input.take<std::int64_t>(), static_cast<std::uint8_t>(argument));
        } else {
            encode(twin, argument & 3U, static_cast<int>(argument >> 2) * 8, input);
        }
        check();
        if (twin.stated.queue.size() > mostQueued) twin.flush();
    }
    bringToEnd(twin);
    while (twin.pop() > 0) check();
    check();
    return 0;
}

} // namespace tdcfuzz
