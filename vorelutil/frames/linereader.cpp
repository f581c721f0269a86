#include "linereader.h"

#include "fileformat.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <vorelutil/trace/error.h>

namespace {

bool startsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

/// One number; the whole of `text` or nothing.
template <typename Number> bool parseNumber(std::string_view text, Number* number)
{
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, *number);
    return failure == std::errc() && stop == end;
}

bool parseFinite(std::string_view text, double* number)
{
    return parseNumber(text, number) && std::isfinite(*number);
}

} // namespace

namespace frameparser {

std::size_t MemorySource::read(char* to, std::size_t size)
{
    const std::size_t count = m_rest.copy(to, std::min(size, m_piece));
    m_rest.remove_prefix(count);
    return count;
}

std::size_t readFully(Source& source, char* to, std::size_t size)
{
    std::size_t count = 0;
    while (count < size) {
        const std::size_t more = source.read(to + count, size - count);
        if (more == 0) break;
        count += more;
    }
    return count;
}

std::optional<FrameFileFormat> formatOf(std::string_view start)
{
    const std::size_t end = start.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    std::string_view line = start.substr(0, end);
    if (line == fileformat::bcr::title) return FrameFileFormat::Bcr;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line == fileformat::asc::title) return FrameFileFormat::Asc;
    if (line == fileformat::line::title) return FrameFileFormat::LineCsv;
    if (line == fileformat::log::title) return FrameFileFormat::PermCsv;
    return std::nullopt;
}

LineReader::LineReader(Source& source, const std::string& fileName)
    : m_source(source)
    , m_fileName(fileName)
    , m_block(std::make_unique<char[]>(blockSize))
{
}

void LineReader::start(FrameFileFormat format, const char* complaint)
{
    m_end = readFully(m_source, m_block.get(), formatStartSize);
    if (formatOf(window()) != format) throw FormatError(complaint, m_fileName);
    m_returns = window()[window().find('\n') - 1] == '\r';
    next();
}

void LineReader::fail(const std::string& reason) const
{
    throw FormatError("line " + std::to_string(m_number) + ": " + reason, m_fileName);
}

void LineReader::failAtEnd() const
{
    fail(window().empty() ? "the file ends here" : "the line is cut off");
}

std::string_view LineReader::window() const
{
    return {m_block.get() + m_begin, m_end - m_begin};
}

/// False at the end, and where the block is full of what is not taken yet.
bool LineReader::readMore()
{
    if (m_end == blockSize) {
        std::memmove(m_block.get(), m_block.get() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_end == blockSize) return false;
    const std::size_t count = m_source.read(m_block.get() + m_end, blockSize - m_end);
    m_end += count;
    return count > 0;
}

bool LineReader::atEnd()
{
    return window().empty() && !readMore();
}

std::string_view LineReader::next()
{
    ++m_number;
    std::size_t end = 0;
    for (std::size_t from = 0; (end = window().find('\n', from)) == std::string_view::npos;) {
        from = window().size();
        if (from == blockSize) fail("the line is too long");
        if (!readMore()) failAtEnd();
    }
    std::string_view line = window().substr(0, end);
    m_begin += end + 1;
    if (m_returns) {
        if (line.empty() || line.back() != '\r') fail("the line ends in another way than the first");
        line.remove_suffix(1);
    }
    return line;
}

bool LineReader::nextLineHas(char character)
{
    const char wanted[] = {character, '\n'};
    std::size_t at = 0;
    while ((at = window().find_first_of({wanted, 2}, at)) == std::string_view::npos) {
        at = window().size();
        if (!readMore()) return false;
    }
    return window()[at] == character;
}

std::string_view LineReader::field(std::string_view caption)
{
    std::string_view line = next();
    if (!startsWith(line, caption)) fail("\"" + std::string(caption) + "\" expected");
    line.remove_prefix(caption.size());
    return line;
}

std::string LineReader::text(std::string_view caption)
{
    const std::string_view value = field(caption);
    if (value.find('\0') != std::string_view::npos) fail("NUL in a text");
    return std::string(value);
}

std::string LineReader::time(std::string_view caption, std::string_view shape)
{
    const std::string_view value = field(caption);
    const auto fits = [](char character, char pattern) {
        return pattern == '0' ? character >= '0' && character <= '9' : character == pattern;
    };
    if (!value.empty() && !std::equal(value.begin(), value.end(), shape.begin(), shape.end(), fits)) {
        fail("time expected");
    }
    return std::string(value);
}

long long LineReader::integer(std::string_view caption, long long lowest, long long highest,
                              const char* complaint)
{
    long long value = 0;
    if (!parseNumber(field(caption), &value) || value < lowest || value > highest) fail(complaint);
    return value;
}

double LineReader::length(std::string_view caption)
{
    double value = 0;
    if (!parseFinite(field(caption), &value)) fail("number expected");
    return value;
}

void LineReader::literal(std::string_view line)
{
    if (!field(line).empty()) fail("\"" + std::string(line) + "\" expected");
}

void LineReader::beginRow()
{
    ++m_number;
    if (atEnd()) failAtEnd();
}

std::string_view LineReader::cell(std::string_view separator)
{
    constexpr const char* tooFew = "the row has too few values";
    std::size_t end = 0;
    for (std::size_t from = 0; (end = window().find(separator, from)) == std::string_view::npos;) {
        if (window().find('\n', from) != std::string_view::npos) fail(tooFew);
        if (window().size() == blockSize) fail("value expected");
        from = std::max(window().size(), separator.size() - 1) - (separator.size() - 1);
        if (!readMore()) fail("the line is cut off");
    }
    const std::string_view value = window().substr(0, end);
    if (value.find('\n') != std::string_view::npos) fail(tooFew);
    m_begin += end + separator.size();
    return value;
}

void LineReader::endRow()
{
    const std::string_view end = m_returns ? "\r\n" : "\n";
    while (window().size() < end.size()) {
        if (!readMore()) fail("the line is cut off");
    }
    if (!startsWith(window(), end)) fail("the row has too many values");
    m_begin += end.size();
}

double LineReader::sample(std::string_view text) const
{
    double value = 0;
    if (parseFinite(text, &value)) return value;
    const bool negative = startsWith(text, "-");
    const std::string_view name = text.substr(negative ? 1 : 0);
    if (name != "inf" && name != "nan") fail("value expected");
    using Limits = std::numeric_limits<double>;
    value = name == "inf" ? Limits::infinity() : Limits::quiet_NaN();
    return negative ? -value : value;
}

} // namespace frameparser
