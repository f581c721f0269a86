#include "simulator.h"

#include "server.h"

#include <algorithm>
#include <QEventLoop>
#include <QTimer>

Simulator::Simulator(const Options& options)
    : m_options(options)
{
    setConfirmMilliseconds(options.confirmMilliseconds);
    setRefuseEvery(options.refuseEvery);
    setOwnChanges(options.ownChangesSeconds);
}

Simulator::~Simulator()
{
    if (!m_thread.joinable()) return;
    m_stop = true;
    m_thread.join();
}

bool Simulator::start(QString* error)
{
    if (m_thread.joinable()) {
        *error = QStringLiteral("already started");
        return false;
    }
    std::promise<int> port;
    std::future<int> opened = port.get_future();
    m_thread = std::thread([&] { serve(&port, error); });
    m_port = opened.get();
    if (m_port == 0) m_thread.join();
    return m_port != 0;
}

int Simulator::port() const
{
    return m_port;
}

void Simulator::setConfirmMilliseconds(int milliseconds)
{
    m_manner.confirmMilliseconds = std::max(milliseconds, 0);
}

void Simulator::setRefuseEvery(int every)
{
    m_manner.refuseEvery = every;
    ++m_manner.refuseTurn;
}

void Simulator::setOwnChanges(double seconds)
{
    const bool ever = seconds > 0.0; // false for a NaN, too
    m_manner.ownChangesNs = ever ? std::int64_t(std::min(seconds, 1e6) * 1e9) : 0;
}

/// The thread's body. The server is made, used and destroyed here; port and error are the caller's until the
/// port is told, 0 for a failure.
void Simulator::serve(std::promise<int>* port, QString* error)
{
    QEventLoop loop; // first: it gives the thread the dispatcher that timers and sockets need
    Server server(m_options, m_manner);
    if (!server.open(error)) {
        port->set_value(0);
        return;
    }
    QTimer stopping;
    QObject::connect(&stopping, &QTimer::timeout, [&] {
        if (m_stop) loop.quit();
    });
    stopping.start(10);
    port->set_value(server.port());
    loop.exec();
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
