#include "apps/bench/console.h"
#include "apps/bench/scanimage.h"
#include "apps/controller/controllerlink.h"
#include "apps/simulator/simulator.h"
#include "vorelutil/frames/framebuffer.h"

#include <gtest/gtest.h>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include "fakecontroller.h"

using namespace bench;

namespace {

constexpr int limitMilliseconds = 30000;

template <typename Condition>::testing::AssertionResult waitFor(Condition condition)
{
    if (QTest::qWaitFor(condition, limitMilliseconds)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "not within the time limit";
}

QVector<int> samplesOf(const FrameBuffer& frame)
{
    unsigned count = 0;
    const int* data = frame.getData(&count);
    return QVector<int>(data, data + count);
}

QVector<int> readSurface(const QString& path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    QVector<int> samples(bytes.size() / 4);
    memcpy(samples.data(), bytes.constData(), std::size_t(samples.size()) * 4);
    return samples;
}

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
            delivered += samplesOf(*frame);
            if (onFrame) onFrame();
        });
        QObject::connect(console.scan(), &Scan::failed, [this](const QString& text) { failure = text; });
        console.connectTo(QStringLiteral("127.0.0.1"), port);
        ASSERT_TRUE(waitFor([this] { return console.isReady() || starts.size() > 0; }));
    }

    void stopScan()
    {
        console.scan()->stop();
        ASSERT_TRUE(waitFor([this] { return console.scan()->isIdle(); }));
    }

    QString surface() const { return folder.filePath(QStringLiteral("surface")); }

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
    struct Row
    {
        const char* desc;
        ScanSettings settings;
        int frameSize;
    };
    // clang-format off
    const Row rows[] = {
        {"area forward",        {ScanKind::Area,   13, 7, 3, 3000},   91},
        {"area forward + back", {ScanKind::Area,   13, 7, 4, 3000},   182},
        {"area backward",       {ScanKind::Area,   13, 7, 5, 3000},   91},
        {"area back + forward", {ScanKind::Area,   13, 7, 6, 3000},   182},
        {"line",                {ScanKind::Line,   50, 7, 4, 3000},   100},
        {"stream",              {ScanKind::Stream, 64, 7, 4, 3000},   64},
        {"frames within a block", {ScanKind::Area, 2,  2, 3, 100000}, 4},
    };
    // clang-format on
    connectToSimulator(0);
    int from = 0; // the dump goes on from scan to scan
    for (const Row& row : rows) {
        SCOPED_TRACE(row.desc);
        starts.clear();
        delivered.clear();
        ASSERT_TRUE(console.startScan(row.settings));
        ASSERT_TRUE(waitFor([this] { return starts.size() >= 5; }));
        stopScan();
        EXPECT_EQ(starts.mid(0, 4),
                  (QVector<qint64>{0, row.frameSize, 2 * row.frameSize, 3 * row.frameSize}));
        EXPECT_EQ(delivered.size(), starts.size() * row.frameSize);
        const QVector<int> sent = readSurface(surface());
        EXPECT_EQ(delivered, sent.mid(from, delivered.size()));
        from = sent.size();
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
    int voids = 0;
    onFrame = [&] {
        ScanImage image;
        image.update(console.lastFrame(ScanKind::Area), console.runningFrame(ScanKind::Area), true);
        voids += image.hasVoid() ? 1 : 0;
    };
    ASSERT_TRUE(console.startScan(settings));
    ASSERT_TRUE(waitFor([this] { return starts.size() >= 40; }));
    stopScan();
    EXPECT_EQ(console.scan()->restarts(), 1);
    EXPECT_EQ(starts.first(), 1073738880); // 559239 * 1920
    EXPECT_LT(starts.last(), 1073741824);
    for (int i = 1; i < starts.size(); ++i) EXPECT_NE(starts[i] / 1920 % 2, starts[i - 1] / 1920 % 2) << i;
    EXPECT_EQ(delivered, readSurface(surface()).mid(0, delivered.size()));
    EXPECT_EQ(voids, 0);
    EXPECT_EQ(console.scan()->gapCount(), 0);
}

TEST_F(ScanTest, StartsAtTheNextFrameBoundary)
{
    struct Row
    {
        qint64 first, frameSize, start;
    };
    // clang-format off
    const Row rows[] = {
        {0,          8,    0},
        {1,          8,    8},
        {8,          8,    8},
        {1073741808, 8,    1073741808}, // the last frame whose successor ends at 2^30
        {1073741809, 8,    0},
        {2147483647, 8,    0},
        {-5,         8,    0},
        {5,          33554432, 33554432},
        {1040187392, 33554432, 0},
    };
    // clang-format on
    for (const Row& row : rows)
        EXPECT_EQ(startPosition(row.first, row.frameSize), row.start) << row.first << " " << row.frameSize;
}

TEST_F(ScanTest, KeepsItsFeetOnHostileSamples)
{
    FakeController fake;
    connectTo(fake.serverPort());
    ASSERT_TRUE(console.startScan({ScanKind::Area, 4, 2, 3, 1000})); // 8 samples a frame
    ASSERT_TRUE(waitFor([this] { return console.scan()->state() == Scan::State::Running; }));
    struct Row
    {
        const char* desc;
        int position, count;
        int samples, frames, gaps, refused; // counters after it
    };
    // clang-format off
    const Row rows[] = {
        {"no sample",                   0,           0, 0,     0,   0, 0},
        {"negative position",           -8,          8, 0,     0,   0, 1},
        {"smallest position",           INT_MIN,     8, 0,     0,   0, 2},
        {"beyond the largest position", INT_MAX - 3, 5, 0,     0,   0, 3},
        {"in the middle of a frame",    4,           4, 4,     0,   0, 3},
        {"a whole frame",               8,           8, 12,    1,   0, 3},
        {"the same frame again",        8,           8, 20,    2,   1, 3},
        {"a gap within a frame",        20,          4, 24,    2,   2, 3},
        {"ten frames and a half",       24,         84, 108,  12,   2, 3},
        {"the other half",              108,         4, 112,  13,   2, 3},
        {"many frames",                 112,     80000, 80112, 10013, 2, 3},
        {"far behind",                  0,           4, 80116, 10013, 3, 3},
        {"the rest of that frame",      4,           4, 80120, 10014, 3, 3},
    };
    // clang-format on
    const Scan& scan = *console.scan();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.desc);
        fake.tellSamples(row.position, QVector<int>(row.count, 7));
        const qint64 telegrams = console.link()->telegramCount();
        ASSERT_TRUE(waitFor([&] { return console.link()->telegramCount() > telegrams; }));
        EXPECT_EQ(scan.sampleCount(), row.samples);
        EXPECT_EQ(scan.frameCount(), row.frames);
        EXPECT_EQ(scan.gapCount(), row.gaps);
        EXPECT_EQ(scan.refusedCount(), row.refused);
    }
    // A block beyond 2^30, that ends at the last position there is: the scan goes on below.
    fake.tellSamples(INT_MAX - 7, QVector<int>(8, 1));
    ASSERT_TRUE(waitFor([&] { return scan.restarts() == 1 && scan.state() == Scan::State::Running; }));
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
    ASSERT_TRUE(waitFor([&] { return ticks >= 10; }));
    EXPECT_EQ(console.link()->state(), ControllerLink::Off);
    EXPECT_TRUE(console.scan()->isIdle());
    EXPECT_EQ(failure, QString());
}

TEST_F(ScanTest, SaysWhyAScanEnds)
{
    connectToSimulator(0);
    ASSERT_TRUE(console.startScan({ScanKind::Area, 5000, 8, 4, 1000}));
    ASSERT_TRUE(waitFor([this] { return console.scan()->isIdle(); }));
    EXPECT_EQ(failure, QStringLiteral("the controller refused x pixels = 5000: out of range"));

    ASSERT_TRUE(console.startScan({ScanKind::Area, 64, 64, 4, 1000}));
    EXPECT_FALSE(console.startScan({ScanKind::Line, 64, 64, 4, 1000}));
    ASSERT_TRUE(waitFor([this] { return console.scan()->sampleCount() > 0; }));
    simulator.reset();
    ASSERT_TRUE(waitFor([this] { return console.scan()->isIdle(); }));
    EXPECT_EQ(failure, QStringLiteral("the link to the controller was lost"));
    EXPECT_FALSE(console.startScan({ScanKind::Line, 64, 64, 4, 1000}));
}

} // namespace
