#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <utility>
#include <vorelutil/algo/unit.h>

static constexpr double inf = std::numeric_limits<double>::infinity();

// clang-format off

TEST(Unit, TableHasEveryRow)
{
    const struct { int code; const char* name; bool scalable; int topStep, steps; } rows[] = {
        {0x180, "m", true, -1, 4},     {0x280, "V", true, 0, 4},     {0x380, "Hz", true, 2, 4}, {0x480, "s", true, 0, 4},
        {0x580, "A", true, 0, 4},      {0x680, "W", true, 0, 4},     {0x780, "T", true, -1, 3}, {0x880, "K", true, 0, 2},
        {0x980, "deg", true, 0, 2},    {0xA80, "[cos]", false, 0, 1}, {0xB80, "[dB]", false, 0, 1},
        {0xC80, "[LSB]", false, 0, 1}, {0xD80, "m/s", true, 0, 4},   {0xE80, "steps", true, 0, 4}, {0xF80, "%", false, 0, 1},
        {0x1080, "\xC2\xB0\x43", false, 0, 1}, {0x1180, "c/s", true, 2, 4}, {0x80, "", false, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(algoParseUnit(row.name), row.code);
        char prefix = '?';
        double factor = -1;
        EXPECT_STREQ(algoGetBaseUnit(row.code - 1, &prefix, &factor), row.name);
        EXPECT_EQ(std::pair(prefix, factor), std::pair(row.scalable ? 'm' : 'X', 1e-3));
        int topStep = 99, steps = 99;
        algoGetUnitRange(row.code + 5, &topStep, &steps);
        EXPECT_EQ(std::pair(topStep, steps), std::pair(row.topStep, row.steps));
    }
    for (const char* name : {"hz", "H", "Hzz", static_cast<const char*>(nullptr)}) EXPECT_EQ(algoParseUnit(name), 0x80);
    algoGetUnitRange(0x180, nullptr, nullptr);
    EXPECT_STREQ(algoGetBaseUnit(0x180, nullptr, nullptr), "m");
}

TEST(Unit, BaseUnitTakesAnyCode)
{
    const struct { int code; const char* name; char prefix; double factor; } rows[] = {
        {0x17F, "m", 'm', 1e-3}, {0x382, "Hz", 'M', 1e6}, {0x188, "m", 'Y', 1e24}, {0x178, "m", 'y', 1e-24},
        {0x189, "m", '\0', 0},   {0x177, "m", '\0', 0},   {0x100, "m", '\0', 0},   {0xA81, "[cos]", 'X', 1e3},
        {0x80, "", 'X', 1},      {-1, "", 'X', 0},        {INT_MIN, "", 'X', 0},   {INT_MAX, "", 'X', 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.code);
        char prefix = '?';
        double factor = -1;
        EXPECT_STREQ(algoGetBaseUnit(row.code, &prefix, &factor), row.name);
        EXPECT_EQ(std::pair(prefix, factor), std::pair(row.prefix, row.factor));
    }
}

TEST(Unit, LegacyNumbersConvert)
{
    const struct { int legacy, code; } rows[] = {
        {0, 0x17F}, {3, 0x17C}, {4, 0x280}, {8, 0x382}, {12, 0x480}, {16, 0x580}, {20, 0x980}, {24, 0xA80}, {28, 0xB80},
        {32, 0x680}, {36, 0x780}, {40, 0x880}, {44, 0xC80}, {45, 0x80}, {48, 0x80}, {-1, 0x80}, {INT_MIN, 0x80}};
    for (const auto& row : rows) EXPECT_EQ(algoConvertLegacyUnit(row.legacy), row.code) << row.legacy;
}

TEST(Unit, RescaleKeepsTheQuantity)
{
    const struct { double value; int code; bool inverse; double result; int to; double factor; int rounded; } rows[] = {
        {1.5, 0x180, false, 1.5e6, 0x17E, 1e6, 1500000},          {1.5, 0x180, true, 1.5e6, 0x182, 1e6, 1500000},
        {2e10, 0x180, false, 2e7, 0x181, 1e-3, 20000000},         {-2e10, 0x180, true, -2e7, 0x17F, 1e-3, -20000000},
        {1e9, 0x180, false, 1e9, 0x180, 1, 1000000000},           {0, 0x180, false, 0, 0x180, 1, 0},
        {1000000.5, 0x180, false, 1000000.5, 0x180, 1, 1000001},  {-inf, 0x180, true, -inf, 0x180, 1, INT_MIN},
        {2e10, INT_MAX, false, 2e7, INT_MIN, 1e-3, 20000000}, {1e6, INT_MIN, false, 1e9, INT_MAX, 1e3, 1000000000}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        double value = row.value;
        int code = row.code;
        EXPECT_EQ(algoRescaleUnit(&value, &code, row.inverse), row.factor);
        EXPECT_EQ(std::pair(value, code), std::pair(row.result, row.to));
        code = row.code;
        EXPECT_EQ(algoRescaleUnitInt(row.value, &code, row.inverse), row.rounded);
        EXPECT_EQ(code, row.to);
    }
    double value = std::nan("");
    int code = 0x180;
    EXPECT_EQ(algoRescaleUnit(&value, &code, false), 1);
    EXPECT_EQ(algoRescaleUnitInt(value, &code, false), INT_MIN);
    value = std::numeric_limits<double>::denorm_min(); // 110 steps; the factor overflows
    EXPECT_EQ(algoRescaleUnit(&value, &code, false), inf);
    EXPECT_EQ(code, 0x180 - 110);
}
