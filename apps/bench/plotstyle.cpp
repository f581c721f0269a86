#include "plotstyle.h"

#include <QFrame>
#include <QLocale>
#include <QPalette>
#include <qwt_color_map.h>
#include <qwt_plot.h>
#include <qwt_plot_canvas.h>
#include <qwt_scale_widget.h>
#include <qwt_text.h>
#include <vorelutil/algo/prefix.h>

namespace bench {

namespace {

struct Stop
{
    double place;
    QRgb colour;
};

// clang-format off
constexpr Stop heightStops[] = {
    {0.00, 0xff10082a},
    {0.20, 0xff3b1a66},
    {0.40, 0xff7d2a74},
    {0.60, 0xffc2485d},
    {0.80, 0xfff08a3c},
    {0.93, 0xfff8cc6a},
    {1.00, 0xfffdf6d8},
};
// clang-format on

QFont plotFont(const QwtPlot* plot, double scale)
{
    QFont font = plot->font();
    font.setBold(false);
    if (font.pointSizeF() > 0) font.setPointSizeF(font.pointSizeF() * scale);
    return font;
}

} // namespace

QwtText PointScaleDraw::label(double value) const
{
    if (qAbs(value) < 1e-12) value = 0.0; // ticks beside 0 that are rounding errors
    return QLocale::c().toString(value, 'g', 6);
}

QwtText CountScaleDraw::label(double value) const
{
    constexpr int decimals = 3;
    if (value < 999.9) return PointScaleDraw::label(value);
    value *= 1.0 + 1e-9; // logarithmic ticks lie a little beside 1000
    const char prefix = algoNormalize(&value, ' ', nullptr, decimals);
    return QLocale::c().toString(value, 'g', decimals + 1) + QLatin1Char(' ') +
           algoGetPrintablePrefix(prefix);
}

bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Base).lightness() < 128;
}

PlotColours plotColours(const QPalette& palette)
{
    if (isDark(palette)) return {QColor(0x6cb6ff), QColor(0xffa657), QColor(0x6e7681), QColor(0x3a3f46)};
    return {QColor(0x0b5cad), QColor(0xc4501b), QColor(0xa0a7b0), QColor(0xdfe3e8)};
}

void applyPlotStyle(QwtPlot* plot)
{
    if (auto* canvas = qobject_cast<QwtPlotCanvas*>(plot->canvas())) {
        canvas->setFrameShape(QFrame::Box);
        canvas->setFrameShadow(QFrame::Plain);
        canvas->setLineWidth(1);
        QPalette frame = plot->palette();
        frame.setColor(QPalette::WindowText, plotColours(plot->palette()).faint);
        canvas->setPalette(frame);
        plot->setCanvasBackground(plot->palette().color(QPalette::Base)); // part of the canvas's palette
        canvas->setPaintAttribute(QwtPlotCanvas::ImmediatePaint, true);
    }
    for (int axis = 0; axis < QwtPlot::axisCnt; ++axis) {
        if (dynamic_cast<PointScaleDraw*>(plot->axisScaleDraw(axis)) == nullptr)
            plot->setAxisScaleDraw(axis, new PointScaleDraw);
        plot->setAxisFont(axis, plotFont(plot, 0.9));
        plot->axisWidget(axis)->setMargin(2);
    }
}

void setAxisName(QwtPlot* plot, int axis, const QString& title)
{
    QwtText text(title);
    text.setFont(plotFont(plot, 0.95));
    if (plot->axisTitle(axis) != text) plot->setAxisTitle(axis, text);
}

const QVector<QRgb>& heightColours()
{
    static const QVector<QRgb> colours = [] {
        const std::unique_ptr<QwtLinearColorMap> map(makeHeightColourMap());
        QVector<QRgb> table;
        for (int i = 0; i < 256; ++i) table.append(map->rgb(QwtInterval(0, 255), i));
        return table;
    }();
    return colours;
}

QwtLinearColorMap* makeHeightColourMap()
{
    constexpr std::size_t last = std::size(heightStops) - 1;
    auto* map = new QwtLinearColorMap(QColor(heightStops[0].colour), QColor(heightStops[last].colour));
    for (std::size_t i = 1; i < last; ++i)
        map->addColorStop(heightStops[i].place, QColor(heightStops[i].colour));
    return map;
}

} // namespace bench
