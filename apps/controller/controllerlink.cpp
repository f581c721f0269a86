#include "controllerlink.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <QPointer>
#include <QtEndian>
#include <utility>
#include <vorelutil/tcp/iqtcp.h>
#include <vorelutil/trace/telegram.h>
#include <vorelutil/trace/tracelog.h>

using namespace controller;

namespace {

constexpr int pollMilliseconds = 500;
constexpr int deadPolls = 6;   ///< an overload that goes on so long, without a telegram, will not pass
constexpr int quietPolls = 20; ///< an overload that goes on is told so seldom
constexpr int retryMilliseconds = 1000;

int category(const TelegramView& telegram)
{
    if (telegram.type != typeTell) return categoryRequest;
    return telegram.address == samples ? categorySamples : categoryTell;
}

/// The trace wants an aligned record and shows at most 128 data words of it.
void trace(const char* direction, const TelegramView& telegram)
{
    struct Record
    {
        UcTelegram header;
        std::int32_t words[128];
    } record;
    const std::size_t size = sizeof(UcTelegram) + 4 * telegram.wordCount;
    std::memcpy(static_cast<void*>(&record), telegram.bytes, std::min(size, sizeof record));
    traceTelegram(direction, &record.header, category(telegram));
}

} // namespace

ControllerLink::ControllerLink(QObject* parent)
    : QObject(parent)
{
    m_pollTimer.setInterval(pollMilliseconds);
    m_retryTimer.setSingleShot(true);
    m_retryTimer.setInterval(retryMilliseconds);
    connect(&m_pollTimer, &QTimer::timeout, this, &ControllerLink::poll);
    connect(&m_retryTimer, &QTimer::timeout, this, &ControllerLink::open);
}

ControllerLink::~ControllerLink() = default;

void ControllerLink::connectTo(const QString& host, int port)
{
    close();
    m_host = host;
    m_port = port;
    m_wasConnected = false;
    m_lostReason.clear();
    m_pending.clear();
    open();
    setState(Connecting);
}

void ControllerLink::disconnectFrom()
{
    close();
    m_pending.clear();
    setState(Off);
}

/// Starts a link object for host and port.
void ControllerLink::open()
{
    m_tcp = std::make_unique<IQTcp>(fifoSize, nullptr, "controller");
    connect(m_tcp.get(), &IQTcp::connected, this, &ControllerLink::changed);
    connect(m_tcp.get(), &IQTcp::error, this, &ControllerLink::failed);
    connect(m_tcp.get(), &IQTcp::dataReceived, this,
            [this](const char* block, int length) { receive(block, std::size_t(length)); });
    m_overloadPolls = -1;
    m_isReceiving = false;
    m_pollTimer.start();
    m_tcp->connectToHost(m_host, m_port);
}

void ControllerLink::close()
{
    m_pollTimer.stop();
    m_retryTimer.stop();
    m_tcp.reset();
}

QString ControllerLink::stateText() const
{
    const QString peer = QStringLiteral("%1:%2").arg(m_host).arg(m_port);
    switch (m_state) {
    case Off:
        break;
    case Connecting:
        return m_lostReason.isEmpty() ? QStringLiteral("connecting to %1").arg(peer)
                                      : QStringLiteral("connecting to %1: %2").arg(peer, m_lostReason);
    case Connected:
        return QStringLiteral("connected to %1").arg(peer);
    case Lost:
        return QStringLiteral("lost: %1").arg(m_lostReason);
    }
    return QStringLiteral("not connected");
}

void ControllerLink::setState(State state)
{
    if (m_state == state) return;
    m_state = state;
    emit stateChanged(state);
}

// Requests

int ControllerLink::set(int address, int value, int index)
{
    return request(typeSet, address, index, &value);
}

int ControllerLink::get(int address, int index)
{
    return request(typeGet, address, index, nullptr);
}

int ControllerLink::run(int address, int index)
{
    return request(typeDo, address, index, nullptr);
}

int ControllerLink::request(quint32 type, int address, int index, const int* word)
{
    const std::vector<char> bytes = encodeTelegram(type, address, index, 0, word, word == nullptr ? 0 : 1);
    return send(QByteArray(bytes.data(), int(bytes.size())));
}

int ControllerLink::send(QByteArray telegram)
{
    if (m_state != Connected || !m_tcp || m_pending.size() >= maxPending) return 0;
    const int number = m_lastNumber == 0x7FFFFFFF ? 1 : m_lastNumber + 1;
    if (telegram.size() >= int(sizeof(UcTelegram)))
        qToLittleEndian(number, telegram.data() + offsetof(UcTelegram, CNo));
    TelegramReader reader(telegram.constData(), std::size_t(telegram.size()));
    TelegramView sent;
    if (!reader.next(&sent) || sent.length + 4 != telegram.size()) return 0;
    if (!m_tcp->writeBlock(telegram.constData(), telegram.size())) return 0;
    m_lastNumber = number;
    m_pending.insert(number);
    ++m_telegrams;
    trace("tx", sent);
    return number;
}

// The link

void ControllerLink::changed(bool isConnected)
{
    if (!isConnected) { // the link's thread has ended by itself
        breakOff(QStringLiteral("the connection was closed"));
        return;
    }
    if (m_wasConnected) ++m_reconnects;
    m_wasConnected = true;
    m_lostReason.clear();
    setState(Connected);
}

/// An attempt failed or the connection broke; the link object goes on by itself.
void ControllerLink::failed()
{
    const QString code = m_tcp->getErrorMsg();
    const int number = code.mid(code.indexOf(QLatin1Char('#')) + 1).toInt();
    QString reason;
    if (number > 0) {
        reason = QStringLiteral("%1 (%2)").arg(qt_error_string(number), code);
    } else if (!code.isEmpty()) {
        reason = QStringLiteral("the host is not known (%1)").arg(code);
    } else if (m_state == Connected) {
        reason = QStringLiteral("the controller closed the connection");
    } else {
        reason = QStringLiteral("no controller answers there");
    }
    const bool again = m_state != Connected && !m_lostReason.isEmpty();
    const QPointer<ControllerLink> self(this);
    const int dropped = m_pending.size();
    m_pending.clear();
    if (!again) {
        ++m_errors;
        m_lostReason = reason;
    }
    setState(m_wasConnected ? Lost : Connecting);
    if (self && !again) emit problem(QStringLiteral("%1:%2: %3").arg(m_host).arg(m_port).arg(reason));
    if (self && dropped > 0) emit problem(QStringLiteral("%1 requests were not answered").arg(dropped));
}

/// The link cannot go on as it is: ends it, and connects anew a little later.
void ControllerLink::breakOff(const QString& reason)
{
    close();
    m_retryTimer.start();
    ++m_errors;
    m_lostReason = reason;
    const QPointer<ControllerLink> self(this);
    const int dropped = m_pending.size();
    m_pending.clear();
    setState(Lost);
    if (self) emit problem(QStringLiteral("%1:%2: %3").arg(m_host).arg(m_port).arg(reason));
    if (self && dropped > 0) emit problem(QStringLiteral("%1 requests were not answered").arg(dropped));
}

// What waits for room says so again and again, several times between two polls. While a telegram is in hand,
// a slot takes its time, and nothing is wrong with the controller.
void ControllerLink::poll()
{
    const bool overloaded = m_tcp->getAndClearOverload();
    if (m_quietPolls > 0) --m_quietPolls;
    if (!overloaded) {
        m_overloadPolls = -1;
    } else if (m_overloadPolls < 0) {
        m_overloadPolls = 0;
        const bool told = std::exchange(m_quietPolls, quietPolls) > 0;
        if (!told) emit problem(QStringLiteral("the controller sends more than is processed; it is held up"));
    } else if (!m_isReceiving && ++m_overloadPolls >= deadPolls) {
        breakOff(QStringLiteral("a telegram arrived that is too long to be one"));
    }
}

// What arrives

void ControllerLink::receive(const char* block, std::size_t length)
{
    TelegramReader reader(block, length);
    TelegramView telegram;
    const QPointer<IQTcp> tcp(m_tcp.get());
    m_isReceiving = true; // the link hands over the next block after this one only
    while (reader.next(&telegram)) {
        ++m_telegrams;
        trace("rx", telegram);
        dispatch(telegram);
        if (tcp.isNull()) return; // a slot has ended this link, or deleted this object
        m_overloadPolls = -1;
    }
    m_isReceiving = false;
    if (reader.malformed()) breakOff(QStringLiteral("what arrived is no telegram"));
}

void ControllerLink::dispatch(const TelegramView& telegram)
{
    const auto pending = m_pending.find(telegram.number);
    if (telegram.type != typeAck || pending == m_pending.end() || telegram.wordCount < 1) {
        emit told(telegram);
        return;
    }
    m_pending.erase(pending);
    const int reason = telegram.word(0);
    if (reason != reasonOk) ++m_errors;
    emit acknowledged(telegram.number, telegram.address, telegram.index, reason, telegram.word(1));
}
