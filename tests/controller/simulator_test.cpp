#include "probe.h"

#include <algorithm>
#include <apps/simulator/simulator.h>
#include <cmath>
#include <gtest/gtest.h>
#include <QFile>
#include <QTemporaryDir>

namespace {

using Samples = std::vector<qint32>;

std::unique_ptr<Simulator> started(const Simulator::Options& options)
{
    auto simulator = std::make_unique<Simulator>(options);
    QString error;
    EXPECT_TRUE(simulator->start(&error)) << error.toStdString();
    return simulator;
}

Simulator::Options quick(QVector<Simulator::Fault> faults = {})
{
    Simulator::Options options;
    options.confirmMilliseconds = 0;
    options.faults = std::move(faults);
    return options;
}

struct Scan
{
    qint32 kind = 1, mode = 4, x = 64, y = 48, rate = 100000;
};

void startScan(Probe& probe, const Scan& scan)
{
    probe.request(0, 0x43, {scan.mode});
    probe.request(0, 0x41, {scan.x});
    probe.request(0, 0x42, {scan.y});
    probe.request(0, 0x44, {scan.rate});
    probe.request(0, 0x40, {scan.kind});
}

/// The first `count` samples of a scan; fails when their positions have a gap.
Samples collect(Probe& probe, std::size_t count, qint32 position = 0)
{
    Samples all;
    while (all.size() < count) {
        const Seen seen = probe.next(4, 0x100);
        if (seen.type == -1 || seen.index != position || seen.words.size() > 4096) {
            ADD_FAILURE() << "block at " << seen.index << " instead of " << position;
            return Samples(count);
        }
        position = qint32((quint32(position) + seen.words.size()) & 0x7FFFFFFFu);
        all.insert(all.end(), seen.words.begin(), seen.words.end());
    }
    all.resize(count);
    return all;
}

Samples samplesOf(const Simulator::Options& options, const Scan& scan, std::size_t count)
{
    const auto simulator = started(options);
    Probe probe(simulator->port());
    startScan(probe, scan);
    return collect(probe, count, options.position);
}

/// Largest difference of two images, the second one shifted by `shift` columns to the right.
int difference(const Samples& a, const Samples& b, int x, int shift = 0)
{
    int largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (int(i) % x + shift < x) largest = std::max(largest, std::abs(a[i] - b[i + std::size_t(shift)]));
    return largest;
}

} // namespace

TEST(Simulator, AnswersByTheTable)
{
    const auto simulator = started(quick());
    Probe probe(simulator->port());
    using Row = std::tuple<const char*, qint32, qint32, Samples, qint32, qint32>;
    const Row rows[] = {
        // type, address, data; reason and value of the answer
        {"frequency at the start", 1, 0x22, {}, 0, 1000000},
        {"lowest voltage", 0, 0x21, {-10000}, 0, -10000},
        {"below it", 0, 0x21, {-10001}, 2, -10000},
        {"highest voltage", 0, 0x21, {10000}, 0, 10000},
        {"above it", 0, 0x21, {10001}, 2, 10000},
        {"frequency 0", 0, 0x22, {0}, 2, 1000000},
        {"highest frequency", 0, 0x22, {50000000}, 0, 50000000},
        {"exposure too long", 0, 0x23, {10000001}, 2, 100},
        {"leftmost x position", 0, 0x24, {-2147483647 - 1}, 0, -2147483647 - 1},
        {"attenuator too high", 0, 0x25, {4096}, 2, 0},
        {"acquisition 4", 0, 0x40, {4}, 2, 0},
        {"pixels 4097", 0, 0x41, {4097}, 2, 128},
        {"pixels 0", 0, 0x42, {0}, 2, 96},
        {"mode 1", 0, 0x43, {1}, 2, 4},
        {"beyond mode 6", 0, 0x43, {7}, 2, 4},
        {"rate 100001", 0, 0x44, {100001}, 2, 500},
        {"negative position", 0, 0x45, {-1}, 2, 0},
        {"position", 0, 0x45, {2147483647}, 0, 2147483647},
        {"position read back", 1, 0x45, {}, 0, 2147483647},
        {"only the first word counts", 0, 0x25, {7, 9000, 1}, 0, 7},
        {"unknown address", 1, 0x99, {}, 1, 0},
        {"samples are told only", 1, 0x100, {}, 1, 0},
        {"not there yet", 0, 0x50, {1}, 1, 0},
        {"no data", 0, 0x22, {}, 99, 50000000},
        {"DO", 2, 0x22, {}, 99, 50000000},
        {"unknown type", 9, 0x22, {}, 99, 50000000},
    };
    for (const auto& [desc, type, address, data, reason, value] : rows)
        EXPECT_EQ(probe.ask(type, address, data), (Samples{reason, value})) << desc;
    EXPECT_EQ(probe.ask(0, 0x26, {5})[0], 99);
    const quint32 counter = quint32(probe.ask(1, 0x26)[1]);
    while (quint32(probe.ask(1, 0x26)[1]) == counter) continue;
    EXPECT_NEAR(probe.ask(1, 0x27)[1], 10000, 5);
    EXPECT_NEAR(probe.next(4, 0x27).words.at(0), 10000, 5);

    probe.request(1, 0x21, {}, -7);
    const Seen ack = probe.next(3, 0x21);
    EXPECT_EQ(ack.index, -7);
    EXPECT_EQ(ack.number, probe.number);
    EXPECT_EQ(ack.length, 24);
}

TEST(Simulator, ConfirmsLaterAndInOrder)
{
    Simulator::Options options;
    options.confirmMilliseconds = 60;
    const auto simulator = started(options);
    Probe probe(simulator->port());
    QElapsedTimer clock;
    clock.start();
    for (qint32 i = 1; i <= 20; ++i) probe.request(0, 0x25, {i});
    for (qint32 i = 1; i <= 20; ++i) {
        const Seen ack = probe.next(3, 0x25);
        EXPECT_EQ(ack.number, i);
        EXPECT_EQ(ack.words, (Samples{0, i}));
    }
    EXPECT_GE(clock.elapsed(), 59);
}

TEST(Simulator, ShowsOneSurfaceInEveryMode)
{
    constexpr int x = 64, y = 48;
    const std::pair<int, std::string> rows[] = {{3, "F"}, {4, "FB"}, {5, "B"}, {6, "BF"}, {2, "F"}};
    Samples reference;
    for (const auto& [mode, passes] : rows) {
        const Samples raw = samplesOf(quick(), {1, mode, x, y}, 2 * x * y * passes.size());
        auto next = raw.begin();
        for (const bool downwards : {false, true}) { // the first frame comes from the last row up
            Samples forward(x * y), backward(x * y);
            for (int line = 0; line < y; ++line) {
                const int first = (downwards ? line : y - 1 - line) * x;
                for (const char pass : passes)
                    for (int i = 0; i < x; ++i, ++next)
                        (pass == 'F' ? forward.at(std::size_t(first) + std::size_t(i))
                                     : backward.at(std::size_t(first) + std::size_t(x - 1 - i))) = *next;
            }
            if (reference.empty()) reference = forward;
            // Noise is up to 25 pm either way; the return pass lags by 2.4 nm of 100 nm, 2 pixels of 64.
            EXPECT_TRUE(passes == "B" || difference(forward, reference, x) <= 60) << mode;
            EXPECT_TRUE(passes == "F" || difference(backward, reference, x, 2) <= 60) << mode;
            EXPECT_TRUE(passes == "F" || difference(backward, reference, x) > 200) << mode;
        }
    }
    // No mirroring goes unseen: most pixels differ by more than the noise.
    const auto at = [&](int row, int column) {
        return reference[std::size_t(row) * x + std::size_t(column)];
    };
    for (const int mirroring : {1, 2, 3}) {
        int differing = 0;
        for (int row = 0; row < y; ++row)
            for (int column = 0; column < x; ++column) {
                const int mirrored = at((mirroring & 2) != 0 ? y - 1 - row : row,
                                        (mirroring & 1) != 0 ? x - 1 - column : column);
                differing += std::abs(at(row, column) - mirrored) > 100;
            }
        EXPECT_GT(differing, x * y / 2) << mirroring;
    }
    // It rises from the first row's first column to the last row's last one.
    EXPECT_GT(at(y - 1, x - 1) - at(0, 0), 1500);
}

TEST(Simulator, SamplesDependOnThePositionAlone)
{
    Simulator::Options later = quick(), other = quick();
    later.position = 1000;
    other.seed = 2;
    for (const qint32 kind : {1, 2, 3}) {
        const Samples fast = samplesOf(quick(), {kind}, 6000);
        const Samples slow = samplesOf(quick(), {kind, 4, 64, 48, kind == 3 ? 20000 : 500}, 6000);
        EXPECT_EQ(fast, slow) << kind;
        EXPECT_EQ(Samples(fast.begin() + 1000, fast.end()), samplesOf(later, {kind}, 5000)) << kind;
        EXPECT_NE(fast, samplesOf(other, {kind}, 6000)) << kind;
    }
}

TEST(Simulator, WritesEachSampleOnceAndWrapsItsPosition)
{
    QTemporaryDir dir;
    Simulator::Options options = quick();
    options.surfaceFile = dir.filePath(QStringLiteral("surface"));
    options.position = 2147483647 - 9999;
    const auto simulator = started(options);
    Probe probe(simulator->port()), second(simulator->port());
    second.ask(1, 0x21);
    startScan(probe, {1, 4, 64, 48, 1000});
    const Samples seen = collect(probe, 20000, options.position);
    EXPECT_EQ(collect(second, 20000, options.position), seen);
    probe.ask(0, 0x40, {0}); // stopped: the file is whole
    const qint32 end = probe.ask(1, 0x45)[1];
    QFile file(options.surfaceFile);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.size(), 4 * (qint64(end) + 10000));
    EXPECT_EQ(file.read(80000), QByteArray(reinterpret_cast<const char*>(seen.data()), 80000));
    // Goes on where it was.
    probe.request(0, 0x40, {1});
    EXPECT_EQ(probe.next(4, 0x100).index, end);
}

TEST(Simulator, HoldsTheScanBackForASlowReceiver)
{
    const auto simulator = started(quick());
    Probe probe(simulator->port());
    startScan(probe, {1, 3, 4096, 2, 100000}); // 400 million samples a second
    ASSERT_TRUE(probe.has(1000));
    probe.socket.setReadBufferSize(1 << 16);
    collect(probe, 5000000);
}

TEST(Simulator, ClosesOnLengthsThatNoRequestHas)
{
    const auto simulator = started(quick());
    Probe good(simulator->port());
    for (const qint32 length : {15, 17, -1, 0, 1024 * 1024 + 4, 0x7FFFFFFF}) {
        Probe probe(simulator->port());
        probe.send({length, 1, 0x21, 0, 1});
        EXPECT_TRUE(probe.closes()) << length;
        EXPECT_EQ(good.ask(1, 0x25), (Samples{0, 0}));
    }
    // The largest request, and one that never reads what it asked for.
    EXPECT_EQ(good.ask(0, 0x25, Samples(1024 * 256 - 4, 9)), (Samples{0, 9}));
    Probe greedy(simulator->port());
    for (int i = 0; i < 100000; ++i) greedy.request(1, 0x21, {});
    EXPECT_EQ(good.ask(1, 0x25), (Samples{0, 9}));
}

TEST(SimulatorFaults, AreParsed)
{
    using Row = std::tuple<const char*, int, double>; // kind -1: refused
    for (const auto& [text, kind, seconds] :
         {Row{"refuse", 0, 0.0}, Row{"drop@2.5", 1, 2.5}, Row{"stall@0", 2, 0.0}, Row{"length", 3, 0.0},
          Row{"flood@10", 4, 10.0}, Row{"", -1, 0.0}, Row{"Drop", -1, 0.0}, Row{"drop@", -1, 0.0},
          Row{"drop@-1", -1, 0.0}, Row{"drop@nan", -1, 0.0}, Row{"drops", -1, 0.0}}) {
        Simulator::Fault fault;
        EXPECT_EQ(Simulator::parseFault(QString::fromLatin1(text), &fault), kind >= 0) << text;
        EXPECT_EQ(int(fault.kind), std::max(kind, 0)) << text;
        EXPECT_EQ(fault.seconds, seconds) << text;
    }
}

TEST(SimulatorFaults, DropClosesInsideAFrameOnce)
{
    for (const double seconds : {0.0, 0.2}) {
        const auto simulator = started(quick({{Simulator::FaultKind::Drop, seconds}}));
        Probe probe(simulator->port());
        while (probe.next().type == 4) continue; // up to the half telegram
        EXPECT_TRUE(probe.closes());
        EXPECT_EQ(probe.socket.bytesAvailable(), 12);
        Probe again(simulator->port());
        EXPECT_EQ(again.ask(1, 0x25), (Samples{0, 0}));
    }
}

TEST(SimulatorFaults, StallAndLengthSilenceTheConnection)
{
    const std::pair<Simulator::FaultKind, QByteArray> rows[] = {
        {Simulator::FaultKind::Stall, {}}, {Simulator::FaultKind::Length, QByteArray("\0\0\0\x40", 4)}};
    for (const auto& [kind, bytes] : rows) {
        const auto simulator = started(quick({{kind, 0.0}}));
        Probe probe(simulator->port());
        probe.request(1, 0x21, {});
        Probe later(simulator->port());
        for (int i = 0; i < 10; ++i) EXPECT_EQ(later.next(4, 0x27).type, 4); // half a second of tells
        probe.socket.waitForReadyRead(1);
        EXPECT_EQ(probe.socket.readAll(), bytes);
        EXPECT_EQ(probe.socket.state(), QAbstractSocket::ConnectedState);
    }
}

TEST(SimulatorFaults, FloodTellsWithoutEndAndRefuseRefuses)
{
    const auto simulator =
        started(quick({{Simulator::FaultKind::Flood, 0.0}, {Simulator::FaultKind::Refuse, 0.0}}));
    Probe probe(simulator->port());
    for (int i = 0; i < 50000; ++i) ASSERT_EQ(probe.next().address, 0x27);
    EXPECT_EQ(probe.ask(0, 0x25, {1}), (Samples{99, 0}));
    EXPECT_EQ(probe.ask(2, 0x25), (Samples{99, 0}));
    EXPECT_EQ(probe.ask(1, 0x25), (Samples{0, 0}));
}

TEST(Simulator, SaysWhyItCannotStart)
{
    const auto taken = started(quick());
    Simulator::Options busy = quick(), nowhere = quick(), unwritable = quick();
    busy.port = taken->port();
    nowhere.address = QStringLiteral("nowhere");
    unwritable.surfaceFile = QStringLiteral("/nonexistent/surface");
    for (const Simulator::Options& options : {busy, nowhere, unwritable}) {
        Simulator simulator(options);
        QString error;
        EXPECT_FALSE(simulator.start(&error));
        EXPECT_TRUE(error.startsWith(QLatin1String("cannot "))) << error.toStdString();
        EXPECT_EQ(simulator.port(), 0);
    }
}
