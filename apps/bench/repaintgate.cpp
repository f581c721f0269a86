#include "repaintgate.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace bench {

RepaintGate::RepaintGate(std::function<void()> repaint, QObject* parent)
    : QObject(parent)
    , m_repaint(std::move(repaint))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &RepaintGate::repaintNow);
}

void RepaintGate::setRefreshRate(double hertz)
{
    if (!(hertz >= 1.0 && hertz <= 1000.0)) hertz = 60.0;
    m_interval = std::max<qint64>(1, std::lround(1000.0 / hertz));
}

void RepaintGate::request()
{
    if (m_timer.isActive()) return;
    const qint64 pause = std::max(m_interval, 2 * m_cost);
    const qint64 passed = m_sinceRepaint.isValid() ? m_sinceRepaint.elapsed() : pause;
    m_timer.start(static_cast<int>(std::max<qint64>(0, pause - passed)));
}

void RepaintGate::repaintNow()
{
    m_timer.stop();
    QElapsedTimer watch;
    watch.start();
    m_repaint();
    m_cost = watch.elapsed();
    m_sinceRepaint.start();
}

} // namespace bench
