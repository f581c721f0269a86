#include "tests/support/loopback.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QEvent>
#include <thread>
#include <vorelutil/tcp/iqtcp.h>

using namespace loopback;

namespace {

/// A link with a record of its signals, in order, and of what arrived.
struct Link
{
    QStringList signals_;
    Bytes data;
    QString at; ///< the signal inside which `action` is called once
    std::function<void()> action;
    std::unique_ptr<IQTcp> tcp;

    Link()
        : tcp(std::make_unique<IQTcp>(100000, nullptr, "link"))
    {
        QObject::connect(tcp.get(), &IQTcp::connected, [this](bool on) { note(on ? "on" : "off"); });
        QObject::connect(tcp.get(), &IQTcp::error, [this] { note("error"); });
        QObject::connect(tcp.get(), &IQTcp::dataReceived, [this](char* buffer, int length) {
            const Bytes before(buffer, static_cast<std::size_t>(length));
            data += before;
            note("data");
            EXPECT_EQ(Bytes(buffer, before.size()), before) << "kept until the slot returns";
        });
    }
    void note(const QString& name)
    {
        if (name != "data") signals_ << name;
        if (at == name && action) std::exchange(action, nullptr)();
    }
    /// Connects to the listener, up to the signal.
    Peer connectTo(const Listener& listener)
    {
        EXPECT_TRUE(tcp->connectToHost("127.0.0.1", listener.port()));
        Peer peer = listener.accept();
        EXPECT_TRUE(eventually([this] { return signals_.contains("on"); }));
        return peer;
    }
    /// The signals that an event of this type leads to.
    QStringList send(int type)
    {
        signals_.clear();
        QEvent event(static_cast<QEvent::Type>(type));
        EXPECT_TRUE(QCoreApplication::sendEvent(tcp.get(), &event));
        return signals_;
    }
};

std::ptrdiff_t threadCount()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

} // namespace

TEST(IQTcp, LivesOneLifeFromIdleToClosing)
{
    Listener listener;
    Link link;
    EXPECT_FALSE(link.tcp->disconnect());
    Peer peer = link.connectTo(listener);
    EXPECT_FALSE(link.tcp->connectToHost("127.0.0.1", 1));
    peer.write(frame("one") + frame("two"));
    EXPECT_TRUE(eventually([&] { return link.data == frame("one") + frame("two"); }));
    EXPECT_TRUE(link.tcp->writeBlock("reply", 5));
    EXPECT_EQ(peer.read(5), "reply");

    peer.shut(); // lost: it connects again
    EXPECT_TRUE(eventually([&] { return link.signals_ == QStringList{"on", "error", "on"}; }));
    EXPECT_EQ(link.tcp->getErrorMsg(), "");
    peer = listener.accept();
    peer.write(Bytes("\xff\xff\xff\xff", 4)); // broken: it connects again as well
    EXPECT_TRUE(eventually([&] { return link.signals_ == QStringList{"on", "error", "on", "error", "on"}; }));
    EXPECT_EQ(link.tcp->getErrorMsg(), "WSA_Error #71");

    EXPECT_TRUE(link.tcp->disconnect());
    peer = listener.accept();
    EXPECT_EQ(peer.read(1), "");
    for (const int type : {1000, 1001, 1002, 1003}) EXPECT_EQ(link.send(type), QStringList()) << type;
    EXPECT_EQ(link.tcp->getState(), IQTcp::Closing);
    EXPECT_FALSE(link.tcp->connectToHost("127.0.0.1", listener.port()));
}

TEST(IQTcp, TurnsEventsIntoStatesAndSignals)
{
    Link link;
    EXPECT_EQ(link.send(1000), QStringList{"on"});
    EXPECT_EQ(link.tcp->getState(), IQTcp::Connected);
    EXPECT_EQ(link.send(1003), QStringList{"error"});
    EXPECT_EQ(link.tcp->getState(), IQTcp::Connecting);
    link.tcp->setPatient();
    EXPECT_EQ(link.send(1003), QStringList()) << "last error 0 and still patient";
    EXPECT_EQ(link.send(1002), QStringList{"off"});
    EXPECT_EQ(link.tcp->getState(), IQTcp::Idle);
    EXPECT_TRUE(link.tcp->connectToHost(QString(64, 'x'), 1)); // a new life, and patient no more
    EXPECT_TRUE(eventually([&] { return link.signals_.contains("error"); }));
    EXPECT_TRUE(link.tcp->getErrorMsg().startsWith("WSA_Error #"));
}

TEST(IQTcp, IsDestroyedWhateverItsThreadWaitsFor)
{
    Listener silent, closed, full(0);
    closed.stop();
    full.fillBacklog();
    std::thread([] {}).join(); // the first thread may bring one of a sanitizer's along
    const auto threads = threadCount();
    Link links[4];
    const Peer stalled = links[0].connectTo(silent);
    stalled.write(frame("incomplete").substr(0, 9));
    links[1].tcp->connectToHost("127.0.0.1", closed.port());
    EXPECT_TRUE(eventually([&] { return links[1].signals_.contains("error"); })); // pauses now
    links[2].tcp->connectToHost("127.0.0.1", full.port());                        // is never answered
    links[3].tcp->connectToHost(QString(64, 'x'), 1);
    for (int i = 3; i >= 0; --i) {
        QElapsedTimer clock;
        clock.start();
        links[i].tcp.reset();
        EXPECT_LT(clock.elapsed(), 1000) << i;
    }
    EXPECT_TRUE(eventually([&] { return threadCount() == threads; })) << "no thread is left behind";
}

TEST(IQTcp, LeavesAThreadBehindThatTouchesNothingOfIt)
{
    static std::atomic<bool> held, released; // the thread is inside its debug message; it may go on
    held = released = false;
    const QtMessageHandler before = qInstallMessageHandler([](auto, const auto&, const auto&) {
        held = true;
        for (const QDeadlineTimer limit(20000); !released && !limit.hasExpired();) usleep(1000);
    });
    std::thread([] {}).join();
    const auto threads = threadCount();
    const Listener listener;
    Link link;
    const Peer peer = link.connectTo(listener);
    peer.write(frame(Bytes(100000, 'x')));
    EXPECT_TRUE(eventually([] { return held.load(); }));
    link.tcp.reset();
    EXPECT_EQ(threadCount(), threads + 1);
    EXPECT_EQ(peer.read(1), "");
    released = true;
    EXPECT_TRUE(eventually([&] { return threadCount() == threads; }));
    qInstallMessageHandler(before);
}

TEST(IQTcp, TellsWhatFoundNoRoomBeforeItWasConnected)
{
    const Listener listener;
    Link link;
    link.tcp->connectToHost("127.0.0.1", listener.port());
    const Peer peer = listener.accept();
    peer.write(frame(Bytes(100000, 'x')));
    EXPECT_EQ(peer.read(1), "") << "closed, while the event is not handled";
    EXPECT_TRUE(eventually([&] { return link.signals_.contains("error"); }));
    EXPECT_EQ(link.tcp->getErrorMsg(), "WSA_Error #105");
}

TEST(IQTcp, ConnectsDisconnectsAndDiesFiveHundredTimes)
{
    for (int i = 0; i < 500; ++i) {
        const Listener listener;
        Link link;
        ASSERT_TRUE(link.tcp->connectToHost("127.0.0.1", listener.port()));
        const Peer peer = i % 3 != 0 ? listener.accept() : Peer();
        peer.write(frame("hello"));
        ASSERT_TRUE(i % 3 == 0 || eventually([&] { return !link.signals_.empty(); })) << i;
        if (i % 5 == 0) link.tcp->writeBlock("x", 1);
        if (i % 2 == 0) link.tcp->disconnect();
    }
}

TEST(IQTcp, SurvivesWhatSlotsDo)
{
    const Listener listener;
    Link nested; // an event loop, in which more arrives than finds room: nothing twice, nothing lost
    Peer peer = nested.connectTo(listener);
    const Bytes more = frame(Bytes(60000, 'b')) + frame(Bytes(50000, 'c'));
    nested.at = "data";
    nested.action = [&] {
        peer.write(more);
        EXPECT_TRUE(eventually([&] {
            QMetaObject::invokeMethod(nested.tcp.get(), "readFromFifo");
            return nested.tcp->getAndClearOverload();
        }));
        nested.data += "|";
    };
    peer.write(frame("first"));
    EXPECT_TRUE(eventually([&] { return nested.data.size() >= 10 + more.size(); }));
    EXPECT_TRUE(nested.data == frame("first") + "|" + more);

    for (const bool deleting : {false, true}) {
        for (const char* signal : {"on", "error", "data"}) {
            SCOPED_TRACE(signal);
            const Listener own;
            Link link;
            link.at = signal;
            link.action = [&] {
                if (deleting) link.tcp.reset();
                EXPECT_TRUE(deleting || link.tcp->disconnect());
            };
            link.tcp->connectToHost("127.0.0.1", own.port());
            peer = own.accept();
            if (link.at == "data") peer.write(frame("bye"));
            if (link.at == "error") peer.shut();
            EXPECT_TRUE(eventually([&] { return !link.action; }));
            EXPECT_EQ(peer.read(1), "");
            if (!deleting) QMetaObject::invokeMethod(link.tcp.get(), "readFromFifo");
            QCoreApplication::processEvents();
            EXPECT_EQ(link.data, link.at == "data" ? frame("bye") : "");
            EXPECT_EQ(link.signals_, link.at == "error" ? QStringList({"on", "error"}) : QStringList("on"));
        }
    }
}
