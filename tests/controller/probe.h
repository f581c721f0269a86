#pragma once

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
    void request(qint32 type, qint32 address, const std::vector<qint32>& data = {}, qint32 index = 0)
    {
        std::vector<qint32> words = {qint32(16 + 4 * data.size()), type, address, index, ++number};
        words.insert(words.end(), data.begin(), data.end());
        send(words);
    }

    /// The next telegram; type -1 when none comes within 10 s or the connection ends first.
    Seen next()
    {
        Seen seen;
        if (has(4)) socket.peek(reinterpret_cast<char*>(&seen.length), 4);
        if (seen.length < 16 || !has(4 + seen.length)) return {};
        for (qint32* field : {&seen.length, &seen.type, &seen.address, &seen.index, &seen.number})
            socket.read(reinterpret_cast<char*>(field), 4);
        seen.words.resize(std::size_t(seen.length - 16) / 4);
        socket.read(reinterpret_cast<char*>(seen.words.data()), seen.length - 16);
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
        has(1 << 30);
        return socket.state() != QAbstractSocket::ConnectedState;
    }

    QTcpSocket socket;
    qint32 number = 0;
};
