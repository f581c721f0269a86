#include "scale.h"

#include "prefix.h"
#include "rounding.h"

#include <algorithm>
#include <cmath>

namespace {

double powerOfTenBelow(double x)
{
    return std::pow(10.0, std::floor(std::log10(x)));
}

double powerOfThousandBelow(double size)
{
    double unit = 1;
    if (std::isinf(size)) return unit;
    // Below the smallest power that a double can hold, the quotient would be 0.
    while (size < unit && unit / 1000 > 0) unit /= 1000;
    while (size / 1000 >= unit) unit *= 1000;
    return unit;
}

} // namespace

void algoCalcScaleTics(double low, double high, int maxTics, double* firstTic, double* ticStep,
                       double* labelUnit)
{
    const double span = std::fabs(high - low);
    double step = powerOfTenBelow(span);
    double steps = span / step;
    const double most = std::max(maxTics, 1);
    while (most / 10 > steps) {
        steps *= 10;
        step /= 10;
    }
    if (steps > most) {
        step *= 10;
        steps /= 10;
    }
    if (steps < most / 5) {
        step /= 5;
    } else if (steps < most / 2.5) {
        step /= 2.5;
    } else if (steps < most / 2) {
        step /= 2;
    }
    *firstTic = (std::floor(low / step) + (low >= 0 ? 1 : 0)) * step;
    *ticStep = step;

    const double size = std::fmax(std::fabs(low), std::fabs(high));
    if (labelUnit != nullptr && size > 0) *labelUnit = powerOfThousandBelow(size);
}

void algoCalcGaugeDisplay(int value, int fullScale, char prefix, int* gaugeValue, int* gaugeFull,
                          char* gaugePrefix)
{
    const double known = algoGetPrefixFactor(prefix);
    const double factor = known > 0 ? known : 1;
    const double full = fullScale * factor;
    double top = powerOfTenBelow(full);
    if (top > 0.8 * full) {
        top /= 5;
    } else if (top > 0.4 * full) {
        top /= 2;
    }
    *gaugeValue = algoNearest(value * top / full);
    *gaugePrefix = factor != 1 ? algoNormalize(&top, ' ', nullptr, 100) : ' ';
    *gaugeFull = algoNearest(top);
}
