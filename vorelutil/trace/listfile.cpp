#include "listfile.h"

#include <algorithm>
#include <climits>
#include <cstdint>

namespace tracelog {

namespace {

bool isSpace(int c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// The value of a digit in any base up to 16, else a large number.
int digitValue(int c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return INT_MAX;
}

} // namespace

std::optional<int> scanNumber(std::FILE* file, Notation notation)
{
    int c = std::getc(file);
    while (isSpace(c)) c = std::getc(file);
    const bool negative = c == '-';
    if (c == '-' || c == '+') c = std::getc(file);

    int base = 10;
    bool any = false;
    if (notation == Notation::Any && c == '0') {
        base = 8;
        any = true;
        c = std::getc(file);
        if (c == 'x' || c == 'X') {
            base = 16;
            any = false;
            c = std::getc(file);
        }
    }
    const std::int64_t limit = std::int64_t{INT_MAX} + 1;
    std::int64_t magnitude = 0;
    for (int digit = digitValue(c); digit < base; digit = digitValue(c)) {
        magnitude = std::min(magnitude * base + digit, limit);
        any = true;
        c = std::getc(file);
    }
    if (c != EOF) std::ungetc(c, file);
    if (!any) return std::nullopt;
    return static_cast<int>(negative ? -magnitude : std::min<std::int64_t>(magnitude, INT_MAX));
}

void readListFile(std::FILE* file, AddressSet& set)
{
    while (const auto first = scanNumber(file, Notation::Any)) {
        const auto last = scanNumber(file, Notation::Any);
        if (!last) return;
        set.insert(*first, *last);
    }
}

} // namespace tracelog
