#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <tuple>
#include <vorelutil/algo/scale.h>

static constexpr double untouched = -7;

// A step of 0 stands for one of no use, as a painter can see.
TEST(Scale, TicsAreRoundAndFewEnough)
{
    // clang-format off
    const struct { double low, high; int maxTics; double first, step, unit; } rows[] = {
        {0, 10, 5, 4, 4, 1}, {-3.5, 4, 8, -4, 1, 1}, {10, 0, 5, 12, 4, 1}, {0, 1, 10, 0.2, 0.2, 1}, {2, 12, 10, 4, 2, 1},
        {0, 100, 7, 20, 20, 1}, {0, 6, 1, 10, 10, 1}, {0, 7, INT_MIN, 10, 10, 1}, {0, 22, 5, 5, 5, 1}, {0, 18, 5, 4, 4, 1},
        {-1000, 20, 10, -1000, 200, 1000}, {1, 999.9, 5, 200, 200, 1}, {0.002, 0.004, 2, 0.003, 0.001, 0.001},
        {0, 0.8, 100, 0.01, 0.01, 0.001}, {-2e6, 0, 4, -2e6, 1e6, 1e6}, {4.3, 5.3, 11, 4.3, 0.1, 1},
        {0, 0, INT_MAX, 0, 0, untouched}, {5, 5, INT_MAX, 0, 0, 1}, {-2e3, -2e3, 1, 0, 0, 1e3}, {0, INFINITY, 9, 0, 0, 1}, {-INFINITY, INFINITY, 9, 0, 0, 1},
        {-1e308, 1e308, 9, 0, 0, 1e306}, {NAN, 5, 9, 0, 0, 1}, {0, NAN, 9, 0, 0, untouched}, {0, 4.9406564584124654e-324, INT_MAX, 0, 0, 1e-321}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.low << " to " << row.high);
        double first = untouched, step = untouched, unit = untouched;
        algoCalcScaleTics(row.low, row.high, row.maxTics, &first, &step, &unit);
        EXPECT_NEAR(std::isfinite(step) && step > 0 ? step : 0, row.step, 1e-12);
        EXPECT_NEAR(row.step > 0 ? first : 0, row.first, 1e-12);
        EXPECT_NEAR(unit, row.unit, std::fabs(row.unit) * 1e-9);
    }
}

TEST(Scale, GaugeIsRoundWithAPrefixOfItsOwn)
{
    // clang-format off
    const struct { int value, full; char prefix; std::tuple<int, int, char> gauge; } rows[] = {
        {500, 1000, 'm', {100, 200, 'm'}}, {10000, 20000, ' ', {2500, 5000, ' '}}, {-4000, 20000, ' ', {-1000, 5000, ' '}},
        {250, 1000, 'u', {50, 200, '\xB5'}}, {10, 20, 'k', {3, 5, 'k'}}, {-10, 20, 'k', {-3, 5, 'k'}}, {3, 3, 'M', {1, 1, 'M'}},
        {900, 1000, 'k', {180, 200, 'k'}}, {1, 1, 'y', {0, 0, 'y'}}, {50, 100, 'X', {10, 20, ' '}}, {50, 100, '?', {10, 20, ' '}},
        {10000, 10000, 'm', {2000, 2, ' '}}, {INT_MIN, INT_MAX, ' ', {-500000000, 500000000, ' '}},
        {1, 0, 'm', {INT_MIN, 0, ' '}}, {1, -5, ' ', {INT_MIN, INT_MIN, ' '}}};
    // clang-format on
    for (const auto& row : rows) {
        std::tuple gauge(-7, -7, '-');
        auto& [value, full, prefix] = gauge;
        algoCalcGaugeDisplay(row.value, row.full, row.prefix, &value, &full, &prefix);
        EXPECT_EQ(gauge, row.gauge) << row.value << " of " << row.full << row.prefix;
    }
}
