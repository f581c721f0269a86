#pragma once

#include "axisunit.h"
#include "scanimage.h"

#include <QRectF>
#include <QWidget>

class QwtPlot;

namespace bench {

class ImageItem;

/// The area image with its axes and colour bar, in the units that the frame states.
///
/// The plot takes as much of the widget as keeps lengths at the same scale on both axes, so that a frame has
/// the shape that it has on the sample.
class ImagePlot : public QWidget
{
    Q_OBJECT

public:
    explicit ImagePlot(QWidget* parent = nullptr);
    ~ImagePlot() override;

    /// Shows the running frame over the last whole one, and repaints at once. Both may be null.
    void showFrames(const SharedFrame& whole, const FrameBuffer* running, bool forward);

    const ScanImage& image() const { return m_image; }
    /// The pattern of pixels without a sample, for a legend.
    QPixmap voidSample() const;

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void applyColours();
    void arrange();
    void describe(const FrameBuffer& frame);

    ScanImage m_image;
    QwtPlot* m_plot;
    ImageItem* m_item; ///< owned by the plot
    QRectF m_bounds;   ///< of the image, in the plot's units
};

} // namespace bench
