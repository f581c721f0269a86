// The image snapshots, as text and binary.

#include "framebuffer.h"
#include "frametext.h"

#include <algorithm>
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

std::uint32_t bigEndian(std::uint32_t word)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return word;
#else
    return word >> 24 | (word >> 8 & 0xFF00U) | (word << 8 & 0xFF0000U) | word << 24;
#endif
}

/// The value of a pixel as the binary file has it.
std::uint32_t binaryPixel(int pixel, const Scaling& value)
{
    const auto single = static_cast<float>(value(pixel));
    std::uint32_t bits = 0;
    std::memcpy(&bits, &single, sizeof bits);
    return bigEndian(pixel == voidPixel ? voidPixelBits : bits);
}

} // namespace

/// An image in the sort array, or in a temporary one that goes with it.
struct FrameBuffer::SortedImage
{
    Array own;
    const int* begin = nullptr;
    const int* end = nullptr;
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
        image->own = allocate(pixels);
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

    const Scaling value = frametext::scalingOf(*this, 1);
    std::uint32_t block[4096];
    for (const int* pixel = image.begin; pixel != image.end;) {
        const auto count =
            std::min<std::size_t>(std::size(block), static_cast<std::size_t>(image.end - pixel));
        for (std::size_t i = 0; i < count; ++i) block[i] = binaryPixel(pixel[i], value);
        std::fwrite(block, sizeof block[0], count, file.get());
        pixel += count;
    }
    return Written;
}
