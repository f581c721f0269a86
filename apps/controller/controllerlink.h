#pragma once

#include "telegrams.h"

#include <memory>
#include <QByteArray>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

class IQTcp;

/// The application's end of a controller link: telegrams over an `IQTcp`.
///
/// Sends "SET", "GET" and "DO" with running telegram numbers, matches the "ACK"s, hands on "TELL"s, and
/// traces every telegram with `traceTelegram` ("tx", "rx"; categories: `controller::TraceCategory`). A link
/// that is lost comes back by itself, also when it had to be dropped because what arrived was no telegram.
/// GUI thread only.
///
/// Slots may call any function, and may delete the object.
class ControllerLink : public QObject
{
    Q_OBJECT

public:
    enum State
    {
        Off,
        Connecting,
        Connected,
        Lost
    };
    Q_ENUM(State)

    static constexpr int fifoSize = 8 * 1024 * 1024;
    static constexpr int maxPending = 10000; ///< unanswered requests

    explicit ControllerLink(QObject* parent = nullptr);
    ~ControllerLink() override;

    /// Connects anew; an earlier link is ended first. Result: see `stateChanged`.
    void connectTo(const QString& host, int port);
    /// Ends the link. Requests that are not answered yet are forgotten.
    void disconnectFrom();

    State state() const { return m_state; }
    /// The state in words for the operator ("connected to 127.0.0.1:4001", "lost: ...").
    QString stateText() const;

    /// Send one request. Result: its telegram number (above 0), or 0 when it could not be sent: the link is
    /// not connected, sending failed, or `maxPending` requests are unanswered.
    int set(int address, int value, int index = 0);
    int get(int address, int index = 0);
    int run(int address, int index = 0); ///< "DO"
    /// Sends a whole telegram, whose `CNo` becomes its number. One that is none (its length word does not say
    /// its size) is not sent: 0.
    int send(QByteArray telegram);

    /// What arrived is being dispatched: true in a slot of `told` or `acknowledged`, and in an event loop
    /// that one runs.
    bool isReceiving() const { return m_isReceiving; }

    /// Counters since construction.
    qint64 telegramCount() const { return m_telegrams; } ///< sent and received
    /// Link errors, refusals and malformed telegrams. Attempts that fail one after the other count once.
    int errorCount() const { return m_errors; }
    int reconnectCount() const { return m_reconnects; } ///< connections after the first of a `connectTo`

signals:
    void stateChanged(ControllerLink::State state);
    /// A request was answered. `reason` 0 is success; `value` is the controller's value after it.
    void acknowledged(int number, int address, int index, int reason, int value);
    /// A telegram that answers no request. The view is valid during the signal only.
    void told(const controller::TelegramView& telegram);
    /// Something went wrong that the operator should know; `text` is for people.
    void problem(const QString& text);

private:
    void open();
    void close();
    void changed(bool connected);
    void failed();
    void receive(const char* block, std::size_t length);
    void dispatch(const controller::TelegramView& telegram);
    void breakOff(const QString& reason);
    void poll();
    void setState(State state);
    int request(quint32 type, int address, int index, const int* word);

    std::unique_ptr<IQTcp> m_tcp; ///< null while off, and between a broken link and the next attempt
    QTimer m_pollTimer;
    QTimer m_retryTimer;
    QString m_host;
    int m_port = 0;
    State m_state = Off;
    QString m_lostReason;        ///< of the last failure; empty: none since the link stood
    bool m_wasConnected = false; ///< since the last `connectTo`
    bool m_isReceiving = false;
    int m_overloadPolls = -1; ///< polls that an overload has gone on without a telegram; -1: no overload
    int m_quietPolls = 0;     ///< polls until an overload is told again
    int m_lastNumber = 0;
    QSet<int> m_pending; ///< numbers of the unanswered requests
    qint64 m_telegrams = 0;
    int m_errors = 0;
    int m_reconnects = 0;
};
