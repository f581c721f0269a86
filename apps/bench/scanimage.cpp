#include "scanimage.h"

#include <algorithm>
#include <limits>
#include <vorelutil/frames/framebuffer.h>

namespace bench {

void ScanImage::clear()
{
    *this = ScanImage();
}

void ScanImage::update(const SharedFrame& whole, const FrameBuffer* running, bool forward)
{
    const FrameBuffer* shape = running != nullptr ? running : whole.get();
    if (shape == nullptr || shape->xPixels() < 1 || shape->yPixels() < 1) {
        clear();
        return;
    }
    const auto pixels = std::size_t(shape->xPixels()) * std::size_t(shape->yPixels());
    const bool fits =
        whole != nullptr && whole->xPixels() == shape->xPixels() && whole->yPixels() == shape->yPixels();
    const bool sameShape = m_xPixels == shape->xPixels() && m_yPixels == shape->yPixels();
    const SharedFrame below = fits ? whole : SharedFrame();
    if (!sameShape || m_whole != below || m_forward != forward) {
        clear();
        m_below.assign(pixels, voidPixel);
        m_above.assign(pixels, voidPixel);
        m_xPixels = shape->xPixels();
        m_yPixels = shape->yPixels();
        m_forward = forward;
        m_whole = below;
        if (below != nullptr) below->sortData(m_below.data(), forward, voidPixel);
    }
    if (running != nullptr && running->filled() > 0)
        running->sortData(m_above.data(), forward, voidPixel);
    else
        std::fill(m_above.begin(), m_above.end(), voidPixel);
    measure();
}

void ScanImage::measure()
{
    int lowest = std::numeric_limits<int>::max();
    int highest = std::numeric_limits<int>::min();
    bool hasVoid = false;
    for (std::size_t i = 0; i < m_above.size(); ++i) {
        const int value = m_above[i] != voidPixel ? m_above[i] : m_below[i];
        const bool isVoid = value == voidPixel;
        hasVoid |= isVoid;
        lowest = std::min(lowest, value);
        highest = std::max(highest, isVoid ? std::numeric_limits<int>::min() : value);
    }
    const bool any = highest != std::numeric_limits<int>::min() || lowest == highest;
    m_hasVoid = hasVoid;
    m_lowest = any ? lowest : 0;
    m_highest = any ? highest : 0;
}

} // namespace bench
