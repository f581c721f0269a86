#pragma once

#include <QColor>
#include <QVector>
#include <qwt_scale_draw.h>

class QPalette;
class QwtPlot;
class QwtLinearColorMap;

namespace bench {

/// Tick labels with a decimal point in every locale, as in the files.
class PointScaleDraw : public QwtScaleDraw
{
public:
    QwtText label(double value) const override;
};

/// The same for counts: large ones with a prefix, "250 k".
class CountScaleDraw : public PointScaleDraw
{
public:
    QwtText label(double value) const override;
};

/// Whether a palette is a dark one.
bool isDark(const QPalette& palette);

/// Lines that stand out from the palette's base colour.
struct PlotColours
{
    QColor first;
    QColor second;
    QColor faint; ///< what is older
    QColor grid;
};
PlotColours plotColours(const QPalette& palette);

/// Gives a plot the look that all plots share: flat canvas in the palette's base colour, small fonts, point
/// scale draws on every axis. Call it again when the palette changes.
void applyPlotStyle(QwtPlot* plot);

/// Names an axis, in a font that fits `applyPlotStyle`.
void setAxisName(QwtPlot* plot, int axis, const QString& title);

/// The colours of heights, low to high; 256 entries. Lightness rises all the way, so that it also reads in
/// grey, and by people who do not tell red from green.
const QVector<QRgb>& heightColours();
/// The same for a colour bar; the caller owns it.
QwtLinearColorMap* makeHeightColourMap();

} // namespace bench
