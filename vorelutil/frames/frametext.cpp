#include "frametext.h"

#include "framebuffer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vorelutil/algo/unit.h>

namespace frametext {

Unit unitOf(const FrameBuffer& frame, int key)
{
    double factor = 0;
    const char* const name = algoGetBaseUnit(frame.findMeta(key, 0), nullptr, &factor);
    return {name, factor};
}

Scaling scalingOf(const FrameBuffer& frame, int noDivisor)
{
    const double divisor = frame.findMeta(FrameBuffer::KeySampleDivisor, noDivisor);
    const double offset = frame.findMeta(FrameBuffer::KeySampleOffset, 0);
    return {offset, unitOf(frame, FrameBuffer::KeyValueUnit).factor / divisor};
}

namespace {

constexpr int precision = 9;

#if defined(__SIZEOF_INT128__)

__extension__ using Wide = unsigned __int128;

constexpr std::uint32_t digitsBegin = 100000000; ///< smallest number of `precision` digits
constexpr std::uint32_t digitsEnd = 1000000000;

constexpr int largestPower = 27; ///< the last power of five below 2^63

constexpr std::array<std::uint64_t, largestPower + 1> powersOfFive()
{
    std::array<std::uint64_t, largestPower + 1> powers{};
    std::uint64_t power = 1;
    for (std::uint64_t& entry : powers) {
        entry = power;
        power *= 5;
    }
    return powers;
}

/// Writes `digits`, of `precision` digits, as d.dddddddd * 10^exponent in the form that "%g" chooses.
char* layOut(char* to, std::uint32_t digits, int exponent)
{
    char text[precision];
    for (int i = precision - 1; i >= 0; --i) {
        text[i] = static_cast<char>('0' + digits % 10);
        digits /= 10;
    }
    int length = precision;
    while (length > 1 && text[length - 1] == '0') --length;

    const bool fixed = exponent >= -4 && exponent < precision;
    if (fixed && exponent < 0) {
        *to++ = '0';
        *to++ = '.';
        to = std::fill_n(to, -exponent - 1, '0');
        return std::copy_n(text, length, to);
    }
    const int whole = fixed ? exponent + 1 : 1;
    if (length <= whole) {
        to = std::copy_n(text, whole, to); // zeros that belong to the whole number are digits too
    } else {
        to = std::copy_n(text, whole, to);
        *to++ = '.';
        to = std::copy_n(text + whole, length - whole, to);
    }
    if (fixed) return to;
    *to++ = 'e';
    *to++ = exponent < 0 ? '-' : '+';
    const int magnitude = std::abs(exponent);
    *to++ = static_cast<char>('0' + magnitude / 10);
    *to++ = static_cast<char>('0' + magnitude % 10);
    return to;
}

/// Prints a value from 1e-18 up to 999999999; a null pointer for any other.
///
/// With value = m * 2^e and its decimal exponent x, the digits are m * 10^(8 - x) * 2^e, rounded: m * 5^(8 -
/// x) fits 128 bits, so that all of this is exact, halves (to even) included.
char* printPositive(char* to, double value)
{
    if (!(value >= 1e-18 && value <= 999999999.0)) return nullptr;
    static constexpr auto fives = powersOfFive();
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    const int binary = static_cast<int>(bits >> 52) - 1023; // 2^binary <= value
    const std::uint64_t mantissa = (bits & 0xFFFFFFFFFFFFFU) | 0x10000000000000U;

    // floor(log10(2^binary)), which is the decimal exponent or one below it.
    int exponent = (binary * 1233) >> 12;
    Wide product = 0;
    int shift = 0;
    std::uint64_t digits = 0;
    for (;; ++exponent) {
        const int power = precision - 1 - exponent;
        product = static_cast<Wide>(mantissa) * fives[static_cast<std::size_t>(power)];
        shift = 52 - binary - power;
        digits = static_cast<std::uint64_t>(product >> shift);
        if (digits < digitsEnd) break;
    }
    const Wide half = static_cast<Wide>(1) << (shift - 1);
    const Wide rest = product & ((half << 1) - 1);
    if (rest > half || (rest == half && digits % 2 != 0)) ++digits;
    if (digits == digitsEnd) {
        digits = digitsBegin;
        ++exponent;
    }
    return layOut(to, static_cast<std::uint32_t>(digits), exponent);
}

#endif

} // namespace

char* printNumber(char* to, double value)
{
#if defined(__SIZEOF_INT128__)
    if (value < 0) {
        *to = '-';
        char* const end = printPositive(to + 1, -value);
        if (end != nullptr) return end;
    } else if (char* const end = printPositive(to, value)) {
        return end;
    }
#endif
    return std::to_chars(to, to + maxNumberLength, value, std::chars_format::general, precision).ptr;
}

void printLine(std::FILE* file, const char* caption, const char* value)
{
    std::fprintf(file, "%s%s\n", caption, value);
}

void printLine(std::FILE* file, const char* caption, int value)
{
    std::fprintf(file, "%s%d\n", caption, value);
}

TimeStamp::TimeStamp(const char* format)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    m_text[0] = '\0';
    tzset(); // localtime_r need not notice a change of the time zone
    if (localtime_r(&now, &local) == nullptr) return;
    if (std::strftime(m_text, sizeof m_text, format, &local) == 0) m_text[0] = '\0';
}

} // namespace frametext
