#include "gaugebar.h"

#include "plotstyle.h"

#include <algorithm>
#include <cstdlib>
#include <QPainter>
#include <vorelutil/algo/prefix.h>
#include <vorelutil/algo/scale.h>

namespace bench {

namespace {

constexpr int barHeight = 20;
constexpr int markHeight = 5;
constexpr int gap = 4;
constexpr int maxFullScale = 1000000000; ///< twice as much is an int, too

} // namespace

GaugeBar::GaugeBar(char prefix, const QString& unit, QWidget* parent)
    : QWidget(parent)
    , m_prefix(prefix)
    , m_unit(unit)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void GaugeBar::setReading(int raw)
{
    if (m_hasReading && raw == m_reading) return;
    m_reading = raw;
    m_hasReading = true;
    update();
}

void GaugeBar::clearReading()
{
    m_hasReading = false;
    update();
}

void GaugeBar::setFullScale(int raw)
{
    m_fullScale = std::clamp(raw, 1, maxFullScale);
    update();
}

void GaugeBar::setAlarm(int raw)
{
    m_alarm = raw;
    update();
}

bool GaugeBar::isAlarmed() const
{
    return m_hasReading && std::abs(double(m_reading)) > m_alarm;
}

bool GaugeBar::isBeyondScale() const
{
    return m_hasReading && std::abs(double(m_reading)) > m_fullScale;
}

int GaugeBar::markLength(QString* text) const
{
    int length = 0;
    int value = 0;
    char prefix = ' ';
    algoCalcGaugeDisplay(std::max(width() - 2 * margin, 1), 2 * m_fullScale, m_prefix, &length, &value,
                         &prefix);
    if (text != nullptr) *text = QString::number(value) + ' ' + algoGetPrintablePrefix(prefix) + m_unit;
    return length;
}

int GaugeBar::markLength() const
{
    return markLength(nullptr);
}

QString GaugeBar::markText() const
{
    QString text;
    markLength(&text);
    return text;
}

QSize GaugeBar::sizeHint() const
{
    return {320, fontMetrics().height() + gap + barHeight + 1};
}

QSize GaugeBar::minimumSizeHint() const
{
    return {160, sizeHint().height()};
}

/// Where a raw value lies, in pixels; what is beyond the scale lies at its end.
double GaugeBar::place(double raw) const
{
    const double share = std::clamp(raw / m_fullScale, -1.0, 1.0);
    return width() / 2.0 + share * (width() / 2.0 - margin);
}

void GaugeBar::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const PlotColours colours = plotColours(palette());
    const int top = fontMetrics().height() + gap;
    const QRectF frame(place(-m_fullScale), top, place(m_fullScale) - place(-m_fullScale), barHeight);
    painter.fillRect(frame, palette().base());

    const double zero = place(0);
    const double end = m_hasReading ? place(m_reading) : zero;
    const QRectF bar(std::min(zero, end), top, std::abs(end - zero), barHeight);
    painter.fillRect(bar, isAlarmed() ? colours.second : colours.first);

    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(colours.faint, 1));
    painter.drawRect(frame);
    painter.setPen(QPen(palette().windowText(), 1));
    painter.drawLine(QPointF(zero, top), QPointF(zero, top + barHeight));
    painter.setPen(QPen(colours.second, 1, Qt::DashLine));
    for (const double limit : {-double(m_alarm), double(m_alarm)})
        if (std::abs(limit) < m_fullScale)
            painter.drawLine(QPointF(place(limit), top), QPointF(place(limit), top + barHeight));

    // The mark begins at zero and ends where its value lies.
    QString text;
    const double length = markLength(&text);
    painter.setPen(QPen(palette().windowText(), 1));
    const double bottom = top - gap / 2.0;
    painter.drawLine(QPointF(zero, bottom), QPointF(zero + length, bottom));
    for (const double x : {zero, zero + length})
        painter.drawLine(QPointF(x, bottom - markHeight), QPointF(x, bottom));
    painter.drawText(QRectF(zero + 4, 0, width(), bottom - 1), Qt::AlignLeft | Qt::AlignVCenter, text);
}

} // namespace bench
