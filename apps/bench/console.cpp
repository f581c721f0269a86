#include "console.h"

#include "apps/controller/controllerlink.h"
#include "firmwareroad.h"
#include "timestamproad.h"

#include <chrono>
#include <QCoreApplication>
#include <vorelutil/frames/framebuffer.h>
#include <vorelutil/trace/error.h>
#include <vorelutil/trace/tracelog.h>

namespace bench {

namespace {
constexpr int heartbeatMilliseconds = 20;
constexpr int longestSilence = 60; ///< ms without the event loop
constexpr int breathMilliseconds = 20;
constexpr int watchMilliseconds = 500;
constexpr int checkMilliseconds = 20;
constexpr int quietWatches = 6; ///< without a telegram are told: 3 s
} // namespace

QString channelName(ScanKind kind)
{
    return kind == ScanKind::Stream ? QStringLiteral("signal") : QStringLiteral("height");
}

Console::Console(QObject* parent)
    : QObject(parent)
    , m_link(new ControllerLink(this))
    , m_scan(new Scan(m_link, this))
    , m_timeStamps(new TimeStampRoad(m_link, this))
    , m_firmware(new FirmwareRoad(m_link, this))
{
    connect(m_link, &ControllerLink::stateChanged, this, &Console::onLinkState);
    connect(m_link, &ControllerLink::acknowledged, this, &Console::onAcknowledged);
    // After the connections of scan and time stamps: what they had to do with a telegram is done.
    connect(m_link, &ControllerLink::told, this, &Console::breathe);
    connect(&m_heartbeat, &QTimer::timeout, this, [this] { m_sinceHeartbeat.start(); });
    m_sinceHeartbeat.start();
    m_heartbeat.start(heartbeatMilliseconds);
    connect(m_link, &ControllerLink::problem, this, [this](const QString& text) { tell(text, true); });
    connect(m_scan, &Scan::samplesAdded, this,
            [this](const int* data, int count) { m_log.add(data, count); });
    connect(m_scan, &Scan::frameDone, this, [this](const SharedFrame& frame) {
        const ScanKind kind = m_scan->settings().kind;
        m_frames[static_cast<int>(kind)] = frame;
        emit frameDone(kind);
    });
    connect(m_scan, &Scan::failed, this, [this](const QString& text, bool started) {
        tell((started ? tr("The scan has ended: %1") : tr("the scan could not start: %1")).arg(text), true);
        askForAcquisition();
        onScanEnded();
    });
    connect(m_scan, &Scan::stopFailed, this, [this](const QString& text) {
        tell(text, true);
        onScanEnded();
    });
    connect(m_scan, &Scan::stopped, this, [this] {
        tell(tr("The scan was stopped"), false);
        onScanEnded();
    });
    connect(m_firmware, &FirmwareRoad::message, this, &Console::tell);
    connect(m_timeStamps, &TimeStampRoad::message, this, &Console::tell);
    connect(m_timeStamps, &TimeStampRoad::partDecoded, this, &Console::handleEventsIfDue);
    connect(m_timeStamps, &TimeStampRoad::stateChanged, this, &Console::onStreamState);
    connect(m_timeStamps, &TimeStampRoad::stopped, this,
            [this] { tell(tr("The time-stamp stream was stopped"), false); });
    connect(m_timeStamps, &TimeStampRoad::failed, this,
            [this](const QString& text) { tell(tr("The time-stamp stream: %1").arg(text), true); });
    connect(m_timeStamps, &TimeStampRoad::eventsDecoded, this,
            [this](const PpTimest* events, std::size_t count) {
                m_eventLog.add(events, count);
                if (m_eventLog.hasFailed()) stopEventLog();
            });
    connect(&m_checkTimer, &QTimer::timeout, this, [this] {
        if (m_checkedLog.wait_for(std::chrono::seconds(0)) == std::future_status::ready) finishEventLog();
    });
    m_leaveTimer.setSingleShot(true);
    m_leaveTimer.setInterval(stopMilliseconds);
    connect(&m_leaveTimer, &QTimer::timeout, this, &Console::endLink);
    connect(&m_watchTimer, &QTimer::timeout, this, &Console::watch);
    m_watchTimer.start(watchMilliseconds);
}

Console::~Console()
{
    // As children they would go last, and signal to members that are gone.
    delete m_firmware;
    delete m_timeStamps;
    delete m_scan;
    delete m_link;
}

// The link hands on telegrams as long as there are any. A controller that sends faster than that would keep
// the event loop, and with it the window, from running at all.
void Console::breathe()
{
    ++m_arrived;
    handleEventsIfDue();
}

void Console::handleEventsIfDue()
{
    if (m_sinceHeartbeat.elapsed() < longestSilence) return;
    m_sinceHeartbeat.start();
    QCoreApplication::processEvents(QEventLoop::AllEvents, breathMilliseconds);
}

void Console::connectTo(const QString& host, int port)
{
    m_leaveTimer.stop();
    m_positionKnown = false;
    m_link->connectTo(host, port);
}

void Console::disconnectFrom()
{
    if (m_leaveTimer.isActive()) return;
    m_holds = 0;
    m_scanStops = !m_scan->isIdle();
    m_streamStops = !m_timeStamps->isIdle();
    m_firmware->cancel();
    m_leaveTimer.start();
    emit leaving();
    if (m_scanStops) m_scan->stop();
    if (m_streamStops) m_timeStamps->stop();
    endLinkIfLeaving();
}

void Console::release()
{
    --m_holds;
    endLinkIfLeaving();
}

void Console::endLinkIfLeaving()
{
    if (m_leaveTimer.isActive() && m_holds <= 0 && !m_scanStops && !m_streamStops) endLink();
}

void Console::onScanEnded()
{
    m_scanStops = false;
    endLinkIfLeaving();
}

/// An event log ends with the stream that it is of; one that waits for the first event goes on.
void Console::onStreamState()
{
    if (m_timeStamps->state() != TimeStampRoad::State::Running && m_eventLog.isRunning() &&
        m_eventLog.count() > 0)
        stopEventLog();
    if (!m_timeStamps->isIdle()) return;
    m_streamStops = false;
    endLinkIfLeaving();
}

void Console::endLink()
{
    m_leaveTimer.stop();
    m_link->disconnectFrom();
}

// Counted in looks and not in time: an event loop that was busy with something else is no silent controller.
void Console::watch()
{
    const bool quiet =
        m_arrived == m_arrivedThen && !m_link->isReceiving() && m_link->state() == ControllerLink::Connected;
    m_arrivedThen = m_arrived;
    if (quiet) {
        if (++m_quietWatches == quietWatches) tell(tr("nothing has come from the controller for 3 s"), true);
        return;
    }
    if (m_quietWatches >= quietWatches && m_link->state() == ControllerLink::Connected)
        tell(tr("telegrams come from the controller again"), false);
    m_quietWatches = 0;
}

void Console::askForAcquisition()
{
    m_acquisitionRequest = m_link->get(controller::acquisition);
}

void Console::setStillAcquiring(bool acquiring)
{
    if (m_stillAcquiring == acquiring) return;
    m_stillAcquiring = acquiring;
    emit stillAcquiringChanged();
}

void Console::stopScan()
{
    if (!m_scan->isIdle())
        m_scan->stop();
    else if (m_stillAcquiring)
        m_stopRequest = m_link->set(controller::acquisition, controller::acquisitionOff);
}

void Console::onLinkState()
{
    m_quietWatches = 0;
    if (m_link->state() == ControllerLink::Connected) {
        // It may go on for a link that was lost, or for someone else. Asked first: a scan that starts now is
        // none of that.
        askForAcquisition();
        // A link that was lost and is back goes on with the positions that it had.
        if (m_positionKnown)
            setReady(true);
        else
            m_positionRequest = m_link->get(controller::samplePosition);
    } else {
        m_positionRequest = 0;
        m_acquisitionRequest = 0;
        m_stopRequest = 0;
        setStillAcquiring(false);
        setReady(false);
    }
    // The window shows the state by itself.
    traceTrace("Link: %s", m_link->stateText().toUtf8().constData());
}

void Console::onAcknowledged(int number, int /*address*/, int /*index*/, int reason, int value)
{
    ++m_arrived;
    if (number == m_acquisitionRequest) {
        m_acquisitionRequest = 0;
        const bool acquires = reason == controller::reasonOk && value != controller::acquisitionOff;
        setStillAcquiring(acquires && m_scan->isIdle());
        if (m_stillAcquiring) tell(tr("the controller is still acquiring"), true);
    } else if (number == m_stopRequest) {
        m_stopRequest = 0;
        if (reason == controller::reasonOk) {
            setStillAcquiring(false);
            tell(tr("the controller has stopped acquiring"), false);
        } else {
            tell(tr("the controller refused to stop: %1").arg(QLatin1String(tracePrintReason(reason))), true);
        }
    }
    if (m_positionRequest == 0 || number != m_positionRequest) return;
    m_positionRequest = 0;
    // A controller that does not say starts at 0.
    m_scan->setFirstPosition(reason == controller::reasonOk ? value : 0);
    m_positionKnown = true;
    setReady(true);
}

void Console::setReady(bool ready)
{
    if (m_ready == ready) return;
    m_ready = ready;
    emit readyChanged(ready);
}

bool Console::startScan(const ScanSettings& settings)
{
    if (!m_ready) {
        tell(tr("A scan needs a connected controller"), true);
        return false;
    }
    if (!m_scan->start(settings)) {
        tell(tr("A scan is running already"), true);
        return false;
    }
    setStillAcquiring(false); // the scan ends it first, and asks again when that fails
    QString geometry = QString::number(settings.xPixels);
    if (settings.kind == ScanKind::Area) geometry += QStringLiteral(" x %1").arg(settings.yPixels);
    tell(tr("Scan: %1, %2 pixels, mode %3, %4 per second")
             .arg(scanKindName(settings.kind), geometry)
             .arg(settings.frameMode())
             .arg(settings.rate),
         false);
    return true;
}

SharedFrame Console::lastFrame(ScanKind kind) const
{
    return m_frames[static_cast<int>(kind)];
}

const FrameBuffer* Console::runningFrame(ScanKind kind) const
{
    return m_scan->settings().kind == kind ? m_scan->running() : nullptr;
}

SaveResult Console::save(Snapshot snapshot, ScanKind kind, const QString& target, bool forward)
{
    const SharedFrame whole = lastFrame(kind);
    const FrameBuffer* frame = whole != nullptr ? whole.get() : runningFrame(kind);
    if (frame == nullptr) return told({false, tr("There is no %1 to save yet").arg(scanKindName(kind))});
    return told(saveSnapshot(*frame, snapshot, target, channelName(kind), forward));
}

SaveResult Console::startLog(const QString& target)
{
    const ScanSettings& settings = m_scan->settings();
    FrameBuffer meta; // inactive: no samples
    describeFrame(settings, &meta);
    return told(m_log.start(meta, target, channelName(settings.kind)));
}

SaveResult Console::stopLog()
{
    return told(m_log.stop());
}

bool Console::startTimeStamps()
{
    if (!m_ready || !m_timeStamps->start()) {
        tell(m_ready ? tr("A time-stamp stream is running already")
                     : tr("A time-stamp stream needs a connected controller"),
             true);
        return false;
    }
    tell(tr("Time stamps: %1 events per second").arg(m_timeStamps->settings().rate), false);
    return true;
}

SaveResult Console::saveHistogram(const QString& target)
{
    return told(bench::saveHistogram(m_timeStamps->settledHistogram().counts(), target));
}

SaveResult Console::startEventLog(const QString& target)
{
    if (isCheckingEvents()) return told({false, tr("The events before are still being checked")});
    const SaveResult result = m_eventLog.start(target);
    emit eventLogChanged();
    return told(result);
}

void Console::stopEventLog()
{
    if (!isLoggingEvents()) return;
    m_checkedLog = m_eventLog.stopInBackground();
    m_checkTimer.start(checkMilliseconds);
    emit eventLogChanged();
}

void Console::finishEventLog()
{
    if (!isCheckingEvents()) return;
    m_checkTimer.stop();
    const SaveResult result = m_checkedLog.get();
    emit eventLogChanged();
    told(result);
}

SaveResult Console::told(const SaveResult& result)
{
    tell(result.text, !result.ok);
    return result;
}

void Console::tell(const QString& text, bool isProblem)
{
    const QByteArray line = text.toUtf8();
    if (isProblem)
        traceError(false, "%s", line.constData());
    else
        traceTrace("%s", line.constData());
    emit message(text, isProblem);
}

} // namespace bench
