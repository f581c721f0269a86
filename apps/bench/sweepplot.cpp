#include "sweepplot.h"

#include "plotstyle.h"

#include <algorithm>
#include <cmath>
#include <QEvent>
#include <qwt_legend.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_plot_layout.h>
#include <qwt_symbol.h>
#include <tuple>

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
    // The way back is hollow, for who does not tell the colours apart.
    for (const auto& [curve, colour, fill, size] :
         {std::tuple(m_forward, colours.first, colours.first, 4),
          std::tuple(m_backward, colours.second, palette().color(QPalette::Base), 6)}) {
        curve->setPen(colour, 1.3);
        curve->setSymbol(new QwtSymbol(QwtSymbol::Ellipse, fill, QPen(colour), QSize(size, size)));
    }
}

void SweepPlot::clear(double start, double end)
{
    m_forwardPoints.clear();
    m_backwardPoints.clear();
    m_forward->setSamples(m_forwardPoints);
    m_backward->setSamples(m_backwardPoints);
    const double span = std::abs(end - start);
    const double margin = span > 0 ? span * 0.05 : 1;
    for (const int axis : {int(xBottom), int(yLeft)})
        setAxisScale(axis, std::min(start, end) - margin, std::max(start, end) + margin);
    replot();
}

void SweepPlot::add(double set, double readBack, bool backward)
{
    (backward ? m_backwardPoints : m_forwardPoints).append(QPointF(set, readBack));
    m_forward->setSamples(m_forwardPoints);
    m_backward->setSamples(m_backwardPoints);
    replot();
}

} // namespace bench
