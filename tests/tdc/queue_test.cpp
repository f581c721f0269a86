#include "stream.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fuzz/tdcfuzz.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <new>
#include <random>

static thread_local std::size_t allocated = 0; ///< bytes, by `new`; under the sanitizers, too
static thread_local bool noMemory = false;

void* operator new(std::size_t size)
{
    void* const memory = noMemory ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    allocated += malloc_usable_size(memory);
    return memory;
}

void operator delete(void* memory) noexcept
{
    allocated -= malloc_usable_size(memory);
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

namespace {

constexpr std::int32_t lowestOffset = std::numeric_limits<std::int32_t>::min();
const std::int32_t someOffsets[8] = {0, 0, 0, 0, 0, 0, 0, 1};

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
    {"one clock, many equal",       1000,            1,               2,             -1,           1,     40,    200},
    {"waiting for long",            0,               1000,            50000,         -100000,      100000, 300,  300},
    {"a few words a pop",           0,               10,              5000,          -3000,        3000,  8,     2000},
    {"more ready than one pop has", 0,               100000,          50000,         0,            1,     60000, 12},
    {"below the longest key",       (1LL << 60) - 9, 2,               8,             -5,           0,     30,    200},
    {"lowest key",                  -(1LL << 60),    2,               8,             3,            -3,    30,    200},
    {"beyond keys now and then",    (1LL << 60),     1ULL << 57,      1ULL << 59,    7,            -7,    100,   100},
    {"wraps",                       highest - 500,   100,             200,           lowestOffset, most,  30,    200},
    {"any time",                    0,               ~0ULL,           ~0ULL,         lowestOffset, most,  90,    300},
};
// clang-format on

TEST(TimeQueue, AnswersAsOneSortOfAllDoes)
{
    for (const Flow& flow : flows) {
        std::mt19937_64 random(57);
        const auto upTo = [&](std::uint64_t limit) {
            return static_cast<std::int64_t>(limit + 1 == 0 ? random() : random() % (limit + 1));
        };
        tdcfuzz::Twin twin;
        const std::int32_t offsets[8] = {flow.offset0, flow.offset1, 1, 0, -1, 0, flow.offset0 / 2, 0};
        twin.setOffsets(offsets);
        std::int64_t& time = twin.ours->time = flow.begin;
        for (int round = 0; round < flow.rounds; ++round) {
            for (auto left = upTo(flow.pushes); left > 0; --left) {
                const std::int64_t earliest = literal::difference(time, upTo(flow.spread / 2));
                twin.push(literal::sum(earliest, upTo(flow.spread)), static_cast<std::uint8_t>(upTo(7)));
            }
            time = twin.stated.time = literal::sum(time, upTo(flow.step));
            for (auto pops = 1 + upTo(1); pops > 0; --pops) {
                twin.pop();
                ASSERT_TRUE(twin.same()) << flow.desc << round;
            }
        }
        EXPECT_GT(twin.compared, 100U) << flow.desc << ": of no use";
    }
}

TEST(TimeQueue, GivesBackTheRoomOfWhatWasTaken)
{
    const struct
    {
        const char* desc;
        std::int64_t begin;
        std::size_t events, words, room;
    } rows[] = {{"keys", 0, 1'000'000, 0, 8'000'000 / 2 * 3},
                {"records", std::int64_t{1} << 60, 1'000'000, 0, 32'000'000},
                {"a packet without events", 0, 0, 300'000, 8 * 300'000}};
    for (const auto& row : rows) {
        Stream stream;
        tdc56SetOffsets(stream.instance, someOffsets);
        const Words words(row.words, 0xF8000000); // of a code that nothing has
        const std::size_t before = allocated;
        for (std::size_t i = 0; i < row.events; ++i) stream.push(row.begin + static_cast<std::int64_t>(i), 1);
        stream.instance->highBase = 0;
        tdc56Decode52(stream.instance, words.data(), static_cast<int>(row.words), 0);
        EXPECT_LT(allocated, before + row.room + 10'000) << row.desc;
        stream.instance->time = lowest;
        EXPECT_EQ(tdc56Pop(stream.instance, stream.output.data()), 0) << row.desc;
        stream.instance->time = highest;
        while (tdc56Pop(stream.instance, stream.output.data()) > 0) continue;
        EXPECT_EQ(tdc56GetQueued(stream.instance), 0U) << row.desc;
        EXPECT_LT(allocated, before + 1'100'000) << row.desc << ": room for 65536 may be kept";
    }
}

TEST(TimeQueue, TenMillionWaitingEventsHoldUpNobodyAndGiveTheirMemoryBack)
{
    constexpr std::int64_t far = std::int64_t{1} << 50;
    constexpr std::size_t waiting = 10'000'000;
    Stream stream;
    tdc56SetOffsets(stream.instance, someOffsets);
    std::mt19937_64 random(3);
    const auto wait = [&] { stream.push(far + static_cast<std::int64_t>(random() % far), 1); };
    const auto taken = [&](std::int64_t time) {
        stream.instance->time = time;
        return tdc56Pop(stream.instance, stream.output.data());
    };
    const auto goOn = [&](int late, int queued) { // packets of 20 events: that wait, that have waited, now
        const std::clock_t begun = std::clock();
        for (int packet = 0; packet < 20'000; ++packet) {
            for (int event = 0; event < late; ++event) wait();
            for (int event = late + queued; event < 20; ++event) stream.push(packet, 1);
            if (taken(packet) != 20 - late) ADD_FAILURE() << packet;
        }
        return std::clock() - begun;
    };
    const std::size_t before = allocated;
    wait();
    const std::clock_t alone = goOn(0, 0);
    EXPECT_LT(allocated, before + 1'100'000) << "gaps are closed, too, where one waits for ever";
    for (int packet = 0; packet < 20'000; ++packet) stream.push(packet, 2);
    for (std::size_t i = 0; i < waiting; ++i) wait();
    EXPECT_EQ(taken(-1), 0);
    const std::clock_t beside = goOn(10, 1);
    EXPECT_LT(beside, 40 * alone) << alone << ": when runs are not merged, or gaps closed too often";
    EXPECT_EQ(tdc56GetQueued(stream.instance), waiting + 200'001);
    EXPECT_LT(allocated - before, waiting * sizeof(PpTimest));

    // What is asked for in the end comes in order; the rest is dropped.
    ASSERT_EQ(taken(2 * far), tdc56Capacity);
    EXPECT_TRUE(std::is_sorted(stream.output.begin(), stream.output.end()));
    EXPECT_GE(stream.output[0].time, far);
    tdc56Flush(stream.instance);
    EXPECT_EQ(tdc56GetQueued(stream.instance), 0U);
    EXPECT_LT(allocated, before + 10'000);
}

TEST(TimeQueue, CanBeResetAfterMemoryRanOut)
{
    Stream stream;
    tdc56SetOffsets(stream.instance, someOffsets);
    stream.feed(Format::f56, {0x10000000, 10, 0x40000014, 0x4000001E});
    ASSERT_EQ(stream.events.size(), 3U); // leaves room for as many keys
    const std::uint32_t words[] = {5, 6, 20};
    stream.instance->highBase = (std::int64_t{1} << 60) - 10; // the last time does not fit a key
    noMemory = true;
    EXPECT_THROW(tdc56Decode(stream.instance, words, 3), std::bad_alloc);
    noMemory = false;
    EXPECT_EQ(tdc56GetQueued(stream.instance), 2U) << "what was decoded before, once";

    tdc56Flush(stream.instance);
    tdc56Reset(stream.instance);
    stream.decode(Format::f56, {0x10000000, 0x60000028});
    EXPECT_EQ(stream.taken(), (Events{{40, 3}}));
}

} // namespace
