#include "unit.h"

#include "prefix.h"
#include "rounding.h"

#include <array>
#include <cmath>
#include <string_view>

namespace {

constexpr int noUnit = 0x80;

struct UnitInfo
{
    int code;         ///< with step 0
    bool scalable;    ///< prefixes may be applied; else the prefix is "X"
    char const* name; ///< UTF-8
    int topStep;      ///< largest step on offer
    int steps;        ///< number of steps on offer, counting down
};

// clang-format off
constexpr std::array<UnitInfo, 18> _unitInfo = {{
    {0x180,  true,  "m",          -1, 4},
    {0x280,  true,  "V",           0, 4},
    {0x380,  true,  "Hz",          2, 4},
    {0x480,  true,  "s",           0, 4},
    {0x580,  true,  "A",           0, 4},
    {0x680,  true,  "W",           0, 4},
    {0x780,  true,  "T",          -1, 3},
    {0x880,  true,  "K",           0, 2},
    {0x980,  true,  "deg",         0, 2},
    {0xA80,  false, "[cos]",       0, 1},
    {0xB80,  false, "[dB]",        0, 1},
    {0xC80,  false, "[LSB]",       0, 1},
    {0xD80,  true,  "m/s",         0, 4},
    {0xE80,  true,  "steps",       0, 4},
    {0xF80,  false, "%",           0, 1},
    {0x1080, false, "\xC2\xB0" "C", 0, 1},
    {0x1180, true,  "c/s",         2, 4},
    {noUnit, false, "",            0, 0},
}};

struct LegacyUnitInfo {
    int base; ///< a multiple of 4
    int code; ///< of sub-unit 0; sub-unit s is s less
};

constexpr std::array<LegacyUnitInfo, 13> _legacyUnitInfo = {{
    { 0, 0x17F},
    { 4, 0x280},
    { 8, 0x382},
    {12, 0x480},
    {16, 0x580},
    {32, 0x680},
    {36, 0x780},
    {40, 0x880},
    {20, 0x980},
    {24, 0xA80},
    {28, 0xB80},
    {44, 0xC80},
    {-1, noUnit},
}};
// clang-format on

// The code without its step; well defined for negative codes, too.
constexpr int upperPart(int code)
{
    return code & ~0xFF;
}

// The terminator for an unknown unit.
const UnitInfo& findUnit(int code)
{
    auto row = _unitInfo.begin();
    while (row->code != noUnit && upperPart(row->code) != upperPart(code)) ++row;
    return *row;
}

// Codes come from outside: at the ends of the range they wrap.
int movedCode(int code, bool up)
{
    const auto bits = static_cast<unsigned int>(code);
    return static_cast<int>(up ? bits + 1 : bits - 1);
}

} // namespace

int algoParseUnit(char const* name)
{
    const std::string_view wanted = name != nullptr ? name : "";
    auto row = _unitInfo.begin();
    while (row->code != noUnit && row->name != wanted) ++row;
    return row->code;
}

char const* algoGetBaseUnit(int code, char* prefix, double* factor)
{
    const int step = (code & 0xFF) - 128;
    const UnitInfo& unit = findUnit(code);
    const char stepPrefix = algoGetPrefixFromMagnitude(3 * step);
    if (prefix != nullptr) *prefix = unit.scalable ? stepPrefix : 'X';
    if (factor != nullptr) *factor = algoGetPrefixFactor(stepPrefix);
    return unit.name;
}

void algoGetUnitRange(int code, int* topStep, int* steps)
{
    const UnitInfo& unit = findUnit(code);
    if (topStep != nullptr) *topStep = unit.topStep;
    if (steps != nullptr) *steps = unit.steps;
}

int algoConvertLegacyUnit(int legacy)
{
    if (legacy < 0 || legacy > 44) return noUnit;
    for (const LegacyUnitInfo& row : _legacyUnitInfo) {
        if (row.base == (legacy & ~3)) return row.code - (legacy & 3);
    }
    return noUnit;
}

double algoRescaleUnit(double* value, int* code, bool inverse)
{
    double factor = 1;
    if (*value == 0 || !std::isfinite(*value)) return factor;
    while (std::fabs(*value) > 1e9) {
        *value /= 1000;
        factor /= 1000;
        *code = movedCode(*code, !inverse);
    }
    while (std::fabs(*value) <= 1e6) {
        *value *= 1000;
        factor *= 1000;
        *code = movedCode(*code, inverse);
    }
    return factor;
}

int algoRescaleUnitInt(double value, int* code, bool inverse)
{
    algoRescaleUnit(&value, code, inverse);
    return algoNearest(value);
}
