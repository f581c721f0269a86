#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>

class FrameBuffer;

/// What the frame writers share: scaling, and numbers and times as text, the same bytes in every locale.
namespace frametext {

/// What the writers return.
namespace result {
enum Result : int
{
    Written = 0,
    NothingToWrite = 1,
    CannotOpen = 2,
    NoMemory = 3
};
} // namespace result

/// From stored integers to values of a base unit.
struct Unit
{
    const char* name; ///< lives as long as the process
    double factor;
};

/// The unit whose code the metadata entry `key` holds (code 0 when there is none).
Unit unitOf(const FrameBuffer& frame, int key);

/// From raw samples to values of the value unit.
struct Scaling
{
    double offset;
    double scale;

    double operator()(int sample) const { return (static_cast<double>(sample) - offset) * scale; }
};

/// The scaling that the metadata asks for; `noDivisor` stands in for a missing sample divisor.
Scaling scalingOf(const FrameBuffer& frame, int noDivisor);

inline constexpr std::size_t maxNumberLength = 24; ///< above what `printNumber` needs (16)

/// Prints `value` as the C runtime's "%.9g" does in the "C" locale, without a closing zero; returns the end.
///
/// `to` has room for `maxNumberLength` characters. Not a number is "nan" or, with its sign bit set, "-nan".
char* printNumber(char* to, double value);

/// A number as text that lives as long as the object.
class Number
{
public:
    explicit Number(double value) { *printNumber(m_text, value) = '\0'; }
    const char* text() const { return m_text; }

private:
    char m_text[maxNumberLength + 1];
};

/// The local time of its construction, in a `strftime` format; empty where the time cannot be had.
class TimeStamp
{
public:
    explicit TimeStamp(const char* format);
    const char* text() const { return m_text; }

    static constexpr const char* iso = "%Y-%m-%dT%H:%M:%S";
    static constexpr const char* dayFirst = "%d %m %y %H:%M:%S";

private:
    char m_text[128];
};

/// Print a line of a header: the caption, the value behind it, a line feed.
void printLine(std::FILE* file, const char* caption, const char* value = "");
void printLine(std::FILE* file, const char* caption, int value);

/// Collects numbers and short texts and hands them to a stream in large blocks; the rest when it ends.
class BlockWriter
{
public:
    explicit BlockWriter(std::FILE* file)
        : m_file(file)
    {
    }
    ~BlockWriter() { write(); }
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    /// Appends the number, then `suffix` (at most 8 characters).
    void append(double value, std::string_view suffix)
    {
        if (m_end > m_block + sizeof m_block - maxNumberLength - maxSuffixLength) write();
        m_end = printNumber(m_end, value);
        for (const char character : suffix) *m_end++ = character;
    }

    /// Ends a line behind a number: `append` has left room for it.
    void endLine() { *m_end++ = '\n'; }

private:
    static constexpr std::size_t maxSuffixLength = 8;

    void write()
    {
        std::fwrite(m_block, 1, static_cast<std::size_t>(m_end - m_block), m_file);
        m_end = m_block;
    }

    std::FILE* m_file;
    char m_block[32768];
    char* m_end = m_block;
};

} // namespace frametext
