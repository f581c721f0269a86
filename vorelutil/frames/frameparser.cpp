#include "frameparser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vorelutil/trace/error.h>

namespace {

constexpr std::size_t binaryHeaderSize = 2048;
constexpr std::uint32_t voidPixelBits = 0x7F000000;

// The shapes of time stamps: '0' stands for any digit.
constexpr std::string_view isoTime = "0000-00-00T00:00:00";
constexpr std::string_view dayFirstTime = "00 00 00 00:00:00";

enum class LineEnds
{
    LineFeed,
    Any ///< "\n" or "\r\n"
};

bool startsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// One finite number; the whole of `text` or nothing.
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

/// A sample value: a finite number, or one of the four texts that the writers print for the others.
bool parseSample(std::string_view text, double* number)
{
    if (parseFinite(text, number)) return true;
    const bool negative = startsWith(text, "-");
    const std::string_view name = text.substr(negative ? 1 : 0);
    if (name != "inf" && name != "nan") return false;
    *number =
        name == "inf" ? std::numeric_limits<double>::infinity() : std::numeric_limits<double>::quiet_NaN();
    if (negative) *number = -*number;
    return true;
}

/// Takes a text apart line by line; what is not as expected throws.
class LineReader
{
public:
    LineReader(std::string_view text, const std::string& fileName, LineEnds ends)
        : m_rest(text)
        , m_fileName(fileName)
        , m_ends(ends)
    {
    }

    std::string_view rest() const { return m_rest; }
    bool atEnd() const { return m_rest.empty(); }

    [[noreturn]] void fail(const std::string& reason) const
    {
        throw FormatError("line " + std::to_string(m_number) + ": " + reason, m_fileName);
    }

    /// The next line, without its end.
    std::string_view next()
    {
        ++m_number;
        const std::size_t end = m_rest.find('\n');
        if (end == std::string_view::npos) fail(atEnd() ? "the file ends here" : "the line is cut off");
        std::string_view line = m_rest.substr(0, end);
        m_rest.remove_prefix(end + 1);
        if (m_ends == LineEnds::Any && endsWith(line, "\r")) line.remove_suffix(1);
        return line;
    }

    /// What follows `caption` in the next line.
    std::string_view field(std::string_view caption)
    {
        std::string_view line = next();
        if (!startsWith(line, caption)) fail("\"" + std::string(caption) + "\" expected");
        line.remove_prefix(caption.size());
        return line;
    }

    std::string text(std::string_view caption)
    {
        const std::string_view value = field(caption);
        if (value.find('\0') != std::string_view::npos) fail("NUL in a text");
        return std::string(value);
    }

    /// A line of just this text.
    void literal(std::string_view line)
    {
        if (!field(line).empty()) fail("\"" + std::string(line) + "\" expected");
    }

    std::string time(std::string_view caption, std::string_view shape)
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

    int integer(std::string_view caption)
    {
        int value = 0;
        if (!parseNumber(field(caption), &value)) fail("integer expected");
        return value;
    }

    int pixelCount(std::string_view caption)
    {
        int value = 0;
        if (!parseNumber(field(caption), &value) || value < 1) fail("pixel count expected");
        return value;
    }

    double length(std::string_view caption)
    {
        double value = 0;
        if (!parseFinite(field(caption), &value)) fail("number expected");
        return value;
    }

    double sample(std::string_view text) const
    {
        double value = 0;
        if (!parseSample(text, &value)) fail("value expected");
        return value;
    }

private:
    std::string_view m_rest;
    const std::string& m_fileName;
    LineEnds m_ends;
    std::size_t m_number = 0;
};

/// Both factors are positive ints, so that the product fits.
std::uint64_t pixelsOf(const FrameImage& image)
{
    return static_cast<std::uint64_t>(image.xPixels) * static_cast<std::uint64_t>(image.yPixels);
}

std::size_t lineCount(std::string_view text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

/// A row of the matrix form: `count` values, each with two blanks behind it.
void readMatrixRow(LineReader& lines, int count, std::vector<double>* values)
{
    constexpr std::string_view separator = "  ";
    std::string_view row = lines.next();
    for (int i = 0; i < count; ++i) {
        const std::size_t end = row.find(separator);
        if (end == std::string_view::npos) lines.fail("the row has too few values");
        values->push_back(lines.sample(row.substr(0, end)));
        row.remove_prefix(end + separator.size());
    }
    if (!row.empty()) lines.fail("the row has too many values");
}

} // namespace

namespace frameparser {

bool hasTitle(std::string_view content, std::string_view title)
{
    if (!startsWith(content, title)) return false;
    content.remove_prefix(title.size());
    return startsWith(content, "\n") || startsWith(content, "\r\n");
}

FrameImage parseAsc(std::string_view content, const std::string& fileName)
{
    if (!hasTitle(content, ascTitle)) throw FormatError("not a text image snapshot", fileName);
    LineReader lines(content, fileName, LineEnds::Any);
    FrameImage image;
    lines.literal(ascTitle);
    image.startTime = lines.time("# ", isoTime);
    image.channel = lines.text("# display:   channel ");
    if (!endsWith(image.channel, " fwd") && !endsWith(image.channel, " bwd"))
        lines.fail("direction expected");
    image.direction = image.channel.substr(image.channel.size() - 3);
    image.channel.resize(image.channel.size() - 4);
    image.xPixels = lines.pixelCount("# x-pixels:  ");
    image.yPixels = lines.pixelCount("# y-pixels:  ");
    image.xLength = lines.length("# x-length:  ");
    image.yLength = lines.length("# y-length:  ");
    image.xOffset = lines.length("# x-offset:  ");
    image.yOffset = lines.length("# y-offset:  ");
    image.xUnit = lines.text("# x-unit:    ");
    image.yUnit = lines.text("# y-unit:    ");
    image.zUnit = lines.text("# z-unit:    ");
    image.scanSpeed = lines.integer("# scanspeed: ");
    lines.literal("# Start of Data:");

    // A value takes at least a digit and a line end, or a digit and two blanks.
    const std::uint64_t pixels = pixelsOf(image);
    if (pixels > lines.rest().size() / 2) throw FormatError("too short for its pixel counts", fileName);
    image.values.reserve(static_cast<std::size_t>(pixels));
    const bool matrix = lines.rest().substr(0, lines.rest().find('\n')).find(' ') != std::string_view::npos;
    if (matrix) {
        for (int row = 0; row < image.yPixels; ++row) readMatrixRow(lines, image.xPixels, &image.values);
    } else {
        for (std::uint64_t i = 0; i < pixels; ++i) image.values.push_back(lines.sample(lines.next()));
    }
    if (!lines.atEnd()) throw FormatError("data behind the last pixel", fileName);
    return image;
}

FrameImage parseBcr(std::string_view content, const std::string& fileName)
{
    if (!hasTitle(content, bcrTitle)) throw FormatError("not a binary image snapshot", fileName);
    if (content.size() < binaryHeaderSize) throw FormatError("the header is cut off", fileName);
    LineReader lines(content.substr(0, binaryHeaderSize), fileName, LineEnds::LineFeed);
    FrameImage image;
    lines.literal(bcrTitle);
    image.startTime = lines.time("starttime ", dayFirstTime);
    image.xPixels = lines.pixelCount("xpixels = ");
    image.yPixels = lines.pixelCount("ypixels = ");
    image.xLength = lines.length("xlength = ");
    image.yLength = lines.length("ylength = ");
    image.xOffset = lines.length("xoffset = ");
    image.yOffset = lines.length("yoffset = ");
    image.xUnit = lines.text("xunit = ");
    image.yUnit = lines.text("yunit = ");
    image.zUnit = lines.text("zunit = ");
    image.scanSpeed = lines.integer("scanspeed = ");
    image.voidPixels = lines.integer("voidpixels = ");
    const std::uint64_t pixels = pixelsOf(image);
    if (image.voidPixels < 0 || static_cast<std::uint64_t>(image.voidPixels) >= pixels) {
        lines.fail("as many void pixels cannot be");
    }
    lines.literal("intelmode = 0");
    const std::string_view filler = lines.next();
    if (filler.find_first_not_of(' ') != std::string_view::npos || !lines.atEnd()) {
        lines.fail("blanks expected");
    }

    content.remove_prefix(binaryHeaderSize);
    if (pixels > content.size() / 4) throw FormatError("too short for its pixel counts", fileName);
    if (content.size() != pixels * 4) throw FormatError("data behind the last pixel", fileName);
    image.values.reserve(static_cast<std::size_t>(pixels));
    std::uint64_t voids = 0;
    for (std::size_t at = 0; at < content.size(); at += 4) {
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 4; ++i) bits = bits << 8 | static_cast<unsigned char>(content[at + i]);
        float value = 0;
        std::memcpy(&value, &bits, sizeof value);
        const bool isVoid = bits == voidPixelBits;
        voids += isVoid ? 1 : 0;
        image.values.push_back(isVoid ? std::numeric_limits<double>::quiet_NaN()
                                      : static_cast<double>(value));
    }
    if (voids < static_cast<std::uint64_t>(image.voidPixels)) {
        throw FormatError("fewer void pixels than the header says", fileName);
    }
    return image;
}

FrameLine parseLineCsv(std::string_view content, const std::string& fileName)
{
    if (!hasTitle(content, lineCsvTitle)) throw FormatError("not a line export", fileName);
    LineReader lines(content, fileName, LineEnds::Any);
    FrameLine line;
    lines.literal(lineCsvTitle);
    line.startTime = lines.time("# ", isoTime);
    line.channel = lines.text("# display:  channel ");
    line.xPixels = lines.integer("# x-pixels: ");
    line.xUnit = lines.text("# x-unit:   ");
    line.yUnit = lines.text("# y-unit:   ");
    lines.literal("X ; Y");

    const std::size_t rows = lineCount(lines.rest());
    if (rows > 2 * static_cast<std::uint64_t>(std::max(line.xPixels, 0))) {
        throw FormatError("more rows than its pixel count allows", fileName);
    }
    line.x.reserve(rows);
    line.y.reserve(rows);
    constexpr std::string_view separator = " ; ";
    while (!lines.atEnd()) {
        const std::string_view row = lines.next();
        const std::size_t middle = row.find(separator);
        if (middle == std::string_view::npos) lines.fail("two values expected");
        line.x.push_back(lines.sample(row.substr(0, middle)));
        line.y.push_back(lines.sample(row.substr(middle + separator.size())));
    }
    return line;
}

FrameLog parsePermCsv(std::string_view content, const std::string& fileName)
{
    if (!hasTitle(content, permCsvTitle)) throw FormatError("not a data log", fileName);
    LineReader lines(content, fileName, LineEnds::Any);
    FrameLog log;
    lines.literal(permCsvTitle);
    log.startTime = lines.time("# ", isoTime);
    log.channel = lines.text("# display:   channel ");
    log.unit = lines.text("# unit:    ");
    lines.literal("# Start of Data:");

    log.values.reserve(lineCount(lines.rest()));
    while (!lines.atEnd()) log.values.push_back(lines.sample(lines.next()));
    return log;
}

} // namespace frameparser
