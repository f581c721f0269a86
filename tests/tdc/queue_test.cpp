#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fuzz/literaltdc.h>
#include <gtest/gtest.h>
#include <limits>
#include <malloc.h>
#include <memory>
#include <random>
#include <vector>
#include <vorelutil/tdc/instance.h>

namespace {

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
constexpr std::int32_t lowestOffset = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highestOffset = std::numeric_limits<std::int32_t>::max();

struct Flow
{
    const char* desc;
    std::int64_t begin;   ///< the stream's time at first
    std::uint64_t step;   ///< by which it goes on at most from pop to pop
    std::uint64_t spread; ///< how far events are around it
    std::int32_t offset0, offset1;
    unsigned pushes; ///< at most, between two pops
    int rounds;
};

// clang-format off
const Flow flows[] = {
    {"one clock, many equal",       1000,            1,               2,             -1,           1,             40,    200},
    {"waiting for long",            0,               1000,            50000,         -100000,      100000,        300,   300},
    {"a few words a pop",           0,               10,              5000,          -3000,        3000,          8,     2000},
    {"more ready than one pop has", 0,               100000,          50000,         0,            1,             60000, 12},
    {"below the longest key",       (1LL << 60) - 9, 2,               8,             -5,           0,             30,    200},
    {"lowest key",                  -(1LL << 60),    2,               8,             3,            -3,            30,    200},
    {"offsets at their ends",       0,               1ULL << 33,      1000,          lowestOffset, highestOffset, 100,   200},
    {"beyond keys now and then",    (1LL << 60),     1ULL << 57,      1ULL << 59,    7,            -7,            100,   100},
    {"wraps",                       highest - 500,   100,             200,           lowestOffset, highestOffset, 30,    200},
    {"any time",                    0,               ~0ULL,           ~0ULL,         lowestOffset, highestOffset, 90,    300},
};
// clang-format on

TEST(TimeQueue, AnswersAsOneSortOfAllDoes)
{
    const auto ours = std::make_unique<Tdc56Instance>();
    std::vector<PpTimest> output(tdc56Capacity, PpTimest{-1, 255, {9, 9, 9, 9, 9, 9, 9}}), events = output;
    for (const Flow& flow : flows) {
        std::mt19937_64 random(57);
        const auto upTo = [&](std::uint64_t limit) {
            return static_cast<std::int64_t>(limit + 1 == 0 ? random() : random() % (limit + 1));
        };
        literal::Instance expected;
        const std::int32_t offsets[8] = {flow.offset0, flow.offset1, 1, 0, -1, 0, flow.offset0 / 2, 0};
        tdc56SetOffsets(ours.get(), offsets);
        expected.setOffsets(offsets);
        ours->time = flow.begin;
        std::size_t popped = 0;
        for (int round = 0; round < flow.rounds; ++round) {
            for (auto left = upTo(flow.pushes); left > 0; --left) {
                const std::int64_t stamp =
                    literal::sum(literal::difference(ours->time, upTo(flow.spread / 2)), upTo(flow.spread));
                const auto channel = static_cast<std::uint8_t>(upTo(7));
                tdc56Push(ours.get(), stamp, channel);
                expected.push(stamp, channel);
            }
            ours->time = expected.time = literal::sum(ours->time, upTo(flow.step));
            for (auto pops = 1 + upTo(1); pops > 0; --pops) {
                const auto count = static_cast<std::size_t>(tdc56Pop(ours.get(), output.data()));
                expected.pop(&events);
                ASSERT_EQ(count, events.size()) << flow.desc << round;
                ASSERT_EQ(std::memcmp(output.data(), events.data(), count * sizeof(PpTimest)), 0)
                    << flow.desc << round;
                ASSERT_EQ(tdc56GetQueued(ours.get()), expected.queue.size()) << flow.desc << round;
                popped += count;
            }
        }
        EXPECT_GT(popped, 100U) << flow.desc << ": of no use";
        tdc56Flush(ours.get());
    }
}

TEST(TimeQueue, TakesTimesBeyondTheKeysForNoneOrAll)
{
    TimeQueue queue;
    PpTimest output[1];
    queue.push(-5, 7);
    EXPECT_EQ(queue.pop(lowest, output, 1), 0U);
    EXPECT_EQ(queue.pop(highest, output, 1), 1U);
}

std::size_t allocated()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST(TimeQueue, StaysSmallInALongStream)
{
    const std::size_t before = allocated();
    TimeQueue queue;
    std::vector<PpTimest> output(tdc56Capacity);
    for (std::int64_t time = 0; time < 1'000'000; time += 100) { // one in a hundred waits for some time
        for (int i = 0; i < 100; ++i) queue.push(time + (i == 0 ? 10'000 : i), 2);
        queue.pop(time + 99, output.data(), output.size());
    }
    EXPECT_EQ(queue.size(), 100U);
    EXPECT_LT(allocated(), before + 400'000) << "most of it the output";
}

TEST(TimeQueue, TenMillionWaitingEventsHoldUpNobodyAndGiveTheirMemoryBack)
{
    constexpr std::int64_t far = std::int64_t{1} << 50;
    constexpr std::size_t waiting = 10'000'000;
    const auto begun = std::chrono::steady_clock::now();
    const std::size_t before = allocated();
    TimeQueue queue;
    std::mt19937_64 random(3);
    for (std::size_t i = 0; i < waiting; ++i)
        queue.push(far + static_cast<std::int64_t>(random() % far), static_cast<std::uint8_t>(i % 8));

    // Packets of 20 events go on, half of which wait as well.
    constexpr int packets = 20'000;
    std::vector<PpTimest> output(tdc56Capacity);
    for (int i = 0; i < packets; ++i) {
        for (int event = 0; event < 10; ++event) {
            queue.push(i, 1);
            queue.push(far + static_cast<std::int64_t>(random() % far), 1);
        }
        ASSERT_EQ(queue.pop(i, output.data(), output.size()), 10U);
        ASSERT_EQ(output[9].time, i);
    }
    EXPECT_EQ(queue.size(), waiting + packets * 10);
    EXPECT_LT(allocated() - before, waiting * sizeof(PpTimest));

    // What is asked for in the end comes in order; the rest is dropped.
    ASSERT_EQ(queue.pop(2 * far, output.data(), output.size()), output.size());
    EXPECT_TRUE(std::is_sorted(output.begin(), output.end()));
    EXPECT_GE(output[0].time, far);
    queue.clear();
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_LT(allocated(), before + 1'000'000);
    // With each pop as long as the queue these would be minutes.
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(30));
}

} // namespace
