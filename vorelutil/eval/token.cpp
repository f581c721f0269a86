#include "token.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <system_error>
#include <vorelutil/platform/clocale.h>

namespace eval {
namespace {

/// What follows the token's "0x".
bool readHexadecimal(std::string_view digits, double* value)
{
    while (!digits.empty() && isSpace(digits.front())) digits.remove_prefix(1);
    const bool negative = !digits.empty() && digits.front() == '-';
    if (negative || (!digits.empty() && digits.front() == '+')) digits.remove_prefix(1);
    if (digits.size() >= 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X'))
        digits.remove_prefix(2);

    std::uint32_t magnitude = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, magnitude, 16);
    const std::uint32_t limit = negative ? 0x80000000u : 0x7FFFFFFFu;
    if (error != std::errc() || stop != end || magnitude > limit) return false;
    const std::int64_t whole = magnitude; // whose 0 has no sign
    *value = static_cast<double>(negative ? -whole : whole);
    return true;
}

bool readDecimal(std::string_view token, double* value)
{
    // A stream takes a leading "+", but neither "inf" nor "nan"; from_chars does the reverse.
    const std::size_t sign = token.front() == '+' || token.front() == '-' ? 1 : 0;
    if (token.size() == sign) return false;
    const char first = token[sign];
    if (first != '.' && (first < '0' || first > '9')) return false;
    if (token.front() == '+') token.remove_prefix(1);

    double number = 0.0;
    const char* const end = token.data() + token.size();
    const auto [stop, error] = std::from_chars(token.data(), end, number);
    if (stop != end) return false;
    if (error == std::errc::result_out_of_range) { // too small is 0, too large is no number
        const platform::CLocaleScope point;
        number = std::strtod(std::string(token).c_str(), nullptr);
        if (std::isinf(number)) return false;
    } else if (error != std::errc()) {
        return false;
    }
    *value = number;
    return true;
}

} // namespace

std::string_view strip(std::string_view text)
{
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    return text;
}

bool readNumber(std::string_view token, double* value)
{
    if (token.substr(0, 2) == "0x") return readHexadecimal(token.substr(2), value);
    return readDecimal(token, value);
}

std::string shortText(double value)
{
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
    return std::string(text, result.ptr);
}

} // namespace eval
