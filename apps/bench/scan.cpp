#include "scan.h"

#include "apps/controller/controllerlink.h"

#include <algorithm>
#include <limits>
#include <new>
#include <vorelutil/frames/framebuffer.h>
#include <vorelutil/trace/error.h>
#include <vorelutil/trace/tracelog.h>

namespace bench {

using controller::TelegramView;

Scan::Scan(ControllerLink* link, QObject* parent)
    : QObject(parent)
    , m_link(link)
{
    m_confirmTimer.setSingleShot(true);
    m_confirmTimer.setInterval(confirmTimeoutMilliseconds);
    connect(&m_confirmTimer, &QTimer::timeout, this, [this] {
        const QString what = m_waiting.isEmpty() ? QString() : *m_waiting.constBegin();
        end(tr("the controller did not confirm %1").arg(what));
    });
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
        m_running = std::move(buffer);
    } catch (const OomError&) {
        end(tr("there is no memory for a frame of %1 samples").arg(size));
        return true;
    }
    m_settings = settings;
    m_expected = -1;
    m_frameWhole = false;
    m_accepting = false;
    m_limitReached = false;
    m_restarts = 0;
    setState(State::Preparing);
    // The controller may still be acquiring for someone else, or for a link that was lost.
    const bool sent = request(controller::acquisition, controller::acquisitionOff, "acquisition off") &&
                      request(controller::xPixels, settings.xPixels, "x pixels") &&
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
    if (!request(controller::acquisition, controller::acquisitionOff, "acquisition off"))
        end(tr("the request to stop could not be sent"));
}

bool Scan::request(int address, qint64 value, const char* name)
{
    const int number = m_link->set(address, static_cast<int>(value));
    if (number == 0) return false;
    m_waiting.insert(number, QStringLiteral("%1 = %2").arg(QLatin1String(name)).arg(value));
    m_confirmTimer.start();
    return true;
}

void Scan::onAcknowledged(int number, int /*address*/, int /*index*/, int reason, int /*value*/)
{
    const auto waiting = m_waiting.constFind(number);
    if (waiting == m_waiting.constEnd()) return;
    if (reason != controller::reasonOk) {
        end(tr("the controller refused %1: %2").arg(*waiting, QLatin1String(tracePrintReason(reason))));
        return;
    }
    m_waiting.erase(waiting);
    if (!m_waiting.isEmpty()) return;
    m_confirmTimer.stop();
    proceed();
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
        sent = request(controller::acquisition, m_settings.acquisition(), "acquisition");
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
        proceedToIdle();
        break;
    case State::Running:
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
    m_waiting.clear();
    proceedToIdle();
}

void Scan::proceedToIdle()
{
    m_confirmTimer.stop();
    m_accepting = false;
    setState(State::Idle);
    emit stopped();
}

void Scan::setState(State state)
{
    m_state = state;
    emit stateChanged();
}

void Scan::end(const QString& failure)
{
    m_waiting.clear();
    m_confirmTimer.stop();
    m_accepting = false;
    if (!isIdle()) {
        if (m_link->state() == ControllerLink::Connected)
            m_link->set(controller::acquisition, controller::acquisitionOff);
        setState(State::Idle);
    }
    emit failed(failure);
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
    if (!request(controller::acquisition, controller::acquisitionOff, "acquisition off"))
        end(tr("the request to stop could not be sent"));
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
