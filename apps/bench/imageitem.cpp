#include "imageitem.h"

#include "plotstyle.h"

#include <algorithm>
#include <cmath>
#include <QPainter>
#include <QPixmap>
#include <qwt_scale_map.h>

namespace bench {

namespace {

constexpr int voidCell = 4; ///< edge of a field of the chequer, in pixels of a plain screen

// Distance between pixel centres; a single pixel is as wide as the whole length.
double pitch(double length, int pixels)
{
    return pixels > 1 ? length / (pixels - 1) : length;
}

// For each screen pixel from `first` on the index of the frame's pixel, or -1 outside.
std::vector<int> sourceIndices(const QwtScaleMap& map, double first, int count, double ratio, double start,
                               double step, int pixels)
{
    std::vector<int> indices(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const double place = (map.invTransform(first + (i + 0.5) / ratio) - start) / step;
        indices[static_cast<std::size_t>(i)] = place >= 0 && place < pixels ? static_cast<int>(place) : -1;
    }
    return indices;
}

} // namespace

ImageItem::ImageItem(const ScanImage* image)
    : m_image(image)
{
    setZ(8);
    setItemAttribute(QwtPlotItem::AutoScale, false);
    setItemAttribute(QwtPlotItem::Legend, false);
}

void ImageItem::setLengths(double xLength, double yLength)
{
    m_xLength = xLength > 0 ? xLength : 1.0;
    m_yLength = yLength > 0 ? yLength : 1.0;
}

void ImageItem::setVoidColours(const QColor& first, const QColor& second)
{
    m_voidFirst = first.rgb();
    m_voidSecond = second.rgb();
}

QRectF ImageItem::boundingRect() const
{
    if (m_image->isEmpty()) return QRectF(0, 0, m_xLength, m_yLength);
    const double dx = pitch(m_xLength, m_image->xPixels());
    const double dy = pitch(m_yLength, m_image->yPixels());
    return QRectF(-dx / 2, -dy / 2, dx * m_image->xPixels(), dy * m_image->yPixels());
}

QRgb ImageItem::voidColour(int x, int y, int cell) const
{
    return ((x / cell) ^ (y / cell)) & 1 ? m_voidSecond : m_voidFirst;
}

void ImageItem::draw(QPainter* painter, const QwtScaleMap& xMap, const QwtScaleMap& yMap,
                     const QRectF& canvasRect) const
{
    if (m_image->isEmpty()) return;
    const QRectF bounds = boundingRect();
    const QRectF target = QwtScaleMap::transform(xMap, yMap, bounds).normalized() & canvasRect;
    const QRect area = target.toAlignedRect();
    if (area.isEmpty()) return;
    const double ratio = painter->device()->devicePixelRatioF();
    const int width = static_cast<int>(std::ceil(area.width() * ratio));
    const int height = static_cast<int>(std::ceil(area.height() * ratio));
    const auto columns = sourceIndices(xMap, area.left(), width, ratio, bounds.left(),
                                       bounds.width() / m_image->xPixels(), m_image->xPixels());
    const auto rows = sourceIndices(yMap, area.top(), height, ratio, bounds.top(),
                                    bounds.height() / m_image->yPixels(), m_image->yPixels());
    const int cell = std::max(1, static_cast<int>(std::lround(voidCell * ratio)));
    const auto& colours = heightColours();
    const double lowest = m_image->lowest();
    const double span = m_image->highest() - lowest;
    const double scale = span > 0 ? 255.0 / span : 0.0;

    QImage picture(width, height, QImage::Format_ARGB32_Premultiplied);
    picture.setDevicePixelRatio(ratio);
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(picture.scanLine(y));
        // The slow axis points upwards, row 0 is on top.
        const int fromBottom = rows[static_cast<std::size_t>(y)];
        const int row = m_image->yPixels() - 1 - fromBottom;
        for (int x = 0; x < width; ++x) {
            const int column = columns[static_cast<std::size_t>(x)];
            if (fromBottom < 0 || column < 0) {
                line[x] = 0;
                continue;
            }
            const int value = m_image->pixel(row, column);
            line[x] = value == ScanImage::voidPixel ? voidColour(x, y, cell)
                                                    : colours[static_cast<int>((value - lowest) * scale)];
        }
    }
    painter->drawImage(area.topLeft(), picture);
}

QPixmap ImageItem::voidSample(const QSize& size, double pixelRatio) const
{
    QImage picture(size * pixelRatio, QImage::Format_RGB32);
    const int cell = std::max(1, static_cast<int>(std::lround(voidCell * pixelRatio)));
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) picture.setPixel(x, y, voidColour(x, y, cell));
    picture.setDevicePixelRatio(pixelRatio);
    return QPixmap::fromImage(picture);
}

} // namespace bench
