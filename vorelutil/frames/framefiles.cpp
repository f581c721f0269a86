// The image snapshots, as text and binary.

#include "framebuffer.h"
#include "frametext.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vorelutil/platform/files.h>

using frametext::BlockWriter;
using frametext::Number;
using frametext::Scaling;
using frametext::TimeStamp;
using frametext::Unit;

namespace {

enum Result : int
{
    Written = 0,
    NothingToWrite = 1,
    CannotOpen = 2,
    NoMemory = 3
};

constexpr int voidPixel = 0x7FFFFFFA;               ///< in the image: no sample here
constexpr std::uint32_t voidPixelBits = 0x7F000000; ///< in the binary file
constexpr std::size_t binaryHeaderSize = 2048;

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
    const FourWords bits = (reinterpret_cast<FourWords>(single) & ~isVoid) | (isVoid & voidPixelBits);
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
    std::fprintf(out, "# Vorel frame view snapshot\n");
    std::fprintf(out, "# %s\n", now.text());
    std::fprintf(out, "# display:   channel %s %s\n", channel != nullptr ? channel : "",
                 forward ? "fwd" : "bwd");
    std::fprintf(out, "# x-pixels:  %d\n", m_xPixels);
    std::fprintf(out, "# y-pixels:  %d\n", m_yPixels);
    std::fprintf(out, "# x-length:  %s\n", geometry.xLength.text());
    std::fprintf(out, "# y-length:  %s\n", geometry.yLength.text());
    std::fprintf(out, "# x-offset:  %s\n", geometry.xOffset.text());
    std::fprintf(out, "# y-offset:  %s\n", geometry.yOffset.text());
    std::fprintf(out, "# x-unit:    %s\n", geometry.xyUnit);
    std::fprintf(out, "# y-unit:    %s\n", geometry.xyUnit);
    std::fprintf(out, "# z-unit:    %s\n", geometry.valueUnit);
    std::fprintf(out, "# scanspeed: %d\n", geometry.scanSpeed);
    std::fprintf(out, "# Start of Data:\n");

    const Scaling value = frametext::scalingOf(*this, 1);
    BlockWriter writer(out);
    if (matrix) {
        const int* pixel = image.begin;
        while (pixel != image.end) {
            for (const int* const last = pixel + m_xPixels - 1; pixel != last; ++pixel) {
                writer.append(value(*pixel), "  ");
            }
            writer.append(value(*pixel++), "  \n");
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
    char header[binaryHeaderSize + 1];
    const int length =
        std::snprintf(header, sizeof header,
                      "fileformat = bcrf\n"
                      "starttime %s\n"
                      "xpixels = %d\n"
                      "ypixels = %d\n"
                      "xlength = %s\n"
                      "ylength = %s\n"
                      "xoffset = %s\n"
                      "yoffset = %s\n"
                      "xunit = %s\n"
                      "yunit = %s\n"
                      "zunit = %s\n"
                      "scanspeed = %d\n"
                      "voidpixels = %lld\n"
                      "intelmode = 0\n",
                      now.text(), m_xPixels, m_yPixels, geometry.xLength.text(), geometry.yLength.text(),
                      geometry.xOffset.text(), geometry.yOffset.text(), geometry.xyUnit, geometry.xyUnit,
                      geometry.valueUnit, geometry.scanSpeed, static_cast<long long>(voidPixels));
    // Blanks up to the line feed in the last byte; a text that is longer still is cut.
    const std::size_t text = length < 0 ? 0 : static_cast<std::size_t>(length);
    if (text < binaryHeaderSize) {
        std::memset(header + text, ' ', binaryHeaderSize - 1 - text);
        header[binaryHeaderSize - 1] = '\n';
    }
    std::fwrite(header, 1, binaryHeaderSize, file.get());

    // In place: the image is scratch, and one large write costs half of many small ones.
    convertImage(image.begin, image.end, frametext::scalingOf(*this, 1));
    std::fwrite(image.begin, sizeof(int), pixels, file.get());
    return Written;
}
