#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <tests/trace/logfixture.h>
#include <utility>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

namespace {

constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();

using Words = std::vector<std::uint32_t>;
using Events = std::vector<std::pair<std::int64_t, int>>; ///< time, channel

class TdcInstance : public LogFixture
{
public:
    /// Events that are ready; each record is written in whole.
    Events pop()
    {
        std::vector<PpTimest> output(tdc56Capacity);
        std::memset(output.data(), 0xFF, output.size() * sizeof(PpTimest));
        output.resize(static_cast<std::size_t>(tdc56Pop(stream(), output.data())));
        Events events;
        for (const PpTimest& event : output) {
            events.emplace_back(event.time, event.channel);
            EXPECT_EQ(std::count(event.padding, std::end(event.padding), 0), 7);
        }
        return events;
    }

    /// Format 56: a high word 0, then an event each.
    void decode(const Events& events)
    {
        Words words = {0x10000000};
        for (const auto& [time, channel] : events)
            words.push_back(static_cast<std::uint32_t>(time) | static_cast<std::uint32_t>(channel) << 29);
        tdc56Decode(stream(), words.data(), static_cast<int>(words.size()));
    }

    /// The stream's time goes on; no event. (Format 52: a high word 0, the code 32.)
    void passTo(std::uint32_t time)
    {
        const Words words = {0xFC000000, 0x80000000 | time};
        tdc56Decode52(stream(), words.data(), 2, 0);
    }

    void setOffsets(const std::vector<std::int32_t>& offsets) { tdc56SetOffsets(stream(), offsets.data()); }

    Tdc56Instance* stream() const { return m_stream.get(); }

private:
    std::unique_ptr<Tdc56Instance, void (*)(Tdc56Instance*)> m_stream = {tdc56Init(), tdc56DeInit};
};

const std::vector<std::int32_t> noOffsets(8, 0);
const std::vector<std::int32_t> someOffsets = {0, 100, 0, 0, 0, 0, 0, 0};

TEST_F(TdcInstance, LosesAndTellsWhatExceedsTheBuffer)
{
    traceInit("log", "tdc", 0);
    for (int i = 0; i < 16384; ++i) tdc56Push(stream(), i, 255);
    EXPECT_EQ(pop().size(), 16384U);
    EXPECT_EQ(logged(), "") << "as many as it holds";

    for (int i = 0; i < 16385; ++i) tdc56Push(stream(), i, 3);
    EXPECT_EQ(tdc56GetCount(stream()), 16385);
    const Events events = pop();
    ASSERT_EQ(events.size(), 16384U);
    EXPECT_EQ(events.back(), std::pair(std::int64_t{16383}, 3));
    EXPECT_EQ(logged(), "tdc ERROR: Sorting queue overflow: 16385.\n");
    EXPECT_EQ(pop(), Events{});
    EXPECT_EQ(logged(), "") << "only once";
}

TEST_F(TdcInstance, TakesEventsOutInOrderOnceTheStreamHasPassedThem)
{
    setOffsets(someOffsets);
    decode({{50, 1}, {120, 0}});
    EXPECT_EQ(pop(), (Events{{120, 0}}));
    passTo(149);
    EXPECT_EQ(pop(), Events{});
    passTo(150);
    EXPECT_EQ(pop(), (Events{{150, 1}}));

    tdc56Push(stream(), 50, 1);
    tdc56Push(stream(), 120, 8);
    tdc56Push(stream(), 150, 0);
    tdc56Push(stream(), 120, 0);
    EXPECT_EQ(pop(), (Events{{120, 0}, {150, 0}, {150, 1}})) << "equal times by channel";
    EXPECT_EQ(tdc56GetCount(stream()), 1) << "channel 8 does not pass the queue";
}

TEST_F(TdcInstance, DropsEventsWhenSortingGoesOnOrOff)
{
    const auto push = [&] { tdc56Push(stream(), 900, 1), tdc56Push(stream(), 900, 9); };
    const auto held = [&] { return std::pair(tdc56GetQueued(stream()), tdc56GetCount(stream())); };
    push();
    setOffsets(noOffsets);
    EXPECT_EQ(held(), std::pair(std::uint64_t{0}, 2)) << "is off already";
    setOffsets(someOffsets);
    EXPECT_EQ(held(), std::pair(std::uint64_t{0}, 0)) << "goes on";
    push();
    setOffsets({0, 0, 0, 0, 0, 0, 0, -1});
    EXPECT_EQ(held(), std::pair(std::uint64_t{1}, 1)) << "stays on";
    setOffsets(noOffsets);
    EXPECT_EQ(held(), std::pair(std::uint64_t{0}, 0)) << "goes off";

    setOffsets(someOffsets);
    push();
    tdc56SetOffsets(stream(), nullptr);
    EXPECT_EQ(held(), std::pair(std::uint64_t{0}, 0)) << "goes off by null";
    EXPECT_FALSE(tdc56GetActive(stream()));
}

TEST_F(TdcInstance, ResetBeginsAnewButKeepsTheQueue)
{
    const auto expectNew = [&] {
        EXPECT_EQ(tdc56GetTime(stream()), 0);
        EXPECT_EQ(tdc56GetCount(stream()), 0);
        EXPECT_EQ(tdc56GetDivider(stream()), 1);
        EXPECT_FALSE(tdc56GetActive(stream()));
        EXPECT_EQ(tdc56GetDroppedWords(stream()), 0U);
        EXPECT_EQ(tdc56GetOrderingErrors(stream()), 0U);
    };
    expectNew();
    const Words early = {1, 2}, outOfStep = {0, 0};
    tdc56Decode(stream(), early.data(), 2);
    EXPECT_EQ(tdc56GetDroppedWords(stream()), 2U);
    tdc56Decode60(stream(), outOfStep.data(), 2, 0);
    EXPECT_EQ(tdc56GetOrderingErrors(stream()), 1U);
    setOffsets(someOffsets);
    tdc56SetDivider(stream(), 4);
    tdc56SetStartPeriod(stream(), 1000);
    decode({{50, 1}, {60, 2}});
    tdc56Push(stream(), 1, 9);
    EXPECT_EQ(tdc56GetDivider(stream()), 4);
    tdc56Reset(stream());
    expectNew();
    EXPECT_EQ(tdc56GetQueued(stream()), 2U);
    tdc56Decode(stream(), early.data(), 2);
    EXPECT_EQ(tdc56GetDroppedWords(stream()), 2U) << "a high word has to come again";
    tdc56Flush(stream());
    EXPECT_EQ(tdc56GetQueued(stream()), 0U);
}

struct DividerRow
{
    const char* desc;
    std::int32_t divider;
    std::int64_t period;
    Events decoded, delivered;
};

// clang-format off
const DividerRow dividerRows[] = {
    {"after the second start", 4, 0, {{1000, 0}, {1900, 1}, {2000, 0}, {2249, 1}, {2250, 1}, {2760, 2}, {2990, 0}},
     {{1000, 0}, {1900, 1}, {2000, 0}, {2249, 1}, {2250, 0}, {2250, 1}, {2500, 0}, {2750, 0}, {2760, 2}, {2990, 0}}},
    {"a fourth one when reached", 4, 0, {{1000, 0}, {2000, 0}, {3000, 0}, {3100, 1}},
     {{1000, 0}, {2000, 0}, {2250, 0}, {2500, 0}, {2750, 0}, {3000, 0}, {3000, 0}, {3100, 1}}},
    {"no fifth one",        2, 0, {{10, 0}, {20, 0}, {90, 1}}, {{10, 0}, {20, 0}, {25, 0}, {30, 0}, {90, 1}}},
    {"cut to whole clocks", 3, 0, {{10, 0}, {20, 0}, {27, 1}}, {{10, 0}, {20, 0}, {23, 0}, {26, 0}, {27, 1}}},
    {"folds",               4, 1000, {{1260, 1}, {1499, 0}, {1500, 2}}, {{10, 1}, {249, 0}, {0, 2}}},
    {"part is cut",         3, 1000, {{1000, 1}},           {{1, 1}}},
    {"divider 1",           1, 1000, {{1260, 1}},           {{1260, 1}}},
    {"divider 0",           0, 1000, {{1260, 1}},           {{1260, 1}}},
    {"divider 0, measured", 0, 0,    {{10, 0}, {20, 0}, {28, 1}}, {{10, 0}, {20, 0}, {28, 1}}},
    {"negative divider",   -4, 1000, {{1260, 1}},           {{1260, 1}}},
    {"period below",        4, 3,    {{1260, 1}},           {{1260, 1}}},
    {"negative period",     4, -1000, {{1260, 1}},          {{1260, 1}}},
    {"largest divider",     most, 1000, {{1260, 1}},        {{1260, 1}}},
};
// clang-format on

TEST_F(TdcInstance, DividesStartPeriods)
{
    for (const DividerRow& row : dividerRows) {
        tdc56Reset(stream());
        tdc56SetDivider(stream(), row.divider);
        tdc56SetStartPeriod(stream(), row.period);
        decode(row.decoded);
        EXPECT_EQ(pop(), row.delivered) << row.desc;
    }
}

TEST_F(TdcInstance, VirtualEventsHaveTheOffsetOfTheirChannel)
{
    setOffsets({7, 0, 0, 0, 0, 0, 0, 0});
    tdc56SetDivider(stream(), 2);
    decode({{10, 0}, {20, 0}, {29, 1}});
    passTo(100);
    EXPECT_EQ(pop(), (Events{{17, 0}, {27, 0}, {29, 1}, {32, 0}}));
}

TEST_F(TdcInstance, CountsWhatTheLargestDividerAsksFor)
{
    tdc56SetDivider(stream(), most);
    decode({{1000, 0}, {2000, 0}, {2001, 1}}); // one clock is 2147483.6 parts
    EXPECT_EQ(tdc56GetCount(stream()), 3 + 2147483);
    decode({{3000, 1}});
    EXPECT_EQ(tdc56GetCount(stream()), most) << "stays there";
}

} // namespace
