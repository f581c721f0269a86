#include <apps/controller/controllerlink.h>
#include <apps/simulator/simulator.h>
#include <functional>
#include <gmock/gmock.h>
#include <QDeadlineTimer>
#include <QTemporaryDir>
#include <tests/support/files.h>
#include <tests/support/loopback.h>
#include <thread>
#include <vorelutil/trace/tracelog.h>

using Link = ControllerLink;
using namespace std::string_literals;

namespace {

class ControllerLinkTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Link* l = link.get();
        QObject::connect(l, &Link::acknowledged, [this](auto... words) { acks.push_back({words...}); });
        QObject::connect(l, &Link::told, [this](const auto& tell) { told.push_back(tell.address); });
        QObject::connect(l, &Link::problem, [this](const QString& text) { problems << text; });
        QObject::connect(l, &Link::stateChanged, [this](Link::State state) { states.push_back(state); });
    }
    void open(int port) { link->connectTo(QStringLiteral("127.0.0.1"), port); }
    bool connects()
    {
        return eventually([this] { return link->state() == Link::Connected; });
    }
    bool connectSimulator()
    {
        if (QString error; simulator.start(&error)) open(simulator.port());
        return connects();
    }

    Simulator simulator{Simulator::Options()};
    std::unique_ptr<Link> link = std::make_unique<Link>();
    std::vector<std::vector<int>> acks;
    std::vector<int> told;
    QStringList problems;
    std::vector<Link::State> states;
};

} // namespace

TEST_F(ControllerLinkTest, MatchesAnswersAndHandsOnTells)
{
    EXPECT_EQ(link->get(0x21), 0); // not connected
    ASSERT_TRUE(connectSimulator());
    EXPECT_EQ(link->stateText(), QStringLiteral("connected to 127.0.0.1:%1").arg(simulator.port()));
    EXPECT_EQ(link->set(0x21, -5), 1);
    link->get(0x21, 2);
    link->run(0x21);
    EXPECT_EQ(link->set(0x25, 4096), 4);
    ASSERT_TRUE(eventually([this] { return acks.size() == 4 && told.size() >= 2; }));
    const std::vector<std::vector<int>> expected = {
        {1, 0x21, 0, 0, -5}, {2, 0x21, 2, 0, -5}, {3, 0x21, 0, 99, -5}, {4, 0x25, 0, 2, 0}};
    EXPECT_EQ(acks, expected);
    EXPECT_EQ(told[0], 0x27);
    EXPECT_EQ(link->errorCount(), 2);
    EXPECT_EQ(link->telegramCount(), 8 + qint64(told.size()));
    link->disconnectFrom();
    EXPECT_EQ(states, (std::vector{Link::Connecting, Link::Connected, Link::Off}));
    EXPECT_TRUE(problems.isEmpty());
}

TEST_F(ControllerLinkTest, SendsWholeTelegramsUnderItsOwnNumber)
{
    const auto telegram = [](const auto&... words) {
        const qint32 all[] = {words...};
        return QByteArray(reinterpret_cast<const char*>(all), sizeof all);
    };
    const QByteArray block = telegram(24, 0, 0x202, 0, 77, 5, 6);
    EXPECT_EQ(link->send(block), 0); // not connected
    ASSERT_TRUE(connectSimulator());
    for (const QByteArray& none :
         {QByteArray(), block.left(19), block.left(24), block + block, block + "abcd"})
        EXPECT_EQ(link->send(none), 0) << none.size();
    EXPECT_EQ(link->send(block), 1);
    EXPECT_EQ(link->get(0x21), 2);
    EXPECT_EQ(link->send(telegram(16, 2, 0x203, 9, 77)), 3);
    ASSERT_TRUE(eventually([this] { return acks.size() == 3; }));
    const std::vector<std::vector<int>> expected = {
        {1, 0x202, 0, 0, 1}, {2, 0x21, 0, 0, 0}, {3, 0x203, 9, 0, 145329873}};
    EXPECT_EQ(acks, expected);
}

TEST_F(ControllerLinkTest, TracesByCategory)
{
    QTemporaryDir dir;
    const std::string path = dir.filePath(QStringLiteral("trace.log")).toStdString();
    traceInit(path.c_str(), "", TRACE_ON | TRACE_FLUSH | controller::categoryRequest);
    ASSERT_TRUE(connectSimulator());
    link->get(0x21);
    ASSERT_TRUE(eventually([this] { return acks.size() == 1 && !std::exchange(told, {}).empty(); }));
    traceSetFlags(TRACE_ON | TRACE_FLUSH | TRACE_TELL | controller::categoryTell);
    ASSERT_TRUE(eventually([this] { return !told.empty(); }));
    link.reset();
    traceInit("", "", 0);
    const std::string stamp = "\\[[0-9.]+\\]: ";
    EXPECT_THAT(contents(path),
                ::testing::MatchesRegex(stamp + "tx: GET  Len=16 Addr=21 Ind=0 CNo=0-1\\.\n" + stamp +
                                        "rx: ACK  Len=24 Addr=21 Ind=0 CNo=0-1 0 0\\.\n" + stamp +
                                        "rx: TELL Len=20 Addr=27 Ind=0 CNo=0-0 .*"));
}

TEST_F(ControllerLinkTest, ComesBackAfterALossAndWhenWhatArrivesIsNoTelegram)
{
    for (const auto& [bytes, complaint] :
         {std::pair("\x05\0\0\0hello"s, "what arrived is no telegram"),
          {"\0\0\0\x40"s, "a telegram arrived that is too long to be one"}}) {
        problems.clear();
        states.clear();
        const int errors = link->errorCount(), reconnects = link->reconnectCount();
        const loopback::Listener server;
        open(server.port());
        const loopback::Peer peer = server.accept();
        ASSERT_TRUE(connects());
        link->get(0x21);
        EXPECT_EQ(peer.read(20).size(), 20U);
        peer.write(bytes);
        ASSERT_TRUE(eventually([&] { return link->reconnectCount() > reconnects; })) << complaint;
        ASSERT_GE(problems.size(), 2);
        EXPECT_TRUE(problems[problems.size() - 2].endsWith(QLatin1String(complaint)));
        EXPECT_EQ(problems.last(), QStringLiteral("1 requests were not answered"));
        EXPECT_EQ(states, (std::vector{Link::Connecting, Link::Connected, Link::Lost, Link::Connected}));
        EXPECT_EQ(link->errorCount(), errors + 1);
        link->disconnectFrom();
    }
}

TEST_F(ControllerLinkTest, StaysWhenASlotTakesItsTimeAndAfterABurst)
{
    const loopback::Listener server;
    open(server.port());
    const loopback::Peer peer = server.accept();
    ASSERT_TRUE(connects());
    const auto waitForPolls = [] { // more than an overload may last
        const QDeadlineTimer end(4500);
        eventually([&] { return end.hasExpired(); });
    };
    std::thread sender([&peer] { // more than waits in the link and in the system
        const auto block = controller::encodeTelegram(controller::typeTell, 7, 0, 0, nullptr, 0);
        const std::string text = loopback::Bytes(block.begin(), block.end());
        loopback::Bytes burst;
        for (int i = 0; i < 1000000; ++i) burst += text;
        for (std::size_t sent = 0; sent < burst.size(); sent += 2000) peer.write(burst.substr(sent, 2000));
    });
    bool waited = false;
    QObject::connect(link.get(), &Link::told, [&] {
        if (!std::exchange(waited, true)) waitForPolls();
    });
    EXPECT_TRUE(eventually([this] { return told.size() == 1000000 || link->state() == Link::Lost; }));
    sender.join();
    waitForPolls();
    EXPECT_EQ(link->state(), Link::Connected);
    EXPECT_EQ(problems.filter(QStringLiteral("held up")).size(), problems.size());
    EXPECT_GE(problems.size(), 1);
}

TEST_F(ControllerLinkTest, TellsOnceThatNobodyAnswers)
{
    loopback::Listener closed;
    closed.stop();
    open(closed.port());
    ASSERT_TRUE(eventually([this] { return !problems.isEmpty(); }));
    EXPECT_EQ(problems[0], QStringLiteral("127.0.0.1:%1: no controller answers there").arg(closed.port()));
    EXPECT_EQ(link->state(), Link::Connecting);
    const loopback::Listener later(16, closed.port());
    ASSERT_TRUE(connects());
    EXPECT_EQ(problems.size(), 1);
}

TEST_F(ControllerLinkTest, SlotsMayEndOrDeleteTheLink)
{
    ASSERT_TRUE(connectSimulator());
    const std::function<void()> ends[] = {[this] { link->disconnectFrom(); }, [this] { link.reset(); },
                                          [this] { open(simulator.port()); }};
    for (const auto& end : ends) {
        for (int when = 0; when < 3; ++when) {
            link = std::make_unique<Link>();
            bool ended = false;
            const auto endAt = [&](int now) {
                if (when == now && !std::exchange(ended, true)) end();
            };
            QObject::connect(link.get(), &Link::stateChanged, [&](Link::State state) {
                if (state != Link::Connected) return;
                if (when != 0) link->get(0x21);
                endAt(0);
            });
            QObject::connect(link.get(), &Link::acknowledged, [&] { endAt(1); });
            QObject::connect(link.get(), &Link::told, [&] { endAt(2); });
            open(simulator.port());
            ASSERT_TRUE(eventually([&] { return ended; }));
            link.reset();
        }
    }
}
