#include "sweepwatch.h"

#include "apps/controller/controllerlink.h"
#include "valueroad.h"

#include <vorelutil/trace/tracelog.h>
#include <vorelutil/widgets/ueditspec.h>

namespace bench {

namespace {

constexpr int limitMilliseconds = 500; ///< that a sweep gives the controller to confirm a point
constexpr int earliest = 450;          ///< a timer may be due a little before its time

} // namespace

SweepWatch::SweepWatch(UEditSpec* field, ValueRoad* road, int address, QObject* parent)
    : QObject(parent)
    , m_field(field)
    , m_road(road)
    , m_address(address)
{
    connect(field, &UEditSpec::sendTel, this, &SweepWatch::onTelegram);
    // Whether the sweep goes on is known when the field has done its part.
    connect(field, &UEditSpec::changed, this, &SweepWatch::look, Qt::QueuedConnection);
    connect(road, &ValueRoad::answered, this, &SweepWatch::onAnswered);
    // After the road, which gives up what is under way.
    connect(road->link(), &ControllerLink::stateChanged, this, &SweepWatch::onLinkState);
    connect(road->link(), &ControllerLink::acknowledged, this,
            [this](int number, int, int, int reason) { onAcknowledged(number, reason); });
}

bool SweepWatch::isConfirmed() const
{
    return m_answer == Answer::Value && m_answered == m_target;
}

void SweepWatch::onLinkState()
{
    m_late = false;
    m_telegrams.clear();
    const ControllerLink& link = *m_road->link();
    if (link.state() == ControllerLink::Connected) {
        m_untaken = false;
    } else if (m_running && m_field->isRunning()) {
        m_withoutLink = link.stateText();
        m_field->stop();
    }
}

void SweepWatch::onAcknowledged(int number, int reason)
{
    if (!m_telegrams.remove(number) || reason == controller::reasonOk) return;
    tellUntaken(tr("%1 (reason %2)").arg(QLatin1String(tracePrintReason(reason))).arg(reason));
}

void SweepWatch::tellUntaken(const QString& reason)
{
    if (m_untaken) return;
    m_untaken = true;
    emit message(tr("The controller is not told of the sweep: %1").arg(reason), true);
}

void SweepWatch::onTelegram(bool set, int address, int index, int value)
{
    ControllerLink* const link = m_road->link();
    if (link->state() != ControllerLink::Connected) {
        if (!m_field->isRunning()) return;
        if (!m_running) emit message(tr("The sweep has not started: %1").arg(link->stateText()), true);
        m_field->stop();
        return;
    }
    const int number = set ? link->set(address, value, index) : link->get(address, index);
    if (number != 0)
        m_telegrams.insert(number);
    else
        tellUntaken(tr("the telegram could not be sent"));
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
        m_done = 0;
        m_withoutLink.clear();
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
        if (milliseconds >= limitMilliseconds)
            emit message(tr("The sweep has stopped: point %1 was answered after %2 ms, later than %3 ms")
                             .arg(m_point + 1)
                             .arg(milliseconds)
                             .arg(limitMilliseconds),
                         true);
    }
    if (!m_running || !isLast) return;
    m_answer = reason == controller::reasonOk ? Answer::Value : Answer::Refused;
    m_answered = value;
    if (!isConfirmed()) return;
    ++m_done;
    emit reached(m_target, m_point >= m_steps);
}

void SweepWatch::look()
{
    if (!m_running || m_field->isRunning()) return;
    const int points = m_steps * (m_bothWays ? 2 : 1);
    const bool confirmed = isConfirmed();
    m_running = false;
    if (confirmed && m_point + 1 >= points)
        emit message(tr("The sweep is done: %1 points").arg(points), false);
    else if (m_withoutLink.isNull() && (confirmed || m_sincePoint.elapsed() < earliest))
        emit message(tr("The sweep was stopped after %1 of %2 points").arg(m_done).arg(points), false);
    else
        emit message(tr("The sweep has stopped: %1").arg(whyStopped()), true);
    m_late = m_answer == Answer::None && m_withoutLink.isNull() && m_sincePoint.elapsed() >= earliest;
    emit ended(confirmed && m_point + 1 >= points);
}

QString SweepWatch::whyStopped() const
{
    if (!m_withoutLink.isNull()) return m_withoutLink;
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
