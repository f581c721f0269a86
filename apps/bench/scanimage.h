#pragma once

#include "scan.h"

#include <cstdint>
#include <vector>

namespace bench {

/// The pixels that the operator sees of an area scan: the running frame over the last whole one.
class ScanImage
{
public:
    /// A pixel that has received no sample.
    static constexpr int voidPixel = 0x7FFFFFFA;

    /// Arranges both frames. `whole` and `running` may be null, and of different geometry: then the whole one
    /// does not count. `std::bad_alloc` when there is no memory for the pixels; the image is then empty.
    void update(const SharedFrame& whole, const FrameBuffer* running, bool forward);

    void clear();
    bool isEmpty() const { return m_xPixels < 1 || m_yPixels < 1; }
    int xPixels() const { return m_xPixels; }
    int yPixels() const { return m_yPixels; }
    /// The raw value at a place, row 0 on top; `voidPixel` where there is none. The place must lie inside.
    int pixel(int row, int column) const;
    bool hasVoid() const { return m_hasVoid; }
    /// Smallest and largest raw value; both 0 when all pixels are void.
    int lowest() const { return m_lowest; }
    int highest() const { return m_highest; }

private:
    void measure();

    int m_xPixels = 0;
    int m_yPixels = 0;
    bool m_forward = true;
    SharedFrame m_whole;               ///< what `m_below` was made of
    std::vector<std::int32_t> m_below; ///< last whole frame
    std::vector<std::int32_t> m_above; ///< running frame
    int m_lowest = 0;
    int m_highest = 0;
    bool m_hasVoid = false;
};

inline int ScanImage::pixel(int row, int column) const
{
    const std::size_t i = std::size_t(row) * std::size_t(m_xPixels) + std::size_t(column);
    return m_above[i] != voidPixel ? m_above[i] : m_below[i];
}

} // namespace bench
