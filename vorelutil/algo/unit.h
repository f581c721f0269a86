#pragma once

#include <vorelutil/platform/export.h>

/// Physical units, and the rescaling of values that carry a unit code.
///
/// A unit code is one int: unit index * 256 + 128 + k, where k, -128 to 127, counts powers of 1000. 0x180 is
/// metre, 0x17F millimetre, 0x382 megahertz; 0x80 is no unit. The units are m, V, Hz, s, A, W, T, K, deg,
/// [cos], [dB], [LSB], m/s, steps, %, °C and c/s, in this order from 0x180 on. [cos], [dB], [LSB], % and °C
/// cannot be scaled: their prefix is "X". Texts are UTF-8, constant, and live as long as the process. Pure
/// functions: no state, no lock, any thread, no exception, any int as a code.

/// The code, with step 0, of the unit called `name`; 0x80 when there is none.
///
/// The whole name must match, case included. A null pointer acts as the empty name, which gives 0x80.
/// Examples: "Hz" -> 0x380, "hz" -> 0x80.
VORELUTIL_EXPORT int algoParseUnit(char const* name);

/// The unit's name, empty for an unknown unit and for 0x80; its prefix and the prefix's factor where pointers
/// are given.
///
/// The prefix is "X" for a unit that cannot be scaled or is unknown, else the one of 1000^k, or NUL where
/// there is none (k outside -8 to 8). `factor` receives 1000^k also beside an "X" (kept), and 0 where no
/// prefix belongs to k.
/// Examples: 0x17F -> "m", 'm', 1e-3; 0xA81 -> "[cos]", 'X', 1e3.
VORELUTIL_EXPORT char const* algoGetBaseUnit(int code, char* prefix, double* factor);

/// The prefix steps that a selector should offer for the unit: the largest, and how many, counting down.
///
/// Either pointer may be null. The step in `code` does not matter. An unknown unit gives 0 and 0.
/// Example: 0x380 -> 2 and 4 (MHz, kHz, Hz, mHz).
VORELUTIL_EXPORT void algoGetUnitRange(int code, int* topStep, int* steps);

/// The unit code of a unit number of the older file formats: 4 * unit + sub-unit, each sub-unit 1000 times
/// smaller.
///
/// Unknown numbers, negative ones and those above 44 give 0x80. Kept: [LSB] has only sub-unit 0 (45 to 47 are
/// cut off), and sub-units of [cos] and [dB] give steps of a unit that cannot be scaled.
/// Examples: 10 -> 0x380 (Hz), 21 -> 0x97F (mdeg), 45 -> 0x80.
VORELUTIL_EXPORT int algoConvertLegacyUnit(int legacy);

/// Brings |value| into (1e6, 1e9] by steps of 1000 while the code's step keeps the quantity the same.
///
/// Both are changed in place; neither may be null. The result is the factor by which the value was
/// multiplied. `inverse` is for a unit that stands in a divisor: the code then moves the other way. 0, NaN
/// and infinities return 1 and change nothing. Each step is one multiplication or division by 1000, and
/// rounds as such; the factor of a value of 1e-300 and less overflows to infinity. Kept: the code counts on
/// into a neighbouring unit when its step leaves -128 to 127; beyond the range of int it wraps. Examples: 1.5
/// with 0x180 -> 1.5e6 with 0x17E, factor 1e6; 2e10 with 0x180 -> 2e7 with 0x181, factor 1e-3.
VORELUTIL_EXPORT double algoRescaleUnit(double* value, int* code, bool inverse);

/// As `algoRescaleUnit` on a copy of the value; the result is the rescaled value, rounded by `algoNearest`.
///
/// 0 gives 0; NaN and infinities give INT_MIN; everything else fits.
/// Example: 1.5 with 0x180 -> 1500000 with 0x17E.
VORELUTIL_EXPORT int algoRescaleUnitInt(double value, int* code, bool inverse);
