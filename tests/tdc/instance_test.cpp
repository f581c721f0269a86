#include "stream.h"

#include <tests/trace/logfixture.h>
#include <tuple>

namespace {

const std::int32_t noOffsets[8] = {};
const std::int32_t someOffsets[8] = {0, 100};
const std::int32_t otherOffsets[8] = {0, 0, 0, 0, 0, 0, 0, -1};
constexpr std::uint32_t high = 0x10000000; ///< word 0 of format 56; channel 1 is 0x20000000

class TdcInstance : public LogFixture
{
public:
    Stream stream;
    Tdc56Instance* const instance = stream.instance;
};

TEST_F(TdcInstance, LosesAndTellsWhatExceedsTheBuffer)
{
    traceInit("log", "tdc", 0);
    for (int i = 0; i < 16384; ++i) stream.push(i, 255);
    EXPECT_EQ(stream.pop(), 16384);
    EXPECT_EQ(logged(), "") << "as many as it holds";

    for (int i = 0; i < 16385; ++i) stream.push(i, 3);
    EXPECT_EQ(tdc56GetCount(instance), 16385);
    const Events events = stream.taken();
    ASSERT_EQ(events.size(), 16384U);
    EXPECT_EQ(events.back(), std::pair(std::int64_t{16383}, 3));
    EXPECT_EQ(stream.pop(), 0);
    EXPECT_EQ(logged(), "tdc ERROR: Sorting queue overflow: 16385.\n") << "once";

    const struct
    {
        int divider;
        std::uint32_t start, second, event;
        int virtualEvents; ///< also where they are only counted, as the buffer is full
    } rows[] = {
        {462, 1000, 2505, 4010, 462}, {358, 1000, 2984, 4968, 357}, {most, 1000, 2000, 2001, 2147483}};
    for (const auto& row : rows)
        for (const int before : {0, 16384}) {
            tdc56Reset(instance);
            tdc56SetDivider(instance, row.divider);
            for (int i = 0; i < before; ++i) stream.push(i, 3);
            stream.decode(Format::f56, {high, row.start, row.second, 0x20000000 + row.event});
            EXPECT_EQ(tdc56GetCount(instance), before + 3 + row.virtualEvents) << row.divider;
        }
    stream.decode(Format::f56, {0x20000000 + 3000});
    EXPECT_EQ(tdc56GetCount(instance), most);
    stream.push(1, 1);
    EXPECT_EQ(tdc56GetCount(instance), most) << "stays there";
}

TEST_F(TdcInstance, TakesEventsOutInOrderOnceTheStreamHasPassedThem)
{
    tdc56SetOffsets(instance, someOffsets);
    stream.feed(Format::f56, {high, 0x20000000 + 50, 120});
    EXPECT_EQ(stream.events, (Events{{120, 0}}));
    instance->time = 150;
    for (const int channel : {8, 2, 0}) stream.push(150, channel);
    EXPECT_EQ(stream.taken(), (Events{{150, 0}, {150, 1}, {150, 2}})) << "equal times by channel";
    EXPECT_EQ(tdc56GetCount(instance), 1) << "channel 8 does not pass the queue";

    for (int i = 0; i < 20000; ++i) stream.push(1, 100);
    tdc56SetDivider(instance, 4);
    stream.feed(Format::f56, {1000, 2000, 3000});
    EXPECT_EQ(stream.events.size(), 3 + 3U + 4U) << "virtual events beside a full flat buffer";
    EXPECT_EQ(tdc56GetCount(instance), 20001) << "no pop resets it while sorting";
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
        tdc56Flush(instance);
        stream.push(900, 9);
        if (instance->sorting) stream.push(900, 1);
        tdc56SetOffsets(instance, row.offsets);
        EXPECT_EQ(tdc56GetQueued(instance), row.queued) << row.desc;
        EXPECT_EQ(tdc56GetCount(instance), row.count) << row.desc;
    }
    EXPECT_EQ(instance->offsets[1], 100) << "stays";
    EXPECT_FALSE(tdc56GetActive(instance));
    tdc56SetDivider(instance, 2);
    EXPECT_TRUE(tdc56GetActive(instance));
}

TEST_F(TdcInstance, ResetBeginsAnewButKeepsOffsetsAndQueue)
{
    Tdc56Instance& s = *instance;
    const auto state = [&] {
        return std::tie(s.time, s.highBase, s.lastStart, s.measuredPeriod, s.startPeriod, s.carryWord,
                        s.virtualCount, s.count, s.lastEncodedHigh, s.divider, s.sorting, s.droppedWords,
                        s.orderingErrors);
    };
    const auto expected = std::tuple(0, -1, 0U, 0, 0, 0U, 0, 0, 0U, 1, false, 0U, 0U);
    EXPECT_EQ(state(), expected) << "new";
    tdc56SetOffsets(instance, someOffsets);
    stream.push(50, 1);
    state() = std::tuple(7, 7, 7U, 7, 7, 7U, 7, 7, 7U, 7, true, 7U, 7U);
    tdc56Reset(instance);
    EXPECT_EQ(state(), expected);
    EXPECT_EQ(tdc56GetQueued(instance), 1U);
    EXPECT_EQ(s.offsets[1], 100);
}

TEST_F(TdcInstance, KeepsTheMeasuredPeriodFromSettingToSetting)
{
    // clang-format off
    const struct { const char* desc; int divider; std::int64_t period; Format format; Words packet; Events events; } steps[] = {
        {"folding marks starts", 4, 1000, Format::f56, {high, 1010, 2010}, {{10, 0}, {10, 0}}},
        {"without a divider none is marked", 1, 0, Format::f56, {3000, 5000}, {{3000, 0}, {5000, 0}}},
        {"60b goes on with it", 4, 0, Format::f60b, {0x04, 1, 0}, {{2260, 0}, {2510, 0}, {2760, 0}, {3010, 0}, {5001, 1}}},
        {"52 too, unless there were as many", 4, 0, Format::f52, {0xFC000000, 6000, 9000}, {{6000, 0}, {9000, 0}}},
        {"the next start measures anew", 2, 0, Format::f56, {10010, 0x20000000 + 15000}, {{10010, 0}, {14010, 0}, {15000, 1}}},
    };
    // clang-format on
    for (const auto& step : steps) {
        tdc56SetDivider(instance, step.divider);
        tdc56SetStartPeriod(instance, step.period);
        stream.events.clear();
        stream.feed(step.format, step.packet);
        EXPECT_EQ(stream.events, step.events) << step.desc;
    }
}

} // namespace
