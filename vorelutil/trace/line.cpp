#include "line.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <vorelutil/platform/clocale.h>

namespace tracelog {

/// Makes room for that many bytes more; false if there is no memory.
bool Line::reserve(std::size_t more)
{
    if (more < room()) return true;
    const std::size_t capacity = m_length + more + 3;
    std::unique_ptr<char[]> larger(new (std::nothrow) char[capacity]);
    if (larger == nullptr) return false;
    std::memcpy(larger.get(), m_data, m_length);
    m_long = std::move(larger);
    m_data = m_long.get();
    m_capacity = capacity;
    return true;
}

void Line::append(std::string_view text)
{
    const std::size_t size = reserve(text.size()) ? text.size() : room() - 1;
    std::memcpy(m_data + m_length, text.data(), size);
    m_length += size;
}

void Line::end()
{
    std::memcpy(m_data + m_length, ".\n", 2);
    m_length += 2;
}

void Line::appendStamp(double seconds)
{
    // The digits by hand for what a stamp usually is: whole milliseconds but for the last bits. Whatever
    // may round differently (close to half a millisecond) or is larger goes the slow way.
    const double scaled = std::fabs(seconds) * 1000.0;
    const auto milliseconds = scaled < 1e13 ? static_cast<long long>(scaled + 0.5) : -1;
    char digits[400]; // "%.3f" of the largest double has 314 characters
    if (milliseconds < 0 || std::fabs(scaled - static_cast<double>(milliseconds)) > 0.25) {
        const platform::CLocaleScope cLocale;
        const int size = std::snprintf(digits, sizeof digits, "[%.3f]", seconds);
        append({digits, static_cast<std::size_t>(size)});
        return;
    }
    char* end = digits;
    *end++ = '[';
    if (std::signbit(seconds)) *end++ = '-';
    end = std::to_chars(end, digits + sizeof digits, milliseconds / 1000).ptr;
    const int fraction = static_cast<int>(milliseconds % 1000);
    *end++ = '.';
    *end++ = static_cast<char>('0' + fraction / 100);
    *end++ = static_cast<char>('0' + fraction / 10 % 10);
    *end++ = static_cast<char>('0' + fraction % 10);
    *end++ = ']';
    append({digits, static_cast<std::size_t>(end - digits)});
}

/// The conversions that nearly every message is made of, "%d", "%u", "%x", "%s" and "%%", without the price
/// of `vprintf`. False, with nothing appended, at any other and for a line that does not fit as it is.
bool Line::appendPlain(const char* format, std::va_list arguments)
{
    constexpr std::size_t longest = 11; // of the numbers
    if (room() <= longest) return false;
    char* out = m_data + m_length;
    char* const limit = out + (room() - longest);
    for (; *format != '\0'; ++format) {
        if (out >= limit) return false;
        if (*format != '%') {
            *out++ = *format;
            continue;
        }
        switch (*++format) {
        case '%':
            *out++ = '%';
            break;
        case 'd':
            out = std::to_chars(out, out + longest, va_arg(arguments, int)).ptr;
            break;
        case 'u':
            out = std::to_chars(out, out + longest, va_arg(arguments, unsigned)).ptr;
            break;
        case 'x':
            out = std::to_chars(out, out + longest, va_arg(arguments, unsigned), 16).ptr;
            break;
        case 's': {
            const char* text = va_arg(arguments, const char*);
            if (text == nullptr) return false;
            const std::size_t size = std::strlen(text);
            if (size >= static_cast<std::size_t>(limit - out)) return false;
            std::memcpy(out, text, size);
            out += size;
            break;
        }
        default:
            return false;
        }
    }
    m_length = static_cast<std::size_t>(out - m_data);
    return true;
}

/// What `vprintf` writes, in the locale of the moment. False, with nothing appended, where it fails.
bool Line::appendPrinted(const char* format, std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    int size = std::vsnprintf(m_data + m_length, room(), format, arguments);
    const bool printed = size >= 0;
    if (printed) {
        if (static_cast<std::size_t>(size) >= room() && reserve(static_cast<std::size_t>(size))) {
            size = std::max(0, std::vsnprintf(m_data + m_length, room(), format, again));
        }
        // Cut where there is no memory, or where another thread made a string longer between the passes.
        m_length += std::min(static_cast<std::size_t>(size), room() - 1);
    }
    va_end(again);
    return printed;
}

void Line::appendFormatted(const char* format, std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    bool done = appendPlain(format, again);
    va_end(again);
    if (!done) {
        const platform::CLocaleScope cLocale;
        va_copy(again, arguments);
        done = appendPrinted(format, again);
        va_end(again);
    }
    if (!done && !appendPrinted(format, arguments)) append(format);
}

} // namespace tracelog
