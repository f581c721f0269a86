#include "probe.h"

#include <algorithm>
#include <apps/simulator/simulator.h>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <tests/support/files.h>

namespace {

using Samples = std::vector<qint32>;

/// A simulator that answers at once, with the faults of these texts.
Simulator::Options quick(const QStringList& faults = {})
{
    Simulator::Options options;
    options.confirmMilliseconds = 0;
    for (const QString& text : faults) {
        Simulator::Fault fault;
        EXPECT_TRUE(Simulator::parseFault(text, &fault)) << text.toStdString();
        options.faults.append(fault);
    }
    return options;
}

/// A simulator that runs, and a probe at it.
struct Rig : Simulator
{
    using Simulator::Simulator;
    QString error;
    Probe probe{start(&error) ? port() : 0};
};

struct Scan
{
    qint32 kind = 1, mode = 4, x = 64, y = 48, rate = 100000;
};

void startScan(Probe& probe, const Scan& scan)
{
    const std::pair<qint32, qint32> settings[] = {
        {0x43, scan.mode}, {0x41, scan.x}, {0x42, scan.y}, {0x44, scan.rate}, {0x40, scan.kind}};
    for (const auto& [address, value] : settings) probe.request(0, address, {value});
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
    Rig rig(options);
    startScan(rig.probe, scan);
    return collect(rig.probe, count, options.position);
}

} // namespace

TEST(Simulator, AnswersByTheTable)
{
    Rig rig(quick());
    Probe& probe = rig.probe;
    using Row = std::tuple<qint32, qint32, Samples, qint32, qint32>;
    constexpr qint32 least = -2147483647 - 1;
    // clang-format off
    const Row rows[] = { // type, address, data; reason and value of the answer
        {0, 0x21, {-10000}, 0, -10000}, {0, 0x21, {-10001}, 2, -10000}, // voltage
        {0, 0x21, {10000}, 0, 10000}, {0, 0x21, {10001}, 2, 10000},
        {1, 0x22, {}, 0, 1000000}, {0, 0x22, {0}, 2, 1000000}, {0, 0x22, {50000000}, 0, 50000000}, // frequency
        {0, 0x23, {10000001}, 2, 100}, {0, 0x24, {least}, 0, least}, {0, 0x25, {4096}, 2, 0},
        {0, 0x40, {4}, 2, 0}, {0, 0x41, {4097}, 2, 128}, {0, 0x42, {0}, 2, 96}, // the scan
        {0, 0x43, {1}, 2, 4}, {0, 0x43, {7}, 2, 4}, {0, 0x44, {100001}, 2, 500},
        {0, 0x45, {-1}, 2, 0}, {0, 0x45, {2147483647}, 0, 2147483647}, {1, 0x45, {}, 0, 2147483647},
        {0, 0x25, {7, 9000, 1}, 0, 7}, // only the first word counts
        {0, 0x1071, {least}, 0, least}, {0, 0x1072, {-1}, 0, -1}, {0, 0x1073, {1}, 2, 2}, // a sweep
        {0, 0x1074, {0x280}, 0, 0x280}, {0, 0x1075, {1}, 0, 1}, {0, 0x1075, {2}, 2, 1}, {0, 0x1070, {19}, 0, 19},
        {1, 0x50, {}, 0, 0}, {0, 0x50, {6}, 2, 0}, {1, 0x51, {}, 0, 100000}, {0, 0x51, {0}, 2, 100000},
        {0, 0x51, {5000001}, 2, 100000}, {0, 0x51, {5000000}, 0, 5000000}, // time stamps
        {1, 0x99, {}, 1, 0}, {1, 0x100, {}, 1, 0}, {1, 0x110, {}, 1, 0}, // unknown, told only
        {0, 0x22, {}, 99, 50000000}, {2, 0x22, {}, 99, 50000000}, {9, 0x22, {}, 99, 50000000}, // no data, types
    };
    // clang-format on
    for (const Row& row : rows) {
        const auto& [type, address, data, reason, value] = row;
        EXPECT_EQ(probe.ask(type, address, data), (Samples{reason, value})) << "row " << &row - rows;
    }
    EXPECT_EQ(probe.ask(0, 0x26, {5})[0], 99);
    const qint32 counter = probe.ask(1, 0x26)[1];
    while (probe.ask(1, 0x26)[1] == counter) continue;
    EXPECT_NEAR(probe.ask(1, 0x27)[1], 10000, 5);
    EXPECT_NEAR(probe.next(4, 0x27).words.at(0), 10000, 5);
}

TEST(Simulator, SumsUpAnImageOfEachConnection)
{
    Rig rig(quick());
    Probe& probe = rig.probe;
    const Samples block = {1, 2, 3}, largest(16384), tooLarge(16385);
    // clang-format off
    const struct { qint32 type, address; Samples data; qint32 index, reason, value; } rows[] = {
        {1, 0x200, {}, 0, 0, 1}, {0, 0x200, {2}, 0, 99, 1}, {1, 0x201, {}, 0, 0, 141}, {0, 0x201, {7}, 0, 99, 141},
        {2, 0x203, {}, 0, 2, 0}, {0, 0x202, block, 1, 2, 0}, {0, 0x202, block, -1, 2, 0}, // nothing came yet
        {0, 0x202, {}, 0, 99, 0}, {0, 0x202, tooLarge, 0, 2, 0},
        {0, 0x202, {7}, 0, 0, 1}, {0, 0x202, block, 0, 0, 1}, // begins anew
        {0, 0x202, {-1}, 2, 2, 1}, {0, 0x202, {-1}, 1, 0, 2}, {0, 0x202, {-1}, 1, 2, 2},
        {1, 0x202, {}, 0, 1, 0}, {2, 0x202, {}, 2, 99, 2}, {9, 0x202, {5}, 2, 99, 2},
        {1, 0x203, {}, 0, 1, 0}, {0, 0x203, {1}, 0, 99, 0}, {0, 0x202, largest, 2, 0, 3},
        {2, 0x203, {}, 0, 0, -752727359}, {2, 0x203, {}, 0, 2, 0}, {0, 0x202, {7}, 3, 2, 0}, // it is over
        {0, 0x202, {7}, 0, 0, 1}, {2, 0x203, {9}, 5, 0, -1131157595}, {1, 0x201, {}, 0, 0, 141}};
    // clang-format on
    for (const auto& row : rows) {
        probe.request(row.type, row.address, row.data, row.index);
        const Seen ack = probe.next(3, row.address);
        EXPECT_EQ(ack.index, row.index) << "row " << &row - rows;
        EXPECT_EQ(ack.words, (Samples{row.reason, row.value})) << "row " << &row - rows;
    }
    Probe other(rig.port());
    EXPECT_EQ(probe.ask(0, 0x202, {7}), (Samples{0, 1}));
    EXPECT_EQ(other.ask(2, 0x203), (Samples{2, 0})); // it has none
    EXPECT_EQ(other.ask(0, 0x202, block), (Samples{0, 1}));
    EXPECT_EQ(probe.ask(2, 0x203), (Samples{0, -1131157595}));
    EXPECT_EQ(other.ask(2, 0x203), (Samples{0, -1327488365}));
    Rig refusing(quick({"refuse"}));
    EXPECT_EQ(refusing.probe.ask(0, 0x202, {7}), (Samples{99, 0}));
    EXPECT_EQ(refusing.probe.ask(2, 0x203), (Samples{99, 0}));
}

TEST(Simulator, ConfirmsLaterAndInOrder)
{
    Rig rig(quick());
    Probe& probe = rig.probe;
    rig.setConfirmMilliseconds(60);
    QElapsedTimer clock;
    clock.start();
    for (qint32 i = 1; i <= 20; ++i) probe.request(0, 0x25, {i}, -i);
    for (qint32 i = 1; i <= 20; ++i) {
        const Seen ack = probe.next(3, 0x25);
        EXPECT_EQ((Samples{ack.length, ack.index, ack.number, ack.words.back()}), (Samples{24, -i, i, i}));
    }
    EXPECT_GE(clock.elapsed(), 59);
    rig.setConfirmMilliseconds(60000);
    probe.request(1, 0x21);
    rig.setConfirmMilliseconds(-1); // that one, too
    EXPECT_EQ(probe.next(3, 0x21).type, 3);
}

TEST(Simulator, TellsTheOthersWhatOneSets)
{
    Rig rig(quick());
    Probe &probe = rig.probe, other(rig.port());
    other.ask(1, 0x21);                                                   // it is there
    for (const qint32 value : {5000, 7}) probe.request(0, 0x25, {value}); // out of range, taken
    EXPECT_EQ(other.next(4, 0x25).words, Samples{7});
    probe.request(1, 0x24);
    for (Seen seen = probe.next(); seen.type != -1 && seen.address != 0x24; seen = probe.next())
        EXPECT_FALSE(seen.type == 4 && seen.address == 0x25);
}

TEST(Simulator, ChangesItsMannerWhileItRuns)
{
    Rig rig(quick());
    Probe& probe = rig.probe;
    qint32 setting = 0;
    const auto expectRefusals = [&](const char* refusals) { // of settings of the attenuator
        for (const char* each = refusals; *each != '\0'; ++each) {
            const Samples answer = probe.ask(0, 0x25, {++setting});
            EXPECT_EQ(answer, (*each == 'x' ? Samples{99, setting - 1} : Samples{0, setting})) << setting;
        }
    };
    expectRefusals("....");
    rig.setRefuseEvery(3);
    expectRefusals("..");
    for (const qint32 address : {0x25, 0x41, 0x1070}) // out of range, the scan's, a sweep's: none counts
        EXPECT_NE(probe.ask(0, address, {address == 0x25 ? 5000 : 7})[0], 99);
    expectRefusals("x..x..");
    rig.setRefuseEvery(4); // counted anew
    expectRefusals("...x");
    rig.setRefuseEvery(0);

    rig.setOwnChanges(0.001);
    for (const auto& [address, before] : {std::pair(0x22, 1000000), std::pair(0x23, 100)}) {
        const qint32 told = probe.next(4, address).words.at(0);
        EXPECT_NE(told, before);
        EXPECT_NEAR(told, before, 0.05 * before + 1);
    }
    rig.setOwnChanges(0);
    probe.ask(1, 0x21); // whatever was under way is here
    const qint32 frequency = probe.ask(1, 0x22)[1];
    for (int tells = 0; tells < 4; ++tells) ASSERT_EQ(probe.next().address, 0x27);
    EXPECT_EQ(probe.ask(1, 0x22)[1], frequency);
}

TEST(Simulator, ShowsOneSurfaceInEveryMode)
{
    constexpr std::size_t x = 64, y = 48;
    const std::pair<int, std::string> rows[] = {{3, "F"}, {4, "FB"}, {5, "B"}, {6, "BF"}, {2, "F"}};
    std::array<int, x * y> surface{}; // as the first forward pass shows it
    for (const auto& [mode, passes] : rows) {
        const std::size_t count = passes.size();
        const Samples raw = samplesOf(quick(), {1, mode, x, y}, 2 * x * y * count);
        int largest = 0, withoutLag = 0; // differences
        for (std::size_t i = 0; i < raw.size(); ++i) {
            const std::size_t line = i / x / count;
            const std::size_t row = line < y ? y - 1 - line : line - y; // the first frame: last row first
            const bool back = passes[i / x % count] == 'B';
            const std::size_t column = back ? x - 1 - i % x : i % x;
            int* const pixel = &surface[row * x + column];
            if (mode == 3 && line < y) *pixel = raw[i];
            // Noise is up to 25 pm either way; the return pass lags by 2.4 nm of 100 nm, 2 pixels of 64.
            if (!back || column + 2 < x) largest = std::max(largest, std::abs(raw[i] - pixel[back ? 2 : 0]));
            if (back) withoutLag = std::max(withoutLag, std::abs(raw[i] - *pixel));
        }
        EXPECT_LE(largest, 60) << mode;
        EXPECT_TRUE(passes == "F" || withoutLag > 200) << mode;
    }
    // No mirroring goes unseen: most pixels differ by more than the noise.
    int differing[3] = {};
    for (std::size_t i = 0; i < surface.size(); ++i) {
        const std::size_t mirrored[] = {i / x * x + x - 1 - i % x, (y - 1 - i / x) * x + i % x,
                                        x * y - 1 - i};
        for (int k = 0; k < 3; ++k) differing[k] += std::abs(surface[i] - surface[mirrored[k]]) > 100;
    }
    EXPECT_GT(*std::min_element(differing, differing + 3), x * y / 2);
    EXPECT_GT(surface.back() - surface.front(), 1500); // it rises from the first pixel to the last one
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
    Rig rig(options);
    Probe &probe = rig.probe, second(rig.port());
    second.ask(1, 0x21);
    startScan(probe, {1, 4, 64, 48, 1000});
    const Samples seen = collect(probe, 20000, options.position);
    EXPECT_EQ(collect(second, 20000, options.position), seen);
    probe.ask(0, 0x40, {0}); // stopped: the file is whole
    const qint32 end = probe.ask(1, 0x45)[1];
    const std::string file = contents(options.surfaceFile.toStdString());
    EXPECT_EQ(file.size(), 4 * (std::size_t(end) + 10000));
    EXPECT_EQ(file.compare(0, 80000, reinterpret_cast<const char*>(seen.data()), 80000), 0);
    probe.request(0, 0x40, {1}); // goes on where it was
    EXPECT_EQ(probe.next(4, 0x100).index, end);
}

TEST(Simulator, HoldsTheScanBackForASlowReceiver)
{
    Rig rig(quick());
    Probe& probe = rig.probe;
    startScan(probe, {1, 3, 4096, 2, 100000}); // 400 million samples a second
    ASSERT_TRUE(probe.has(1000));
    probe.socket.setReadBufferSize(1 << 16);
    collect(probe, 5000000);
}

TEST(Simulator, ClosesOnLengthsThatNoRequestHas)
{
    Rig rig(quick());
    Probe& good = rig.probe;
    for (const qint32 length : {15, 17, -1, 0, 1024 * 1024 + 4, 0x7FFFFFFF}) {
        Probe probe(rig.port());
        probe.send({length, 1, 0x21, 0, 1});
        EXPECT_TRUE(probe.closes()) << length;
    }
    // The largest request, and one that never reads what it asked for.
    EXPECT_EQ(good.ask(0, 0x25, Samples(1024 * 256 - 4, 9)), (Samples{0, 9}));
    Probe greedy(rig.port());
    for (int i = 0; i < 100000; ++i) greedy.request(1, 0x21);
    EXPECT_EQ(good.ask(1, 0x25), (Samples{0, 9}));
}

TEST(Simulator, SaysWhyItCannotStart)
{
    const Rig taken(quick());
    Simulator::Options busy = quick(), nowhere = quick();
    busy.port = taken.port();
    nowhere.address = QStringLiteral("nowhere");
    for (const Simulator::Options& options : {busy, nowhere})
        EXPECT_TRUE(Rig(options).error.startsWith(QLatin1String("cannot "))) << options.port;
}

TEST(SimulatorFaults, DropClosesInsideAFrameOnce)
{
    for (const auto& [fault, milliseconds] : {std::pair("drop", 0), {"drop@0.2", 199}}) {
        QElapsedTimer clock;
        clock.start();
        Rig rig(quick({fault}));
        while (rig.probe.next().type == 4) continue; // up to the half telegram
        EXPECT_TRUE(rig.probe.closes());
        EXPECT_GE(clock.elapsed(), milliseconds);
        EXPECT_EQ(rig.probe.socket.bytesAvailable(), 12);
        EXPECT_EQ(Probe(rig.port()).ask(1, 0x25), (Samples{0, 0}));
    }
    Simulator::Fault fault;
    for (const char* text : {"", "drop@", "drop@-1", "drop@nan", "drops"})
        EXPECT_FALSE(Simulator::parseFault(text, &fault)) << text;
}

TEST(SimulatorFaults, StallAndLengthSilenceTheConnection)
{
    for (const auto& [fault, bytes] : {std::pair("stall@0", QByteArray()), {"length", {"\0\0\0\x40", 4}}}) {
        Rig rig(quick({fault}));
        rig.probe.request(1, 0x21);
        Probe later(rig.port());
        for (int i = 0; i < 10; ++i) EXPECT_EQ(later.next(4, 0x27).type, 4); // half a second of tells
        rig.probe.socket.waitForReadyRead(1);
        EXPECT_EQ(rig.probe.socket.readAll(), bytes);
        EXPECT_EQ(rig.probe.socket.state(), QAbstractSocket::ConnectedState);
    }
}

TEST(SimulatorFaults, FloodTellsWithoutEndAndRefuseRefuses)
{
    Rig rig(quick({"flood", "refuse"}));
    for (int i = 0; i < 50000; ++i) ASSERT_EQ(rig.probe.next().address, 0x27);
    EXPECT_EQ(rig.probe.ask(0, 0x25, {1}), (Samples{99, 0}));
    EXPECT_EQ(rig.probe.ask(1, 0x25), (Samples{0, 0}));
}
