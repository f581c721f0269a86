#include "simulator.h"

#include "server.h"

#include <QThread>

Simulator::Simulator(const Options& options)
    : m_options(options)
{
}

Simulator::~Simulator()
{
    if (!m_thread) return;
    if (m_server) QMetaObject::invokeMethod(m_server.get(), &Server::shutDown, Qt::BlockingQueuedConnection);
    m_thread->quit();
    m_thread->wait();
}

bool Simulator::start(QString* error)
{
    if (m_server) {
        *error = QStringLiteral("already started");
        return false;
    }
    m_server = std::make_unique<Server>(m_options);
    if (!m_thread) {
        m_thread = std::make_unique<QThread>();
        m_thread->setObjectName(QStringLiteral("simulator"));
        m_thread->start();
    }
    m_server->moveToThread(m_thread.get());
    bool opened = false;
    QMetaObject::invokeMethod(
        m_server.get(), [this, error] { return m_server->open(error); }, Qt::BlockingQueuedConnection,
        &opened);
    if (!opened) m_server.release()->deleteLater(); // in its thread
    return opened;
}

int Simulator::port() const
{
    return m_server ? m_server->port() : 0;
}

bool Simulator::parseFault(const QString& text, Fault* fault)
{
    struct Name
    {
        const char* text;
        FaultKind kind;
    };
    static constexpr Name names[] = {{"refuse", FaultKind::Refuse},
                                     {"drop", FaultKind::Drop},
                                     {"stall", FaultKind::Stall},
                                     {"length", FaultKind::Length},
                                     {"flood", FaultKind::Flood}};
    const int at = text.indexOf(QLatin1Char('@'));
    double seconds = 0.0;
    if (at >= 0) {
        bool ok = false;
        seconds = text.mid(at + 1).toDouble(&ok);
        if (!ok || !(seconds >= 0.0 && seconds <= 1e6)) return false;
    }
    for (const Name& name : names) {
        if (text.leftRef(at) != QLatin1String(name.text)) continue;
        *fault = {name.kind, seconds};
        return true;
    }
    return false;
}
