#pragma once

#include <QVector>
#include <qwt_plot.h>

class FrameBuffer;
class QwtPlotCurve;
class QwtPlotGrid;

namespace bench {

/// Values along one axis: the current line with its passes, or a stream.
///
/// A line is the last one that is whole; forward and backward pass lie over each other, each at its place. A
/// stream shows the running frame and, faint behind it, what the frame before still has to its right.
class ProfilePlot : public QwtPlot
{
    Q_OBJECT

public:
    enum Kind
    {
        Line,
        Stream
    };

    explicit ProfilePlot(Kind kind, QWidget* parent = nullptr);
    ~ProfilePlot() override;

    /// Shows a frame and repaints at once. `earlier` is the frame before; both may be null.
    void showFrame(const FrameBuffer* frame, const FrameBuffer* earlier);

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyColours();
    void collectLine(const FrameBuffer& frame, const FrameBuffer* earlier);
    void collectStream(const FrameBuffer& frame, const FrameBuffer* earlier);
    void describe(const FrameBuffer& frame);

    Kind m_kind;
    QwtPlotGrid* m_grid;            ///< owned by the plot, as the curves
    QwtPlotCurve* m_faint;          ///< earlier frame
    QwtPlotCurve* m_second;         ///< backward pass
    QwtPlotCurve* m_first;          ///< forward pass, or the stream
    QVector<QPointF> m_firstPoints; ///< pixel and raw value, scaled by `describe`
    QVector<QPointF> m_secondPoints;
    QVector<QPointF> m_faintPoints;
};

} // namespace bench
