#pragma once

#include "scanimage.h"

#include <QBrush>
#include <qwt_plot_item.h>

namespace bench {

/// Draws a `ScanImage` on a plot: one coloured rectangle a pixel, a chequer where there is no sample.
///
/// The cost of drawing is that of the screen's pixels, whatever the size of the frame.
class ImageItem : public QwtPlotItem
{
public:
    /// `image` must outlive the item.
    explicit ImageItem(const ScanImage* image);

    /// Where the image lies in the plot's coordinates: from the first pixel's centre to the last one's.
    void setLengths(double xLength, double yLength);
    void setVoidColours(const QColor& first, const QColor& second);

    int rtti() const override { return QwtPlotItem::Rtti_PlotUserItem; }
    QRectF boundingRect() const override;
    void draw(QPainter* painter, const QwtScaleMap& xMap, const QwtScaleMap& yMap,
              const QRectF& canvasRect) const override;

    /// The void chequer as a picture, for a legend.
    QPixmap voidSample(const QSize& size, double pixelRatio) const;

private:
    QRgb voidColour(int x, int y, int cell) const;

    const ScanImage* m_image;
    double m_xLength = 1.0;
    double m_yLength = 1.0;
    QRgb m_voidFirst = 0xffd0d0d0;
    QRgb m_voidSecond = 0xfff4f4f4;
};

} // namespace bench
