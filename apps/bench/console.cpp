#include "console.h"

#include "apps/controller/controllerlink.h"

#include <QCoreApplication>
#include <vorelutil/frames/framebuffer.h>
#include <vorelutil/trace/error.h>
#include <vorelutil/trace/tracelog.h>

namespace bench {

namespace {
constexpr int heartbeatMilliseconds = 20;
constexpr int longestSilence = 60; ///< ms without the event loop
constexpr int breathMilliseconds = 20;
} // namespace

QString channelName(ScanKind kind)
{
    return kind == ScanKind::Stream ? QStringLiteral("signal") : QStringLiteral("height");
}

Console::Console(QObject* parent)
    : QObject(parent)
    , m_link(new ControllerLink(this))
    , m_scan(new Scan(m_link, this))
{
    connect(m_link, &ControllerLink::stateChanged, this, &Console::onLinkState);
    connect(m_link, &ControllerLink::acknowledged, this, &Console::onAcknowledged);
    // After the scan's connection: what it had to do with a telegram is done.
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
    connect(m_scan, &Scan::failed, this,
            [this](const QString& text) { tell(tr("The scan has ended: %1").arg(text), true); });
    connect(m_scan, &Scan::stopped, this, [this] { tell(tr("The scan was stopped"), false); });
}

Console::~Console()
{
    // As children they would go last, and signal to members that are gone.
    delete m_scan;
    delete m_link;
}

// The link hands on telegrams as long as there are any. A controller that sends faster than that would keep
// the event loop, and with it the window, from running at all.
void Console::breathe()
{
    if (m_sinceHeartbeat.elapsed() < longestSilence) return;
    m_sinceHeartbeat.start();
    QCoreApplication::processEvents(QEventLoop::AllEvents, breathMilliseconds);
}

void Console::connectTo(const QString& host, int port)
{
    m_positionKnown = false;
    m_link->connectTo(host, port);
}

void Console::disconnectFrom()
{
    m_scan->stop();
    m_link->disconnectFrom();
}

void Console::onLinkState()
{
    if (m_link->state() == ControllerLink::Connected) {
        // A link that was lost and is back goes on with the positions that it had.
        if (m_positionKnown)
            setReady(true);
        else
            m_positionRequest = m_link->get(controller::samplePosition);
    } else {
        m_positionRequest = 0;
        setReady(false);
    }
    // The window shows the state by itself.
    traceTrace("Link: %s", m_link->stateText().toUtf8().constData());
}

void Console::onAcknowledged(int number, int /*address*/, int /*index*/, int reason, int value)
{
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
