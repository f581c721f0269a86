#pragma once

#include <cstdint>
#include <QVector>
#include <qwt_plot.h>
#include <vector>

class QwtPlotCurve;
class QwtPlotGrid;

namespace bench {

/// A start-stop histogram: counts over the time after the start, linear or logarithmic.
///
/// Where several bins share a pixel the largest of them is drawn. On the logarithmic scale an empty bin
/// reaches down to the axis, which begins below 1.
class HistogramPlot : public QwtPlot
{
    Q_OBJECT

public:
    explicit HistogramPlot(QWidget* parent = nullptr);
    ~HistogramPlot() override;

    /// Shows counts by bin; `binWidth` in clock periods. Paints nothing yet, see `replot`.
    void setCounts(const std::vector<std::uint64_t>& counts, qint64 binWidth);
    void setLogarithmic(bool on);
    bool isLogarithmic() const { return m_logarithmic; }

    /// The corners of what is drawn, in units of the axes.
    const QVector<QPointF>& outline() const { return m_outline; }

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void applyColours();
    void rebuild();

    std::vector<std::uint64_t> m_counts;
    qint64 m_binWidth = 1;
    bool m_logarithmic = false;
    QwtPlotGrid* m_grid; ///< owned by the plot, as the curve
    QwtPlotCurve* m_curve;
    QVector<QPointF> m_outline;
};

} // namespace bench
