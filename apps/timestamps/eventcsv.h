#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

/// Events as text: a header line `time,channel`, then a line an event, both numbers in decimal.
namespace timestamps {

class EventCsvWriter
{
public:
    /// Takes the next bytes of the text; may throw.
    using Write = std::function<void(const void* data, std::size_t size)>;

    explicit EventCsvWriter(Write write);

    void write(const PpTimest* events, std::size_t count);
    /// Passes on what is still buffered; else that is lost.
    void finish();

private:
    const Write m_write;
    std::vector<char> m_buffer;
    std::size_t m_filled = 0;
};

/// Reads what the writer writes. Lines may end with carriage return and line feed, the last one with nothing;
/// a byte order mark in front and blank lines at the end count for nothing.
class EventCsvReader
{
public:
    /// Gives the next bytes of the text, up to `size`, 0 at the end; may throw.
    using Read = std::function<std::size_t(void* data, std::size_t size)>;

    /// `name` is the file's, for messages.
    EventCsvReader(Read read, std::string name);

    /// The next events, at most `capacity`; 0 at the end. Throws `FormatError` ("NAME:LINE: ...") at a line
    /// that is no event.
    std::size_t read(PpTimest* events, std::size_t capacity);

    /// "NAME:LINE" of an event by its number since the beginning, 0 and up.
    std::string place(std::uint64_t event) const;

private:
    bool nextLine(const char** line, const char** end);
    [[noreturn]] void fail(const char* line, const char* end, std::uint64_t number, const char* what) const;

    const Read m_read;
    const std::string m_name;
    std::vector<char> m_buffer;
    std::size_t m_next = 0; ///< first byte that is not read yet
    std::size_t m_end = 0;  ///< bytes in the buffer
    bool m_over = false;    ///< there are no more
    std::uint64_t m_line = 0;
    std::uint64_t m_blank = 0; ///< the first blank line, if the last one was blank; else 0
};

} // namespace timestamps
