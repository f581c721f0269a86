#include <climits>
#include <gmock/gmock.h>
#include <limits>
#include <QLocale>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <vorelutil/widgets/numbermodel.h>

using testing::NanSensitiveDoubleEq;

static constexpr double inf = std::numeric_limits<double>::infinity();
static constexpr double noNumber = std::numeric_limits<double>::quiet_NaN();
static constexpr int largestUnsigned = -1; // as it arrives: 0xFFFFFFFF

// clang-format off

static constexpr auto dynamic = NumberModel::PfDynamic, fixed = NumberModel::PfStatic, useInput = NumberModel::PfUseInput;

static void expectTexts()
{
    const struct { const char* unit; char defaultPf; const char* text; double number; bool valid; char prefix; bool incomplete; } read[] = {
        {"s",  'm', " 12.5 \t ms\n", 0.0125, true, 'm', false}, {"s",  'm', "5", 0.005, true, 'm', true},
        {"Hz", 'm', "3 h", 3, true, ' ', true},           {"Hz", 'm', "3 k", 3000, true, 'k', true},        {"Hz", 'm', "3kHZ", 3000, true, 'k', false},
        {"m",  'k', "5 m", 5, true, ' ', false},          {"V",  ' ', "k", 0, false, ' ', true},            {"",   'k', "2", 2000, true, 'k', true},
        {"",   'k', "2 X", 2, true, 'X', true},           {"V",  'k', "", 0, false, 'k', true},             {"foot-pound", 'k', "f", 0, false, ' ', true},
        {"V",  ' ', "5 \xC2\xB5V", 5e-6, true, '\xB5', false}, {"V", 'm', "5 \xCE\xBCV", 0, false, ' ', false}, // micro sign, Greek mu
        {"V",  ' ', "1 000 V", 1000, true, ' ', false},   {"V",  ' ', "1,000.5 V", 0, false, ' ', false},   {"V",  ' ', "0x10", 0, false, ' ', true},
        {"V",  ' ', "1e999", inf, false, ' ', true},      {"V",  ' ', "5 \xC5\xABV", 0, false, ' ', false}, // its low byte is k
        {"V",  ' ', "\x01" "5\x7F V", 0, false, ' ', false}, {"V", ' ', "\xD7\x90 5 V", 0, false, ' ', false}, // right to left
        {"a\xC2\xA0 b", ' ', "5 kA  B", 5000, true, 'k', false}, // a no-break space and a blank
        {"xi\xCC\x87", ' ', "5 kX\xC4\xB0", 5000, true, 'k', false}, // a letter that is two in lower case
        {"s",  'm', "1 : -2: 03H", 3483, true, 'm', false}, {"S",  'm', "0:1:0h", 60, true, 'm', false},    {"V",  'm', "1:2:3 h", 0, false, 'm', true},
        {"s",  'm', "1:2 h", 0, false, 'm', false},       {"s",  'm', "1:2:3:4 h", 0, false, 'm', false},   {"s",  'm', "1::3 h", 3603, false, 'm', false},
        {"s",  'm', "0:0:1.5 h", 0, false, 'm', false},   {"s",  'm', "9999999999:0:0 h", 35999999996400, true, 'm', false}};
    for (const auto& row : read) {
        SCOPED_TRACE(row.text);
        bool valid = !row.valid, incomplete = !row.incomplete;
        char prefix = row.defaultPf;
        const QString text = QString::fromUtf8(row.text), unit = QString::fromUtf8(row.unit);
        EXPECT_DOUBLE_EQ(parseNumber(text, unit, '?', &valid, &prefix, &incomplete), row.number);
        EXPECT_EQ(std::tie(valid, prefix, incomplete), std::tie(row.valid, row.prefix, row.incomplete));
        EXPECT_DOUBLE_EQ(parseNumber(text, unit, row.defaultPf), row.number);
    }

    const struct { double number; const char* unit; char inputPf, currentPf; NumberModel::OutputPfSelect select; int resolution; const char* text; char prefix; } written[] = {
        {0.0125, "s", ' ', ' ', dynamic, 4, "12.5 ms", 'm'},      {3.3, "V", 'k', 'k', dynamic, 4, "3.3 V", ' '},     {3.3, "V", 'm', ' ', fixed, 4, "3300 mV", 'm'},
        {3.3, "V", ' ', 'k', useInput, 4, "0.0033 kV", 'k'},      {33000, "V", 'X', 'k', dynamic, 4, "3.3e+04 V", 'X'}, {33000, "V", 'X', 'k', useInput, 5, "33000 V", 'X'},
        {0, "s", ' ', 'm', dynamic, 4, "0 ms", 'm'},              {1e-31, "s", ' ', 'm', dynamic, 4, "0 ms", 'm'},    {-4.7e-6, "V", ' ', ' ', dynamic, 4, "-4.7 \xC2\xB5V", '\xB5'},
        {838.25, "V", ' ', ' ', dynamic, 4, "838.3 V", ' '},      {2.5, "V", ' ', ' ', dynamic, 0, "3 V", ' '}, // ties
        {-9.9996, "V", ' ', ' ', dynamic, 4, "-10 V", ' '},       {999.6, "V", ' ', ' ', dynamic, 3, "1e+03 V", ' '}, {100.20004, "V", ' ', ' ', dynamic, 7, "100.2 V", ' '},
        {1.1, "V", ' ', ' ', dynamic, 100, "1.100000000000000088817841970012523233890533447265625 V", ' '},
        {1.1, "V", ' ', ' ', dynamic, INT_MAX, "1.100000000000000088817841970012523233890533447265625 V", ' '},
        {1500, "", ' ', ' ', dynamic, 4, "1.5 k", 'k'},           {1500, "%1%2%L3", ' ', ' ', dynamic, 4, "1.5 k%1%2%L3", 'k'},
        {noNumber, "s", ' ', ' ', dynamic, 4, "nan s", ' '},      {inf, "s", ' ', ' ', dynamic, 4, "inf Ys", 'Y'},    {1e19, "s", ' ', ' ', dynamic, 4, "10 Es", 'E'},
        {3725.9, "s", 'm', 'm', dynamic, 4, "01:02:05 h", 'k'},   {3725.9, "s", 'm', 'm', fixed, 4, "01:02:05 h", 'm'}, {3.6e13, "s", ' ', ' ', dynamic, 4, "10000000000:00:00 h", 'T'},
        {60, "s", ' ', ' ', dynamic, 4, "00:01:00 h", ' '},       {59.999, "s", 'm', 'm', dynamic, 4, "60 s", ' '},
        {-90, "s", ' ', ' ', dynamic, 4, "-90 s", ' '},           {90, "S", ' ', ' ', dynamic, 4, "90 S", ' '}};
    for (const auto& row : written) {
        SCOPED_TRACE(row.text);
        NumberModel model;
        std::tie(model.inputPf, model.currentPf, model.outputPfSelect, model.resolution) = std::tie(row.inputPf, row.currentPf, row.select, row.resolution);
        model.baseUnit = QString::fromUtf8(row.unit);
        char prefix = '?';
        EXPECT_EQ(model.normalizedText(row.number, &prefix).toStdString(), row.text);
        EXPECT_EQ(prefix, row.prefix);
    }
}

TEST(NumberModel, ConvertsBothWays)
{
    // `valid` is the number's, without limits.
    const struct { const char* desc; bool isUnsigned; char inputPf; double factor, offset; const char *toNumber, *toValue;
                   int raw; double number; int rawOfNumber; bool valid; double rawStep; } rows[] = {
        {"linear", false, 'k', 0.5, 10, "", "", 14, 2000, 14, true, 500},
        {"smallest", false, ' ', 1, 0, "", "", INT_MIN, -2147483648.0, INT_MIN, true, 1},
        {"largest", false, ' ', 1, 0, "", "", INT_MAX, 2147483647, INT_MAX, true, 1},
        {"largest unsigned", true, ' ', 1, 0, "", "", largestUnsigned, 4294967295.0, largestUnsigned, true, 1},
        {"unsigned, number below 0", true, ' ', 1, 5, "", "", 0, -5, 0, true, 1},
        {"formulas", false, 'm', 2, 10, "*(-(x,offset),scale)", "+(/(x,scale),offset)", 15, 0.01, 15, true, 0.002},
        {"formulas, unsigned", true, ' ', 1, 0, "/(x,2)", "*(x,2)", largestUnsigned, 2147483647.5, largestUnsigned, true, 0.5},
        {"formulas unfinished", false, ' ', 1, 0, "*(x", "*(x", 15, noNumber, INT_MIN, false, noNumber},
        {"formulas infinite", false, ' ', 1, 0, "/(x,0)", "/(x,0)", 15, inf, INT_MIN, false, noNumber},
        {"unknown prefix", false, '?', 1, 0, "", "", 15, 0, INT_MIN, false, 0},
        {"factor 0", false, ' ', 0, 0, "", "", 15, 0, INT_MIN, false, 0},
        {"factor infinite", false, ' ', inf, 0, "", "", 15, inf, INT_MIN, false, noNumber}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.desc);
        NumberModel model;
        std::tie(model.unsignedInput, model.inputPf, model.factor, model.offset) = std::tie(row.isUnsigned, row.inputPf, row.factor, row.offset);
        std::tie(model.value2NumberFormula, model.number2ValueFormula, model.maximum) = std::tuple(row.toNumber, row.toValue, model.minimum);
        EXPECT_THAT(model.value2Number(row.raw), NanSensitiveDoubleEq(row.number));
        EXPECT_EQ(model.number2Value(row.number), row.rawOfNumber);
        EXPECT_EQ(model.checkNumberValid(row.number), row.valid);
        EXPECT_THAT(model.rawStep(row.raw), NanSensitiveDoubleEq(row.rawStep));
    }
}

TEST(NumberModel, TakesNumbersInInputUnitsWithoutFormula)
{
    NumberModel model;
    std::tie(model.inputPf, model.factor, model.offset, model.number2ValueFormula) = std::tuple('m', 0.5, 10, "0");
    EXPECT_EQ(model.prefixedNumber2Value(-20.25), -31); // -30.5: halves away from zero
    model.unsignedInput = true;
    EXPECT_EQ(std::tuple(model.prefixedNumber2Value(-20.25), model.prefixedNumber2Value(2.5)), std::tuple(0, 15));
}

TEST(NumberModel, JudgesNumbersByLimitsAndNearestRawValue)
{
    NumberModel model; // one raw step is 1, limits -1 and 1; then the wrong way round, which is off
    const struct { double number; bool limited, unlimited; } rows[] = {
        {1.4, true, true}, {1.5, false, true}, {-1.4, true, true}, {-1.5, false, true}, {2147483647, false, true},
        {2147483648.5, false, false}, {3e9, false, false}, {inf, false, false}, {noNumber, false, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.number);
        model.minimum = -1;
        EXPECT_EQ(model.checkNumberValid(row.number), row.limited);
        model.minimum = 2;
        EXPECT_EQ(model.checkNumberValid(row.number), row.unlimited);
    }
}

TEST(NumberModel, ReadsAndWritesTexts)
{
    expectTexts();
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "the locale de_DE.UTF-8");
    const QLocale former;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    expectTexts();
    QLocale::setDefault(former);
}

// A quadratic pass over such a text takes longer than the time limit of the test.
TEST(NumberModel, ReadsMegabytesInOneGo)
{
    constexpr int size = 1 << 22;
    const struct { QString text; double number; bool valid; } rows[] = {
        {QString(size, '1'), inf, false}, {QString(size, '0') + "7 s", 7, true}, {"7" + QString(size, '\t') + "s", 7, true},
        {QString(size, ':') + "h", 0, false}, {QString(size, '0') + ":1:1 h", 61, true}, {QString(size, QChar(0x130)) + "s", 0, false},
        {QString(size, QChar(0)), 0, false}};
    for (const auto& row : rows) {
        bool valid = !row.valid;
        EXPECT_EQ(parseNumber(row.text, "s", ' ', &valid), row.number);
        EXPECT_EQ(valid, row.valid);
    }
}
