#pragma once

#include "telegrams.h"

#include <memory>
#include <QHash>
#include <QObject>
#include <QString>

class IQTcp;

/// The application's end of a controller link: telegrams over an `IQTcp`.
///
/// Sends "SET", "GET" and "DO" with running telegram numbers, matches the "ACK"s, hands on "TELL"s, and
/// traces every telegram with `traceTelegram` ("tx", "rx"). A link that is lost comes back by itself. GUI
/// thread only.
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

    explicit ControllerLink(QObject* parent = nullptr);
    ~ControllerLink() override;

    /// Connects anew; an earlier link is ended first. Result: see `stateChanged`.
    void connectTo(const QString& host, int port);
    void disconnectFrom();

    State state() const { return m_state; }
    /// The state in words for the operator ("connected to 127.0.0.1:4001", "lost: ...").
    QString stateText() const;

    /// Send one request. Result: its telegram number (above 0), or 0 when it could not be sent.
    int set(int address, int value, int index = 0);
    int get(int address, int index = 0);
    int run(int address, int index = 0); ///< "DO"

    /// Counters since construction.
    qint64 telegramCount() const { return m_telegrams; } ///< sent and received
    int errorCount() const { return m_errors; }          ///< link errors, refusals and malformed telegrams
    int reconnectCount() const { return m_reconnects; }  ///< connections after the first of a `connectTo`

signals:
    void stateChanged(ControllerLink::State state);
    /// A request was answered. `reason` 0 is success; `value` is the controller's value after it.
    void acknowledged(int number, int address, int index, int reason, int value);
    /// A telegram that answers no request. The view is valid during the signal only.
    void told(const controller::TelegramView& telegram);
    /// Something went wrong that the operator should know; `text` is for people.
    void problem(const QString& text);

private:
    void receive(char* buffer, int length);
    void setState(State state);
    void fail(const QString& text);
    int send(quint32 type, int address, int index, const int* word);

    std::unique_ptr<IQTcp> m_tcp; ///< null while off
    QString m_host;
    int m_port = 0;
    State m_state = Off;
    QString m_lostReason;
    bool m_wasConnected = false; ///< since the last `connectTo`
    int m_lastNumber = 0;
    QHash<int, quint32> m_pending; ///< telegram number to type
    qint64 m_telegrams = 0;
    int m_errors = 0;
    int m_reconnects = 0;
};
