#include "streams.h"

#include "apps/timestamps/eventcsv.h"
#include "apps/timestamps/streamencoder.h"

#include <gtest/gtest.h>
#include <vorelutil/trace/error.h>

using namespace timestamps;

namespace {

constexpr std::int64_t end52 = (1LL << 52) - 1, end56 = (1LL << 56) - 1, end60 = (1LL << 60) - 1;

/// Encodes in pieces; the events that were taken.
std::size_t encode(Format format, const Events& events, std::size_t piece, std::string* stream,
                   std::string* problem)
{
    StreamEncoder encoder(format);
    std::size_t done = 0;
    while (done < events.size() && problem->empty()) {
        done += encoder.encode(&events[done], std::min(piece, events.size() - done),
                               [&](const void* data, std::size_t size) {
                                   stream->append(static_cast<const char*>(data), size);
                               });
        *problem = encoder.problem();
    }
    return done;
}

} // namespace

TEST(StreamEncoder, WritesWhatReadsBack)
{
    const std::pair<Format, Events> rows[] = {
        {Format::F56, {{0, 3, {}}, {1, 7, {}}, {1, 0, {}}, {end56 - 1, 5, {}}, {end56, 0, {}}}},
        {Format::F52, {{0, 31, {}}, {9, 100, {}}, {8, 104, {}}, {end52, 203, {}}, {end52, 0, {}}}},
        {Format::F60,
         {{1, 0, {}}, {end60, 5, {}}, {2, 3, {}}, {5000, 203, {}}, {5001, 1, {}}, {10000, 104, {}}}}};
    for (const auto& [format, few] : rows) {
        Events events = few;
        for (int i = 0; format == Format::F60 && i < 5000; ++i) events.push_back({10000 + 3 * i, 4, {}});
        Settings settings;
        settings.format = format;
        for (const std::size_t piece : {1U, 2U, 3000U, 6000U}) {
            std::string stream, problem;
            EXPECT_EQ(encode(format, events, piece, &stream, &problem), events.size()) << problem;
            EXPECT_TRUE(decoded(settings, stream, 1000) == events) << int(format) << ' ' << piece;
        }
    }
    std::string stream, problem;
    encode(Format::F60b, {{5, 2, {}}, {0x10000, 2, {}}, {0x1000000, 2, {}}, {0x100000000, 2, {}}}, 3, &stream,
           &problem);
    EXPECT_EQ(stream, std::string("\x09\5\0"
                                  "\x09\0\0\1"
                                  "\0\0\0\1\0"
                                  "\0\0\0\0\4\0\0\0\x08\0\0",
                                  23));
}

TEST(StreamEncoder, RefusesWhatAFormatCannotCarry)
{
    const std::string range56 = " is outside the format's, 0 to 72057594037927935";
    // clang-format off
    const std::tuple<Format, PpTimest, std::string> rows[] = {
        {Format::F56, {9, 8, {}}, "the format has no channel 8, only 0 to 7"},
        {Format::F56, {9, 100, {}}, "the format has no channel 100, only 0 to 7"},
        {Format::F56, {-1, 0, {}}, "time -1" + range56},
        {Format::F56, {end56 + 1, 0, {}}, "time 72057594037927936" + range56},
        {Format::F56, {1LL << 30, 0, {}}, "time 1073741824 comes after 1073741825, and the format knows no way back"},
        {Format::F52, {9, 0, {}}, "time 9 comes after 1073741825, and the format knows no way back"},
        {Format::F52, {end52 + 1, 0, {}}, "time 4503599627370496 is outside the format's, 0 to 4503599627370495"},
        {Format::F52, {1LL << 31, 32, {}}, "the format has no channel 32, only 0 to 31 and markers"},
        {Format::F60, {9, 6, {}}, "the format has no channel 6, only 0 to 5 and markers"},
        {Format::F60, {0, 1, {}}, "time 0 is outside the format's, 1 to 1152921504606846975"},
        {Format::F60, {10001, 101, {}}, "time 10001 of a marker is no multiple of 5000, as the format has it"},
        {Format::F60b, {9, 64, {}}, "the format has no channel 64, only 0 to 63"},
        {Format::F60b, {0, 1, {}}, "time 0 is outside the format's, 1 to 2305843009213693951"},
    };
    // clang-format on
    for (const auto& [format, event, expected] : rows) {
        std::string stream, problem;
        EXPECT_EQ(
            encode(format, {{(1LL << 30) + 1, 1, {}}, event, {(1LL << 30) + 2, 1, {}}}, 3, &stream, &problem),
            1U);
        EXPECT_EQ(problem, expected);
    }
}

TEST(EventCsv, ReadsWhatItWritesAndNamesBadLines)
{
    const auto readAll = [](const std::string& text, std::size_t piece) {
        std::size_t at = 0;
        const auto next = [&](void* data, std::size_t size) {
            const std::size_t count = std::min({size, piece, text.size() - at});
            std::memcpy(data, text.data() + at, count);
            at += count;
            return count;
        };
        EventCsvReader reader(next, "e.csv");
        Events events(3), all;
        while (const std::size_t count = reader.read(events.data(), events.size()))
            all.insert(all.end(), events.begin(), events.begin() + std::ptrdiff_t(count));
        return all;
    };
    Events events = {{INT64_MIN, 0, {}}, {INT64_MAX, 255, {}}};
    for (int i = 0; i < 20000; ++i) events.push_back({i * 10000000000LL, 7, {}});
    std::string text;
    EventCsvWriter writer(
        [&](const void* data, std::size_t size) { text.append(static_cast<const char*>(data), size); });
    writer.write(events.data(), events.size());
    writer.finish();
    for (const std::size_t piece : {1U, 1000000U}) EXPECT_TRUE(readAll(text, piece) == events);
    EXPECT_EQ(readAll("\xEF\xBB\xBFtime,channel\r\n1,2\r\n3,4\n\r\n\n", 7), (Events{{1, 2, {}}, {3, 4, {}}}));

    const std::string header = "time,channel\n",
                      noEvent =
                          "\" is no event (expected TIME,CHANNEL: a 64-bit number, and one from 0 to 255)";
    // clang-format off
    const std::pair<std::string, std::string> rows[] = {
        {"", "1: \"\" is not the header \"time,channel\""}, {"1,2\n", "1: \"1,2\" is not the header \"time,channel\""},
        {header + "1,2\n\n3,4\n", "3: \"" + noEvent}, {header + "1;2", "2: \"1;2" + noEvent}, {header + "1,256\n", "2: \"1,256" + noEvent},
        {header + "9223372036854775808,1\n", "2: \"9223372036854775808,1" + noEvent}, {header + "1,-1\n", "2: \"1,-1" + noEvent},
        {header + "1,2,3\n", "2: \"1,2,3" + noEvent}, {header + "1.5,2\n", "2: \"1.5,2" + noEvent}, {header + "1,\n", "2: \"1," + noEvent},
        {header + std::string(300000, '\x80'), "2: \"" + std::string(40, '?') + "...\" is too long for a line"}};
    // clang-format on
    for (const auto& [bad, message] : rows) {
        try {
            readAll(bad, 50000);
            ADD_FAILURE() << message;
        } catch (const FormatError& error) {
            EXPECT_EQ(error.message, "e.csv:" + message);
        }
    }
}
