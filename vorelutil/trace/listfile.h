#pragma once

#include "addressset.h"

#include <cstdio>
#include <optional>

/// Reading of whole numbers and list files, with a defined result for every input.
namespace tracelog {

/// How the digits of a number are read.
enum class Notation
{
    Decimal, ///< as the scan format "%d"
    Any      ///< as "%i": decimal, "0x" hexadecimal, leading-zero octal
};

/// Reads a whole number as the scan formats do: after white space (the six ASCII characters), with a sign or
/// without, up to the first character that does not belong to it, which stays in the stream.
///
/// A number beyond the range of int is taken as the C runtime's scan does on this system: the nearest value
/// of 64 bits, of which the lower 32 count (0xFFFFFFFF gives -1, as does 99999999999999999999). Without
/// digits the result is empty; a sign or "0x", which alone is no number, is then consumed, the offending
/// character is not. The stream is locked for the number, so that threads do not share its digits.
std::optional<int> scanNumber(std::FILE* file, Notation notation);

/// Adds the address ranges of a list file to `set`: pairs of numbers, first and last address, each pair as
/// the format " %i %i " scans it. Stops at the first pair that does not scan completely. A pair whose first
/// number is greater than its last adds nothing. Memory grows with the number of ranges alone.
void readListFile(std::FILE* file, AddressSet& set);

} // namespace tracelog
