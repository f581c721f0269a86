#include "builtins.h"

#include <cmath>
#include <cstdint>
#include <vorelutil/algo/rounding.h>

namespace eval {
namespace {

using Arguments = std::vector<double>;

double add(const Arguments& a)
{
    double sum = a[0];
    for (std::size_t i = 1; i < a.size(); ++i) sum += a[i];
    return sum;
}

double multiply(const Arguments& a)
{
    double product = a[0];
    for (std::size_t i = 1; i < a.size(); ++i) product *= a[i];
    return product;
}

double subtract(const Arguments& a)
{
    return a[0] - a[1];
}

double divide(const Arguments& a)
{
    return a[0] / a[1];
}

double modulo(const Arguments& a)
{
    const std::int64_t dividend = algoNearest(a[0]); // 64 bits: INT_MIN and -1 are in range
    const std::int64_t divisor = algoNearest(a[1]);
    return divisor == 0 ? 0.0 : static_cast<double>(dividend % divisor);
}

double equal(const Arguments& a)
{
    return a[0] == a[1] ? 1.0 : 0.0;
}

double nequal(const Arguments& a)
{
    return a[0] == a[1] ? 0.0 : 1.0;
}

double grth(const Arguments& a)
{
    return a[0] > a[1] ? 1.0 : 0.0;
}

double greq(const Arguments& a)
{
    return a[0] >= a[1] ? 1.0 : 0.0;
}

double leth(const Arguments& a)
{
    return a[0] < a[1] ? 1.0 : 0.0;
}

double leeq(const Arguments& a)
{
    return a[0] <= a[1] ? 1.0 : 0.0;
}

double qmark(const Arguments& a)
{
    return a[0] != 0.0 ? a[1] : a[2];
}

double select(const Arguments& a)
{
    const double index = a[0];
    if (!(index >= 0.0 && index < static_cast<double>(a.size() - 1))) return index;
    return a[1 + static_cast<std::size_t>(index)];
}

double logAnd(const Arguments& a)
{
    for (const double x : a)
        if (algoNearest(x) == 0) return 0.0;
    return 1.0;
}

double logOr(const Arguments& a)
{
    for (const double x : a)
        if (algoNearest(x) != 0) return 1.0;
    return 0.0;
}

double logNot(const Arguments& a)
{
    return a[0] == 0.0 ? 1.0 : 0.0;
}

double bitAnd(const Arguments& a)
{
    int bits = -1;
    for (const double x : a) bits &= algoNearest(x);
    return bits;
}

double bitOr(const Arguments& a)
{
    int bits = 0;
    for (const double x : a) bits |= algoNearest(x);
    return bits;
}

double exp2(const Arguments& a)
{
    const unsigned int count = static_cast<unsigned int>(algoNearest(a[0])) & 31u;
    return static_cast<std::int32_t>(std::uint32_t{1} << count);
}

double logBin(const Arguments& a)
{
    return std::log(a[0]) / 0.6931471805599453;
}

} // namespace

const std::map<std::string, Evaluator::FctInfo, std::less<>>& builtInFunctions()
{
    // clang-format off
    static const auto* const table = new std::map<std::string, Evaluator::FctInfo, std::less<>>{
        {"+",    {add,      2, 10}},
        {"*",    {multiply, 2, 10}},
        {"-",    {subtract, 2,  2}},
        {"/",    {divide,   2,  2}},
        {"%",    {modulo,   2,  2}},
        {"==",   {equal,    2,  2}},
        {"!=",   {nequal,   2,  2}},
        {">",    {grth,     2,  2}},
        {">=",   {greq,     2,  2}},
        {"<",    {leth,     2,  2}},
        {"<=",   {leeq,     2,  2}},
        {"?",    {qmark,    3,  3}},
        {"??",   {select,   3, 10}},
        {"and",  {logAnd,   2, 10}},
        {"or",   {logOr,    2, 10}},
        {"!",    {logNot,   1,  1}},
        {"band", {bitAnd,   2, 10}},
        {"bor",  {bitOr,    2, 10}},
        {"exp2", {exp2,     1,  1}},
        {"log2", {logBin,   1,  1}},
    };
    // clang-format on
    return *table;
}

} // namespace eval
