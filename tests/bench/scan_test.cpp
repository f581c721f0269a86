#include "apps/bench/console.h"
#include "apps/bench/mainwindow.h"
#include "apps/bench/scanimage.h"
#include "apps/controller/controllerlink.h"
#include "apps/simulator/simulator.h"
#include "vorelutil/frames/framebuffer.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <tests/support/files.h>
#include <tests/support/wait.h>

#include "fakecontroller.h"

using namespace bench;

namespace {

// A console that is connected to a simulated controller, and notes what it delivers.
class ScanTest : public ::testing::Test
{
protected:
    void connectToSimulator(int position, const QString& fault = QString())
    {
        Simulator::Options options;
        options.confirmMilliseconds = 10;
        options.position = position;
        options.surfaceFile = surface();
        Simulator::Fault parsed;
        if (Simulator::parseFault(fault, &parsed)) options.faults.append(parsed);
        simulator = std::make_unique<Simulator>(options);
        QString error;
        ASSERT_TRUE(simulator->start(&error)) << error.toStdString();
        connectTo(simulator->port());
    }

    void connectTo(int port)
    {
        QObject::connect(&console, &Console::frameDone, [this](ScanKind kind) {
            const SharedFrame frame = console.lastFrame(kind);
            starts.append(frame->startPosition());
            unsigned count = 0;
            const int* data = frame->getData(&count);
            delivered += QVector<int>(data, data + count);
            if (onFrame) onFrame();
        });
        QObject::connect(console.scan(), &Scan::failed, [this](const QString& text) { failure = text; });
        console.connectTo(QStringLiteral("127.0.0.1"), port);
        ASSERT_TRUE(eventually([this] { return console.isReady() || starts.size() > 0; }));
    }

    void stopScan()
    {
        console.scan()->stop();
        ASSERT_TRUE(eventually([this] { return console.scan()->isIdle(); }));
    }

    QString surface() const { return folder.filePath(QStringLiteral("surface")); }

    /// What the simulator has sent.
    QVector<int> sent() const
    {
        const std::string bytes = contents(surface().toStdString());
        const int* samples = reinterpret_cast<const int*>(bytes.data());
        return QVector<int>(samples, samples + bytes.size() / 4);
    }

    QTemporaryDir folder;
    std::unique_ptr<Simulator> simulator;
    Console console;
    QVector<qint64> starts;
    QVector<int> delivered;
    QString failure;
    std::function<void()> onFrame;
};

TEST_F(ScanTest, DeliversEverySampleOfEveryKindOfScan)
{
    // clang-format off
    const std::pair<ScanSettings, int> rows[] = { // and the samples of a frame
        {{ScanKind::Area, 13, 7, 3, 3000}, 91}, {{ScanKind::Area, 13, 7, 4, 3000}, 182},
        {{ScanKind::Area, 13, 7, 5, 3000}, 91}, {{ScanKind::Area, 13, 7, 6, 3000}, 182},
        {{ScanKind::Line, 50, 7, 4, 3000}, 100}, {{ScanKind::Stream, 64, 7, 4, 3000}, 64},
        {{ScanKind::Area, 2, 2, 3, 100000}, 4}}; // many frames within a block
    // clang-format on
    connectToSimulator(0);
    int from = 0; // the dump goes on from scan to scan
    for (const auto& [settings, frameSize] : rows) {
        SCOPED_TRACE(::testing::Message() << int(settings.kind) << ", frames of " << frameSize);
        starts.clear();
        delivered.clear();
        ASSERT_TRUE(console.startScan(settings));
        ASSERT_TRUE(eventually([this] { return starts.size() >= 5; }));
        stopScan();
        for (int i = 0; i < 4; ++i) EXPECT_EQ(starts[i], i * frameSize);
        EXPECT_EQ(delivered.size(), starts.size() * frameSize);
        EXPECT_EQ(delivered, sent().mid(from, delivered.size()));
        from = sent().size();
    }
    EXPECT_EQ(console.scan()->sampleCount(), from);
    EXPECT_EQ(console.scan()->gapCount(), 0);
}

TEST_F(ScanTest, GoesOnBelow2To30WithoutALostOrDoubledSample)
{
    // 96 x 10, two passes: 1920 samples. 2^30 - 2 * 1920 lies within frame 559238, so scans start at 559239,
    // and the frame after that one would reach 2^30.
    const ScanSettings settings{ScanKind::Area, 96, 10, 4, 4000};
    connectToSimulator(1073737984);
    onFrame = [this] {
        ScanImage image;
        image.update(console.lastFrame(ScanKind::Area), console.runningFrame(ScanKind::Area), true);
        EXPECT_FALSE(image.hasVoid());
    };
    ASSERT_TRUE(console.startScan(settings));
    ASSERT_TRUE(eventually([this] { return starts.size() >= 40; }));
    stopScan();
    EXPECT_EQ(console.scan()->restarts(), 1);
    EXPECT_EQ(starts.first(), 1073738880); // 559239 * 1920
    EXPECT_LT(starts.last(), 1073741824);
    for (int i = 1; i < starts.size(); ++i) EXPECT_NE(starts[i] / 1920 % 2, starts[i - 1] / 1920 % 2) << i;
    EXPECT_EQ(delivered, sent().mid(0, delivered.size()));
    EXPECT_EQ(console.scan()->gapCount(), 0);
}

TEST_F(ScanTest, StartsAtTheNextFrameBoundary)
{
    // clang-format off
    const qint64 rows[][3] = {
        {0, 8, 0}, {1, 8, 8}, {8, 8, 8}, {-20, 8, 0}, {5, 33554432, 33554432}, {1040187392, 33554432, 0},
        {1073741808, 8, 1073741808}, {1073741809, 8, 0}, {2147483647, 8, 0}}; // its successor ends at 2^30
    // clang-format on
    for (const auto& [first, frameSize, start] : rows)
        EXPECT_EQ(startPosition(first, frameSize), start) << first << ' ' << frameSize;
}

TEST_F(ScanTest, KeepsItsFeetOnHostileSamples)
{
    FakeController fake;
    connectTo(fake.serverPort());
    ASSERT_TRUE(console.startScan({ScanKind::Area, 4, 2, 3, 1000})); // 8 samples a frame
    ASSERT_TRUE(eventually([this] { return console.scan()->state() == Scan::State::Running; }));
    const auto tell = [&](int position, int count) {
        fake.send(controller::typeTell, controller::samples, position, 0, QVector<int>(count, 7));
        const qint64 telegrams = console.link()->telegramCount();
        return eventually([&] { return console.link()->telegramCount() > telegrams; });
    };
    // clang-format off
    // counters: of samples, frames, gaps, refused blocks
    const struct { int position, count; QVector<qint64> counters; } rows[] = {
        {0, 0, {0, 0, 0, 0}},
        {-8, 8, {0, 0, 0, 1}}, {INT_MIN, 8, {0, 0, 0, 2}}, {INT_MAX - 3, 5, {0, 0, 0, 3}},
        {4, 4, {4, 0, 0, 3}}, {8, 8, {12, 1, 0, 3}},     // in the middle of a frame, a whole one
        {8, 8, {20, 2, 1, 3}}, {20, 4, {24, 2, 2, 3}},   // the same frame again, a gap within a frame
        {24, 84, {108, 12, 2, 3}}, {108, 4, {112, 13, 2, 3}}, // ten frames and a half, the other half
        {112, 80000, {80112, 10013, 2, 3}},
        {0, 4, {80116, 10013, 3, 3}}, {4, 4, {80120, 10014, 3, 3}}, // far behind, the rest of that frame
    };
    // clang-format on
    const Scan& scan = *console.scan();
    for (const auto& [position, count, expected] : rows) {
        ASSERT_TRUE(tell(position, count));
        const QVector<qint64> counters = {scan.sampleCount(), scan.frameCount(), scan.gapCount(),
                                          scan.refusedCount()};
        EXPECT_EQ(counters, expected) << position << ' ' << count;
    }
    // A block beyond 2^30, that ends at the last position there is: the scan goes on below.
    tell(INT_MAX - 7, 8);
    ASSERT_TRUE(eventually([&] { return scan.restarts() == 1 && scan.state() == Scan::State::Running; }));
    EXPECT_EQ(failure, QString());
}

// Telegrams arrive faster than they are handled: only what the console itself lets through gets its turn.
TEST_F(ScanTest, FloodLeavesRoomForTheOperator)
{
    int ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (console.scan()->frameCount() > 0 && ++ticks == 10) console.disconnectFrom();
    });
    timer.start(10);
    QObject::connect(&console, &Console::readyChanged, [this](bool ready) {
        if (ready) console.startScan({ScanKind::Area, 16, 16, 3, 10000});
    });
    connectToSimulator(0, QStringLiteral("flood"));
    ASSERT_TRUE(eventually([&] { return ticks >= 10 && console.link()->state() == ControllerLink::Off; }));
    EXPECT_TRUE(console.scan()->isIdle());
    EXPECT_EQ(failure, QString());
}

TEST_F(ScanTest, SaysOfAStopWhatTheControllerSaidOfIt)
{
    FakeController fake;
    QString message;
    QObject::connect(&console, &Console::message, [&](const QString& text) { message = text; });
    const auto isTold = [&](const char* text) { return eventually([&] { return message == text; }); };
    for (const auto& [reason, text] : {std::pair(0, "The scan was stopped"),
                                       {-1, "The controller did not confirm that the scan stopped"}}) {
        fake.acquisition = 2; // for someone else
        connectTo(fake.serverPort());
        ASSERT_TRUE(isTold("the controller is still acquiring"));
        ASSERT_TRUE(console.canStop() && console.startScan({ScanKind::Area, 8, 1, 3, 1000}));
        ASSERT_TRUE(eventually([&] { return fake.acquisition == 1; }));
        fake.stopReason = 99;
        console.stopScan();
        ASSERT_TRUE(isTold("the controller refused to stop: unknown error") && console.canStop());
        fake.stopReason = reason;
        MainWindow window(&console);
        EXPECT_FALSE(window.close()); // it waits for the answer
        ASSERT_TRUE(isTold(text) &&
                    eventually([&] { return console.link()->state() == ControllerLink::Off; }));
        EXPECT_EQ(fake.acquisition, reason == 0 ? 0 : 1);
        fake.stopReason = 0;
    }
}

TEST_F(ScanTest, SaysWhyAScanEnds)
{
    connectToSimulator(0);
    ASSERT_TRUE(console.startScan({ScanKind::Area, 5000, 8, 4, 1000}));
    ASSERT_TRUE(eventually([this] { return console.scan()->isIdle(); }));
    EXPECT_EQ(failure, QStringLiteral("the controller refused x pixels = 5000: out of range"));

    ASSERT_TRUE(console.startScan({ScanKind::Area, 64, 64, 4, 1000}));
    EXPECT_FALSE(console.startScan({ScanKind::Line, 64, 64, 4, 1000}));
    ASSERT_TRUE(eventually([this] { return console.scan()->sampleCount() > 0; }));
    simulator.reset();
    ASSERT_TRUE(eventually([this] { return console.scan()->isIdle(); }));
    EXPECT_EQ(failure, QStringLiteral("the link to the controller was lost"));
    EXPECT_FALSE(console.startScan({ScanKind::Line, 64, 64, 4, 1000}));
}

} // namespace
