#include "scan.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr int mostDigits = 99;

} // namespace

bool algoScanBinary(char const* text, int* value)
{
    if (text == nullptr) return false;
    text += std::strspn(text, " \t\n\v\f\r");
    if (std::strncmp(text, "0b", 2) != 0) return false;
    const char* const digits = text + 2;
    std::uint32_t bits = 0;
    int count = 0;
    for (; count < mostDigits && (digits[count] == '0' || digits[count] == '1'); ++count)
        bits = bits << 1 | (digits[count] == '1' ? 1U : 0U);
    if (count == 0) return false;
    *value = static_cast<int>(bits);
    return true;
}
