#include "imageplot.h"

#include "imageitem.h"
#include "plotstyle.h"

#include <algorithm>
#include <cmath>
#include <QEvent>
#include <QPixmap>
#include <qwt_color_map.h>
#include <qwt_interval.h>
#include <qwt_plot.h>
#include <qwt_plot_layout.h>
#include <qwt_scale_widget.h>
#include <vorelutil/frames/framebuffer.h>

namespace bench {

ImagePlot::ImagePlot(QWidget* parent)
    : QWidget(parent)
    , m_plot(new QwtPlot(this))
    , m_item(new ImageItem(&m_image))
{
    setAccessibleName(tr("Area image"));
    setMinimumSize(260, 200);
    m_plot->enableAxis(QwtPlot::yRight);
    QwtScaleWidget* bar = m_plot->axisWidget(QwtPlot::yRight);
    bar->setColorBarEnabled(true);
    bar->setColorBarWidth(14);
    m_plot->plotLayout()->setAlignCanvasToScales(true);
    m_item->attach(m_plot);
    applyColours();
    showFrames(nullptr, nullptr, true);
}

ImagePlot::~ImagePlot() = default;

QPixmap ImagePlot::voidSample() const
{
    return m_item->voidSample(QSize(16, 12), devicePixelRatioF());
}

void ImagePlot::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange) applyColours();
    QWidget::changeEvent(event);
}

void ImagePlot::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    arrange();
}

// What the plot has around its canvas depends on its tick labels, hardly on its size: measured at the size
// that it has, and at full size where it has never had one.
void ImagePlot::arrange()
{
    if (!m_bounds.isValid() || m_plot->width() < minimumWidth() / 2) m_plot->setGeometry(rect());
    m_plot->updateLayout();
    if (!m_bounds.isValid()) return;
    const QSize around = m_plot->size() - m_plot->canvas()->contentsRect().size();
    const QSizeF room(width() - around.width(), height() - around.height());
    const QSizeF canvas = m_bounds.size().scaled(room, Qt::KeepAspectRatio);
    const QSize size(around.width() + qRound(canvas.width()), around.height() + qRound(canvas.height()));
    const QRect place(QPoint((width() - size.width()) / 2, 0), size);
    if (place == m_plot->geometry()) return;
    m_plot->setGeometry(place);
    m_plot->updateLayout();
}

void ImagePlot::applyColours()
{
    applyPlotStyle(m_plot);
    if (isDark(palette()))
        m_item->setVoidColours(QColor(0x2b2f36), QColor(0x444b55));
    else
        m_item->setVoidColours(QColor(0xcfd5dc), QColor(0xf3f5f7));
}

void ImagePlot::showFrames(const SharedFrame& whole, const FrameBuffer* running, bool forward)
{
    m_image.update(whole, running, forward);
    const FrameBuffer* frame = running != nullptr ? running : whole.get();
    if (frame != nullptr && !m_image.isEmpty()) {
        describe(*frame);
    } else {
        setAxisName(m_plot, QwtPlot::xBottom, tr("x"));
        setAxisName(m_plot, QwtPlot::yLeft, tr("y"));
        setAxisName(m_plot, QwtPlot::yRight, tr("height"));
        for (const int axis : {QwtPlot::xBottom, QwtPlot::yLeft, QwtPlot::yRight})
            m_plot->setAxisScale(axis, 0, 1);
        m_plot->axisWidget(QwtPlot::yRight)->setColorMap(QwtInterval(0, 1), makeHeightColourMap());
    }
    m_plot->updateAxes();
    arrange();
    m_plot->replot();
}

void ImagePlot::describe(const FrameBuffer& frame)
{
    const double xLength = frame.findMeta(FrameBuffer::KeyXLength, 0);
    const double yLength = frame.findMeta(FrameBuffer::KeyYLength, 0);
    const AxisUnit lengths = axisUnit(std::max(std::fabs(xLength), std::fabs(yLength)),
                                      frame.findMeta(FrameBuffer::KeyXyUnit, 128));
    setAxisName(m_plot, QwtPlot::xBottom, lengths.title(tr("x")));
    setAxisName(m_plot, QwtPlot::yLeft, lengths.title(tr("y")));
    m_item->setLengths(xLength * lengths.factor, yLength * lengths.factor);
    const QRectF bounds = m_item->boundingRect();
    if (bounds != m_bounds) {
        m_bounds = bounds;
        m_plot->setAxisScale(QwtPlot::xBottom, bounds.left(), bounds.right());
        m_plot->setAxisScale(QwtPlot::yLeft, bounds.top(), bounds.bottom());
    }

    const double offset = frame.findMeta(FrameBuffer::KeySampleOffset, 0);
    const double lowest = m_image.lowest() - offset;
    const double highest = m_image.highest() - offset;
    const AxisUnit heights = axisUnit(std::max(std::fabs(lowest), std::fabs(highest)),
                                      frame.findMeta(FrameBuffer::KeyValueUnit, 128),
                                      frame.findMeta(FrameBuffer::KeySampleDivisor, 1));
    double low = lowest * heights.factor;
    double high = highest * heights.factor;
    if (low > high) std::swap(low, high);
    if (low == high) high = low + 1.0;
    setAxisName(m_plot, QwtPlot::yRight, heights.title(tr("height")));
    m_plot->axisWidget(QwtPlot::yRight)->setColorMap(QwtInterval(low, high), makeHeightColourMap());
    m_plot->setAxisScale(QwtPlot::yRight, low, high);
}

} // namespace bench
