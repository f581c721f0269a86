#pragma once

#include "apps/controller/telegrams.h"

#include <gtest/gtest.h>
#include <QTcpServer>
#include <QTcpSocket>
#include <QVector>

/// A controller that confirms every request at once, but for what a test says, and tells only what a test
/// hands it.
class FakeController : public QTcpServer
{
public:
    FakeController()
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            m_socket = nextPendingConnection();
            connect(m_socket, &QTcpSocket::readyRead, this, [this] { answer(); });
        });
    }

    void send(quint32 type, int address, int index, int number, const QVector<int>& words)
    {
        const auto bytes = controller::encodeTelegram(type, address, index, number, words.constData(),
                                                      std::size_t(words.size()));
        m_socket->write(bytes.data(), qint64(bytes.size()));
    }

    void drop() { m_socket->abort(); }

    int acquisition = 0; ///< as it was set last
    int stopReason = 0;  ///< answer to a stop; below 0: none

private:
    void answer()
    {
        m_bytes += m_socket->readAll();
        for (int length = 0; m_bytes.size() >= 4; m_bytes.remove(0, 4 + length)) {
            memcpy(&length, m_bytes.constData(), 4);
            if (m_bytes.size() < 4 + length) return;
            controller::TelegramReader reader(m_bytes.constData(), std::size_t(4 + length));
            controller::TelegramView request;
            ASSERT_TRUE(reader.next(&request));
            const bool isScan = request.address == controller::acquisition;
            const bool isSet = isScan && request.type == controller::typeSet;
            const int reason = isSet && request.word(0) == 0 ? stopReason : 0;
            if (isSet && reason == 0) acquisition = request.word(0);
            if (reason < 0) continue;
            send(controller::typeAck, request.address, request.index, request.number,
                 {reason, isScan ? acquisition : request.word(0)});
        }
    }

    QTcpSocket* m_socket = nullptr;
    QByteArray m_bytes;
};
