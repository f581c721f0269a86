#include "rounding.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// The conversions to integers are those of the processor's truncating instruction, written out: what does not
// fit gives the smallest integer. The comparisons are false for NaN.
int truncated32(double x)
{
    return x > -2147483649.0 && x < 2147483648.0 ? static_cast<int>(x) : std::numeric_limits<int>::min();
}

long long truncated64(double x)
{
    return x >= -9223372036854775808.0 && x < 9223372036854775808.0 ? static_cast<long long>(x)
                                                                    : std::numeric_limits<long long>::min();
}

double withHalf(double x)
{
    return x > 0 ? x + 0.5 : x - 0.5;
}

} // namespace

int algoNearest(double x)
{
    return truncated32(withHalf(x));
}

unsigned int algoNearestU(double x)
{
    return x > 0 ? static_cast<unsigned int>(truncated64(x + 0.5)) : 0;
}

long long algoNearestLongLong(double x)
{
    return truncated64(withHalf(x));
}

void algoApproxByRatio(double x, double tolerance, int* numerator, int* denominator)
{
    constexpr int last = std::numeric_limits<int>::max();
    if (x == 0) {
        *numerator = 0;
        return;
    }
    if (!std::isfinite(x)) return;

    const double magnitude = std::fabs(x);
    const bool reciprocal = magnitude < 1;
    const double v = reciprocal ? 1 / magnitude : magnitude;
    int n = algoNearest(v);
    if (n < 0 || !(tolerance > 0)) n = last;
    int d = algoNearest(n / v);
    // A d of 0 has an infinite error and goes on.
    while (n < last && (d == 0 || !(std::fabs(static_cast<double>(n) / d / v - 1) < tolerance))) {
        ++n;
        d = algoNearest(n / v);
    }
    *numerator = reciprocal ? d : n;
    const int below = reciprocal ? n : d;
    *denominator = x < 0 ? -below : below;
}

int algoLogb(unsigned int x)
{
    int exponent = -1;
    for (; x != 0; x >>= 1) ++exponent;
    return exponent;
}

int algoLogd(double x)
{
    if (x > 0 && x < 1) return -1;
    int exponent = 0;
    double quotient = std::min(x, std::numeric_limits<double>::max()) / 10;
    for (; quotient >= 1; quotient /= 10) ++exponent;
    return exponent;
}

int algoDigits(double x, double resolution)
{
    const int integerDigits = algoLogd(std::fabs(x)) + 1;
    const double step = std::fabs(resolution);
    if (!(step > 0 && step < 1)) return integerDigits;
    return integerDigits + algoLogd(1 / step) + 1;
}
