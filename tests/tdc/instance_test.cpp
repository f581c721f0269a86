#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <new>
#include <tests/trace/logfixture.h>
#include <tuple>
#include <utility>
#include <vector>
#include <vorelutil/tdc/instance.h>

static bool noMemory = false;

void* operator new(std::size_t size)
{
    void* const memory = noMemory ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();

using Events = std::vector<std::pair<std::int64_t, int>>; ///< time, channel

class TdcInstance : public LogFixture
{
public:
    Events pop() const
    {
        std::vector<PpTimest> output(tdc56Capacity);
        output.resize(static_cast<std::size_t>(tdc56Pop(stream.get(), output.data())));
        Events events;
        for (const PpTimest& event : output) events.emplace_back(event.time, event.channel);
        return events;
    }

    /// Format 56: a high word 0, then an event each.
    void decode(const Events& events) const
    {
        std::vector<std::uint32_t> words = {0x10000000};
        for (const auto& [time, channel] : events)
            words.push_back(static_cast<std::uint32_t>(time) | static_cast<std::uint32_t>(channel) << 29);
        tdc56Decode(stream.get(), words.data(), static_cast<int>(words.size()));
    }

    const std::shared_ptr<Tdc56Instance> stream{tdc56Init(), tdc56DeInit};
};

const std::int32_t noOffsets[8] = {};
const std::int32_t someOffsets[8] = {0, 100};
const std::int32_t otherOffsets[8] = {0, 0, 0, 0, 0, 0, 0, -1};

TEST_F(TdcInstance, LosesAndTellsWhatExceedsTheBuffer)
{
    traceInit("log", "tdc", 0);
    for (int i = 0; i < 16384; ++i) tdc56Push(stream.get(), i, 255);
    EXPECT_EQ(pop().size(), 16384U);
    EXPECT_EQ(logged(), "") << "as many as it holds";

    for (int i = 0; i < 16385; ++i) tdc56Push(stream.get(), i, 3);
    EXPECT_EQ(tdc56GetCount(stream.get()), 16385);
    const Events events = pop();
    ASSERT_EQ(events.size(), 16384U);
    EXPECT_EQ(events.back(), std::pair(std::int64_t{16383}, 3));
    EXPECT_EQ(pop(), Events{});
    EXPECT_EQ(logged(), "tdc ERROR: Sorting queue overflow: 16385.\n") << "once";
}

TEST_F(TdcInstance, TakesEventsOutInOrderOnceTheStreamHasPassedThem)
{
    tdc56SetOffsets(stream.get(), someOffsets);
    decode({{50, 1}, {120, 0}});
    EXPECT_EQ(pop(), (Events{{120, 0}}));
    stream->time = 150;
    for (const int channel : {8, 2, 0}) tdc56Push(stream.get(), 150, static_cast<std::uint8_t>(channel));
    EXPECT_EQ(pop(), (Events{{150, 0}, {150, 1}, {150, 2}})) << "equal times by channel";
    EXPECT_EQ(tdc56GetCount(stream.get()), 1) << "channel 8 does not pass the queue";
}

TEST_F(TdcInstance, DropsEventsWhenSortingGoesOnOrOff)
{
    // clang-format off
    const struct { const char* desc; const std::int32_t* offsets; std::uint64_t queued; std::int32_t count; } rows[] = {
        {"is off already",   noOffsets,    0, 1},
        {"goes on",          someOffsets,  0, 0},
        {"stays on",         otherOffsets, 1, 1},
        {"goes off",         noOffsets,    0, 0},
        {"goes on again",    someOffsets,  0, 0},
        {"goes off by null", nullptr,      0, 0},
    };
    // clang-format on
    for (const auto& row : rows) {
        tdc56Flush(stream.get());
        tdc56Push(stream.get(), 900, 9);
        if (stream->sorting) tdc56Push(stream.get(), 900, 1);
        tdc56SetOffsets(stream.get(), row.offsets);
        EXPECT_EQ(tdc56GetQueued(stream.get()), row.queued) << row.desc;
        EXPECT_EQ(tdc56GetCount(stream.get()), row.count) << row.desc;
    }
    EXPECT_FALSE(tdc56GetActive(stream.get()));
}

TEST_F(TdcInstance, ResetBeginsAnewButKeepsOffsetsAndQueue)
{
    Tdc56Instance& s = *stream;
    const auto state = [&] {
        return std::tie(s.time, s.highBase, s.lastStart, s.measuredPeriod, s.startPeriod, s.carryWord,
                        s.virtualCount, s.count, s.lastEncodedHigh, s.divider, s.sorting, s.droppedWords,
                        s.orderingErrors);
    };
    const auto expected = std::tuple(0, -1, 0U, 0, 0, 0U, 0, 0, 0U, 1, false, 0U, 0U);
    EXPECT_EQ(state(), expected) << "new";
    tdc56SetOffsets(stream.get(), someOffsets);
    tdc56Push(stream.get(), 50, 1);
    state() = std::tuple(7, 7, 7U, 7, 7, 7U, 7, 7, 7U, 7, true, 7U, 7U);
    tdc56Reset(stream.get());
    EXPECT_EQ(state(), expected);
    EXPECT_EQ(tdc56GetQueued(stream.get()), 1U);
    EXPECT_EQ(s.offsets[1], 100);
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
    {"no fifth one",        2, 0,     {{10, 0}, {20, 0}, {90, 1}},    {{10, 0}, {20, 0}, {25, 0}, {30, 0}, {90, 1}}},
    {"cut to whole clocks", 3, 0,     {{10, 0}, {20, 0}, {27, 1}},    {{10, 0}, {20, 0}, {23, 0}, {26, 0}, {27, 1}}},
    {"folds",               4, 1000,  {{1260, 1}, {1499, 0}, {1500, 2}}, {{10, 1}, {249, 0}, {0, 2}}},
    {"part is cut",         3, 1000,  {{1000, 1}},                    {{1, 1}}},
    {"divider 1",           1, 1000,  {{1260, 1}},                    {{1260, 1}}},
    {"divider 0",           0, 1000,  {{1260, 1}},                    {{1260, 1}}},
    {"divider 0, measured", 0, 0,     {{10, 0}, {20, 0}, {28, 1}},    {{10, 0}, {20, 0}, {28, 1}}},
    {"negative divider",   -4, 1000,  {{1260, 1}},                    {{1260, 1}}},
    {"period below",        4, 3,     {{1260, 1}},                    {{1260, 1}}},
    {"negative period",     4, -1000, {{1260, 1}},                    {{1260, 1}}},
    {"largest divider",  most, 1000,  {{1260, 1}},                    {{1260, 1}}},
};
// clang-format on

TEST_F(TdcInstance, DividesStartPeriods)
{
    for (const DividerRow& row : dividerRows) {
        tdc56Reset(stream.get());
        tdc56SetDivider(stream.get(), row.divider);
        tdc56SetStartPeriod(stream.get(), row.period);
        decode(row.decoded);
        EXPECT_EQ(pop(), row.delivered) << row.desc;
    }
}

TEST_F(TdcInstance, CountsWhatTheLargestDividerAsksFor)
{
    tdc56SetDivider(stream.get(), most);
    EXPECT_TRUE(tdc56GetActive(stream.get()));
    decode({{1000, 0}, {2000, 0}, {2001, 1}}); // one clock is 2147483.6 parts
    EXPECT_EQ(tdc56GetCount(stream.get()), 3 + 2147483);
    decode({{3000, 1}});
    EXPECT_EQ(tdc56GetCount(stream.get()), most) << "stays there";
}

TEST_F(TdcInstance, CanBeResetAfterMemoryRanOut)
{
    tdc56SetOffsets(stream.get(), someOffsets);
    decode({{10, 0}, {20, 2}, {30, 2}});
    ASSERT_EQ(pop().size(), 3U); // leaves room for as many keys
    const std::uint32_t words[] = {5, 6, 20};
    stream->highBase = (std::int64_t{1} << 60) - 10; // the last time does not fit a key
    noMemory = true;
    EXPECT_THROW(tdc56Decode(stream.get(), words, 3), std::bad_alloc);
    noMemory = false;
    EXPECT_EQ(tdc56GetQueued(stream.get()), 2U) << "what was decoded before, once";

    tdc56Flush(stream.get());
    tdc56Reset(stream.get());
    decode({{40, 3}});
    EXPECT_EQ(pop(), (Events{{40, 3}}));
}

} // namespace
