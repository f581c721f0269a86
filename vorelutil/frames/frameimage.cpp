// From the samples of a frame to an image in row order.

#include "framebuffer.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

using FourInts = int __attribute__((vector_size(16)));

/// Copies eight samples in reverse order.
inline void copyEightReversed(const int* from, int* to)
{
    FourInts first;
    FourInts second;
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&second, from + 4, sizeof second);
    first = __builtin_shufflevector(first, first, 3, 2, 1, 0);
    second = __builtin_shufflevector(second, second, 3, 2, 1, 0);
    std::memcpy(to, &second, sizeof second);
    std::memcpy(to + 4, &first, sizeof first);
}

/// Copies a line in reverse order.
///
/// `downwards` says that the lines of the image follow each other down in memory: it is then written
/// in that direction too, and its source is fetched beforehand. Reversing a large image in pieces that turn
/// back costs twice the time or more.
void copyReversed(const int* from, std::int64_t count, int* to, bool downwards)
{
    constexpr std::int64_t cacheLine = 16;
    constexpr std::int64_t farthest = 8192;
    for (std::int64_t i = 0; i < std::min(count, farthest); i += cacheLine) __builtin_prefetch(from + i);

    const std::int64_t blocks = count / 8;
    for (std::int64_t i = 0; i < blocks; ++i) {
        const std::int64_t at = 8 * (downwards ? i : blocks - 1 - i);
        copyEightReversed(from + at, to + (count - 8 - at));
    }
    std::reverse_copy(from + 8 * blocks, from + count, to);
}

} // namespace

/// Repeats the last sample of a frame that lacks one, else zeroes what is behind the fill; the number of
/// samples to show.
std::uint64_t FrameBuffer::completeTail() const
{
    int* const samples = m_samples.get();
    if (m_fill != 0 && m_fill < m_capacity && std::uint64_t{m_fill} + 1 == m_frameSize) {
        samples[m_fill] = samples[m_fill - 1];
        return m_frameSize;
    }
    if (m_fill < m_capacity) std::fill(samples + m_fill, samples + m_capacity, 0);
    return m_fill;
}

bool FrameBuffer::isForwardLine(std::int64_t line) const
{
    switch (m_mode) {
    case Forward:
        return true;
    case ForwardReturn:
        return line % 2 == 0;
    case ReturnForward:
        return line % 2 != 0;
    default:
        return false;
    }
}

/// True when the samples are sure to reach every pixel, so that none need be filled first.
bool FrameBuffer::coversImage(std::uint64_t held, bool forward) const
{
    const bool bothPasses = m_mode == ForwardReturn || m_mode == ReturnForward;
    const bool onePass = m_mode == Forward ? forward : m_mode == Backward && !forward;
    if (m_startPosition < 0 || (!bothPasses && !onePass)) return false;
    const std::uint64_t frame = bothPasses ? 2 * imagePixels() : imagePixels();
    const auto start = static_cast<std::uint64_t>(m_startPosition);
    return held >= frame && start % frame == 0 && start + frame - 1 <= INT_MAX;
}

/// `sortData` for an `out` that is not null, with the number of pixels in full.
std::uint64_t FrameBuffer::arrange(int* out, bool forward, int fill) const
{
    const std::uint64_t held = completeTail();
    if (imagePixels() == 0) return 0;
    if (!coversImage(held, forward)) std::fill_n(out, imagePixels(), fill);
    if (m_startPosition < 0) return 0;

    const std::int64_t width = m_xPixels;
    const std::int64_t height = m_yPixels;
    const std::int64_t passes = m_mode == ForwardReturn || m_mode == ReturnForward ? 2 : 1;
    const int* sample = m_samples.get();
    auto left = static_cast<std::int64_t>(held);
    std::int64_t line = m_startPosition / width;
    std::int64_t column = m_startPosition % width;
    std::uint64_t placed = 0;
    while (left > 0 && line * width + column <= INT_MAX) {
        const std::int64_t length = std::min(width - column, left);
        if (isForwardLine(line) == forward) {
            const std::int64_t scanLine = line / passes;
            const bool upwards = scanLine / height % 2 == 0;
            const std::int64_t row = upwards ? height - 1 - scanLine % height : scanLine % height;
            int* const pixels = out + row * width;
            if (forward) {
                std::copy_n(sample, length, pixels + column);
            } else {
                copyReversed(sample, length, pixels + (width - column - length), upwards);
            }
            placed += static_cast<std::uint64_t>(length);
        }
        sample += length;
        left -= length;
        column = 0;
        ++line;
    }
    return placed;
}

int FrameBuffer::sortData(int* out, bool forward, int fill) const
{
    if (out == nullptr) return 0;
    return static_cast<int>(std::min<std::uint64_t>(arrange(out, forward, fill), INT_MAX));
}
