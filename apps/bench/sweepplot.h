#pragma once

#include <QVector>
#include <qwt_plot.h>

class QwtPlotCurve;
class QwtPlotGrid;

namespace bench {

/// What was read back over what was set, while a sweep goes forward and back.
class SweepPlot : public QwtPlot
{
    Q_OBJECT

public:
    explicit SweepPlot(QWidget* parent = nullptr);
    ~SweepPlot() override;

    /// An empty plot, both axes from one end of the sweep to the other and a little beyond, in V.
    void clear(double start, double end);
    void add(double set, double readBack, bool backward);
    int pointCount() const { return m_forwardPoints.size() + m_backwardPoints.size(); }

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyColours();

    QwtPlotGrid* m_grid; ///< owned by the plot, as the curves
    QwtPlotCurve* m_forward;
    QwtPlotCurve* m_backward;
    QVector<QPointF> m_forwardPoints;
    QVector<QPointF> m_backwardPoints;
};

} // namespace bench
