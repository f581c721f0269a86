#include "sweepplot.h"

#include "plotstyle.h"

#include <algorithm>
#include <QEvent>
#include <qwt_legend.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_plot_layout.h>
#include <qwt_symbol.h>

namespace bench {

namespace {

QwtPlotCurve* makeCurve(QwtPlot* plot, const QString& title)
{
    auto* curve = new QwtPlotCurve(title);
    curve->setRenderHint(QwtPlotItem::RenderAntialiased, true);
    curve->attach(plot);
    return curve;
}

} // namespace

SweepPlot::SweepPlot(QWidget* parent)
    : QwtPlot(parent)
    , m_grid(new QwtPlotGrid)
    , m_forward(makeCurve(this, tr("forward")))
    , m_backward(makeCurve(this, tr("backward")))
{
    setAccessibleName(tr("Read-back over set voltage"));
    setMinimumSize(240, 160);
    m_grid->attach(this);
    insertLegend(new QwtLegend, QwtPlot::TopLegend);
    plotLayout()->setAlignCanvasToScales(true);
    applyColours();
    setAxisName(this, xBottom, tr("set voltage [V]"));
    setAxisName(this, yLeft, tr("read-back [V]"));
    clear(-1, 1);
}

SweepPlot::~SweepPlot() = default;

void SweepPlot::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange) applyColours();
    QwtPlot::changeEvent(event);
}

void SweepPlot::applyColours()
{
    applyPlotStyle(this);
    const PlotColours colours = plotColours(palette());
    m_grid->setPen(colours.grid, 0.0);
    for (const auto& [curve, colour] :
         {std::pair(m_forward, colours.first), std::pair(m_backward, colours.second)}) {
        curve->setPen(colour, 1.3);
        curve->setSymbol(new QwtSymbol(QwtSymbol::Ellipse, colour, QPen(colour), QSize(4, 4)));
    }
}

void SweepPlot::clear(double start, double end)
{
    m_forwardPoints.clear();
    m_backwardPoints.clear();
    m_forward->setSamples(m_forwardPoints);
    m_backward->setSamples(m_backwardPoints);
    const double low = std::min(start, end);
    const double high = std::max(start, end);
    setAxisScale(xBottom, low, high > low ? high : low + 1);
    setAxisScale(yLeft, low, high > low ? high : low + 1);
    replot();
}

void SweepPlot::add(double set, double readBack, bool backward)
{
    (backward ? m_backwardPoints : m_forwardPoints).append(QPointF(set, readBack));
    m_forward->setSamples(m_forwardPoints);
    m_backward->setSamples(m_backwardPoints);
    setAxisAutoScale(yLeft, true);
    replot();
}

} // namespace bench
