#include "probe.h"

#include <algorithm>
#include <apps/simulator/events.h>
#include <apps/simulator/packets.h>
#include <apps/simulator/simulator.h>
#include <array>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <numeric>

namespace {

using Events = std::vector<PpTimest>;
using Words = std::vector<qint32>;

bool same(const PpTimest& a, const PpTimest& b)
{
    return a.time == b.time && a.channel == b.channel;
}

/// The next events up to a time, at most `room`.
Events take(EventSource& source, std::int64_t until, std::size_t room = 6000000)
{
    Events events(room);
    events.resize(source.take(until, events.data(), room));
    return events;
}

/// A stream's receiver, and what it saw.
struct Receiver
{
    void decode(const Words& packet)
    {
        const auto* const words = reinterpret_cast<const std::uint32_t*>(packet.data());
        const int n = int(packet.size());
        if (format == 1) tdc56Decode(instance.get(), words, n);
        if (format == 2) tdc56Decode52(instance.get(), words, n, 0x1FF);
        if (format == 4) tdc56Decode60(instance.get(), words, n, 0x1FF);
        if (format == 5)
            tdc56Decode60b(instance.get(), reinterpret_cast<const std::uint8_t*>(words), n, 0x1FF);
        const int found = format == 3 ? tdc56Decode52x(instance.get(), words, n, popped.data())
                                      : tdc56Pop(instance.get(), popped.data());
        seen.insert(seen.end(), popped.begin(), popped.begin() + found);
    }
    /// Fails unless it saw the first of these, as the format carries them; returns the number of the others.
    std::size_t missing(Events events) const
    {
        const auto carried = [this](const PpTimest& e) {
            return e.channel < 8 || format % 2 == 0 || format == 5;
        };
        events.erase(std::stable_partition(events.begin(), events.end(), carried), events.end());
        if (format == 4)
            for (PpTimest& event : events) event.channel = event.channel == 0 ? 5 : event.channel;
        const auto end = std::mismatch(seen.begin(), seen.end(), events.begin(), events.end(), same).first;
        EXPECT_EQ(end - seen.begin(), std::ptrdiff_t(seen.size())) << "format " << format;
        return events.size() - std::min(events.size(), seen.size());
    }

    const qint32 format;
    std::shared_ptr<Tdc56Instance> instance{tdc56Init(), tdc56DeInit};
    Events popped = Events(tdc56Capacity), seen = {};
};

} // namespace

TEST(EventSource, DecaysAsItsDescriptionSays)
{
    EventSource source(1, 5000000); // 50 events every 10 us
    std::map<int, int> markers;
    std::array<std::vector<int>, 5> histogram; // channel: time after the start
    histogram.fill(std::vector<int>(10000));
    std::int64_t before = 0, start = -9000, marker = -512;
    for (const PpTimest& event : take(source, 1000000000)) {
        ASSERT_GE(event.time, std::exchange(before, event.time));
        ASSERT_TRUE(event.time >= marker + 512 || event.channel >= 100); // the gap after a marker
        if (event.channel == 0) {
            ASSERT_EQ(event.time, start + 10000);
            start = event.time;
        } else if (event.channel < 8) {
            ++histogram.at(event.channel).at(std::size_t(event.time - start));
        } else {
            ASSERT_EQ(event.time % 5000, 0);
            marker = event.time;
            ++markers[event.channel];
        }
    }
    EXPECT_EQ(markers, (std::map<int, int>{{100, 100},
                                           {101, 10},
                                           {102, 10},
                                           {103, 10},
                                           {104, 10},
                                           {200, 10},
                                           {201, 10},
                                           {202, 10},
                                           {203, 10}}));
    const std::tuple<std::size_t, int, int, double> rows[] = {// delay, lifetime, part of those but starts
                                                              {1, 500, 400, 0.32},
                                                              {2, 800, 900, 0.24},
                                                              {3, 1200, 1800, 0.16},
                                                              {4, 2000, 3000, 0.08}};
    for (const auto& [channel, delay, lifetime, part] : rows) {
        const auto sum = [&h = histogram[channel]](int from, int count) {
            return double(std::accumulate(h.begin() + from, h.begin() + from + count, 0));
        };
        const int half = lifetime / 2;
        const double first = sum(delay, half), second = sum(delay + half, half);
        const double third = sum(delay + 2 * half, half);
        EXPECT_NEAR((first - second) / (second - third), 1.6487, 0.06) << channel; // root of e
        EXPECT_NEAR(sum(0, 10000), 4900000 * (part + 0.05), 5000) << channel;      // with the background
        EXPECT_GT(sum(delay, 20), 3 * sum(delay - 20, 20)) << channel;             // the edge
    }
}

TEST(EventSource, IsTheSameHoweverItIsTaken)
{
    EventSource whole(7, 5000000), pieces(7, 5000000);
    const Events expected = take(whole, 20000000);
    Events found;
    for (std::int64_t until = 0; until <= 20000000; until += 10000)
        for (Events some{{}}; !some.empty(); found.insert(found.end(), some.begin(), some.end()))
            some = take(pieces, until, 7);
    EXPECT_TRUE(std::equal(found.begin(), found.end(), expected.begin(), expected.end(), same));
    pieces.setRate(1, 20000000); // at once, and not after the period that is under way
    EXPECT_TRUE(same(take(pieces, 30000000).at(0), {20001000, 0, {}}));
}

TEST(PacketWriter, ReadsBackInEveryFormat)
{
    for (const qint32 format : {1, 2, 3, 4, 5})
        for (const auto& [rate, seconds] : {std::pair(1, 60), {60, 60}, {3000, 20}, {1000000, 1}}) {
            EventSource source(1, rate);
            PacketWriter writer;
            writer.begin(format);
            Receiver steady{format}, late{format}; // the second one knows no packet before
            Events all;
            std::array<bool, 4> records{}; // types of format 60
            std::int64_t time = 1;
            for (std::int64_t until = 0; until < seconds * std::int64_t(1000000000);) {
                const Events some = take(source, until, PacketWriter::maxEvents);
                Words words(PacketWriter::maxWords);
                words.resize(
                    writer.write(time, some.data(), some.size(), reinterpret_cast<quint32*>(words.data())));
                tdc56Reset(late.instance.get());
                for (Receiver* receiver : {&steady, &late}) receiver->decode(words);
                for (std::size_t i = 0; i + 1 < words.size(); i += 2)
                    records[(words[i] >> 30 & 1) + 2 * (words[i + 1] >> 30 & 1)] = true;
                all.insert(all.end(), some.begin(), some.end());
                const bool full = some.size() == PacketWriter::maxEvents;
                time = full ? some.back().time : std::max<std::int64_t>(until, 1);
                if (!full) until += rate < 100 ? 4999999999 : 20000000; // the one: distances beyond 32 bits
            }
            EXPECT_EQ(steady.missing(all) + late.missing(all), 0u) << format << " at " << rate;
            EXPECT_TRUE(format != 4 || rate != 3000 || records == (std::array{true, true, true, true}));
        }
}

TEST(Simulator, StreamsAnewWithoutLossAndStops)
{
    Simulator::Options options;
    options.confirmMilliseconds = 0;
    Simulator simulator(options);
    QString error;
    ASSERT_TRUE(simulator.start(&error));
    Probe probe(simulator.port());
    probe.socket.setReadBufferSize(1 << 16);
    probe.ask(0, 0x51, {5000000});
    {
        Probe other(simulator.port());
        other.ask(1, 0x21); // it is there
        probe.ask(0, 0x50, {4});
        EXPECT_EQ(other.next(4, 0x50).words, Words{4});
        // Until the stream waits for the slow one: no packet between some other tells.
        for (int tells = 0; tells < 5;) {
            const Seen seen = other.next();
            ASSERT_NE(seen.type, -1);
            tells = seen.address == 0x27 ? tells + 1 : 0;
        }
    }
    for (const qint32 format : {4, 1, 1}) {
        if (format != 4) probe.ask(0, 0x50, {format});
        Receiver receiver{format};
        while (receiver.seen.size() < (format == 4 ? 2000000 : 200000)) {
            const Seen packet = probe.next(4, 0x110);
            ASSERT_EQ(packet.index, format);
            receiver.decode(packet.words);
        }
        EventSource source(1, 5000000);
        receiver.missing(take(source, receiver.seen.back().time));
    }
    probe.ask(0, 0x51, {1}); // packets that only tell the time
    Seen packet = probe.next(4, 0x110);
    while (packet.words.size() > 1) packet = probe.next(4, 0x110);
    EXPECT_EQ(packet.words.size(), 1u);
    EXPECT_EQ(probe.ask(0, 0x50, {0}), (Words{0, 0}));
    for (int tells = 0; tells < 4; ++tells) ASSERT_EQ(probe.next().address, 0x27);
}
