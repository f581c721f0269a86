#include "iqtcp.h"

#include "iqtcpthread.h"

#include <memory>
#include <mutex>
#include <QEvent>
#include <QPointer>
#include <QTimer>

namespace {

constexpr int drainDelayMs = 30; ///< so that more frames gather before a drain
constexpr int endPolls = 50;
constexpr int endPollMs = 10;

enum EventType : int
{
    EventConnected = 1000,
    EventData,
    EventDisconnected,
    EventError
};

} // namespace

// The socket library needs no start-up here, so the once-per-process call that other systems ask for has no
// counterpart.
IQTcp::IQTcp(int fifoSize, QObject* parent, const char* name)
    : QObject(parent)
    , m_name(name)
    , m_thread(new IQTcpThread(fifoSize, this, m_name, std::make_unique<IMutex>()))
{
}

IQTcp::~IQTcp()
{
    disconnect();
    m_thread->shutdown();
    // A thread that the system has not even begun to run is waited for: it needs m_thread to begin.
    for (int i = 0; !m_thread->finished() && (i < endPolls || !m_thread->hasEntered()); ++i) {
        IThread::sleep(endPollMs);
    }
    delete m_thread;
}

bool IQTcp::connectToHost(const QString& host, int port)
{
    IQTcpThread::Core& core = *m_thread->core();
    if (core.state != Idle) return false;
    m_host = host;
    m_port = port;
    {
        const std::lock_guard lock(*core.socketMutex);
        core.host = m_host.toLatin1().toStdString();
        core.port = static_cast<std::uint16_t>(m_port);
    }
    core.patient = false;
    core.state = Connecting;
    core.entered = false;
    m_thread->start();
    return true;
}

bool IQTcp::disconnect()
{
    IQTcpThread::Core& core = *m_thread->core();
    const std::lock_guard lock(*core.socketMutex);
    if (core.state == Idle) return false;
    core.state = Closing;
    m_thread->disconnect(0);
    return true;
}

void IQTcp::setPatient()
{
    m_thread->core()->patient = true;
}

QString IQTcp::getErrorMsg() const
{
    const int code = m_thread->core()->lastError;
    if (code == 0) return QString();
    const QString text = QStringLiteral("WSA_Error #") + QString::number(code);
    return text.isEmpty() ? QStringLiteral("Unknown Error") : text;
}

bool IQTcp::getAndClearOverload()
{
    return m_thread->getAndClearOverload();
}

IQTcp::State IQTcp::getState() const
{
    return static_cast<State>(m_thread->core()->state.load());
}

bool IQTcp::writeBlock(const char* buffer, int length)
{
    return m_thread->writeBlock(buffer, length);
}

bool IQTcp::event(QEvent* e)
{
    const int type = e->type();
    if (type < EventConnected || type > EventError) return QObject::event(e);
    IQTcpThread::Core& core = *m_thread->core();
    if (core.state == Closing) return true;
    // After an emit this object may be gone.
    switch (type) {
    case EventConnected:
        core.state = Connected;
        emit connected(true);
        break;
    case EventData:
        QTimer::singleShot(drainDelayMs, this, SLOT(readFromFifo()));
        break;
    case EventDisconnected:
        core.state = Idle;
        emit connected(false);
        break;
    default:
        core.state = Connecting;
        if (!core.patient || core.lastError != 0) emit error();
        break;
    }
    return true;
}

void IQTcp::readFromFifo()
{
    if (m_isDraining) return;
    const std::shared_ptr<IQTcpThread::Core> core = m_thread->core(); // a slot may delete this object
    const QPointer<IQTcp> self(this);
    m_isDraining = true;
    int length = 0;
    while (core->state != Closing) {
        char* const block = core->fifo.startRead(&length);
        if (block == nullptr) break;
        emit dataReceived(block, length);
        if (self.isNull()) return;
        core->fifo.finishRead(length);
    }
    m_isDraining = false;
    core->ackEvent();
}
