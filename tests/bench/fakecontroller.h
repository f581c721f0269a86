#pragma once

#include "apps/controller/telegrams.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QVector>

/// A controller that confirms every request at once and tells only what a test hands it.
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
            send(controller::typeAck, request.address, request.index, request.number, {0, request.word(0)});
        }
    }

    QTcpSocket* m_socket = nullptr;
    QByteArray m_bytes;
};
