#pragma once

#include <vorelutil/platform/export.h>

/// Scanning of bit patterns in texts.

/// Reads a binary number from the beginning of `text`: white space (the six ASCII characters) as much as
/// there is, the literal "0b" (lower case), then 1 to 99 digits "0" or "1". True when there is such a number;
/// only then is `*value` written.
///
/// What follows the number is ignored, also a hundredth digit. Of a number of more than 32 digits the lowest
/// 32 of those that were read count; bit 31 makes the value negative. A null `text` acts as "". `value` must
/// not be null. Any thread.
VORELUTIL_EXPORT bool algoScanBinary(char const* text, int* value);
