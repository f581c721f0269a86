#include "client.h"

#include <QByteArray>
#include <QTcpSocket>
#include <QtEndian>

Client::Client(QTcpSocket* socket, QObject* parent)
    : QObject(parent)
    , m_socket(socket)
{
    m_socket->setParent(this);
    m_socket->setReadBufferSize(2 * maxLength);
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(m_socket, &QTcpSocket::readyRead, this, &Client::active);
    connect(m_socket, &QTcpSocket::bytesWritten, this, &Client::active);
    // Queued: the server may be walking its list of connections when one of them closes.
    connect(m_socket, &QTcpSocket::disconnected, this, &Client::closed, Qt::QueuedConnection);
}

bool Client::takeRequest(Request* request)
{
    if (!isLive()) return false;
    char header[24];
    if (m_socket->peek(header, 4) < 4) return false;
    const qint32 length = qFromLittleEndian<qint32>(header);
    if (length < 16 || length % 4 != 0 || length > maxLength) {
        m_socket->abort();
        return false;
    }
    if (m_socket->bytesAvailable() < 4 + length) return false;
    const qint64 count = qMin<qint64>(sizeof header, 4 + length);
    if (m_socket->read(header, count) != count || m_socket->skip(4 + length - count) != 4 + length - count) {
        m_socket->abort();
        return false;
    }
    request->type = qFromLittleEndian<quint32>(header + 4);
    request->address = qFromLittleEndian<qint32>(header + 8);
    request->index = qFromLittleEndian<qint32>(header + 12);
    request->number = qFromLittleEndian<qint32>(header + 16);
    request->hasWord = length >= 20;
    request->word = request->hasWord ? qFromLittleEndian<qint32>(header + 20) : 0;
    return true;
}

void Client::send(const char* bytes, std::size_t size)
{
    if (isLive()) m_socket->write(bytes, qint64(size));
}

std::int64_t Client::unsentBytes() const
{
    return m_socket->bytesToWrite();
}

bool Client::isLive() const
{
    return !m_stalled && m_socket->state() == QAbstractSocket::ConnectedState;
}

void Client::stall()
{
    m_stalled = true;
    m_socket->setReadBufferSize(1); // the peer's bytes stay where they are
}

void Client::close()
{
    m_socket->disconnectFromHost();
}
