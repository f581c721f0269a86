#include "ticaxis.h"

#include "gaugebar.h"

#include <algorithm>
#include <cmath>
#include <QPainter>
#include <vorelutil/algo/prefix.h>
#include <vorelutil/algo/scale.h>

namespace bench {

namespace {

constexpr int ticHeight = 5;
constexpr int ticPixels = 56; ///< room for a label
constexpr int maxTics = 40;

} // namespace

TicAxis::TicAxis(const QString& unit, QWidget* parent)
    : QWidget(parent)
    , m_unit(unit)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void TicAxis::setRange(double low, double high)
{
    m_low = low;
    m_high = high;
    update();
}

QVector<TicAxis::Tic> TicAxis::tics(QString* labelUnit) const
{
    const int fitting = std::clamp((width() - 2 * GaugeBar::margin) / ticPixels, 1, maxTics);
    double first = 0.0;
    double step = 1.0;
    double scale = 1.0;
    algoCalcScaleTics(m_low, m_high, fitting, &first, &step, &scale);
    double one = scale;
    const char prefix = algoNormalize(&one, ' ', nullptr, 3);
    *labelUnit = algoGetPrintablePrefix(prefix) + m_unit;
    QVector<Tic> tics;
    const double end = m_high + 1e-6 * step;
    for (int i = 0; i < maxTics && first + i * step <= end; ++i) {
        double value = first + i * step;
        if (value < m_low - 1e-6 * step) continue; // the first tic may lie below
        if (std::fabs(value) < 1e-6 * step) value = 0.0;
        tics.append({value, QString::number(value / scale, 'g', 6)});
    }
    return tics;
}

QSize TicAxis::sizeHint() const
{
    return {320, ticHeight + fontMetrics().height() + 3};
}

QSize TicAxis::minimumSizeHint() const
{
    return {160, sizeHint().height()};
}

void TicAxis::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double left = GaugeBar::margin;
    const double length = width() - 2.0 * GaugeBar::margin;
    QString unit;
    const QVector<Tic> shown = tics(&unit);
    painter.drawLine(QPointF(left, 0.5), QPointF(left + length, 0.5));
    for (const Tic& tic : shown) {
        const double x = left + length * (tic.value - m_low) / (m_high - m_low);
        painter.drawLine(QPointF(x, 0.5), QPointF(x, ticHeight));
        painter.drawText(QRectF(x - ticPixels / 2.0, ticHeight + 1, ticPixels, fontMetrics().height() + 2),
                         Qt::AlignHCenter | Qt::AlignTop, tic.label);
    }
    painter.drawText(QRectF(0, ticHeight + 1, width(), fontMetrics().height() + 2),
                     Qt::AlignRight | Qt::AlignTop, unit);
}

} // namespace bench
