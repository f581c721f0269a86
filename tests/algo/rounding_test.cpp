#include <climits>
#include <gtest/gtest.h>
#include <limits>
#include <utility>
#include <vorelutil/algo/rounding.h>

using Limits = std::numeric_limits<double>;
static constexpr double inf = Limits::infinity(), notANumber = Limits::quiet_NaN();
static constexpr double largest = Limits::max(), smallest = Limits::denorm_min();

// clang-format off

TEST(Rounding, NearestRoundsHalvesAwayFromZero)
{
    const struct { double x; int nearest; unsigned int nearestU; long long nearest64; } rows[] = {
        {0, 0, 0, 0},      {-0.0, 0, 0, 0},   {0.49999, 0, 0, 0},  {0.5, 1, 1, 1},     {smallest, 0, 0, 0},
        {-0.5, -1, 0, -1}, {2.5, 3, 3, 3},    {-2.5, -3, 0, -3},
        {2147483647.4, INT_MAX, 2147483647, 2147483647}, {2147483647.5, INT_MIN, 2147483648, 2147483648},
        {-2147483648.4, INT_MIN, 0, -2147483648}, {-2147483649.0, INT_MIN, 0, -2147483649},
        {4294967295.0, INT_MIN, 4294967295, 4294967295}, {4294967297.0, INT_MIN, 1, 4294967297},
        {-5000000000.5, INT_MIN, 0, -5000000001}, {9.2e18, INT_MIN, 2643984384, 9200000000000000000},
        {9223372036854775808.0, INT_MIN, 0, LLONG_MIN}, {-9.3e18, INT_MIN, 0, LLONG_MIN}, {inf, INT_MIN, 0, LLONG_MIN},
        {-inf, INT_MIN, 0, LLONG_MIN}, {notANumber, INT_MIN, 0, LLONG_MIN}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.x);
        EXPECT_EQ(algoNearest(row.x), row.nearest);
        EXPECT_EQ(algoNearestU(row.x), row.nearestU);
        EXPECT_EQ(algoNearestLongLong(row.x), row.nearest64);
    }
}

TEST(Rounding, ExponentsCountFromOneUpwards)
{
    const struct { unsigned int x; int exponent; } binary[] = {
        {0, -1}, {1, 0}, {2, 1}, {3, 1}, {4, 2}, {0x7FFFFFFF, 30}, {0x80000000, 31}};
    for (const auto& row : binary) EXPECT_EQ(algoLogb(row.x), row.exponent) << row.x;

    const struct { double x; int exponent; } decimal[] = {
        {1, 0}, {9.99, 0}, {10, 1}, {1000, 3}, {12345, 4}, {largest, 308}, {inf, 308}, {0.5, -1}, {0.01, -1},
        {1e-9, -1}, {smallest, -1}, {0, 0}, {-5, 0}, {-inf, 0}, {notANumber, 0}};
    for (const auto& row : decimal) EXPECT_EQ(algoLogd(row.x), row.exponent) << row.x;
}

TEST(Rounding, DigitsCountPlacesAndDecimals)
{
    const struct { double x, resolution; int digits; } rows[] = {
        {123.45, 0.1, 5}, {123.45, 1, 3}, {-123.45, -0.01, 6}, {123.45, 25, 3}, {99.9, 0, 2}, {100, 0, 3},
        {0, 0.001, 5}, {0, 0, 1}, {5, 0.3, 2}, {notANumber, 0, 1}, {-inf, 1, 309}, {1, notANumber, 1}, {1, inf, 1},
        {1, smallest, 310}, {1, 1e-5, 6}}; // not 7: 1 / 1e-5 rounds below 1e5
    for (const auto& row : rows) EXPECT_EQ(algoDigits(row.x, row.resolution), row.digits) << &row - rows;
}

TEST(Rounding, ApproxByRatioFindsTheFirstRatioWithinTolerance)
{
    constexpr int same = 77; // left untouched
    const struct { double x, tolerance; int numerator, denominator; } rows[] = {
        {2.5, 0.01, 5, 2}, {-2.5, 0.01, 5, -2}, {0.4, 0.01, 2, 5}, {1, 1e-9, 1, 1}, {3.14159265, 0.001, 22, 7},
        {2.5, 0.21, 3, 1}, {0, 0.01, 0, same}, {notANumber, 0.01, same, same}, {inf, 0.01, same, same},
        {-inf, 0.01, same, same}, {3, 0, INT_MAX, 715827882}, {3, notANumber, INT_MAX, 715827882},
        {3e9, 0.01, INT_MAX, 1}, {-1e-10, 0.01, 0, -INT_MAX}, {smallest, 0.01, 0, INT_MAX}, {largest, 0.01, INT_MAX, 0}};
    for (const auto& row : rows) {
        int numerator = same, denominator = same;
        algoApproxByRatio(row.x, row.tolerance, &numerator, &denominator);
        EXPECT_EQ(std::pair(numerator, denominator), std::pair(row.numerator, row.denominator)) << row.x;
    }
}
