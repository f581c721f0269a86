#pragma once

#include "download.h"

#include <cstdint>
#include <QObject>

class QTcpSocket;

/// One connection to the simulated controller: requests in, bytes out, both within bounds.
class Client : public QObject
{
    Q_OBJECT

public:
    struct Request
    {
        std::uint32_t type = 0;
        std::int32_t address = 0;
        std::int32_t index = 0;
        std::int32_t number = 0;
        std::int32_t word = 0; ///< first data word
        bool hasWord = false;
        std::uint32_t dataSize = 0; ///< bytes
        std::uint32_t dataSum = 0;  ///< CRC-32 of the data of a flash block; what else is sent has none
    };

    static constexpr int maxLength = 1024 * 1024; ///< largest `Len` that is accepted

    /// Takes over the socket.
    Client(QTcpSocket* socket, QObject* parent);

    /// Takes the next request off the connection; false when no whole one is there. A length that no request
    /// has (below 16, not a multiple of 4, above `maxLength`) closes the connection.
    bool takeRequest(Request* request);

    /// Queues bytes; they are dropped on a connection that is closed or stalled.
    void send(const char* bytes, std::size_t size);
    std::int64_t unsentBytes() const;

    /// Open and not stalled.
    bool isLive() const;
    /// Nothing is sent and nothing is read any more; the connection stays open.
    void stall();
    /// Closes the connection once everything that was queued is sent.
    void close();

    int waiting = 0;   ///< requests taken and not confirmed
    Download download; ///< that this connection has under way

signals:
    /// There may be requests to take, or room to send.
    void active();
    void closed();

private:
    bool skipData(Request* request);

    QTcpSocket* m_socket;
    bool m_stalled = false;
};
