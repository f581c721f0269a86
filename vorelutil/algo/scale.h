#pragma once

#include <vorelutil/platform/export.h>

/// Scale tics of an axis, and the display of a gauge.
///
/// Pure functions of their arguments: no state, no lock, any thread. None of them throws.

/// Chooses the tics of an axis from `low` to `high`: a round spacing of 1, 2, 4 or 5 times a power of ten
/// that gives about `maxTics` tics or fewer, the first tic, and a unit for the labels.
///
/// `low` and `high` may stand in either order; `maxTics` below 1 counts as 1. The further tics are
/// firstTic + ticStep, firstTic + 2 * ticStep ... `firstTic` and `ticStep` may not be null. They are of no
/// use (0, infinite or NaN) when `low` and `high` are equal, or so close that the spacing is below the
/// smallest double, when one of them or their distance is infinite, or one is NaN: test for a finite spacing
/// above 0 before you draw.
///
/// Kept: with `low` not below 0 the first tic lies strictly above `low`, so that an axis that starts at 0 or
/// on a tic has its first tic one step further, save where low / step rounds to just below a whole number:
/// then it is `low` itself, as for (4.3, 5.3, 11). With `low` below 0 it lies at or below `low`.
///
/// `labelUnit`, which may be null, receives the power of 1000, u, with u <= M < 1000 u, where M is the larger
/// of |low| and |high|. When M is 0 it is left untouched; also when one of them is NaN and the other 0 or
/// NaN. An infinite M gives 1, one below 1e-321 gives 1e-321. The powers are found by repeated division or
/// multiplication.
///
/// Examples: (0, 10, 5) -> first 4, step 4, unit 1; (-3.5, 4, 8) -> first -4, step 1; (0.002, 0.004, n) ->
/// unit 0.001.
VORELUTIL_EXPORT void algoCalcScaleTics(double low, double high, int maxTics, double* firstTic,
                                        double* ticStep, double* labelUnit);

/// Rescales a reading and its full scale, both in units of `prefix`, to a round full scale (1, 2 or 5 times a
/// power of ten) with a prefix of its own, for a bar or a needle.
///
/// `prefix` is one of algo/prefix.h; an unknown character counts as the blank, as "X" does. All three results
/// are written, rounded as `algoNearest` does; no pointer may be null. `value` may be any int. `fullScale`
/// should be above 0: else `*gaugeValue` is INT_MIN, and the full scale 0 or INT_MIN.
///
/// The round full scale is 0.1 to 0.4 of `fullScale`: 2 for leading digits below 1.25, 5 below 2.5, else 1.
/// Kept: gaugeValue is value x (round full scale / full scale), in the units of `value`; it is not rescaled
/// to `gaugePrefix`, so compare it with gaugeFull only where the prefix did not change. Kept: without a
/// prefix (exponent 0) the result has none either, however large the scale is; with one, its own prefix is
/// chosen so that the full scale is at least 1 and below 1000; beyond y and Y it stays outside.
///
/// Examples: (500, 1000, 'm') -> 100 of 200 'm'; (10000, 20000, ' ') -> 2500 of 5000 ' '; (10000, 10000, 'm')
/// -> value 2000, full scale 2 ' '.
VORELUTIL_EXPORT void algoCalcGaugeDisplay(int value, int fullScale, char prefix, int* gaugeValue,
                                           int* gaugeFull, char* gaugePrefix);
