#include "tests/support/loopback.h"

#include <gtest/gtest.h>
#include <netdb.h>
#include <QElapsedTimer>
#include <QEvent>
#include <sys/ioctl.h>
#include <thread>
#include <vorelutil/tcp/iqtcp.h>
#include <vorelutil/tcp/iqtcpthread.h>

using namespace loopback;
using namespace std::string_literals;

namespace {

/// Keeps the events that are posted to it, with their times in milliseconds.
struct Recorder : QObject
{
    Recorder() { clock.start(); }
    QElapsedTimer clock;
    std::vector<int> types;
    std::vector<qint64> times;
    bool event(QEvent* e) override
    {
        if (e->type() < QEvent::User) return QObject::event(e);
        types.push_back(e->type());
        times.push_back(clock.elapsed());
        return true;
    }
    /// What is queued now or was seen since the last call.
    std::vector<int> take()
    {
        QCoreApplication::sendPostedEvents(this);
        return std::exchange(types, {});
    }
};

/// A socket thread under test, which is stopped at the end, and the peer that it may be connected to.
struct Fixture
{
    Recorder owner;
    IQTcpThread thread;
    IQTcpThread::Core& core = *thread.core();
    Peer peer;

    explicit Fixture(int fifoSize = 1000)
        : thread(fifoSize, &owner, "pair", std::make_unique<IMutex>())
    {
        int ends[2];
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
        peer = Peer(ends[1]);
        thread.adopt(std::make_shared<platform::Socket>(ends[0]));
    }
    Fixture(const std::string& host, std::uint16_t port)
        : thread(1000, &owner, "connector", std::make_unique<IMutex>())
    {
        core.host = host;
        core.port = port;
        core.state = IQTcp::Connecting;
    }
    ~Fixture()
    {
        thread.shutdown();
        thread.wait();
    }
    Bytes drain()
    {
        Bytes all;
        int count = 0;
        while (const char* block = core.fifo.startRead(&count)) {
            all.append(block, static_cast<std::size_t>(count));
            core.fifo.finishRead(count);
        }
        return all;
    }
};

const std::string unresolvable(64, 'x'); // a label of more than 63 characters
QStringList messages;

} // namespace

TEST(IQTcpThread, CutsTheStreamIntoWholeFrames)
{
    // Sent in pieces of a size, each once the one before has been read.
    const Bytes three = "\1\0\0\0a\0\0\0\0\2\0\0\0bc"s;
    // clang-format off
    const struct { const char* desc; Bytes wire; unsigned size; std::vector<int> reads; Bytes held; } rows[] = {
        {"three frames at once",       three,                             99, {5, 4, 6, -1}, three},
        {"three frames, byte by byte", three,                              1, {5, 4, 6, -1}, three},
        {"closed inside the length",   "\1\0\0\0a\4\0"s,                  99, {5, -1},       "\1\0\0\0a"s},
        {"closed inside the payload",  "\1\0\0\0a\4\0\0\0bcd"s,           99, {5, -1},       "\1\0\0\0a"s},
        {"length of -1",               "\1\0\0\0a\xff\xff\xff\xff" "bc"s, 99, {5, -1},       "\1\0\0\0a"s},
        {"lowest length",              "\0\0\0\x80" "abc"s,               99, {-1},          ""s},
        {"never fits, not connected",  "\xe5\3\0\0a"s,                    99, {0},           ""s},
    };
    // clang-format on
    for (const auto& row : rows) {
        Fixture pair;
        std::thread sender([&] {
            for (std::size_t i = 0; i < row.wire.size(); i += row.size) {
                pair.peer.write(row.wire.substr(i, row.size));
                int unread = 1;
                while (ioctl(pair.peer.descriptor, TIOCOUTQ, &unread) == 0 && unread > 0) sched_yield();
            }
            pair.peer.shut();
        });
        for (const int expected : row.reads) EXPECT_EQ(pair.thread.read(), expected) << row.desc;
        sender.join();
        EXPECT_EQ(pair.drain(), row.held) << row.desc;
    }
}

TEST(IQTcpThread, DeliversALongStreamUnchangedThroughASmallRing)
{
    Fixture pair(400000);
    pair.core.state = IQTcp::Connected;
    Bytes wire;
    for (unsigned random = 1; wire.size() < 8000000;) { // small and large, across all read-ahead boundaries
        random = random * 1664525U + 1013904223U;
        const std::size_t size = random >> 8U & (random >> 31U != 0 ? 0x3FU : 0xFFFFU);
        wire += frame(Bytes(size, static_cast<char>(random >> 24U)));
    }
    std::thread sender([&] { pair.peer.write(wire); });
    pair.thread.start();
    Bytes arrived;
    while (arrived.size() < wire.size() && eventually([&] { return !pair.owner.types.empty(); })) {
        ASSERT_EQ(pair.owner.take(), std::vector<int>{1001}) << "one data event at a time";
        arrived += pair.drain();
        pair.thread.ackEvent();
    }
    sender.join();
    EXPECT_TRUE(arrived == wire);
}

TEST(IQTcpThread, WaitsForRoomAndSaysSo)
{
    messages.clear();
    const QtMessageHandler before =
        qInstallMessageHandler([](auto, const auto&, const QString& text) { messages << text; });
    Fixture pair(100);
    pair.core.state = IQTcp::Connected;
    pair.peer.write(frame(Bytes(66, 'a')) + frame(Bytes(56, 'b')));
    EXPECT_EQ(pair.thread.read(), 70);
    int second = 0;
    std::thread reader([&] { second = pair.thread.read(); });
    EXPECT_TRUE(eventually([&] { return pair.thread.getAndClearOverload(); }));
    EXPECT_EQ(pair.drain(), frame(Bytes(66, 'a')));
    reader.join();
    EXPECT_EQ(pair.drain(), frame(Bytes(56, 'b')));
    ASSERT_EQ(messages.size(), 2);
    EXPECT_EQ(messages[0], "IQTcp (pair): Can't write into Fifo");
    EXPECT_TRUE(messages[1].startsWith("IQTcp (pair):  ... for ")) << messages[1].toStdString();

    for (const char* length : {"\x61\0\0", "\xff\xff\xff\x7f"}) { // 97 and INT_MAX can never fit
        messages.clear();
        pair.core.state = IQTcp::Connected;
        pair.core.overload = false;
        pair.peer.write(Bytes(length, 4));
        std::thread waiting([&] { second = pair.thread.read(); });
        EXPECT_TRUE(eventually([&] { return pair.thread.getAndClearOverload(); }));
        pair.core.state = IQTcp::Closing;
        waiting.join();
        EXPECT_EQ(second, 0);
        EXPECT_TRUE(messages.last().endsWith("can never fit"));
    }
    qInstallMessageHandler(before);
}

TEST(IQTcpThread, PostsEventsWhileItHasAnOwner)
{
    Fixture pair;
    pair.thread.triggerBuddy(IQTcpThread::TrigData);
    pair.thread.triggerBuddy(IQTcpThread::TrigData);
    EXPECT_EQ(pair.owner.take(), std::vector<int>{1001}) << "one until it is acknowledged";
    pair.thread.ackEvent();
    EXPECT_EQ(pair.owner.take(), std::vector<int>{}) << "nothing had arrived";
    pair.peer.write(frame("late"));
    pair.thread.read();
    pair.thread.ackEvent();
    EXPECT_EQ(pair.owner.take(), std::vector<int>{1001}) << "a frame that came during the drain";
    pair.core.state = IQTcp::Closing;
    pair.thread.start();
    pair.thread.wait();
    EXPECT_EQ(pair.owner.take(), std::vector<int>{1002}) << "it ended while connected";
    EXPECT_EQ(pair.peer.read(1), "") << "the socket is closed";
    pair.thread.shutdown();
    pair.thread.triggerBuddy(IQTcpThread::TrigDisconnected);
    EXPECT_EQ(pair.owner.take(), std::vector<int>{});
}

TEST(IQTcpThread, ReportsAttemptsWithTheirPauses)
{
    Listener closed;
    closed.stop();
    Fixture refused("127.0.0.1", closed.port());
    Fixture patient("127.0.0.1", closed.port());
    Fixture unknown(unresolvable, 1);
    patient.core.patient = true;
    for (Fixture* each : {&refused, &patient, &unknown}) each->thread.start();
    EXPECT_TRUE(eventually([&] { return patient.owner.times.size() > 1; }));
    EXPECT_TRUE(eventually([&] { return unknown.owner.times.size() > 10; }));
    EXPECT_FALSE(patient.core.patient);
    EXPECT_NE(unknown.core.lastError, 0);
    const auto gap = [](const Fixture& f, std::size_t i) { return f.owner.times[i] - f.owner.times[i - 1]; };
    // An event that is handled late shortens the gap behind it: the lower limits leave room for that.
    EXPECT_GE(gap(refused, 1), 1500) << "2 s";
    EXPECT_LT(gap(refused, 1), 2900) << "2 s";
    EXPECT_GE(gap(patient, 1), 2500) << "3 s";
    EXPECT_GE(unknown.owner.times[10] - unknown.owner.times[0], 2250) << "50 + 100 + ... + 500 ms";
    EXPECT_LT(gap(unknown, 1), 1500) << "no pause of 2 s";
}

TEST(IQTcpThread, ConnectsOnceWithAPlainResult)
{
    Listener listener;
    EXPECT_EQ(Fixture("127.0.0.1", listener.port()).thread.connect(), 1);
    // A bare system without a hosts file does not know the name.
    EXPECT_EQ(Fixture("localhost", listener.port()).thread.connect(), gethostbyname("localhost") ? 1 : -1);
    EXPECT_EQ(Fixture(unresolvable, 1).thread.connect(), -1);
    EXPECT_EQ(Fixture("", 1).thread.connect(), -1);
    listener.stop();
    EXPECT_EQ(Fixture("127.0.0.1", listener.port()).thread.connect(), 0);
    Fixture orphan("127.0.0.1", 1);
    orphan.thread.shutdown();
    EXPECT_EQ(orphan.thread.connect(), -1);
}

TEST(IQTcpThread, SendsBlocksAndFailsWithoutHarm)
{
    Fixture pair;
    EXPECT_TRUE(pair.thread.writeBlock("abc", 3));
    EXPECT_EQ(pair.peer.read(3), "abc");
    EXPECT_FALSE(pair.thread.writeBlock("abc", -1));
    pair.peer.shut();
    EXPECT_FALSE(pair.thread.writeBlock("abc", 3)) << "and the process lives";
    EXPECT_EQ(pair.core.lastError, EPIPE);
    EXPECT_FALSE(pair.thread.writeBlock("abc", 3)) << "not connected";
    EXPECT_TRUE(pair.thread.writeBlock("abc", 0));
    EXPECT_EQ(pair.owner.take(), std::vector<int>{1003}) << "told once";

    Fixture stopped; // a peer that does not read
    EXPECT_FALSE(stopped.thread.writeBlock(Bytes(8000000, 'x').data(), 8000000));
    EXPECT_EQ(stopped.owner.take(), std::vector<int>{1003});
    EXPECT_GE(stopped.owner.times[0], 4900);
    EXPECT_EQ(stopped.core.lastError, ETIMEDOUT);
}
