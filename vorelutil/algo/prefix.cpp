#include "prefix.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace {

struct PrefixInfo
{
    char prefix;           ///< Latin-1
    char const* printable; ///< UTF-8
    int exponent;
    double factor;
    bool usable; ///< takes part in normalisation and conversion
};

// First match wins: the blank before "X", the micro sign before "u".
// clang-format off
constexpr std::array<PrefixInfo, 20> _prefixInfo = {{
    {'Y',    "Y",         24, 1e24,  true},
    {'Z',    "Z",         21, 1e21,  true},
    {'E',    "E",         18, 1e18,  true},
    {'P',    "P",         15, 1e15,  true},
    {'T',    "T",         12, 1e12,  true},
    {'G',    "G",          9, 1e9,   true},
    {'M',    "M",          6, 1e6,   true},
    {'k',    "k",          3, 1e3,   true},
    {' ',    "",           0, 1,     true},
    {'X',    "",           0, 1,     false},
    {'m',    "m",         -3, 1e-3,  true},
    {'\xB5', "\xC2\xB5",  -6, 1e-6,  true},
    {'u',    "\xC2\xB5",  -6, 1e-6,  true},
    {'n',    "n",         -9, 1e-9,  true},
    {'p',    "p",        -12, 1e-12, true},
    {'f',    "f",        -15, 1e-15, true},
    {'a',    "a",        -18, 1e-18, true},
    {'z',    "z",        -21, 1e-21, true},
    {'y',    "y",        -24, 1e-24, true},
    {'\0',   "?",          0, 0,     false},
}};
// clang-format on

constexpr std::size_t indexOf(char prefix)
{
    std::size_t row = 0;
    while (row + 1 < _prefixInfo.size() && _prefixInfo[row].prefix != prefix) ++row;
    return row;
}

constexpr const PrefixInfo& find(char prefix)
{
    return _prefixInfo[indexOf(prefix)];
}

constexpr char prefixOfExponent(int exponent)
{
    for (std::size_t row = 0; row + 1 < _prefixInfo.size(); ++row) {
        if (_prefixInfo[row].exponent == exponent) return _prefixInfo[row].prefix;
    }
    return '\0';
}

// The usable prefixes stand in steps of 1000 without a gap: step 0 is y, step 16 is Y. Normalising happens
// with each value that a field shows, so the way from character to step and back is two small tables.
constexpr int topStep = 16;
constexpr signed char notUsable = -1;

constexpr std::array<signed char, 256> makeStepOfPrefix()
{
    std::array<signed char, 256> steps{};
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const PrefixInfo& info = find(static_cast<char>(static_cast<unsigned char>(i)));
        steps[i] = info.usable ? static_cast<signed char>((info.exponent + 24) / 3) : notUsable;
    }
    return steps;
}

constexpr std::array<char, topStep + 1> makePrefixOfStep()
{
    std::array<char, topStep + 1> prefixes{};
    for (int step = 0; step <= topStep; ++step) {
        prefixes[static_cast<std::size_t>(step)] = prefixOfExponent(3 * step - 24);
    }
    return prefixes;
}

constexpr std::array<signed char, 256> stepOfPrefix = makeStepOfPrefix();
constexpr std::array<char, topStep + 1> prefixOfStep = makePrefixOfStep();

// What so many steps multiply a value by, each rounded: downwards behind the middle, upwards before it.
constexpr std::array<double, 2 * topStep + 1> makeFactorOfSteps()
{
    std::array<double, 2 * topStep + 1> factors{};
    factors[topStep] = 1;
    for (std::size_t i = topStep; i < 2 * topStep; ++i) factors[i + 1] = factors[i] * 1000;
    for (std::size_t i = topStep; i > 0; --i) factors[i - 1] = factors[i] / 1000;
    return factors;
}

constexpr std::array<double, 2 * topStep + 1> factorOfSteps = makeFactorOfSteps();

struct UsualSteps
{
    double times;
    double timesAgain;
    double by;
};

// From two steps down to one up.
constexpr std::array<UsualSteps, 4> usualSteps = {{{1000, 1000, 1}, {1000, 1, 1}, {1, 1, 1}, {1, 1, 1000}}};

// 1 - 0.5 * 10^-decimals; from 16 decimals on it rounds to 1, below 0 decimals it is negative.
constexpr std::array<double, 17> lowerBounds = {1 - 0.5,
                                                1 - 0.5 * 1e-1,
                                                1 - 0.5 * 1e-2,
                                                1 - 0.5 * 1e-3,
                                                1 - 0.5 * 1e-4,
                                                1 - 0.5 * 1e-5,
                                                1 - 0.5 * 1e-6,
                                                1 - 0.5 * 1e-7,
                                                1 - 0.5 * 1e-8,
                                                1 - 0.5 * 1e-9,
                                                1 - 0.5 * 1e-10,
                                                1 - 0.5 * 1e-11,
                                                1 - 0.5 * 1e-12,
                                                1 - 0.5 * 1e-13,
                                                1 - 0.5 * 1e-14,
                                                1 - 0.5 * 1e-15,
                                                1};

double lowerBound(int decimals)
{
    if (decimals < 0) return 0;
    const auto index = static_cast<std::size_t>(decimals);
    return index < lowerBounds.size() ? lowerBounds[index] : 1;
}

} // namespace

char algoGetPrefixFromMagnitude(int exponent)
{
    return prefixOfExponent(exponent);
}

double algoGetPrefixFactor(char prefix)
{
    return find(prefix).factor;
}

char const* algoGetPrintablePrefixL1(char prefix)
{
    return find(prefix).printable;
}

QString algoGetPrintablePrefix(char prefix)
{
    return QString::fromUtf8(algoGetPrintablePrefixL1(prefix));
}

char algoNormalize(double* value, char prefix, double* factor, int decimals)
{
    double scaled = *value;
    const double size = std::fabs(scaled);
    if (factor != nullptr) *factor = 1;
    if (size < 1e-30) {
        *value = 0;
        return ' ';
    }
    const int first = stepOfPrefix[static_cast<unsigned char>(prefix)];
    if (first == notUsable) return prefix;
    if (std::isnan(scaled)) return prefixOfStep[static_cast<std::size_t>(first)];

    // Up to two steps down or one up without a jump: one that the processor cannot foresee costs more than
    // all of this.
    const double bound = lowerBound(decimals);
    const int down = std::min((size < bound) + (size * 1000 < bound), first);
    const int up = std::min<int>(size >= 1000, topStep - first);
    const UsualSteps& usual = usualSteps[static_cast<std::size_t>(2 + up - down)];
    scaled = scaled * usual.times * usual.timesAgain / usual.by;
    int step = first - down + up;
    // The rest, if there is one.
    for (; std::fabs(scaled) < bound && step > 0; --step) scaled *= 1000;
    for (; std::fabs(scaled) >= 1000 && step < topStep; ++step) scaled /= 1000;

    *value = scaled;
    if (factor != nullptr) *factor = factorOfSteps[static_cast<std::size_t>(topStep + first - step)];
    return prefixOfStep[static_cast<std::size_t>(step)];
}

char algoNormalizeFixed(double* value, char fromPrefix, char toPrefix)
{
    const PrefixInfo& from = find(fromPrefix);
    const PrefixInfo& to = find(toPrefix);
    if (!from.usable || !to.usable) return fromPrefix;
    *value = *value * from.factor / to.factor;
    return toPrefix;
}
