#pragma once

#include <cstring>
#include <QByteArray>
#include <QElapsedTimer>
#include <QTcpSocket>
#include <vector>

/// A telegram as a test sees it.
struct Seen
{
    qint32 length = 0, type = -1, address = 0, index = 0, number = 0;
    std::vector<qint32> words;
};

/// A plain socket that speaks telegrams, with none of the code under test.
class Probe
{
public:
    explicit Probe(int port)
    {
        socket.connectToHost(QStringLiteral("127.0.0.1"), quint16(port));
        socket.waitForConnected(5000);
    }

    void send(const std::vector<qint32>& words)
    {
        socket.write(reinterpret_cast<const char*>(words.data()), 4 * qint64(words.size()));
        socket.flush();
    }
    void request(qint32 type, qint32 address, const std::vector<qint32>& data, qint32 index = 0)
    {
        std::vector<qint32> words = {qint32(16 + 4 * data.size()), type, address, index, ++number};
        words.insert(words.end(), data.begin(), data.end());
        send(words);
    }

    /// The next telegram; type -1 when none comes within 10 s or the connection ends first.
    Seen next()
    {
        Seen seen;
        qint32 header[5];
        if (!has(4)) return seen;
        socket.peek(reinterpret_cast<char*>(header), 4);
        if (header[0] < 16 || !has(4 + header[0])) return seen;
        const QByteArray bytes = socket.read(4 + header[0]);
        std::memcpy(header, bytes.constData(), 20);
        seen = {header[0], header[1], header[2], header[3], header[4], {}};
        seen.words.resize(std::size_t(header[0] - 16) / 4);
        std::memcpy(seen.words.data(), bytes.constData() + 20, 4 * seen.words.size());
        return seen;
    }
    /// The next telegram of an address and type.
    Seen next(qint32 type, qint32 address)
    {
        Seen seen = next();
        while (seen.type != -1 && (seen.type != type || seen.address != address)) seen = next();
        return seen;
    }
    /// Sends a request and returns its answer's words: reason, value.
    std::vector<qint32> ask(qint32 type, qint32 address, const std::vector<qint32>& data = {})
    {
        request(type, address, data);
        return next(3, address).words;
    }
    bool has(qint64 bytes)
    {
        while (socket.bytesAvailable() < bytes)
            if (!socket.waitForReadyRead(10000)) return false;
        return true;
    }
    /// Whether the other end closes within 10 s.
    bool closes()
    {
        while (socket.state() == QAbstractSocket::ConnectedState)
            if (!socket.waitForReadyRead(10000) && socket.error() == QAbstractSocket::SocketTimeoutError)
                return false;
        return true;
    }

    QTcpSocket socket;
    qint32 number = 0;
};
