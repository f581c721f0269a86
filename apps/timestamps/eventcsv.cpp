#include "eventcsv.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>
#include <vorelutil/trace/error.h>

namespace timestamps {
namespace {

constexpr std::string_view header = "time,channel";
constexpr std::string_view numpyMagic = "\x93NUMPY";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t bufferSize = std::size_t(256) * 1024; ///< of the reader: also the longest line
constexpr std::size_t longestLine = 32;                     ///< of an event
constexpr const char* noEvent = "is no event (expected TIME,CHANNEL: a 64-bit number, and one from 0 to 255)";

} // namespace

EventCsvWriter::EventCsvWriter(Write write)
    : m_write(std::move(write))
    , m_buffer(bufferSize)
    , m_filled(header.size() + 1)
{
    std::memcpy(m_buffer.data(), header.data(), header.size());
    m_buffer[header.size()] = '\n';
}

void EventCsvWriter::write(const PpTimest* events, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (m_buffer.size() - m_filled < longestLine) finish();
        char* const begin = m_buffer.data() + m_filled;
        char* const limit = begin + longestLine;
        char* at = std::to_chars(begin, limit, events[i].time).ptr;
        *at++ = ',';
        at = std::to_chars(at, limit, events[i].channel).ptr;
        *at++ = '\n';
        m_filled += static_cast<std::size_t>(at - begin);
    }
}

void EventCsvWriter::finish()
{
    m_write(m_buffer.data(), m_filled);
    m_filled = 0;
}

EventCsvReader::EventCsvReader(Read read, std::string name)
    : m_read(std::move(read))
    , m_name(std::move(name))
    , m_buffer(bufferSize)
{
}

std::size_t EventCsvReader::read(PpTimest* events, std::size_t capacity)
{
    const char* line = nullptr;
    const char* end = nullptr;
    if (m_line == 0) {
        const bool any = nextLine(&line, &end);
        std::string_view text(line, static_cast<std::size_t>(end - line));
        if (text.substr(0, byteOrderMark.size()) == byteOrderMark) text.remove_prefix(byteOrderMark.size());
        if (text.substr(0, numpyMagic.size()) == numpyMagic)
            throw FormatError("this is a NumPy file; CSV with the header \"time,channel\" is needed", m_name);
        if (!any || text != header) fail(text.data(), end, m_line, "is not the header \"time,channel\"");
    }
    std::size_t count = 0;
    while (count < capacity && nextLine(&line, &end)) {
        if (line == end) { // at the end, or it is wrong
            if (m_blank == 0) m_blank = m_line;
            continue;
        }
        if (m_blank != 0) fail(line, line, m_blank, noEvent);
        PpTimest event = {};
        auto [at, error] = std::from_chars(line, end, event.time);
        bool good = error == std::errc() && at != end && *at == ',';
        if (good) {
            const auto channel = std::from_chars(at + 1, end, event.channel);
            good = channel.ec == std::errc() && channel.ptr == end;
        }
        if (!good) fail(line, end, m_line, noEvent);
        events[count++] = event;
    }
    return count;
}

std::string EventCsvReader::place(std::uint64_t event) const
{
    return m_name + ':' + std::to_string(event + 2);
}

/// The next line without its end; false when there is none. Valid until the next call.
bool EventCsvReader::nextLine(const char** line, const char** end)
{
    const char* feed = nullptr;
    for (std::size_t looked = m_next;;) {
        const char* const data = m_buffer.data();
        if (looked < m_end) feed = static_cast<const char*>(std::memchr(data + looked, '\n', m_end - looked));
        if (feed != nullptr || m_over) break;
        looked = m_end - m_next;
        std::memmove(m_buffer.data(), data + m_next, looked);
        m_next = 0;
        m_end = looked;
        if (m_end == m_buffer.size()) {
            ++m_line;
            fail(data, data + m_end, m_line, "is too long for a line");
        }
        const std::size_t count = m_read(m_buffer.data() + m_end, m_buffer.size() - m_end);
        m_over = count == 0;
        m_end += count;
    }
    ++m_line;
    *line = m_buffer.data() + m_next;
    *end = feed != nullptr ? feed : m_buffer.data() + m_end;
    if (feed == nullptr && *line == *end) return false;
    m_next = static_cast<std::size_t>(*end - m_buffer.data()) + (feed != nullptr ? 1 : 0);
    if (*line != *end && *(*end - 1) == '\r') --*end;
    return true;
}

void EventCsvReader::fail(const char* line, const char* end, std::uint64_t number, const char* what) const
{
    constexpr std::ptrdiff_t shown = 40;
    std::string text(line, line + std::min(end - line, shown));
    for (char& c : text)
        if (c < ' ' || c > '~') c = '?';
    if (end - line > shown) text += "...";
    throw FormatError('"' + text + "\" " + what, m_name + ':' + std::to_string(number));
}

} // namespace timestamps
