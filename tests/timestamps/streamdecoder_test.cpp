#include "streams.h"

#include <fuzz/literaltdc.h>
#include <gtest/gtest.h>
#include <random>

using namespace timestamps;

namespace {

constexpr std::int32_t most = 2147483647;
constexpr int recordCount = 20000;

/// The words of a format of one word a record.
struct Layout
{
    Format format;
    int lowBits, codeShift;
    std::uint32_t highWord, eventWord, lastCode;
};

const Layout* layoutOf(Format format)
{
    static const Layout layouts[] = {{Format::F56, 28, 29, 0x10000000, 0, 7},
                                     {Format::F52, 26, 26, 0xFC000000, 0, 62},
                                     {Format::F52x, 28, 28, 0, 0x80000000, 7}};
    for (const Layout& layout : layouts)
        if (layout.format == format) return &layout;
    return nullptr;
}

/// A stream of ascending times, every record with its own gap; the first words have no time yet.
std::string randomStream(Format format)
{
    std::mt19937 random(17);
    const auto upTo = [&](std::uint32_t last) { return std::uint32_t(random() % (last + 1)); };
    std::string stream;
    std::uint64_t time = 1000000000000, high = 0;
    const auto put = [&](std::uint64_t value, std::size_t bytes) {
        for (std::size_t i = 0; i < bytes; ++i) stream += char(value >> 8 * i);
    };
    const Layout* const layout = layoutOf(format);
    if (format == Format::F60b) put(time << 2 | 3, 8);
    if (format == Format::F60) put((0x80000000 | time >> 30) << 32 | (time & 0x3FFFFFFF), 8);
    for (int i = 0; i < recordCount; ++i) {
        time += upTo(30000);
        if (layout != nullptr) {
            if (i > 3 && (upTo(20) == 0 || time >> layout->lowBits != high)) {
                high = time >> layout->lowBits;
                put(high | layout->highWord, 4);
            }
            const std::uint64_t low = time & ((1U << layout->lowBits) - 1);
            put(low | layout->eventWord | upTo(layout->lastCode) << layout->codeShift, 4);
        } else if (format == Format::F60) {
            const std::uint32_t type = 1 + upTo(2);
            std::uint64_t bits = std::uint64_t(random()) << 32 | random();
            if (type == 1) bits &= ~(0x10000ULL | 1ULL << 38 | 1ULL << 58); // the signs
            if (type == 2) bits &= ~(0x07FF0000ULL | 0x07FF0000ULL << 32);
            if (type == 3) bits &= 0x38000000'0000FFFFULL;
            bits &= ~(1ULL << 30 | 1ULL << 31 | 1ULL << 62);
            put(bits | 1ULL << 63 | (type & 1ULL) << 30 | (type & 2ULL) << 61, 8);
        } else {
            const std::uint32_t type = upTo(2);
            put(upTo(63) << 2 | type, 1);
            put(upTo(30000), type + 2);
        }
    }
    return stream;
}

/// The same by the literal decoder, one record at a time, in whatever order.
Events expected(const Settings& settings, const std::string& stream)
{
    literal::Instance main, aside;
    main.setOffsets(settings.offsets.data());
    for (literal::Instance* instance : {&main, &aside}) {
        instance->setDivider(settings.divider);
        instance->setStartPeriod(settings.startPeriod);
    }
    Events events, popped;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(stream.data());
    const int recordSizes[] = {3, 4, 5, 8};
    for (std::size_t at = 0; at < stream.size();) {
        std::size_t size = settings.format == Format::F60 ? 8 : 4;
        if (settings.format == Format::F60b) size = std::size_t(recordSizes[bytes[at] & 3]);
        std::uint32_t words[2];
        std::memcpy(words, bytes + at, std::min(size, sizeof words));
        for (literal::Instance* instance : {&main, &aside}) {
            const Format format = settings.format;
            PpTimest event;
            if (format == Format::F56) instance->decode56(words, 1);
            if (format == Format::F52) instance->decode52(words, 1, settings.markerMask);
            if (format == Format::F52x && instance->decode52x(words, 1, &event) > 0)
                instance->store(event.time, event.channel);
            if (format == Format::F60) instance->decode60(words, 2, settings.markerMask);
            if (format == Format::F60b) instance->decode60b(bytes + at, -int(size), settings.markerMask);
        }
        aside.pop(&popped);
        for (const PpTimest& event : popped)
            if (!main.sorting || event.channel > 7) events.push_back(event);
        main.count = 0;
        at += size;
    }
    events.insert(events.end(), main.queue.begin(), main.queue.end());
    return events;
}

bool inOrder(const PpTimest& a, const PpTimest& b)
{
    return std::pair(a.time, a.channel) < std::pair(b.time, b.channel);
}

} // namespace

TEST(StreamDecoder, LosesNothing)
{
    const std::array<std::int32_t, 8> none = {}, some = {0, -70000, 5, 400000, -1, 0, 123456, 9},
                                      least = {-most - 1, -most - 1, -most - 1, -most - 1,
                                               -most - 1, -most - 1, -most - 1, -most - 1},
                                      both = {most, -most - 1, 0, 0, most, 0, 0, -5};
    const std::pair<int, std::int64_t> divisions[] = {{1, 0}, {50, 0}, {7, 1000000}};
    for (const Format format : {Format::F56, Format::F52, Format::F52x, Format::F60, Format::F60b}) {
        const std::string stream = randomStream(format);
        std::size_t chunk = 1;
        for (const auto& offsets : {none, some, least, both}) {
            for (const auto& [divider, period] : divisions) {
                if (format == Format::F52x && (offsets != none || divider != 1)) continue;
                SCOPED_TRACE(testing::Message() << "format " << int(format) << ", offset " << offsets[1]
                                                << ", divider " << divider << ", chunk " << chunk);
                const Settings settings = {format, 0x1FF, offsets, divider, period};
                Summary summary;
                Events events = decoded(settings, stream, chunk, &summary);
                Events all = expected(settings, stream);
                EXPECT_GT(events.size(), 12000U);
                std::uint64_t told = 0;
                for (const std::uint64_t count : summary.channels) told += count;
                for (const std::uint64_t count : summary.markers) told += count;
                EXPECT_EQ(told, events.size());
                const bool isWords = format != Format::F60 && format != Format::F60b;
                EXPECT_EQ(summary.wordsBeforeHigh, isWords ? 4U : 0U);
                EXPECT_EQ(summary.orderingErrors + summary.lost + summary.cutBytes, 0U);
                if (offsets != none) {
                    if (divider == 1 && offsets != both) {
                        EXPECT_TRUE(std::is_sorted(events.begin(), events.end()));
                        EXPECT_TRUE(events == decoded(settings, stream, stream.size()));
                    }
                    std::sort(events.begin(), events.end(), inOrder);
                    std::sort(all.begin(), all.end(), inOrder);
                }
                EXPECT_TRUE(events == all) << events.size() << " of " << all.size();
                chunk = chunk * 5 / 2 + 1; // 1, 3, 8, 21 ... beyond one packet
                if (chunk > 200000) chunk = 5;
            }
        }
    }
}

TEST(StreamDecoder, MakesAllVirtualEventsOfARecord)
{
    // Starts every 60000 clock periods: five records of three, then five of two.
    std::vector<std::uint32_t> words = {1000, 0x80000000};
    for (int i = 0; i < 5; ++i)
        words.insert(words.end(), {60000U | 5U << 17 | (60000U & 0x3FF) << 20 | 1U << 30,
                                   60000U >> 10 | 5U << 7 | 60000U << 10 | 5U << 27 | 1U << 31});
    for (int i = 0; i < 5; ++i) words.insert(words.end(), {60000U | 5U << 27, 60000U | 5U << 27 | 3U << 30});
    for (const std::int32_t divider : {5460, 5461, 16383}) {
        Settings settings;
        settings.format = Format::F60;
        settings.divider = divider;
        for (const std::int32_t offset : {0, 1}) {
            settings.offsets[7] = offset;
            Summary summary;
            const Events events = decoded(settings, bytesOf(words), 13, &summary);
            EXPECT_EQ(summary.channels[5], 25U);
            EXPECT_EQ(summary.channels[0], 23U * unsigned(divider)); // from the second start on
            EXPECT_TRUE(std::is_sorted(events.begin(), events.end()));
            EXPECT_EQ(events.back(), (PpTimest{1501000, 5, {}}));
        }
    }
    Settings settings; // markers come 4097 behind their carrier, after events between
    settings.format = Format::F60;
    settings.offsets[7] = 1;
    const auto one = [](std::uint32_t delta) { return delta | 1U << 30; };
    const Events sorted = decoded(settings,
                                  bytesOf({9000, 1U << 31, one(2000), 3U << 30, one(600),
                                           15U << 28 | 1U << 27, one(2497), 6U << 27 | 3U << 30}),
                                  8);
    EXPECT_EQ(sorted, (Events{{10000, 100, {}}, {11000, 0, {}}}));
    settings = {}; // a record may pass through time 0
    settings.format = Format::F60;
    settings.divider = 16383;
    EXPECT_EQ(decoded(settings,
                      bytesOf({50, 1U << 31, (0x8000000U - 50) | 1U << 27, 7U | 2U << 27 | 3U << 30}), 100),
              (Events{{0, 1, {}}, {7, 2, {}}}));
}

TEST(StreamDecoder, LosesTheRecordOfAMissingWordAlone)
{
    const auto first = [](std::uint32_t delta) { return delta | 1U << 30; };
    const std::uint32_t second = 2U << 27 | 3U << 30;
    const std::vector<std::uint32_t> words = {second,      1000,       1U << 31, first(1), second,
                                              first(20),   first(300), second,   second,   second,
                                              first(4000), second,     first(5)};
    Settings settings;
    settings.format = Format::F60;
    for (const std::size_t chunk : {1U, 4U, 8U, 12U, 20U, 28U, 100U}) {
        Summary summary;
        const Events events = decoded(settings, bytesOf(words) + "abc", chunk, &summary);
        EXPECT_EQ(events, (Events{{1001, 2, {}}, {1301, 2, {}}, {5301, 2, {}}})) << chunk;
        EXPECT_EQ(summary.orderingErrors, 4U);
        EXPECT_EQ(std::pair(summary.words, summary.cutBytes), std::pair(std::uint64_t(13), std::uint64_t(7)));
    }
}

TEST(StreamDecoder, DrainsTimesAtTheEndOfTheRange)
{
    Settings settings;
    settings.format = Format::F60b;
    settings.offsets = {most, 0, -most - 1};
    const std::string last("\xFB\xFF\xFF\xFF\xFF\xFF\xFF\x7F", 8); // 2^61 - 2
    const Events events = decoded(settings, last + std::string("\x00\x01\x00\x08\x01\x00", 6), 3);
    EXPECT_EQ(events, (Events{{2305843007066210304, 2, {}}, {2305843011361177598, 0, {}}}));
}
