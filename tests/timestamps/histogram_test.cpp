#include "streams.h"

#include "apps/timestamps/histogram.h"

#include <gtest/gtest.h>
#include <limits>

using timestamps::StartStopHistogram;

namespace {

constexpr std::int64_t first = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t last = std::numeric_limits<std::int64_t>::max();
using Counts = std::vector<std::uint64_t>;

} // namespace

TEST(Histogram, CountsAStopAgainstTheLatestStart)
{
    struct Row
    {
        const char* desc;
        Events events; // starts on channel 1, stops on 2
        Counts counts; // two bins of 10, beyond, before the first start
    };
    // clang-format off
    const Row rows[] = {
        {"edges of bins", {{100, 1, {}}, {100, 2, {}}, {109, 2, {}}, {110, 2, {}}, {119, 2, {}}, {120, 2, {}}}, {2, 2, 1, 0}},
        {"the latest start", {{100, 1, {}}, {115, 1, {}}, {118, 2, {}}}, {1, 0, 0, 0}},
        {"start and stop at once, stop first", {{100, 1, {}}, {115, 2, {}}, {115, 1, {}}}, {1, 0, 0, 0}},
        {"stop before its start in the file", {{112, 2, {}}, {100, 1, {}}, {99, 2, {}}}, {0, 1, 0, 1}},
        {"other channels", {{100, 1, {}}, {101, 3, {}}, {102, 2, {}}}, {1, 0, 0, 0}},
        {"the whole range", {{first, 1, {}}, {last, 2, {}}, {first, 2, {}}}, {1, 0, 1, 0}},
    };
    // clang-format on
    for (const Row& row : rows) {
        StartStopHistogram histogram(1, 2, 10, 2);
        histogram.add(row.events.data(), row.events.size());
        EXPECT_EQ(histogram.stops(), 0U) << row.desc;
        histogram.settle();
        const Counts counts = {histogram.counts()[0], histogram.counts()[1], histogram.beyond(),
                               histogram.withoutStart()};
        EXPECT_EQ(counts, row.counts) << row.desc;
        EXPECT_EQ(histogram.late(), 0U) << row.desc;
    }
    StartStopHistogram same(1, 1, 10, 2);
    const Events events = {{115, 1, {}}, {100, 1, {}}, {117, 1, {}}};
    same.add(events.data(), events.size());
    same.settle();
    EXPECT_EQ(same.counts(), (Counts{1, 1}));
    EXPECT_EQ(same.withoutStart(), 1U);
}

TEST(Histogram, SortsWithinItsWindow)
{
    constexpr int pairs = 200000;
    Events events;
    for (int i = 0; i < pairs; ++i) {
        // Each stop comes 30000 pairs after its start in the file, 5 after it in time.
        events.push_back({i * 100LL, 1, {}});
        if (i >= 30000) events.push_back({(i - 30000) * 100LL + 5, 2, {}});
    }
    StartStopHistogram histogram(1, 2, 1, 10);
    for (std::size_t at = 0; at < events.size(); at += 1000)
        histogram.add(&events[at], std::min<std::size_t>(1000, events.size() - at));
    histogram.settle();
    EXPECT_EQ(histogram.counts()[5], 170000U);
    // Settled, yet remembered; forgotten; before there was any.
    const Events late = {{199000 * 100LL + 7, 2, {}}, {100, 2, {}}};
    histogram.add(late.data(), late.size());
    histogram.settle();
    EXPECT_EQ(histogram.counts()[7], 1U);
    EXPECT_EQ(histogram.late(), 1U);
    EXPECT_EQ(histogram.starts(), 200000U);
    EXPECT_EQ(histogram.stops(), 170002U);
    Events again = {{77, 1, {}}}; // a start that comes too late helps no stop
    again.insert(again.end(), 20, {80, 2, {}});
    histogram.add(again.data(), again.size());
    histogram.settle();
    EXPECT_EQ(histogram.late(), 21U);
    EXPECT_EQ(histogram.lateStarts(), 1U);
    histogram.clear();
    histogram.add(late.data(), late.size());
    histogram.settle();
    EXPECT_EQ(histogram.withoutStart(), 2U);
    EXPECT_EQ(histogram.counts(), Counts(10));
}
