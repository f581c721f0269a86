#include "listfile.h"

#include <climits>
#include <cstdint>
#include <cstdio> // flockfile, getc_unlocked: POSIX
#include <mutex>

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

/// A stream's own lock, for `std::lock_guard`.
struct StreamLock
{
    std::FILE* file;
    void lock() { flockfile(file); }
    void unlock() { funlockfile(file); }
};

} // namespace

std::optional<int> scanNumber(std::FILE* file, Notation notation)
{
    StreamLock stream{file};
    const std::lock_guard lock(stream);
    int c = getc_unlocked(file);
    while (isSpace(c)) c = getc_unlocked(file);
    const bool negative = c == '-';
    if (c == '-' || c == '+') c = getc_unlocked(file);

    int base = 10;
    bool any = false;
    if (notation == Notation::Any && c == '0') {
        base = 8;
        any = true;
        c = getc_unlocked(file);
        if (c == 'x' || c == 'X') {
            base = 16;
            any = false;
            c = getc_unlocked(file);
        }
    }
    std::int64_t value = 0; // with its sign, as the range below zero is the larger one
    for (int digit = digitValue(c); digit < base; digit = digitValue(c)) {
        if (negative) {
            value = value < (INT64_MIN + digit) / base ? INT64_MIN : value * base - digit;
        } else {
            value = value > (INT64_MAX - digit) / base ? INT64_MAX : value * base + digit;
        }
        any = true;
        c = getc_unlocked(file);
    }
    if (c != EOF) std::ungetc(c, file);
    if (!any) return std::nullopt;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
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
