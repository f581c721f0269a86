#include "scan.h"

#include "apps/controller/controllerlink.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>
#include <vorelutil/frames/framebuffer.h>
#include <vorelutil/trace/error.h>
#include <vorelutil/trace/tracelog.h>

namespace bench {

using controller::TelegramView;

namespace {

QString unconfirmedStop()
{
    return Scan::tr("The controller did not confirm that the scan stopped");
}

} // namespace

Scan::Scan(ControllerLink* link, QObject* parent)
    : QObject(parent)
    , m_link(link)
{
    m_confirmTimer.setSingleShot(true);
    m_confirmTimer.setInterval(confirmTimeoutMilliseconds);
    connect(&m_confirmTimer, &QTimer::timeout, this, &Scan::onUnconfirmed);
    connect(link, &ControllerLink::acknowledged, this, &Scan::onAcknowledged);
    connect(link, &ControllerLink::told, this, &Scan::onTold);
    connect(link, &ControllerLink::stateChanged, this, &Scan::onLinkState);
}

Scan::~Scan() = default;

bool Scan::start(const ScanSettings& settings)
{
    if (!isIdle() || m_link->state() != ControllerLink::Connected) return false;
    const qint64 size = settings.frameSize();
    try {
        // An inactive buffer takes its geometry without storage; it allocates once, when it becomes active.
        auto buffer = std::make_shared<FrameBuffer>();
        describeFrame(settings, buffer.get());
        buffer->setActive(true);
        m_pool.assign(1, buffer);
        m_earlier = std::exchange(m_running, std::move(buffer));
    } catch (const OomError&) {
        emit failed(tr("there is no memory for a frame of %1 samples").arg(size), false);
        return true;
    }
    m_earlierSettings = std::exchange(m_settings, settings);
    m_started = false;
    m_expected = -1;
    m_frameWhole = false;
    m_accepting = false;
    m_limitReached = false;
    m_restarts = 0;
    setState(State::Preparing);
    // The controller may still be acquiring for someone else, or for a link that was lost.
    const bool sent = requestStop() && request(controller::xPixels, settings.xPixels, "x pixels") &&
                      request(controller::yPixels, settings.lines(), "y pixels") &&
                      request(controller::frameMode, settings.frameMode(), "frame mode") &&
                      request(controller::lineRate, settings.rate, "rate") &&
                      request(controller::samplePosition, startPosition(m_firstPosition, size), "position");
    if (!sent) end(tr("the scan's settings could not be sent"));
    return true;
}

void Scan::stop()
{
    if (isIdle() || m_state == State::Stopping) return;
    m_waiting.clear();
    setState(State::Stopping);
    if (!requestStop()) stopHasFailed(tr("the request to stop could not be sent"));
}

bool Scan::request(int address, qint64 value, const char* name)
{
    const int number = m_link->set(address, static_cast<int>(value));
    if (number == 0) return false;
    const QString words = QLatin1String(name);
    // An acquisition's number would say nothing to the operator.
    m_waiting.insert(
        number, address == controller::acquisition ? words : QStringLiteral("%1 = %2").arg(words).arg(value));
    m_confirmTimer.start();
    return true;
}

bool Scan::requestStop()
{
    return request(controller::acquisition, controller::acquisitionOff, "acquisition off");
}

void Scan::onAcknowledged(int number, int /*address*/, int /*index*/, int reason, int /*value*/)
{
    const auto waiting = m_waiting.constFind(number);
    if (waiting == m_waiting.constEnd()) return;
    if (reason != controller::reasonOk) {
        const QLatin1String why(tracePrintReason(reason));
        if (isStopUnderWay())
            goOn(tr("the controller refused to stop: %1").arg(why));
        else
            end(tr("the controller refused %1: %2").arg(*waiting, why));
        return;
    }
    m_waiting.erase(waiting);
    if (!m_waiting.isEmpty()) return;
    m_confirmTimer.stop();
    proceed();
}

void Scan::onUnconfirmed()
{
    if (isStopUnderWay())
        goOn(unconfirmedStop());
    else
        end(tr("the controller did not confirm %1")
                .arg(m_waiting.isEmpty() ? QString() : *m_waiting.cbegin()));
}

// Samples come as long as the controller has not confirmed the stop.
bool Scan::isStopUnderWay() const
{
    return m_accepting && (m_state == State::Stopping || m_state == State::RestartStopping);
}

void Scan::stopHasFailed(const QString& text)
{
    if (isStopUnderWay())
        goOn(text);
    else
        end(text);
}

void Scan::goOn(const QString& text)
{
    m_waiting.clear();
    m_confirmTimer.stop();
    setState(State::Running);
    emit stopFailed(text);
}

// Everything that was asked for is confirmed: the next step.
void Scan::proceed()
{
    bool sent = true;
    switch (m_state) {
    case State::Preparing:
    case State::RestartPlacing:
        // Samples may arrive before the confirmation does.
        m_accepting = true;
        setState(State::Running);
        sent = request(controller::acquisition, m_settings.acquisition(), "acquisition on");
        m_limitReached = false;
        break;
    case State::RestartStopping:
        // What was told before the confirmation has arrived, so the next position is known.
        m_accepting = false;
        ++m_restarts;
        m_expected = restartPosition(m_expected, m_settings.frameSize());
        setState(State::RestartPlacing);
        sent = request(controller::samplePosition, m_expected, "position");
        break;
    case State::Stopping:
        goIdle();
        emit stopped();
        break;
    case State::Running:
        m_started = true;
        m_earlier.reset();
        // A frame may have reached the bound before the start was confirmed.
        if (m_limitReached) restartIfDue(m_expected);
        break;
    case State::Idle:
        break;
    }
    if (!sent) end(tr("the scan's settings could not be sent"));
}

void Scan::onLinkState()
{
    if (m_link->state() == ControllerLink::Connected || isIdle()) return;
    if (m_link->state() != ControllerLink::Off) {
        end(tr("the link to the controller was lost"));
        return;
    }
    // The operator has closed it.
    goIdle();
    emit stopFailed(unconfirmedStop());
}

void Scan::goIdle()
{
    m_waiting.clear();
    m_confirmTimer.stop();
    m_accepting = false;
    if (!m_started && m_expected < 0) {
        m_settings = m_earlierSettings;
        m_running = std::move(m_earlier);
        m_pool.clear();
    }
    m_earlier.reset();
    setState(State::Idle);
}

void Scan::setState(State state)
{
    m_state = state;
    emit stateChanged();
}

void Scan::end(const QString& failure)
{
    const bool started = m_started || m_expected >= 0;
    if (m_link->state() == ControllerLink::Connected)
        m_link->set(controller::acquisition, controller::acquisitionOff);
    goIdle();
    emit failed(failure, started);
}

void Scan::onTold(const TelegramView& telegram)
{
    if (!m_accepting || telegram.address != controller::samples || telegram.wordCount == 0) return;
    const qint64 position = telegram.index;
    const qint64 last = position + qint64(telegram.wordCount) - 1;
    if (position < 0 || last > std::numeric_limits<std::int32_t>::max()) {
        ++m_refused;
        traceError(m_refused > loggedFaults, "Samples at impossible positions %lld to %lld",
                   static_cast<long long>(position), static_cast<long long>(last));
        return;
    }
    try {
        m_block.resize(telegram.wordCount);
        telegram.copyWords(0, telegram.wordCount, m_block.data());
        addBlock(m_block.data(), m_block.size(), position);
    } catch (const OomError&) {
        end(tr("there is no memory for another frame"));
    } catch (const std::bad_alloc&) {
        end(tr("there is no memory for the samples"));
    }
}

// Cut at frame boundaries: a block that runs past the end of its frame, or over several, completes each.
void Scan::addBlock(const int* data, std::size_t count, qint64 position)
{
    const qint64 size = m_settings.frameSize();
    auto left = static_cast<qint64>(count);
    while (left > 0) {
        const qint64 part = std::min(left, size - position % size);
        addWithinFrame(data, static_cast<int>(part), position);
        if (!m_accepting) return; // a receiver of a signal has ended the scan
        data += part;
        position += part;
        left -= part;
    }
}

void Scan::addWithinFrame(const int* data, int count, qint64 position)
{
    if (position != m_expected && m_expected >= 0) {
        ++m_gaps;
        m_frameWhole = false;
        traceError(m_gaps > loggedFaults, "Samples at %lld where %lld was expected",
                   static_cast<long long>(position), static_cast<long long>(m_expected));
    }
    if (position % m_settings.frameSize() == 0) m_frameWhole = true;
    m_expected = position + count;
    m_samples += count;
    const int result = m_running->addData(data, count, static_cast<int>(position));
    emit samplesAdded(data, count);
    if (result == -1 && m_accepting) finishFrame(m_expected);
}

void Scan::finishFrame(qint64 nextPosition)
{
    if (m_frameWhole) {
        m_frameWhole = false;
        ++m_frames;
        const std::shared_ptr<FrameBuffer> finished = m_running;
        m_running = freeBuffer();
        emit frameDone(finished);
    }
    restartIfDue(nextPosition);
}

void Scan::restartIfDue(qint64 nextPosition)
{
    if (m_state != State::Running || !reachesPositionLimit(nextPosition, m_settings.frameSize())) return;
    m_limitReached = true;
    if (!m_waiting.isEmpty()) return; // the start is not confirmed yet; `proceed` comes back here
    setState(State::RestartStopping);
    if (!requestStop()) stopHasFailed(tr("the request to stop could not be sent"));
}

// Nobody but the pool holds it. A picture that shows a finished frame keeps that one from being used again.
std::shared_ptr<FrameBuffer> Scan::freeBuffer()
{
    for (const auto& buffer : m_pool) {
        if (buffer.use_count() == 1) {
            buffer->clear();
            return buffer;
        }
    }
    m_pool.push_back(std::make_shared<FrameBuffer>(*m_running, false));
    return m_pool.back();
}

} // namespace bench
