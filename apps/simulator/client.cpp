#include "client.h"

#include "apps/controller/addresses.h"

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
    char header[20];
    if (m_socket->peek(header, 4) < 4) return false;
    const qint32 length = qFromLittleEndian<qint32>(header);
    if (length < 16 || length % 4 != 0 || length > maxLength) {
        m_socket->abort();
        return false;
    }
    if (m_socket->bytesAvailable() < 4 + length) return false;
    if (m_socket->read(header, sizeof header) != sizeof header) {
        m_socket->abort();
        return false;
    }
    *request = Request();
    request->type = qFromLittleEndian<quint32>(header + 4);
    request->address = qFromLittleEndian<qint32>(header + 8);
    request->index = qFromLittleEndian<qint32>(header + 12);
    request->number = qFromLittleEndian<qint32>(header + 16);
    request->dataSize = quint32(length - 16);
    request->hasWord = request->dataSize > 0;
    if (skipData(request)) return true;
    m_socket->abort();
    return false;
}

/// Takes the data off the connection, and keeps of it what a request has; false when it is not there.
bool Client::skipData(Request* request)
{
    const bool isBlock =
        request->address == controller::flashBlock && request->dataSize <= Download::maxBlockSize;
    char piece[4096];
    qint64 left = request->dataSize;
    if (request->hasWord && m_socket->peek(piece, 4) == 4) request->word = qFromLittleEndian<qint32>(piece);
    if (!isBlock) return m_socket->skip(left) == left;
    while (left > 0) {
        const qint64 count = m_socket->read(piece, qMin<qint64>(left, sizeof piece));
        if (count <= 0) return false;
        request->dataSum = Download::checkSum(request->dataSum, piece, std::size_t(count));
        left -= count;
    }
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
