#include "profileplot.h"

#include "axisunit.h"
#include "plotstyle.h"

#include <algorithm>
#include <cmath>
#include <QEvent>
#include <qwt_legend.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_plot_layout.h>
#include <qwt_text.h>
#include <vorelutil/frames/framebuffer.h>

namespace bench {

namespace {

QwtPlotCurve* makeCurve(QwtPlot* plot, const QString& title, double z)
{
    auto* curve = new QwtPlotCurve(title);
    curve->setZ(z);
    curve->setPaintAttribute(QwtPlotCurve::FilterPoints, true);
    curve->setRenderHint(QwtPlotItem::RenderAntialiased, true);
    curve->attach(plot);
    return curve;
}

// One pass of a line, in scan order; a backward pass is mirrored.
void appendPass(const int* samples, int xPixels, bool forward, QVector<QPointF>* points)
{
    points->resize(xPixels);
    for (int i = 0; i < xPixels; ++i)
        (*points)[forward ? i : xPixels - 1 - i] = QPointF(forward ? i : xPixels - 1 - i, samples[i]);
}

void scale(QVector<QPointF>* points, double xFactor, double yFactor, double yOffset)
{
    for (QPointF& point : *points) point = QPointF(point.x() * xFactor, (point.y() - yOffset) * yFactor);
}

double largest(const QVector<QPointF>& points, double offset)
{
    double value = 0;
    for (const QPointF& point : points) value = std::max(value, std::fabs(point.y() - offset));
    return value;
}

} // namespace

ProfilePlot::ProfilePlot(Kind kind, QWidget* parent)
    : QwtPlot(parent)
    , m_kind(kind)
    , m_grid(new QwtPlotGrid)
    , m_faint(makeCurve(this, tr("before"), 1))
    , m_second(makeCurve(this, tr("backward"), 2))
    , m_first(makeCurve(this, kind == Line ? tr("forward") : tr("stream"), 3))
{
    setAccessibleName(kind == Line ? tr("Current line") : tr("Stream"));
    setMinimumSize(240, 130);
    m_grid->attach(this);
    m_faint->setItemAttribute(QwtPlotItem::Legend, false);
    if (kind == Line) {
        auto* legend = new QwtLegend;
        insertLegend(legend, QwtPlot::TopLegend);
    }
    plotLayout()->setAlignCanvasToScales(true);
    applyColours();
    setAxisName(this, xBottom, kind == Line ? tr("x") : tr("time"));
    setAxisName(this, yLeft, kind == Line ? tr("height") : tr("value"));
    setAxisScale(xBottom, 0, 1); // until there is something to show
    setAxisScale(yLeft, 0, 1);
}

ProfilePlot::~ProfilePlot() = default;

void ProfilePlot::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange) applyColours();
    QwtPlot::changeEvent(event);
}

void ProfilePlot::applyColours()
{
    applyPlotStyle(this);
    const PlotColours colours = plotColours(palette());
    m_grid->setPen(colours.grid, 0.0);
    m_first->setPen(colours.first, 1.3);
    m_second->setPen(colours.second, 1.3);
    m_faint->setPen(colours.faint, 1.0);
}

void ProfilePlot::showFrame(const FrameBuffer* frame, const FrameBuffer* earlier)
{
    m_firstPoints.clear();
    m_secondPoints.clear();
    m_faintPoints.clear();
    if (frame != nullptr && frame->xPixels() > 0) {
        if (m_kind == Line)
            collectLine(*frame, earlier);
        else
            collectStream(*frame, earlier);
        describe(*frame);
    }
    m_first->setSamples(m_firstPoints);
    m_second->setSamples(m_secondPoints);
    m_faint->setSamples(m_faintPoints);
    const bool both = !m_secondPoints.isEmpty() && !m_firstPoints.isEmpty();
    m_second->setItemAttribute(QwtPlotItem::Legend, both || m_firstPoints.isEmpty());
    updateAxes();
    updateLayout(); // other tick labels may be wider
    replot();
}

// The last whole scan line of the running frame, or of the frame before when there is none yet.
void ProfilePlot::collectLine(const FrameBuffer& frame, const FrameBuffer* earlier)
{
    const int xPixels = frame.xPixels();
    const int mode = frame.mode();
    const bool twoPasses = mode == FrameBuffer::ForwardReturn || mode == FrameBuffer::ReturnForward;
    const unsigned line = static_cast<unsigned>(xPixels) * (twoPasses ? 2 : 1);
    unsigned held = 0;
    const int* samples = frame.getData(&held);
    if (held < line && earlier != nullptr && earlier->xPixels() == xPixels && earlier->mode() == mode)
        samples = earlier->getData(&held);
    if (samples == nullptr || held < line) return;
    samples += (held / line - 1) * line;
    const bool startsForward = mode == FrameBuffer::Forward || mode == FrameBuffer::ForwardReturn;
    appendPass(samples, xPixels, startsForward, startsForward ? &m_firstPoints : &m_secondPoints);
    if (twoPasses)
        appendPass(samples + xPixels, xPixels, !startsForward,
                   startsForward ? &m_secondPoints : &m_firstPoints);
}

void ProfilePlot::collectStream(const FrameBuffer& frame, const FrameBuffer* earlier)
{
    unsigned held = 0;
    const int* samples = frame.getData(&held);
    for (unsigned i = 0; i < held; ++i) m_firstPoints.append(QPointF(i, samples[i]));
    if (earlier == nullptr || earlier->xPixels() != frame.xPixels()) return;
    unsigned earlierHeld = 0;
    const int* earlierSamples = earlier->getData(&earlierHeld);
    for (unsigned i = held; i < earlierHeld; ++i) m_faintPoints.append(QPointF(i, earlierSamples[i]));
}

void ProfilePlot::describe(const FrameBuffer& frame)
{
    const double xLength = frame.findMeta(FrameBuffer::KeyXLength, 0);
    const AxisUnit x = axisUnit(xLength, frame.findMeta(FrameBuffer::KeyXyUnit, 128));
    setAxisName(this, xBottom, x.title(m_kind == Line ? tr("x") : tr("time")));
    const double shownLength = xLength * x.factor;
    const int steps = std::max(frame.xPixels() - 1, 1);
    setAxisScale(xBottom, 0, shownLength > 0 ? shownLength : steps);

    const double offset = frame.findMeta(FrameBuffer::KeySampleOffset, 0);
    const double peak = std::max(
        {largest(m_firstPoints, offset), largest(m_secondPoints, offset), largest(m_faintPoints, offset)});
    const AxisUnit y = axisUnit(peak, frame.findMeta(FrameBuffer::KeyValueUnit, 128),
                                frame.findMeta(FrameBuffer::KeySampleDivisor, 1));
    setAxisAutoScale(yLeft, true);
    setAxisName(this, yLeft, y.title(m_kind == Line ? tr("height") : tr("value")));
    const double xFactor = shownLength > 0 ? shownLength / steps : 1.0;
    for (QVector<QPointF>* points : {&m_firstPoints, &m_secondPoints, &m_faintPoints})
        scale(points, xFactor, y.factor, offset);
}

} // namespace bench
