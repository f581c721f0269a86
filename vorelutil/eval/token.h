#pragma once

#include <string>
#include <string_view>

/// The smallest pieces of a formula, and numbers as texts; none depends on the locale.
namespace eval {

/// One of the six ASCII characters.
inline bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// `text` without white space at its ends.
std::string_view strip(std::string_view text);

/// Whether all of `token`, which is not empty and has been stripped, reads as a number; then `*value` is it,
/// else untouched. It takes what stream extraction takes: see `Evaluator`.
bool readNumber(std::string_view token, double* value);

/// As a stream writes a number by default: six significant digits, an exponent when needed.
std::string shortText(double value);

} // namespace eval
