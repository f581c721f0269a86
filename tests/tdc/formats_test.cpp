#include "stream.h"

#include <algorithm>
#include <fuzz/tdcfuzz.h>
#include <gmock/gmock.h>
#include <random>
#include <string>
#include <tests/trace/logfixture.h>

namespace {

using FormatsLog = LogFixture;

void decode(tdcfuzz::Twin& twin, Format format, const Words& packet)
{
    const std::vector<std::uint8_t> bytes(packet.begin(), packet.end());
    if (format == Format::f56) twin.decode56(packet);
    if (format == Format::f52) twin.decode52(packet);
    if (format == Format::f52x) twin.decode52x(packet);
    if (format == Format::f60) twin.decode60(packet);
    if (format == Format::f60b) twin.decode60b(bytes, bytes.size() % 4 == 0);
}

// clang-format off
TEST(Formats, DecodePackets)
{
    constexpr Format f56 = Format::f56, f52 = Format::f52, f52x = Format::f52x, f60 = Format::f60, f60b = Format::f60b;
    const struct
    {
        Format format;
        const char* desc;
        std::vector<Words> packets;
        Events events;
        std::int64_t time;      ///< of the stream, at the end
        std::uint64_t lost = 0; ///< words dropped, ordering errors
    } rows[] = {
        {f56, "all bits", {{0xF0000001, 0x20000005, 0xEFFFFFFF}}, {{0x10000005, 1}, {0x1FFFFFFF, 7}}, 0x1FFFFFFF},
        {f56, "words before the high word", {{5, 0x20000006}, {0x10000000, 7}}, {{7, 0}}, 7, 2},
        {f56, "low part wraps", {{0x10000001, 0x0FFFFFF0, 0x10}}, {{0x1FFFFFF0, 0}, {0x20000010, 0}}, 0x20000010},
        {f56, "and stays wrapped", {{0x10000000, 9, 8}, {9}}, {{9, 0}, {0x10000008, 0}, {0x10000009, 0}}, 0x10000009},
        {f56, "the same time", {{0x10000000, 7}, {0x20000007}}, {{7, 0}, {7, 1}}, 7},
        {f56, "wraps once only", {{0x10000002, 0}, {0x10000000, 5}}, {{0x20000000, 0}, {0x10000005, 0}}, 0x10000005},
        {f56, "beyond the highest", {{0x1FFFFFFF, 0xEFFFFFFF, 0}}, {{0xFFFFFFFFFFFFFF, 7}, {0x100000000000000, 0}},
         0x100000000000000},

        {f52, "bits, no wrap", {{5, 0x84000001}, {0xFC000001, 0x04000005, 0x7FFFFFFF, 1}},
         {{0x4000005, 1}, {0x7FFFFFF, 31}, {0x4000001, 0}}, 0x4000001, 2},
        {f52, "highest", {{0xFFFFFFFF, 0x03FFFFFF}}, {{0xFFFFFFFFFFFFF, 0}}, 0xFFFFFFFFFFFFF},

        {f52x, "all bits", {{0x80000001}, {0x70000001, 0x90000005, 0xFFFFFFFF}}, {{0x10000005, 1}, {0x1FFFFFFF, 7}},
         0x1FFFFFFF, 1},
        {f52x, "low part wraps", {{0, 0x80000009, 0x80000008}}, {{9, 0}, {0x10000008, 0}}, 0x10000008},

        // The first two words mostly are the absolute time 1000.
        {f60, "absolute", {{0x3FFFFFFF, 0xBFFFFFFF}}, {}, 0xFFFFFFFFFFFFFFF},
        {f60, "three events, +1 -1 +65535", {{1000, 0x80000000, 0x7FF40001, 0xABFFFDFF}}, {{1001, 2}, {1000, 3}, {66535, 5}}, 66535},
        {f60, "three events, -65536 +65535 -1", {{1000, 0x80000000, 0x7FF10000, 0x87FFFC3F}}, {{-64536, 0}, {999, 0}, {998, 0}}, 998},
        {f60, "two events, -5 +67108863", {{1000, 0x80000000, 0x0FFFFFFB, 0xE3FFFFFF}}, {{995, 1}, {67109858, 4}}, 67109858},
        {f60, "one event, -1, then -2^56", {{1000, 0x80000000, 0x7FFFFFFF, 0xEFFFFFFF, 0x40000000, 0xC4000000}},
         {{999, 5}, {-72057594037926937, 0}}, -72057594037926937},
        {f60, "none before the first time", {{0x40000001, 0xC0000000, 0, 0x80000000, 0x40000001, 0xC0000000}}, {}, 0},
        {f60, "a record that passes time 0", {{1, 0x80000000, 0x07FFFFFF, 0xC8000001}}, {{0, 0}, {1, 1}}, 1},
        {f60, "a run that gets to time 0", {{3, 0x80000000}, {0x7FF1FFFF, 0x97FFFCFF, 0x7FF1FFFF, 0x97FFFCFF, 0x7FF1FFFF,
         0x97FFFCFF, 0x7FF1FFFF, 0x97FFFCFF, 0x7FF1FFFF, 0x97FFFCFF}}, {{2, 0}, {1, 1}, {0, 2}}, 0},
        {f60, "channel 7", {{1000, 0x80000000, 0x40000005, 0xF8000000}}, {}, 1005},
        {f60, "markers at 15007", {{15000, 0x80000000, 0x40000007, 0xF0000000}}, {{15000, 100}, {15000, 101}, {15000, 102}}, 15007},
        {f60, "markers at -1, remainder 4999", {{1, 0x80000000, 0x7FFFFFFE, 0xF7FFFFFF}},
         {{-5000, 100}, {-5000, 101}, {-5000, 102}, {-5000, 202}, {-5000, 203}}, -1},
        {f60, "carry over three words", {{1000, 0x80000000, 0x4000000A}, {0xC8000000, 0x40000001, 0xC8000000}}, {{1010, 1}, {1011, 1}}, 1011},
        {f60, "single words", {{1000}, {0x80000000}, {0x40000005}, {}, {0xC0000000}, {0xC0000000}}, {{1005, 0}}, 1005},
        {f60, "a carry without its partner", {{1000, 0x80000000, 0x40000005}, {0x40000007, 0xC0000000}}, {{1007, 0}}, 1007},
        {f60, "a carry of 0 is none", {{1000, 0x80000000, 0}, {0x80000000}}, {}, 1000},
        {f60, "a second word alone", {{0xC8000000, 1000, 0x80000000, 0x40000001, 0xC0000000}}, {{1001, 0}}, 1001},
        {f60, "out of step, low", {{1000, 0x80000000, 0x40000005}, {1, 2, 0x80000000}, {0xC0000000}}, {{1005, 0}}, 1005, 1},
        {f60, "out of step, high", {{1000, 0x80000000, 0x40000005}, {0xC0000000, 0xC0000000}, {0xC0000000}}, {{1005, 0}}, 1005, 1},

        {f60b, "3 and 4 bytes", {{0x04, 10, 0, 0x09, 0, 1, 0}}, {{10, 1}, {266, 2}}, 266},
        {f60b, "8 and 5 bytes, -1000, then -1, and none below 0", {{0xA3, 0x0F, 0, 0, 0, 0, 0, 0, 0x7E, 0x18, 0xFC, 0xFF, 0xFF},
         {0, 0xFF, 0xFF, 0x04, 5, 0}, {0x1F, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0}}, {{0, 31}, {-1, 0}, {8, 0}}, 8},
        {f60b, "4 bytes, -8388608", {{0x83, 0, 0, 2, 0, 0, 0, 0, 0x05, 0, 0, 0x80}}, {{32, 1}}, 32},
        {f60b, "highest", {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}}, {}, 2305843009213693951},
        {f60b, "lowest", {{3, 0, 0, 0, 0, 0, 0, 0x80, 0x04, 1, 0}}, {}, -2305843009213693952},
    };
    for (const auto& row : rows) {
        Stream stream;
        for (const Words& packet : row.packets) stream.feed(row.format, packet);
        EXPECT_EQ(stream.events, row.events) << row.desc;
        EXPECT_EQ(tdc56GetTime(stream.instance), row.time) << row.desc;
        EXPECT_EQ(tdc56GetDroppedWords(stream.instance) + tdc56GetOrderingErrors(stream.instance), row.lost)
            << row.desc;
    }
}
// clang-format on

TEST(Formats, EmptyPacketsChangeNothing)
{
    Stream stream;
    stream.feed(Format::f60, {1000, 0x80000000, 0x40000005});
    for (const int count : {0, -1, -most - 1}) {
        tdc56Decode(stream.instance, nullptr, count);
        tdc56Decode52(stream.instance, nullptr, count, 0x1FF);
        tdc56Decode60b(stream.instance, nullptr, 0, 0x1FF);
        EXPECT_EQ(tdc56Decode52x(stream.instance, nullptr, count, nullptr), 0);
        EXPECT_EQ(tdc56Decode60(stream.instance, nullptr, count, 0x1FF), 0x40000005) << "the word kept";
        EXPECT_EQ(tdc56Cut60b(nullptr, count), 0);
    }
    EXPECT_EQ(tdc56GetTime(stream.instance), 1000);
    EXPECT_EQ(tdc56GetCount(stream.instance), 0);
}

TEST(Formats, EachMaskBitIsOneMarker)
{
    const int marker[] = {100, 101, 102, 103, 104, 200, 201, 202, 203};
    const int code[] = {33, 34, 35, 36, 41, 37, 38, 39, 40};
    Words words52 = {0xFC000000};
    Words bytes60b;
    const Words words60 = {5000, 0x80000000, 0x400011FF, 0xF0000000}; // at 9607, remainder 4607: all flags
    Events channels;
    for (std::uint32_t c = 0; c < 64; ++c) { // at the time c
        words52.push_back(c << 26 | c);
        bytes60b.insert(bytes60b.end(), {c << 2, c == 0 ? 0U : 1U, 0});
        if (c < 32) channels.emplace_back(c, c);
    }
    for (std::size_t bit = 0; bit <= 9; ++bit) { // 9: a mask of bits without a marker
        Stream streams[3];
        Events expected = channels;
        if (bit < 9) expected.emplace_back(code[bit], marker[bit]);
        for (Stream& stream : streams) stream.mask = bit < 9 ? 1U << bit : 0xFFFFFE00;
        streams[0].feed(Format::f52, words52);
        streams[1].feed(Format::f60b, bytes60b);
        streams[2].feed(Format::f60, words60);
        EXPECT_EQ(streams[0].events, expected) << bit;
        EXPECT_EQ(streams[1].events, expected) << bit;
        EXPECT_EQ(streams[2].events, bit < 9 ? Events({{5000, marker[bit]}}) : Events()) << bit;
    }
}

TEST(Formats, RecordCutByTheEndDeliversNothing)
{
    const std::vector<std::uint8_t> all = {0x04, 10, 0, 0x09, 0, 1,  0,    0xA3, 0x0F, 0,
                                           0,    0,  0, 0,    0, 14, 0xFB, 0xFF, 0xFF, 0xFF};
    const int ends[] = {0, 3, 7, 15, 20};
    const std::int64_t times[] = {0, 10, 266, 1000, 995};
    const std::size_t events[] = {0, 1, 2, 2, 3};
    const auto records = [&ends](int size) {
        return std::upper_bound(ends, std::end(ends), size) - ends - 1;
    };
    for (int size = 0; size <= 20; ++size) {
        const std::vector<std::uint8_t> bytes(all.begin(), all.begin() + size);
        Stream stream;
        stream.feed(Format::f60b, {bytes.begin(), bytes.end()});
        EXPECT_EQ(stream.events.size(), events[records(size)]) << size;
        EXPECT_EQ(tdc56GetTime(stream.instance), times[records(size)]) << size;
        EXPECT_EQ(tdc56Cut60b(bytes.data(), size), ends[records(size)]);
    }
}

TEST_F(FormatsLog, OrderingErrorDropsTheRestOfThePacket)
{
    // clang-format off
    const struct { const char* desc; std::vector<Words> packets; const char* line; Events events; } rows[] = {
        {"first, two first words, behind a lone second word", {{0xC0000000, 1, 2}}, "0, 00000001 00000002", {}},
        {"behind a carry", {{1000, 0x80000000, 0x40000005}, {0xC0000000, 0x40000001, 0x40000002}},
         "1, 40000001 40000002", {{1005, 0}}},
    };
    // clang-format on
    traceInit("log", "p", TRACE_ON);
    for (const auto& row : rows) {
        Stream stream;
        for (const auto& packet : row.packets) stream.feed(Format::f60, packet);
        const std::string text = std::string("Ordering error index ") + row.line + ", dropping packet";
        EXPECT_THAT(logged(), testing::MatchesRegex("p \\[[0-9]+\\.[0-9]{3}\\]: " + text + "\\.\n"))
            << row.desc;
        EXPECT_EQ(stream.events, row.events) << row.desc;
        EXPECT_EQ(stream.result, 0) << row.desc;
        EXPECT_EQ(tdc56GetOrderingErrors(stream.instance), 1U) << row.desc;
        stream.feed(Format::f60, {0xC0000000});
        EXPECT_EQ(stream.events, row.events) << row.desc << ": no word is kept";
    }
    for (const std::size_t records : {5U, 9U}) // the absolute time, then three events each
        for (std::size_t fault = 0; fault < 2 * records; ++fault) {
            Words packet = {1000, 0x80000000};
            while (packet.size() < 2 * records) packet.insert(packet.end(), {0x40000000, 0x80000000});
            packet[fault] ^= 0x80000000;
            Stream stream;
            stream.feed(Format::f60, packet);
            const std::size_t before = fault / 2;
            EXPECT_EQ(stream.events.size(), before == 0 ? 0 : 3 * (before - 1)) << fault;
            EXPECT_EQ(tdc56GetOrderingErrors(stream.instance), 1U) << fault;
            EXPECT_EQ(stream.result, fault < 2 ? static_cast<int>(packet[0]) : 0) << fault;
            const std::string index = "index " + std::to_string(before) + ", ";
            EXPECT_EQ(logged().find(index) != std::string::npos, before > 0) << fault;
        }
}

TEST(Formats, TimesWrapAtTheEndsOfTheirRange)
{
    Stream stream;
    Words packet = {0x3FFFFFFF, 0xBFFFFFFF};                                             // 2^60 - 1
    for (int i = 0; i < 112; ++i) packet.insert(packet.end(), {0x7FFFFFFF, 0xFBFFFFFF}); // + 2^56 - 1
    packet.insert(packet.end(), {0x40000070, 0xC0000000, 0x40000001, 0xF0000000, 0x7FFFFFFF, 0xCFFFFFFF});
    stream.feed(Format::f60, packet);
    EXPECT_EQ(stream.events,
              (Events{{highest, 0}, {highest - 4191, 200}, {highest - 4191, 201}, {highest, 1}}));
    tdc56SetDivider(stream.instance, 2);
    tdc56SetStartPeriod(stream.instance, 2000);
    stream.events.clear();
    stream.feed(Format::f60b, {0x04, 1, 0}); // from the highest to the lowest, folded onto 1000
    EXPECT_EQ(stream.events, (Events{{192, 1}}));
    EXPECT_EQ(tdc56GetTime(stream.instance), lowest);

    tdcfuzz::Twin twin; // virtual events that wrap, too
    twin.setDivider(3);
    for (const std::uint32_t top : {0x80U, 0x7FU}) { // -2^61, then almost 2^61; a start after each
        decode(twin, Format::f60b, {3, 0, 0, 0, 0, 0, 0, top});
        twin.decode60({0x40000001, 0xE8000000});
    }
    for (int i = 1; i <= 500; ++i) twin.decode60({0x7FFFFFFF, i % 90 == 0 ? 0xEBFFFFFF : 0xFBFFFFFF});
    EXPECT_GT(twin.pop(), 2 + 5 + 5U);
    EXPECT_TRUE(twin.same());
}

TEST(Formats, DividerMakesVirtualEventsOrFolds)
{
    constexpr std::uint32_t high = 0x10000000;
    const Words starts = {high, 1000, 2000, 0x20000000 + 3100, 4200};
    const Events plain = {{1000, 0}, {2000, 0}, {3100, 1}, {4200, 0}};
    // clang-format off
    const struct { const char* desc; int divider; std::int64_t period; Format format; Words packet; Events events; } rows[] = {
        {"as the stream passes them, the last too", 4, 0, Format::f56, starts, {{1000, 0}, {2000, 0}, {2250, 0}, {2500, 0},
         {2750, 0}, {3000, 0}, {3100, 1}, {4200, 0}}},
        {"truncated, and the next start comes first", 4, 0, Format::f56, {high, 1000, 2003, 2755}, {{1000, 0}, {2003, 0}, {2253, 0}, {2504, 0}, {2755, 0}}},
        {"a first start at 0 is none", 2, 0, Format::f56, {high, 0, 1000, 1500}, {{0, 0}, {1000, 0}, {1500, 0}}},
        {"more than the clock resolves", most, 0, Format::f56, {high, 1, high + 1, 1, 0x20000002}, {{1, 0}, {0x10000001, 0},
         {0x10000001, 0}, {0x10000001, 0}, {0x10000001, 0}, {0x10000001, 0}, {0x10000001, 0}, {0x10000001, 0}, {0x10000001, 0},
         {0x10000002, 1}}},
        {"no fifth one, and cut to whole clocks", 3, 0, Format::f56, {high, 10, 20, 0x20000000 + 90}, {{10, 0}, {20, 0},
         {23, 0}, {26, 0}, {30, 0}, {90, 1}}},
        {"1", 1, 500, Format::f56, starts, plain}, {"0", 0, 0, Format::f56, starts, plain},
        {"-4", -4, 1000, Format::f56, starts, plain}, {"lowest", -most - 1, 0, Format::f56, starts, plain},
        {"folded", 4, 1000, Format::f56, {high, 0x20000000 + 1260, 1499, 1500}, {{10, 1}, {249, 0}, {0, 0}}},
        {"folded onto a part that is cut", 3, 1000, Format::f56, {high, 1000}, {{1, 0}}},
        {"period below the divider", most, 1000, Format::f56, starts, plain},
        {"negative period", 4, -1000, Format::f56, starts, plain},
        {"negative period and time", 4, -1000, Format::f60, {1, 0x80000000, 0x7FFFFFFA, 0xC7FFFFFF}, {{-5, 0}}},
        {"negative time", 4, 1000, Format::f60b, {0x04, 0xF9, 0xFF}, {{243, 1}}},
        {"60, starts on 5", 2, 0, Format::f60, {1000, 0x80000000, 0x40000000, 0xE8000000, 0x40000064, 0xE8000000,
         0x40000064, 0xF8000000, 0x40000001, 0xC0000000}, {{1000, 5}, {1100, 5}, {1150, 0}, {1200, 0}, {1201, 0}}},
        {"60, a start at 0 measures, and is none", 2, 0, Format::f60, {900, 0x80000000, 0x40000000, 0xE8000000, 0x40000064,
         0xE8000000, 0x2FFFFC18, 0xC80001F4}, {{900, 5}, {1000, 5}, {0, 5}, {500, 1}}},
        {"60, folded, not its markers", 2, 200, Format::f60, {5000, 0x80000000, 0x40000001, 0xF0000000, 0x40000064,
         0xC8000000}, {{5000, 100}, {1, 1}}},
        {"52, no starts", 2, 0, Format::f52, {0xFC000000, 1000, 2000, 3000}, {{1000, 0}, {2000, 0}, {3000, 0}}},
        {"52, folded, not its markers", 2, 200, Format::f52, {0xFC000000, 0x84000000 + 1010, 0x78000000 + 1010},
         {{1010, 100}, {10, 30}}},
        {"60b, no starts", 2, 0, Format::f60b, {0, 100, 0, 0, 100, 0, 0, 100, 0}, {{100, 0}, {200, 0}, {300, 0}}},
        {"60b, folded, not its markers", 2, 20, Format::f60b, {0x84, 123, 0, 0x04, 0, 0}, {{123, 100}, {3, 1}}},
        {"52x does neither", 2, 200, Format::f52x, {0, 0x80000000 + 1010}, {{1010, 0}}},
    };
    // clang-format on
    for (const auto& row : rows) {
        Stream stream;
        tdc56SetDivider(stream.instance, row.divider);
        tdc56SetStartPeriod(stream.instance, row.period);
        stream.feed(row.format, row.packet);
        EXPECT_EQ(stream.events, row.events) << row.desc;
    }
}

/// Packets onto a buffer that is nearly or more than full, with and without virtual events.
TEST(Formats, FillTheBufferAsTheLiteralDecoderDoes)
{
    // clang-format off
    const struct { const char* desc; Format format; Words begin, step; } rows[] = {
        {"56, starts only", Format::f56, {0x10000000}, {0x0FF00000, 0}},
        {"52", Format::f52, {0xFC000000}, {0x84000001, 0x04000002}},
        {"60, all markers", Format::f60, {5511, 0x80000000}, {0x400C0000, 0xB0000300}},
        {"60, starts", Format::f60, {1000, 0x80000000}, {0x400A1000, 0x80000400}},
        {"60b", Format::f60b, {}, {0x84, 1, 0, 0x04, 1, 0}},
    };
    // clang-format on
    for (const auto& row : rows) {
        Words packet = row.begin;
        for (int i = 0; i < 70; ++i) packet.insert(packet.end(), row.step.begin(), row.step.end());
        for (const int divider : {1, 4})
            for (int before = 15000; before < 16384 + 5; before += before < 16264 ? 37 : 1) {
                tdcfuzz::Twin twin;
                twin.setDivider(divider);
                twin.ours->count = twin.stated.count = before;
                decode(twin, row.format, packet);
                ASSERT_TRUE(twin.same()) << row.desc << divider << before;
                twin.pop();
                decode(twin, row.format, packet);
                const std::int32_t offsets[8] = {-1, -2, -3, 0, 0, -4};
                twin.setOffsets(offsets);
                decode(twin, row.format, packet);
                twin.pop();
                ASSERT_TRUE(twin.same()) << row.desc << divider << before;
            }
    }
}

/// Random packets that look like real ones, beside the literal decoder.
TEST(Formats, DecodeAsTheLiteralDecoderDoes)
{
    std::mt19937 engine(20);
    const auto random = [&engine] { return static_cast<std::uint32_t>(engine()); };
    const auto below = [&random](std::uint32_t limit) { return random() % limit; };
    const struct
    {
        Format format;
        std::uint32_t high, low, channel, event;
    } rows[] = {
        {Format::f56, 0x10000000, 0x0FFFFFFF, 0xE0000000, 0},
        {Format::f52, 0xFC000000, 0x03FFFFFF, 0xFC000000, 0},
        {Format::f52x, 0, 0x0FFFFFFF, 0x70000000, 0x80000000},
        {Format::f60, 0, 0, 0x7FFFFFFF, 0},
        {Format::f60b, 0x1003, 0x7FFFFFF, 0xFC, 0},
    };
    for (const auto& row : rows) {
        tdcfuzz::Twin twin;
        std::uint32_t clock = 0;
        for (int packet = 0; packet < 1500; ++packet) {
            std::vector<std::uint8_t> bytes(32);
            for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
            tdcfuzz::Input setting(bytes.data(), bytes.size());
            if (below(6) == 0) tdcfuzz::set(twin, below(9), setting);
            if (below(6) == 0) twin.push(literal::sum(twin.stated.time, below(1000)), bytes[0]);

            Words words(below(100) == 0 ? below(20000) : below(60));
            std::uint32_t second = twin.stated.carryWord != 0 ? 0x80000000U : 0U;
            const bool threeEach = below(2) == 0; // format 60, mostly of channels 0 to 5
            for (std::uint32_t& word : words) {
                clock += below(0x400000);
                const bool isHigh = below(30) == 0;
                word =
                    isHigh ? row.high | below(30) : row.event | (clock & row.low) | (random() & row.channel);
                if (row.format != Format::f60) continue;
                if (threeEach && !isHigh) word = second == 0 ? word | 0x40000000 : word & ~0x40000000U;
                if (threeEach && below(20) != 0) word &= second == 0 ? ~0x80000U : ~0x20000200U;
                word |= second;
                if (below(20000) != 0) second ^= 0x80000000;
            }
            if (row.format == Format::f60b) { // as bytes
                Words cut(words.size() * 4 + below(4));
                for (std::size_t i = 0; i < words.size() * 4; ++i) cut[i] = words[i / 4] >> i % 4 * 8 & 0xFF;
                words = cut;
            }
            decode(twin, row.format, words);
            if (below(3) != 0) twin.pop();
            ASSERT_TRUE(twin.same()) << static_cast<int>(row.format) << ", packet " << packet;
        }
        EXPECT_GT(twin.compared, 30000U) << static_cast<int>(row.format);
    }
}

} // namespace
