#pragma once

#include <QString>
#include <vorelutil/platform/export.h>

/// Decimal (SI) prefixes, and the choice of the best one for a value.
///
/// A prefix is one 8-bit character everywhere: the SI letters Y Z E P T G M k m n p f a z y, a blank for
/// none, the Latin-1 byte 0xB5 for micro (write '\xB5'; "u" is accepted as its input spelling and prints as
/// the micro sign), and "X" for a fixed value that is never rescaled and prints no prefix. Case matters.
/// Every other character, NUL included, is unknown. Pure functions: no state, no lock, any thread. Only
/// `algoGetPrintablePrefix` allocates, and may throw `std::bad_alloc`; nothing else throws.

/// The prefix that stands for 10 to the power `exponent`; NUL when there is none.
///
/// Where several do, the preferred one: exponent 0 gives the blank (never "X"), -6 gives 0xB5 (never "u").
/// Examples: 9 -> 'G', -6 -> '\xB5', 7 -> NUL.
VORELUTIL_EXPORT char algoGetPrefixFromMagnitude(int exponent);

/// The factor of a prefix, 1e24 to 1e-24; 1 for the blank and for "X", 0 for an unknown character.
VORELUTIL_EXPORT double algoGetPrefixFactor(char prefix);

/// The text to show after the number: UTF-8, empty for the blank and for "X", "?" for an unknown character.
///
/// The text is constant and lives as long as the process. Kept: the name says Latin-1, but micro comes as the
/// two bytes 0xC2 0xB5.
VORELUTIL_EXPORT char const* algoGetPrintablePrefixL1(char prefix);

/// The text of `algoGetPrintablePrefixL1` as a toolkit string.
VORELUTIL_EXPORT QString algoGetPrintablePrefix(char prefix);

/// Brings |value| into [1 - 0.5 * 10^-decimals, 1000) by steps of 1000 and returns the prefix that then
/// belongs to it.
///
/// `value`, which may not be null, is in units of `prefix` and is rescaled in place; `factor`, which may be
/// null, receives the number by which it was multiplied. `decimals` may be any int: below 0 nothing steps
/// down, from 16 on the lower bound is 1. Kept: only the lower bound allows for rounding. 0.9996 with 3
/// decimals stays, as it prints as 1.000; 999.9996 stays, too, and prints as 1000.000. Beyond y and Y the
/// value is left outside the range; infinities end at 'Y', NaN stays. Each step is one multiplication or
/// division by 1000, and rounds as such.
///
/// |value| below 1e-30 becomes 0 with the blank and factor 1. Kept: that holds for every prefix, so that even
/// an "X" turns into a blank. Else "X" and unknown prefixes are returned as they are, with value unchanged
/// and factor 1. "u" comes back as 0xB5. Examples: 1234567 'k' -> 1.234567 'G', factor 1e-6; 5 'X' -> 5 'X';
/// 5e30 ' ' -> about 5e6 'Y'.
VORELUTIL_EXPORT char algoNormalize(double* value, char prefix, double* factor, int decimals);

/// Converts `value` in place from one prefix to another: value * factor(from) / factor(to), and returns
/// `toPrefix`.
///
/// If either prefix is "X" or unknown, nothing changes and `fromPrefix` is returned. `value` may not be null.
/// Examples: 1 from 'u' to 'n' -> 999.9999999999999 and 'n' (not rounded); 'k' to 'X' -> unchanged, 'k'.
VORELUTIL_EXPORT char algoNormalizeFixed(double* value, char fromPrefix, char toPrefix);
