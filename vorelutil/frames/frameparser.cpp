#include "frameparser.h"

#include "fileformat.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <vorelutil/trace/error.h>

namespace asc = fileformat::asc;
namespace bcr = fileformat::bcr;

namespace {

// The shapes of time stamps: '0' stands for any digit.
constexpr std::string_view isoTime = "0000-00-00T00:00:00";
constexpr std::string_view dayFirstTime = "00 00 00 00:00:00";

constexpr const char* tooShort = "too short for its pixel counts";
constexpr const char* tooLong = "data behind the last pixel";

int integer(frameparser::LineReader& lines, const char* caption)
{
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(lines.integer(caption, Limits::min(), Limits::max(), "integer expected"));
}

int pixelCount(frameparser::LineReader& lines, const char* caption)
{
    constexpr int most = std::numeric_limits<int>::max();
    return static_cast<int>(lines.integer(caption, 1, most, "pixel count expected"));
}

/// Both factors are positive ints, so that the product fits, and four times the product.
std::uint64_t pixelsOf(const FrameImage& image)
{
    return static_cast<std::uint64_t>(image.xPixels) * static_cast<std::uint64_t>(image.yPixels);
}

/// The header of a binary snapshot, all but the pixels.
FrameImage parseBcrHeader(std::string_view header, const std::string& fileName)
{
    frameparser::MemorySource source(header);
    frameparser::LineReader lines(source, fileName);
    FrameImage image;
    lines.start(FrameFileFormat::Bcr, "not a binary image snapshot");
    if (header.size() < bcr::headerSize) throw FormatError("the header is cut off", fileName);
    image.startTime = lines.time(bcr::time, dayFirstTime);
    image.xPixels = pixelCount(lines, bcr::xPixels);
    image.yPixels = pixelCount(lines, bcr::yPixels);
    image.xLength = lines.length(bcr::xLength);
    image.yLength = lines.length(bcr::yLength);
    image.xOffset = lines.length(bcr::xOffset);
    image.yOffset = lines.length(bcr::yOffset);
    image.xUnit = lines.text(bcr::xUnit);
    image.yUnit = lines.text(bcr::yUnit);
    image.zUnit = lines.text(bcr::zUnit);
    image.scanSpeed = integer(lines, bcr::scanSpeed);
    const auto most = static_cast<long long>(pixelsOf(image) - 1);
    image.voidPixels = lines.integer(bcr::voidPixels, 0, most, "number of void pixels expected");
    lines.literal(bcr::byteOrder);
    const std::string_view filler = lines.next();
    if (filler.find_first_not_of(' ') != std::string_view::npos || !lines.atEnd()) {
        lines.fail("blanks expected");
    }
    return image;
}

/// The value of four bytes, most significant first; void pixels are counted.
double pixelValue(const char* bytes, long long* voidPixels)
{
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 4; ++i) bits = bits << 8 | static_cast<unsigned char>(bytes[i]);
    if (bits == bcr::voidPixel) {
        ++*voidPixels;
        return std::numeric_limits<double>::quiet_NaN();
    }
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return static_cast<double>(value);
}

} // namespace

namespace frameparser {

FrameImage parseAsc(Source& source, const std::string& fileName)
{
    LineReader lines(source, fileName);
    FrameImage image;
    lines.start(FrameFileFormat::Asc, "not a text image snapshot");
    image.startTime = lines.time(asc::time, isoTime);
    image.channel = lines.text(asc::channel);
    const std::size_t nameLength = std::max<std::size_t>(image.channel.size(), 4) - 4;
    image.direction = image.channel.substr(nameLength);
    if (image.direction != " fwd" && image.direction != " bwd") lines.fail("direction expected");
    image.direction.erase(0, 1);
    image.channel.resize(nameLength);
    image.xPixels = pixelCount(lines, asc::xPixels);
    image.yPixels = pixelCount(lines, asc::yPixels);
    image.xLength = lines.length(asc::xLength);
    image.yLength = lines.length(asc::yLength);
    image.xOffset = lines.length(asc::xOffset);
    image.yOffset = lines.length(asc::yOffset);
    image.xUnit = lines.text(asc::xUnit);
    image.yUnit = lines.text(asc::yUnit);
    image.zUnit = lines.text(asc::zUnit);
    image.scanSpeed = integer(lines, asc::scanSpeed);
    lines.literal(asc::dataStart);

    // A value takes a digit and a line end, or a digit and two blanks, at least.
    const std::uint64_t pixels = pixelsOf(image);
    if (pixels > source.size().value_or(pixels * 2) / 2) throw FormatError(tooShort, fileName);
    image.values.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(pixels, 65536))); // then it grows
    if (lines.nextLineHas(' ')) {
        for (int row = 0; row < image.yPixels; ++row) {
            lines.beginRow();
            for (int i = 0; i < image.xPixels; ++i) {
                image.values.push_back(lines.sample(lines.cell(asc::separator)));
            }
            lines.endRow();
        }
    } else {
        for (std::uint64_t i = 0; i < pixels; ++i) image.values.push_back(lines.sample(lines.next()));
    }
    if (!lines.atEnd()) throw FormatError(tooLong, fileName);
    return image;
}

FrameImage parseBcr(Source& source, const std::string& fileName)
{
    std::array<char, bcr::headerSize> header;
    const std::size_t headerSize = readFully(source, header.data(), header.size());
    FrameImage image = parseBcrHeader({header.data(), headerSize}, fileName);

    // Nothing is read that does not belong to the pixels, but one byte to see that there is nothing.
    std::uint64_t left = 4 * pixelsOf(image);
    if (const auto size = source.size()) {
        if (*size != bcr::headerSize + left) {
            throw FormatError(*size < bcr::headerSize + left ? tooShort : tooLong, fileName);
        }
        image.values.reserve(static_cast<std::size_t>(left / 4));
    }
    std::array<char, 16384> block;
    long long voidPixels = 0;
    while (left > 0) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, block.size()));
        if (readFully(source, block.data(), wanted) < wanted) throw FormatError(tooShort, fileName);
        for (std::size_t at = 0; at < wanted; at += 4) {
            image.values.push_back(pixelValue(block.data() + at, &voidPixels));
        }
        left -= wanted;
    }
    if (source.read(block.data(), 1) > 0) throw FormatError(tooLong, fileName);
    if (voidPixels < image.voidPixels) {
        throw FormatError("fewer void pixels than the header says", fileName);
    }
    return image;
}

FrameLine parseLineCsv(Source& source, const std::string& fileName)
{
    namespace format = fileformat::line;
    LineReader lines(source, fileName);
    FrameLine line;
    lines.start(FrameFileFormat::LineCsv, "not a line export");
    line.startTime = lines.time(format::time, isoTime);
    line.channel = lines.text(format::channel);
    line.xPixels = integer(lines, format::xPixels);
    line.xUnit = lines.text(format::xUnit);
    line.yUnit = lines.text(format::yUnit);
    lines.literal(format::columns);

    const std::uint64_t mostRows = 2 * static_cast<std::uint64_t>(std::max(line.xPixels, 0));
    constexpr std::string_view separator = format::separator;
    while (!lines.atEnd()) {
        if (line.x.size() == mostRows) throw FormatError("more rows than its pixel count allows", fileName);
        const std::string_view row = lines.next();
        const std::size_t middle = row.find(separator);
        if (middle == std::string_view::npos) lines.fail("two values expected");
        line.x.push_back(lines.sample(row.substr(0, middle)));
        line.y.push_back(lines.sample(row.substr(middle + separator.size())));
    }
    return line;
}

FrameLog parsePermCsv(Source& source, const std::string& fileName)
{
    namespace format = fileformat::log;
    LineReader lines(source, fileName);
    FrameLog log;
    lines.start(FrameFileFormat::PermCsv, "not a data log");
    log.startTime = lines.time(format::time, isoTime);
    log.channel = lines.text(format::channel);
    log.unit = lines.text(format::unit);
    lines.literal(format::dataStart);
    while (!lines.atEnd()) log.values.push_back(lines.sample(lines.next()));
    return log;
}

} // namespace frameparser
