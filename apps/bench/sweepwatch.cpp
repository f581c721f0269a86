#include "sweepwatch.h"

#include "apps/controller/addresses.h"
#include "valueroad.h"

#include <vorelutil/widgets/ueditspec.h>

namespace bench {

namespace {

constexpr int limitMilliseconds = 500; ///< that a sweep gives the controller to confirm a point
constexpr int earliest = 450;          ///< a timer may be due a little before its time

} // namespace

SweepWatch::SweepWatch(UEditSpec* field, ValueRoad* road, int address, QObject* parent)
    : QObject(parent)
    , m_field(field)
    , m_address(address)
{
    connect(field, &UEditSpec::sendTel, this,
            [this](bool, int at, int, int value) { onTelegram(at, value); });
    // Whether the sweep goes on is known when the field has done its part.
    connect(field, &UEditSpec::changed, this, &SweepWatch::look, Qt::QueuedConnection);
    connect(road, &ValueRoad::answered, this, &SweepWatch::onAnswered);
}

bool SweepWatch::isConfirmed() const
{
    return m_answer == Answer::Value && m_answered == m_target;
}

void SweepWatch::onTelegram(int address, int value)
{
    switch (address) {
    case controller::sweepSteps:
        m_steps = value;
        break;
    case controller::sweepBothWays:
        m_bothWays = value != 0;
        break;
    case controller::sweepPoint:
        m_point = value;
        m_target = m_field->sweepTarget();
        m_answer = Answer::None;
        m_late = false;
        m_sincePoint.start();
        if (value != 0) break;
        m_running = true;
        emit started();
        break;
    default:
        break;
    }
}

void SweepWatch::onAnswered(int address, int reason, int value, int milliseconds, bool isLast)
{
    if (address != m_address) return;
    if (m_late) {
        m_late = false;
        emit message(tr("Point %1 was answered after %2 ms; a sweep waits %3 ms")
                         .arg(m_point + 1)
                         .arg(milliseconds)
                         .arg(limitMilliseconds),
                     true);
    }
    if (!m_running || !isLast) return;
    m_answer = reason == controller::reasonOk ? Answer::Value : Answer::Refused;
    m_answered = value;
    if (isConfirmed()) emit reached(m_target, m_point >= m_steps);
}

void SweepWatch::look()
{
    if (!m_running || m_field->isRunning()) return;
    const int points = m_steps * (m_bothWays ? 2 : 1);
    const bool confirmed = isConfirmed();
    m_running = false;
    if (confirmed && m_point + 1 >= points)
        emit message(tr("The sweep is done: %1 points").arg(points), false);
    else if (confirmed || m_sincePoint.elapsed() < earliest)
        emit message(tr("The sweep was stopped after %1 of %2 points").arg(m_point + 1).arg(points), false);
    else
        emit message(tr("The sweep has stopped: %1").arg(whyStopped()), true);
    m_late = m_answer == Answer::None && m_sincePoint.elapsed() >= earliest;
    emit ended(confirmed && m_point + 1 >= points);
}

QString SweepWatch::whyStopped() const
{
    switch (m_answer) {
    case Answer::Refused:
        return tr("the controller refused point %1").arg(m_point + 1);
    case Answer::Value:
        return tr("the controller confirmed another value than that of point %1").arg(m_point + 1);
    case Answer::None:
        break;
    }
    return tr("point %1 was not confirmed within %2 ms").arg(m_point + 1).arg(limitMilliseconds);
}

} // namespace bench
