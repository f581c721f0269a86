#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <utility>
#include <vorelutil/algo/prefix.h>

static constexpr double inf = std::numeric_limits<double>::infinity();
static constexpr char micro = '\xB5';

// clang-format off

TEST(Prefix, TableHasEveryRow)
{
    const struct { char prefix; double factor; const char* printable; int exponent; char ofExponent; } rows[] = {
        {'Y', 1e24, "Y", 24, 'Y'}, {'Z', 1e21, "Z", 21, 'Z'}, {'E', 1e18, "E", 18, 'E'}, {'P', 1e15, "P", 15, 'P'},
        {'T', 1e12, "T", 12, 'T'}, {'G', 1e9, "G", 9, 'G'}, {'M', 1e6, "M", 6, 'M'}, {'k', 1e3, "k", 3, 'k'},
        {' ', 1, "", 0, ' '}, {'X', 1, "", 0, ' '}, {'m', 1e-3, "m", -3, 'm'}, {micro, 1e-6, "\xC2\xB5", -6, micro},
        {'u', 1e-6, "\xC2\xB5", -6, micro}, {'n', 1e-9, "n", -9, 'n'}, {'p', 1e-12, "p", -12, 'p'},
        {'f', 1e-15, "f", -15, 'f'}, {'a', 1e-18, "a", -18, 'a'}, {'z', 1e-21, "z", -21, 'z'}, {'y', 1e-24, "y", -24, 'y'},
        {'q', 0, "?", 7, '\0'},    {'K', 0, "?", 27, '\0'},   {'\0', 0, "?", -27, '\0'}, {'\xFF', 0, "?", 1, '\0'}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.prefix);
        EXPECT_EQ(algoGetPrefixFactor(row.prefix), row.factor);
        EXPECT_STREQ(algoGetPrintablePrefixL1(row.prefix), row.printable);
        EXPECT_EQ(algoGetPrintablePrefix(row.prefix), QString::fromUtf8(row.printable));
        EXPECT_EQ(algoGetPrefixFromMagnitude(row.exponent), row.ofExponent);
    }
}

TEST(Prefix, NormalizeStepsIntoTheRange)
{
    const struct { double value; char prefix; int decimals; double result; char to; double factor; } rows[] = {
        {0.00012, ' ', 3, 120.00000000000001, micro, 1e6}, {1234567, 'k', 3, 1.234567, 'G', 1e-6},
        {5e-12, ' ', 3, 5, 'p', 1e12},           {5, 'u', 3, 5, micro, 1}, {-2500, ' ', 3, -2.5, 'k', 1e-3},
        // The lower bound depends on the decimals: 0.9996 prints as 1.000, 0.9994 does not. The upper does not.
        {0.9996, ' ', 3, 0.9996, ' ', 1},        {0.9994, ' ', 3, 999.4, 'm', 1000},
        {0.5, ' ', 0, 0.5, ' ', 1},              {0.9999999999999999, ' ', 100, 999.9999999999999, 'm', 1000},
        {1e-20, ' ', INT_MIN, 1e-20, ' ', 1},    {999.9999, 'm', 0, 999.9999, 'm', 1},
        {1000, 'm', 0, 1, ' ', 1e-3}, {1e6, 'm', 0, 1, 'k', 1e-6}, {999999.9999999999, 'm', 0, 999.9999999999999, ' ', 1e-3},
        // The range ends at Y and y.
        {5e30, ' ', 3, 4999999.9999999991, 'Y', 9.999999999999997e-25}, {5e30, 'Z', 3, 5e27, 'Y', 1e-3},
        {1e-8, 'z', 3, 1e-5, 'y', 1000},         {1e-9, 'y', 3, 1e-9, 'y', 1},
        {inf, 'Z', 3, inf, 'Y', 1e-3},           {-inf, 'Y', 3, -inf, 'Y', 1},
        // Next to nothing is 0 without prefix; "X" and what is no prefix stay.
        {1e-31, 'X', 3, 0, ' ', 1},              {-0.0, 'q', 3, 0, ' ', 1},
        {5, 'X', 3, 5, 'X', 1},                  {5e9, 'q', 3, 5e9, 'q', 1},     {5e9, '\0', 3, 5e9, '\0', 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        double value = row.value, factor = -1;
        EXPECT_EQ(algoNormalize(&value, row.prefix, &factor, row.decimals), row.to);
        EXPECT_EQ(std::pair(value, factor), std::pair(row.result, row.factor));
    }
    double value = std::nan("");
    EXPECT_EQ(algoNormalize(&value, 'u', nullptr, 3), micro);
    EXPECT_TRUE(std::isnan(value));
}

TEST(Prefix, NormalizeFixedConvertsBetweenUsablePrefixes)
{
    const struct { double value; char from, to, result; double converted; } rows[] = {
        {1, 'u', 'n', 'n', 999.9999999999999}, {2, 'k', ' ', ' ', 2000}, {2, micro, 'u', 'u', 2},
        {7, 'k', 'X', 'k', 7}, {7, 'X', 'k', 'X', 7}, {7, 'k', 'q', 'k', 7}, {7, '\0', 'k', '\0', 7},
        {inf, 'm', 'k', 'k', inf}};
    for (const auto& row : rows) {
        double value = row.value;
        EXPECT_EQ(algoNormalizeFixed(&value, row.from, row.to), row.result);
        EXPECT_EQ(value, row.converted) << row.from << " to " << row.to;
    }
}
