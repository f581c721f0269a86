#include "logfixture.h"

#include <cerrno>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <sys/stat.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>
#include <vorelutil/trace/line.h>

#include "tests/support/germanlocale.h"
#include "tests/support/require.h"

namespace {

using TraceLog = LogFixture;
using testing::MatchesRegex;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr TraceParams* none = nullptr;

std::string times(int count, char letter)
{
    return std::string(static_cast<std::size_t>(count), letter);
}

std::string stampOf(double seconds)
{
    tracelog::Line line;
    line.appendStamp(seconds);
    return std::string(line.text());
}

TEST_F(TraceLog, EachFunctionWritesItsForm)
{
    traceInit("log", "0123456789012345678901234567890123456789", TRACE_ON);
    const std::string prefix = "012345678901234567890123456789 ";
    traceTrace("a %s %d %u%%", "b", -2147483647 - 1, 4294967295U);
    EXPECT_THAT(logged(), MatchesRegex(prefix + "\\[[0-9]+\\.[0-9]{3}\\]: a b -2147483648 4294967295%\\.\n"));
    traceQuestion("ready, %s", "sir");
    EXPECT_EQ(logged(), prefix + "QUEST!: ready, sir.\n");
    EXPECT_TRUE(traceError(false, "%x %s", 255, "z") && traceFatal(false, "gone"));
    const std::string errors = prefix + "ERROR: ff z.\n" + prefix + "FATAL: gone.\n";
    EXPECT_EQ(logged(), errors);
    EXPECT_EQ(echoed(), errors);

    CaptureStderr();
    traceInit("", "", TRACE_ON);
    traceError(false, "once");
    traceTrace("x");
    EXPECT_THAT(GetCapturedStderr(), MatchesRegex("ERROR: once\\.\n\\[[0-9]+\\.[0-9]{3}\\]: x\\.\n"));
    EXPECT_EQ(echoed(), "");
}

TEST_F(TraceLog, WritesNothingWhereItMustNot)
{
    const auto errors = [](bool ok) {
        return traceError(ok, "x") || traceFatal(ok, "x") || traceOsError(ok, "x", true) ||
               traceAssert(ok, "a.cpp", 7); // which lets the process go on
    };
    traceInit("log", "", TRACE_NO_ERRORS);
    EXPECT_FALSE(errors(false));
    traceTrace("x");
    traceQuestion("x");
    traceSetFlags(TRACE_ON);
    EXPECT_FALSE(errors(true));
    traceInit(none);
    traceSetFlags(TRACE_ON);
    traceTrace("x");
    EXPECT_FALSE(errors(false));
    traceSetFile("other");
    traceAddSecretAddr(1);
    traceAddTraceList(1, 2);
    traceInitLists();
    EXPECT_FALSE(std::filesystem::exists("other"));
    EXPECT_EQ(logged(), "");
}

TEST_F(TraceLog, LinesOfEveryLengthAreWhole)
{
    traceInit("log", "p", TRACE_ON);
    for (int length = 980; length < 1060; ++length) {
        const std::string text = times(length, 'x');
        traceQuestion("%s", text.c_str());
        traceQuestion("%s%5d%s", text.c_str(), 7, "z"); // the second conversion is for printf
        ASSERT_EQ(logged(), "p QUEST!: " + text + ".\np QUEST!: " + text + "    7z.\n");
    }
    const std::string huge = times(3000000, 'y');
    traceQuestion("%s%d", huge.c_str(), 5);
    EXPECT_EQ(logged(), "p QUEST!: " + huge + "5.\n");
}

TEST_F(TraceLog, EightThreadsTearNoLine)
{
    constexpr int threads = 8, lines = 400;
    traceInit("log", "p", TRACE_ON);
    std::thread writers[threads];
    for (int t = 0; t < threads; ++t) {
        writers[t] = std::thread([t] {
            for (int i = 0; i < lines; ++i) {
                const std::string text = times(i * 5, static_cast<char>('a' + t));
                i % 2 == 0 ? traceQuestion("%d-%d-%s", t, i, text.c_str())
                           : void(traceError(false, "%d-%d-%s", t, i, text.c_str()));
            }
        });
    }
    for (std::thread& writer : writers) writer.join();
    for (const bool echo : {false, true}) { // which has the errors alone, each second line
        int next[threads] = {};
        std::istringstream log(echo ? echoed() : logged());
        for (std::string line; std::getline(log, line);) {
            int t = 0, i = 0, end = 0;
            ASSERT_EQ(std::sscanf(line.c_str(), "p %*6[A-Z!]: %d-%d-%n", &t, &i, &end), 2) << line;
            ASSERT_EQ(line.substr(static_cast<std::size_t>(end)),
                      times(i * 5, static_cast<char>('a' + t)) + ".");
            ASSERT_EQ(echo ? 2 * next[t]++ + 1 : next[t]++, i);
        }
        for (const int count : next) EXPECT_EQ(count, echo ? lines / 2 : lines);
    }
}

TEST_F(TraceLog, LogFileThatCannotBeOpenedIsReportedAndTheLogGoesOn)
{
    CaptureStderr();
    traceInit("no/such/folder.log", "p", TRACE_NO_ERRORS);
    EXPECT_EQ(GetCapturedStderr(), "p ERROR: Failed to open Logfile no/such/folder.log.\n");
    traceInit("log", "", 0);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char* path : {".", "no/such/%s", "pipe"}) {
        traceSetFile(path);
        EXPECT_EQ(logged(), std::string("ERROR: Failed to open Logfile ") + path + ".\n");
    }
}

TEST_F(TraceLog, MayBeStartedAgainAndShared)
{
    traceInit("log", "", TRACE_ON);
    traceAddSecretAddr(5);
    traceQuestion("old");
    traceSetFile("log");
    traceQuestion("new");
    std::fflush(nullptr);
    EXPECT_EQ(contents("log"), "QUEST!: new.\n") << "nothing old comes after the truncation";
    traceInit("log", "", TRACE_ON | TRACE_FLUSH);
    traceQuestion("newest");
    EXPECT_EQ(contents("log"), "QUEST!: newest.\n");
    const AddressSet& secret = traceGetParamset()->secretAddrs;
    EXPECT_EQ(std::vector<int>(secret.begin(), secret.end()), (std::vector<int>{5, 322, 388}));

    TraceParams shared;
    shared.logFile = std::fopen("shared", "w");
    shared.flags = TRACE_ON;
    std::fill(std::begin(shared.prefix), std::end(shared.prefix), 'q'); // without an end
    traceInit(&shared);
    traceQuestion("x");
    traceInit("log", "", 0);
    ASSERT_EQ(std::fclose(shared.logFile), 0) << "still open";
    EXPECT_EQ(contents("shared"), times(32, 'q') + "QUEST!: x.\n");

    shared.logFile = traceGetParamset()->logFile; // a borrowed stream is closed once
    traceInit(&shared);
    traceSetFile("c");
    EXPECT_EQ(traceGetParamset()->logFile, stderr);
    traceInit("log", "", 0);
    traceInit(&shared);
    traceSetFile(nullptr);
}

TEST_F(TraceLog, ListFiles)
{
    // white list, black list: black-list mode, size, listed, not listed
    // clang-format off
    const std::tuple<const char*, const char*, bool, std::uint64_t, std::vector<int>, std::vector<int>> rows[] = {
        {nullptr, nullptr, true, 0, {}, {}},
        {"0x300 0x30f\n5 5\n", "1 9", false, 17, {768, 783, 5}, {767, 784, 1}},
        {nullptr, "010 0X1f -3 -2", true, 26, {8, 31, -3, -2}, {7, 32, -1}},
        {"", "1 9", false, 0, {}, {1}},
        {"0 2147483647 -2147483648 -5", nullptr, false, 4294967292, {0, 2147483647}, {-4}},
        {"-2147483648 2147483647", nullptr, false, 4294967296, {0}, {}},
        {"0xFFFFFFFF 0 0x80000000 -0x7fffffff", nullptr, false, 4, {-1, 0, -2147483647 - 1, -2147483647}, {1, -2}},
        {"99999999999999999999 -9223372036854775808 9223372036854775806 -99999999999999999999", nullptr,
         false, 3, {-2, -1, 0}, {-3, 1}}, // as numbers of 64 bits -1 to 0 and -2 to 0
        {"10 9 7 7", nullptr, false, 1, {7}, {9, 10}},
        {"1 2 3", nullptr, false, 2, {1, 2}, {3}},
        {"1 1 two 2 3 3", nullptr, false, 1, {1}, {2, 3}},
        {"1 1 5 x 3 3", nullptr, false, 1, {1}, {3, 5}},
        {"+1-1 08 12", nullptr, false, 9, {0, 8}, {-1, 9}}, // 1 to -1, 0 to 8 (no octal digit), half a pair
        {"0x 5 6", nullptr, false, 0, {}, {0, 5}},
        {"1 1 - 2 2", nullptr, false, 1, {1}, {2}},
    };
    // clang-format on
    for (const auto& [white, black, blacklistMode, size, listed, notListed] : rows) {
        std::filesystem::remove("tracewhitelist.txt");
        if (white != nullptr) std::ofstream("tracewhitelist.txt") << white;
        if (black != nullptr) std::ofstream("traceblacklist.txt") << black;
        traceInit("", "", 0);
        const TraceParams& params = *traceGetParamset();
        const std::string desc = white != nullptr ? white : "no white list";
        EXPECT_EQ(params.blacklistMode, blacklistMode) << desc;
        EXPECT_EQ(params.traceList.size(), size) << desc;
        for (const int address : listed) EXPECT_EQ(params.traceList.count(address), 1U) << desc;
        for (const int address : notListed) EXPECT_EQ(params.traceList.count(address), 0U) << desc;
    }
    for (const char* name : {"tracewhitelist.txt", "traceblacklist.txt"}) {
        std::filesystem::remove(name);
        std::filesystem::create_directory(name);
    }
    traceInitLists();
    EXPECT_TRUE(traceGetParamset()->blacklistMode) << "a folder does not open";
    std::filesystem::remove("tracewhitelist.txt");
    ASSERT_EQ(mkfifo("tracewhitelist.txt", 0600), 0);
    traceInitLists();
    EXPECT_FALSE(traceGetParamset()->blacklistMode) << "a pipe that nobody writes to is empty";
    traceAddTraceList(10, 9);
    EXPECT_TRUE(traceGetParamset()->traceList.empty());
}

TEST_F(TraceLog, KeepsTheDecimalPointAndTakesWideCharactersFromTheLocale)
{
    traceInit("log", "", TRACE_ON);
    traceQuestion("%ls %d", L"\xE4", 5); // no such character in the "C" locale
    EXPECT_EQ(logged(), "QUEST!: %ls %d.\n");
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    traceTrace("%.2f %g", 0.25, 1.5);
    EXPECT_THAT(logged(), MatchesRegex("\\[[0-9]+\\.[0-9]{3}\\]: 0\\.25 1\\.5\\.\n"));
    traceQuestion("%ls %d", L"\xE4", 5);
    EXPECT_EQ(logged(), "QUEST!: \xC3\xA4 5.\n");
    EXPECT_EQ(stampOf(0.0625), "[0.062]");
    EXPECT_TRUE(german.works()) << "the caller's locale stays";
}

TEST_F(TraceLog, StampsAreThoseOfPrintf)
{
    // clang-format off
    const std::pair<double, const char*> rows[] = {
        {0.016, "[0.016]"},  {-0.0, "[-0.000]"},  {-1e-9, "[-0.000]"},     {-4294967.295, "[-4294967.295]"},
        {0.9996, "[1.000]"}, {0.0625, "[0.062]"}, {0.1875, "[0.188]"},     {1e15, "[1000000000000000.000]"},
        {HUGE_VAL, "[inf]"}, {-NAN, "[-nan]"},    {999.9996, "[1000.000]"}, {1.7e9 + 0.1875, "[1700000000.188]"}};
    // clang-format on
    for (const auto& [seconds, stamp] : rows) EXPECT_EQ(stampOf(seconds), stamp);
    EXPECT_EQ(stampOf(std::numeric_limits<double>::max()).size(), 315U);
    for (unsigned now = 1, start = 4294960000; start > 15485863; now += 104729, start -= 15485863) {
        char text[64];
        std::snprintf(text, sizeof text, "[%.3f]", now * 0.001 - start * 0.001);
        ASSERT_EQ(stampOf(now * 0.001 - start * 0.001), text);
    }
}

TEST_F(TraceLog, ReasonsAndComposedTextsWhichAreFormatsThatTouchNoMemory)
{
    const std::pair<int, const char*> reasons[] = {
        {0, "ok"}, {1, "invalid address"}, {2, "out of range"}, {99, "unknown error"}, {3, "3"}, {-7, "-7"}};
    for (const auto& [reason, text] : reasons) EXPECT_STREQ(tracePrintReason(reason), text);

    const std::tuple<const char*, int, bool, const char*> rows[] = {
        {"open", ENOENT, false, "open - No such file or directory"},
        {"%n%s%5$d%%d%*c%%%", 1, true, "%n%s%5$d%d%*c%% - WSA_Error #1"},
        {nullptr, 111, true, " - WSA_Error #111"},
    };
    traceInit("log", "", 0);
    for (const auto& [text, reason, socketError, line] : rows) {
        errno = reason;
        EXPECT_TRUE(traceOsError(false, text, socketError));
        EXPECT_EQ(logged(), std::string("ERROR: ") + line + ".\n");
    }
}

/// Asks with standard input from a file, in a process that ends: with the answer, or with 100 if it was asked
/// often and `more` is null; `more` is appended to the input after the given number of questions.
[[noreturn]] void ask(const char* input, int questions, const char* more)
{
    std::ofstream("input") << input;
    if (std::freopen("input", "r", stdin) == nullptr) _exit(101);
    traceInit("log", "", TRACE_ON | TRACE_FLUSH);
    std::thread([=] {
        for (int count = 0; count < questions;) {
            count = 0;
            std::ifstream log("log");
            for (std::string line; std::getline(log, line);) count += line == "QUEST?: how many.";
        }
        if (more == nullptr) _exit(100);
        std::ofstream("input", std::ios::app) << more;
    }).detach();
    const int answer = traceReply("how %s", "many");
    const std::string traced = "]: Answer = " + std::to_string(answer) + ".\n";
    _exit(LogFixture::contents("log").find(traced) != std::string::npos ? answer : 102);
}

TEST_F(TraceLog, FatalAssertsAndRepliesInProcessesOfTheirOwn)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT((traceInit("", "", 0), traceAssert(false, "a.cpp", 7)), testing::ExitedWithCode(1),
                "FATAL: Assertion failed: a.cpp#7\\.\n");
    EXPECT_EXIT(ask(" \n 42 7", 1, ""), testing::ExitedWithCode(42), "");
    EXPECT_EXIT(ask("4294967338\n", 1, ""), testing::ExitedWithCode(42), "") << "cut to 32 bits";
    EXPECT_EXIT(ask("word 42\n", 500, nullptr), testing::ExitedWithCode(100), "") << "at once, not consumed";
    EXPECT_EXIT(ask("", 3, "17\n"), testing::ExitedWithCode(17), "") << "goes on when more comes";
}

} // namespace
