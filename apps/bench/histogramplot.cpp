#include "histogramplot.h"

#include "apps/controller/addresses.h"
#include "axisunit.h"
#include "plotstyle.h"

#include <algorithm>
#include <cmath>
#include <QEvent>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_plot_layout.h>
#include <qwt_scale_engine.h>

namespace bench {

namespace {

constexpr double logBase = 0.5;     ///< where the logarithmic scale begins
constexpr double headroom = 1.08;   ///< above the highest bin
constexpr double leastLinear = 5.0; ///< counts that a linear scale shows
constexpr double leastLog = 12.0;
constexpr int picoseconds = 0x47C; ///< unit code
constexpr int fewestColumns = 200;

} // namespace

HistogramPlot::HistogramPlot(QWidget* parent)
    : QwtPlot(parent)
    , m_grid(new QwtPlotGrid)
    , m_curve(new QwtPlotCurve)
{
    setAccessibleName(tr("Start-stop histogram"));
    setMinimumSize(240, 140);
    m_grid->attach(this);
    m_curve->attach(this);
    plotLayout()->setAlignCanvasToScales(true);
    setAxisScaleDraw(yLeft, new CountScaleDraw);
    applyColours();
    setAxisName(this, yLeft, tr("counts"));
    setCounts(std::vector<std::uint64_t>(1), 1);
}

HistogramPlot::~HistogramPlot() = default;

void HistogramPlot::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange) applyColours();
    QwtPlot::changeEvent(event);
}

void HistogramPlot::resizeEvent(QResizeEvent* event)
{
    QwtPlot::resizeEvent(event);
    rebuild();
}

void HistogramPlot::applyColours()
{
    applyPlotStyle(this);
    const PlotColours colours = plotColours(palette());
    m_grid->setPen(colours.grid, 0.0);
    m_curve->setPen(colours.first, 1.0);
    QColor fill = colours.first;
    fill.setAlpha(70);
    m_curve->setBrush(fill);
}

void HistogramPlot::setLogarithmic(bool on)
{
    if (m_logarithmic == on) return;
    m_logarithmic = on;
    if (on)
        setAxisScaleEngine(yLeft, new QwtLogScaleEngine);
    else
        setAxisScaleEngine(yLeft, new QwtLinearScaleEngine);
    rebuild();
}

void HistogramPlot::setCounts(const std::vector<std::uint64_t>& counts, qint64 binWidth)
{
    m_counts = counts;
    m_binWidth = binWidth;
    rebuild();
}

/// Two corners a column: as many columns as there are bins, or pixels if these are fewer.
void HistogramPlot::rebuild()
{
    const std::size_t bins = m_counts.size();
    const double span = double(bins) * double(m_binWidth) * controller::scale::clockPeriod; // ps
    const AxisUnit unit = axisUnit(span, picoseconds);
    const double end = span * unit.factor;
    const std::size_t columns = std::min(bins, std::size_t(std::max(canvas()->width(), fewestColumns)));
    const double floor = m_logarithmic ? logBase : 0.0;
    double highest = 0.0;
    m_outline.clear();
    m_outline.reserve(int(2 * columns + 2));
    m_outline.append(QPointF(0.0, floor));
    for (std::size_t column = 0; column < columns; ++column) {
        const auto first = m_counts.begin() + std::ptrdiff_t(column * bins / columns);
        const auto behind = m_counts.begin() + std::ptrdiff_t((column + 1) * bins / columns);
        const auto count = double(*std::max_element(first, behind));
        highest = std::max(highest, count);
        for (const std::size_t edge : {column, column + 1})
            m_outline.append(QPointF(end * double(edge) / double(columns), std::max(count, floor)));
    }
    m_outline.append(QPointF(end, floor));
    m_curve->setBaseline(floor);
    m_curve->setSamples(m_outline);
    setAxisScale(xBottom, 0.0, end);
    if (m_logarithmic)
        setAxisScale(yLeft, logBase, std::max(highest * 1.5, leastLog));
    else
        setAxisScale(yLeft, 0.0, std::max(highest * headroom, leastLinear));
    setAxisName(this, xBottom, unit.title(tr("after the start")));
}

} // namespace bench
