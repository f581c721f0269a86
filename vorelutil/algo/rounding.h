#pragma once

#include <vorelutil/platform/export.h>

/// Rounding, magnitudes, printed widths and small ratios.
///
/// Pure functions of their arguments: no state, no lock, any thread. None of them throws. What becomes of a
/// result that does not fit its integer type is stated per function; it is never undefined behaviour.

/// x rounded to the nearest integer, halves away from zero.
///
/// Any double is accepted; NaN, infinities and results outside the 32-bit range give INT_MIN. Kept: the
/// half is added first and the sum is a double, so the largest number below 0.5 gives 1.
/// Examples: 2.5 -> 3, -2.5 -> -3, 0.49999 -> 0, 3e9 -> -2147483648.
VORELUTIL_EXPORT int algoNearest(double x);

/// x rounded to the nearest integer, halves up; 0 for every x that is not greater than 0.
///
/// NaN gives 0. Exact up to 4294967295. The sum x + 0.5 is cut to a 64-bit integer, whose low 32 bits are
/// the result: greater values wrap modulo 2^32, and from 2^63 (also infinity) the result is 0.
/// Examples: 2.5 -> 3, -3.7 -> 0, 4294967295.0 -> 4294967295.
VORELUTIL_EXPORT unsigned int algoNearestU(double x);

/// As `algoNearest`, in 64 bits.
///
/// NaN, infinities and results outside the 64-bit range give LLONG_MIN. Kept: odd whole numbers between
/// 2^52 and 2^53 come out one larger in magnitude, as the sum with the half is rounded to an even double.
/// Example: -5000000000.5 -> -5000000001.
VORELUTIL_EXPORT long long algoNearestLongLong(double x);

/// Writes a ratio of whole numbers close to x, found by trying one numerator after the other.
///
/// With v = |x| (|x| below 1: v = 1 / |x|) and n from `algoNearest(v)` upwards, the first n is taken with
/// |n / d / v - 1| < `tolerance` (strictly), where d = `algoNearest(n / v)`. The ratio is n / d, for |x|
/// below 1 it is d / n. The sign of x is carried by the denominator, never by the numerator.
///
/// Kept: x = 0 writes 0 to the numerator and leaves the denominator untouched. NaN and infinities leave both
/// untouched. There is no limit of steps before n = INT_MAX: the search ends there with the pair
/// of INT_MAX, d, which may be a bad one: its denominator is 0 for |x| beyond about 4.3e9, its numerator 0
/// for |x| below about 2.3e-10. A tolerance of 0 or less (or NaN), which nothing meets, and a v beyond
/// INT_MAX lead there at once. A tolerance that is only just above 0 can take seconds. Neither pointer may be
/// null. Examples: (2.5, 0.01) -> 5 and 2; (0.4, 0.01) -> 2 and 5; (-0.4, 0.01) -> 2 and -5.
VORELUTIL_EXPORT void algoApproxByRatio(double x, double tolerance, int* numerator, int* denominator);

/// Binary exponent of x: the index of its highest set bit; -1 for 0.
///
/// Examples: 1 -> 0, 3 -> 1, 0x80000000 -> 31.
VORELUTIL_EXPORT int algoLogb(unsigned int x);

/// Decimal exponent of x.
///
/// Any double is accepted; zero, negatives and NaN give 0. From one upwards the result counts whole powers of
/// ten; infinity answers as the largest double, 308. Kept: every x between 0 and 1 gives -1, however
/// small; callers use it only from one upwards. Powers are found by repeated division by 10.
/// Examples: 9.99 -> 0, 10 -> 1, 12345 -> 4, 0.001 -> -1, -5 -> 0.
VORELUTIL_EXPORT int algoLogd(double x);

/// Number of characters, without a sign, that |x| takes with the decimals that `resolution` calls for.
///
/// The integer part counts its digits; 0 and NaN count one; infinity counts as the largest double, 309. Kept:
/// an |x| between 0 and 1 counts no digit before the point. A resolution that is 0, NaN, or 1 and more in
/// magnitude adds nothing; any other adds the decimal point and the decimals: the number of divisions by 10
/// that bring 1 / |resolution| below 1. Kept: where 1 / |resolution| rounds below a power of ten (1e-5, 1e-9)
/// it is one less.
/// Examples: (123.45, 0.01) -> 6; (123.45, 1) -> 3; (0.5, 0.1) -> 2; (0, 0.001) -> 5; (0, 0) -> 1.
VORELUTIL_EXPORT int algoDigits(double x, double resolution);
