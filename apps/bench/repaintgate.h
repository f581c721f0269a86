#pragma once

#include <functional>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

namespace bench {

/// Turns any number of requests into as few repaints as the display can show.
///
/// The next repaint comes one display frame after the last one at the earliest, and never before twice the
/// last one's cost has passed, so that two thirds of the time are left for everything else.
class RepaintGate : public QObject
{
    Q_OBJECT

public:
    /// `repaint` paints before it returns, so that its cost can be measured.
    explicit RepaintGate(std::function<void()> repaint, QObject* parent = nullptr);

    /// From the display's refresh rate; rates that no display has count as 60.
    void setRefreshRate(double hertz);

    void request();
    /// Repaints at once and clears a pending request.
    void repaintNow();

private:
    std::function<void()> m_repaint;
    QTimer m_timer;
    QElapsedTimer m_sinceRepaint;
    qint64 m_interval = 16; ///< ms of one display frame
    qint64 m_cost = 0;      ///< ms of the last repaint
};

} // namespace bench
