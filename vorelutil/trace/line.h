#pragma once

#include <cstdarg>
#include <cstddef>
#include <memory>
#include <string_view>

namespace tracelog {

/// One line of the log, composed outside the lock and written at once.
///
/// It lives on the stack and takes heap memory only for a line that is longer than its own buffer; where that
/// fails, the line is cut. It never throws. Numbers are printed with a decimal point in every locale.
class Line
{
public:
    Line() = default;
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    void append(std::string_view text);
    /// Appends "[%.3f]".
    void appendStamp(double seconds);
    /// Appends a message as `vprintf` prints it; the format itself where that fails. Wide characters that the
    /// "C" locale does not have are printed in the thread's own locale, and then the whole message is.
    void appendFormatted(const char* format, std::va_list arguments);
    /// Appends the full stop and the newline, also where the line was cut. Once, and last.
    void end();

    std::string_view text() const { return {m_data, m_length}; }

private:
    bool appendPlain(const char* format, std::va_list arguments);
    bool appendPrinted(const char* format, std::va_list arguments);
    bool reserve(std::size_t more);
    /// What is free for a text and a terminating NUL, at least 1: the end of the line always has its place.
    std::size_t room() const { return m_capacity - m_length - 2; }

    static constexpr std::size_t ownSize = 1024;
    std::size_t m_length = 0;
    std::size_t m_capacity = ownSize;
    char* m_data = m_own;
    std::unique_ptr<char[]> m_long;
    char m_own[ownSize]; ///< not initialised: only the text is ever read
};

} // namespace tracelog
