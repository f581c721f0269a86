// The image snapshots, as text and binary.

#include "fileformat.h"
#include "framebuffer.h"
#include "frametext.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vorelutil/platform/files.h>

namespace asc = fileformat::asc;
namespace bcr = fileformat::bcr;
using frametext::BlockWriter;
using frametext::Number;
using frametext::printLine;
using frametext::Scaling;
using frametext::TimeStamp;
using frametext::Unit;
using namespace frametext::result;

namespace {

constexpr int voidPixel = 0x7FFFFFFA; ///< in the image: no sample here

/// The header fields that both snapshots have, ready to print.
struct Geometry
{
    Number xLength;
    Number yLength;
    Number xOffset;
    Number yOffset;
    const char* xyUnit;
    const char* valueUnit;
    int scanSpeed;
};

Geometry geometryOf(const FrameBuffer& frame)
{
    const Unit xy = frametext::unitOf(frame, FrameBuffer::KeyXyUnit);
    const auto scaled = [&](int key) { return Number(frame.findMeta(key, 0) * xy.factor); };
    const std::int64_t speed = frame.findMeta(FrameBuffer::KeyScanSpeed, 0);
    return {scaled(FrameBuffer::KeyXLength),
            scaled(FrameBuffer::KeyYLength),
            scaled(FrameBuffer::KeyXOffset),
            scaled(FrameBuffer::KeyYOffset),
            xy.name,
            frametext::unitOf(frame, FrameBuffer::KeyValueUnit).name,
            static_cast<int>((speed + 500) / 1000)};
}

/// The text header of the binary snapshot: its lines, then blanks up to the line feed in the last byte.
class BinaryHeader
{
public:
    BinaryHeader()
    {
        std::memset(m_text, ' ', bcr::headerSize);
        m_text[bcr::headerSize - 1] = '\n';
    }

    /// Adds a line; what does not fit is cut.
    void add(const char* caption, const char* value = "")
    {
        append(caption);
        append(value);
        append("\n");
    }
    void add(const char* caption, long long value)
    {
        char text[24];
        std::snprintf(text, sizeof text, "%lld", value);
        add(caption, text);
    }

    void write(std::FILE* file) const { std::fwrite(m_text, 1, bcr::headerSize, file); }

private:
    void append(const char* text)
    {
        while (*text != '\0' && m_length < bcr::headerSize) m_text[m_length++] = *text++;
    }

    char m_text[bcr::headerSize];
    std::size_t m_length = 0;
};

// Four pixels at a time: g++ at -O2 makes no use of the vector unit by itself.
using FourInts = int __attribute__((vector_size(16)));
using FourWords = std::uint32_t __attribute__((vector_size(16)));
using FourFloats = float __attribute__((vector_size(16)));
using FourDoubles = double __attribute__((vector_size(32)));
using EightHalves = std::uint16_t __attribute__((vector_size(16)));

/// The four words with their most significant byte first.
inline EightHalves bigEndian(FourWords words)
{
    const auto halves = reinterpret_cast<EightHalves>(words);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return halves;
#else
    const EightHalves swapped = halves << 8 | halves >> 8;
    return __builtin_shufflevector(swapped, swapped, 1, 0, 3, 2, 5, 4, 7, 6);
#endif
}

/// Replaces four pixels by the bytes that the binary file has for them.
inline void convertFour(int* pixels, const Scaling& value)
{
    FourInts raw;
    std::memcpy(&raw, pixels, sizeof raw);
    const FourDoubles scaled = (__builtin_convertvector(raw, FourDoubles) - value.offset) * value.scale;
    const FourFloats single = __builtin_convertvector(scaled, FourFloats);
    const auto isVoid = reinterpret_cast<FourWords>(raw == voidPixel);
    const FourWords bits = (reinterpret_cast<FourWords>(single) & ~isVoid) | (isVoid & bcr::voidPixel);
    const EightHalves bytes = bigEndian(bits);
    std::memcpy(pixels, &bytes, sizeof bytes);
}

/// Replaces the pixels by the bytes that the binary file has for them.
void convertImage(int* begin, int* end, const Scaling& value)
{
    for (; end - begin >= 4; begin += 4) convertFour(begin, value);
    int rest[4] = {};
    std::copy(begin, end, rest);
    convertFour(rest, value);
    std::copy_n(rest, end - begin, begin);
}

} // namespace

/// An image in the sort array, or in a temporary one that goes with it.
struct FrameBuffer::SortedImage
{
    Array own; ///< not zeroed
    int* begin = nullptr;
    int* end = nullptr;
    std::uint64_t placed = 0;
};

/// Arranges the image for a writer; the code that the writer returns when it is not `Written`.
int FrameBuffer::sortImage(bool forward, int fill, SortedImage* image) const
{
    if (!m_active || m_fill == 0) return NothingToWrite;
    const std::uint64_t pixels = imagePixels();
    if (pixels > std::numeric_limits<std::uint32_t>::max()) return NoMemory;
    int* out = m_sorted.get();
    if (m_sortedCapacity < pixels) {
        image->own.reset(static_cast<int*>(std::malloc(pixels * sizeof(int))));
        out = image->own.get();
        if (out == nullptr) return NoMemory;
    }
    image->placed = arrange(out, forward, fill);
    if (image->placed == 0) return NothingToWrite;
    image->begin = out;
    image->end = out + pixels;
    return Written;
}

int FrameBuffer::saveFrameAsc(const char* path, const char* channel, bool forward, bool matrix) const
{
    const TimeStamp now(TimeStamp::iso);
    SortedImage image;
    const int result = sortImage(forward, 0, &image);
    if (result != Written) return result;
    const File file(platform::openFile(path, "w"));
    if (file == nullptr) return CannotOpen;

    const Geometry geometry = geometryOf(*this);
    std::FILE* const out = file.get();
    printLine(out, asc::title);
    printLine(out, asc::time, now.text());
    std::fprintf(out, "%s%s %s\n", asc::channel, channel != nullptr ? channel : "", forward ? "fwd" : "bwd");
    printLine(out, asc::xPixels, m_xPixels);
    printLine(out, asc::yPixels, m_yPixels);
    printLine(out, asc::xLength, geometry.xLength.text());
    printLine(out, asc::yLength, geometry.yLength.text());
    printLine(out, asc::xOffset, geometry.xOffset.text());
    printLine(out, asc::yOffset, geometry.yOffset.text());
    printLine(out, asc::xUnit, geometry.xyUnit);
    printLine(out, asc::yUnit, geometry.xyUnit);
    printLine(out, asc::zUnit, geometry.valueUnit);
    printLine(out, asc::scanSpeed, geometry.scanSpeed);
    printLine(out, asc::dataStart);

    const Scaling value = frametext::scalingOf(*this, 1);
    BlockWriter writer(out);
    if (matrix) {
        const int* pixel = image.begin;
        while (pixel != image.end) {
            for (const int* const end = pixel + m_xPixels; pixel != end; ++pixel) {
                writer.append(value(*pixel), asc::separator);
            }
            writer.endLine();
        }
    } else {
        for (const int* pixel = image.begin; pixel != image.end; ++pixel) writer.append(value(*pixel), "\n");
    }
    return Written;
}

int FrameBuffer::saveFrameBcr(const char* path, const char* /*channel*/, bool forward) const
{
    const TimeStamp now(TimeStamp::dayFirst);
    SortedImage image;
    const int result = sortImage(forward, voidPixel, &image);
    if (result != Written) return result;
    const File file(platform::openFile(path, "wb"));
    if (file == nullptr) return CannotOpen;
    std::setvbuf(file.get(), nullptr, _IONBF, 0);

    const Geometry geometry = geometryOf(*this);
    const auto pixels = static_cast<std::uint64_t>(image.end - image.begin);
    const std::uint64_t voidPixels = pixels - std::min(pixels, image.placed);
    BinaryHeader header;
    header.add(bcr::title);
    header.add(bcr::time, now.text());
    header.add(bcr::xPixels, m_xPixels);
    header.add(bcr::yPixels, m_yPixels);
    header.add(bcr::xLength, geometry.xLength.text());
    header.add(bcr::yLength, geometry.yLength.text());
    header.add(bcr::xOffset, geometry.xOffset.text());
    header.add(bcr::yOffset, geometry.yOffset.text());
    header.add(bcr::xUnit, geometry.xyUnit);
    header.add(bcr::yUnit, geometry.xyUnit);
    header.add(bcr::zUnit, geometry.valueUnit);
    header.add(bcr::scanSpeed, geometry.scanSpeed);
    header.add(bcr::voidPixels, static_cast<long long>(voidPixels));
    header.add(bcr::byteOrder);
    header.write(file.get());

    // In place: the image is scratch, and one large write costs half of many small ones.
    convertImage(image.begin, image.end, frametext::scalingOf(*this, 1));
    std::fwrite(image.begin, sizeof(int), pixels, file.get());
    return Written;
}
