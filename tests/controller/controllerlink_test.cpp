#include <apps/controller/controllerlink.h>
#include <apps/simulator/simulator.h>
#include <functional>
#include <gtest/gtest.h>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <vorelutil/trace/tracelog.h>

using Link = ControllerLink;

namespace {

bool waitFor(const std::function<bool()>& condition)
{
    return QTest::qWaitFor(condition, 20000);
}

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
        return waitFor([this] { return link->state() == Link::Connected; });
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
    ASSERT_TRUE(waitFor([this] { return acks.size() == 4 && told.size() >= 2; }));
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

TEST_F(ControllerLinkTest, TracesByCategory)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("trace.log"));
    traceInit(path.toUtf8().constData(), "", TRACE_ON | TRACE_FLUSH | controller::categoryRequest);
    ASSERT_TRUE(connectSimulator());
    link->get(0x21);
    ASSERT_TRUE(waitFor([this] { return acks.size() == 1 && !std::exchange(told, {}).empty(); }));
    traceSetFlags(TRACE_ON | TRACE_FLUSH | TRACE_TELL | controller::categoryTell);
    ASSERT_TRUE(waitFor([this] { return !told.empty(); }));
    link.reset();
    traceInit("", "", 0);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    for (const char* text :
         {"tx: GET  Len=16 Addr=21 Ind=0 CNo=0-1.\n", "rx: ACK  Len=24 Addr=21 Ind=0 CNo=0-1 0 0.\n",
          "rx: TELL Len=20 Addr=27 Ind=0 CNo=0-0 "}) {
        const QByteArray line = file.readLine();
        EXPECT_TRUE(line.mid(line.indexOf(": ") + 2).startsWith(text)) << line.constData();
    }
}

TEST_F(ControllerLinkTest, ComesBackAfterALossAndWhenWhatArrivesIsNoTelegram)
{
    using Row = std::pair<QByteArray, const char*>;
    for (const auto& row :
         {Row{QByteArray("\x05\0\0\0hello", 9), "what arrived is no telegram"},
          Row{QByteArray("\0\0\0\x40", 4), "a telegram arrived that is too long to be one"}}) {
        QTcpServer server;
        ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
        int connections = 0;
        QObject::connect(&server, &QTcpServer::newConnection, [&] {
            QTcpSocket* socket = server.nextPendingConnection();
            if (++connections == 1)
                QObject::connect(socket, &QTcpSocket::readyRead, [&row, socket] {
                    socket->readAll();
                    socket->write(row.first);
                });
        });
        problems.clear();
        states.clear();
        const int errors = link->errorCount(), reconnects = link->reconnectCount();
        open(server.serverPort());
        ASSERT_TRUE(connects());
        link->get(0x21);
        ASSERT_TRUE(waitFor([&] { return link->reconnectCount() > reconnects; })) << row.second;
        ASSERT_GE(problems.size(), 2);
        EXPECT_TRUE(problems[problems.size() - 2].endsWith(QLatin1String(row.second)));
        EXPECT_EQ(problems.last(), QStringLiteral("1 requests were not answered"));
        EXPECT_EQ(states, (std::vector{Link::Connecting, Link::Connected, Link::Lost, Link::Connected}));
        EXPECT_EQ(link->errorCount(), errors + 1);
        link->disconnectFrom();
    }
}

TEST_F(ControllerLinkTest, TellsOnceThatNobodyAnswers)
{
    QTcpServer closed;
    closed.listen(QHostAddress::LocalHost);
    const int port = closed.serverPort();
    closed.close();
    open(port);
    ASSERT_TRUE(waitFor([this] { return !problems.isEmpty(); }));
    EXPECT_EQ(problems[0], QStringLiteral("127.0.0.1:%1: no controller answers there").arg(port));
    EXPECT_EQ(link->state(), Link::Connecting);
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost, quint16(port))); // it comes up later
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
            ASSERT_TRUE(waitFor([&] { return ended; }));
            link.reset();
        }
    }
}
