#include "logfixture.h"

#include <cerrno>
#include <cmath>
#include <gmock/gmock.h>
#include <map>
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

std::string times(int count, char letter)
{
    return std::string(static_cast<std::size_t>(count), letter);
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
    EXPECT_EQ(logged(), prefix + "ERROR: ff z.\n" + prefix + "FATAL: gone.\n");

    CaptureStderr();
    traceInit("", "", 0);
    traceError(false, "once");
    EXPECT_EQ(GetCapturedStderr(), "ERROR: once.\n");
    EXPECT_EQ(echoed(), prefix + "ERROR: ff z.\n" + prefix + "FATAL: gone.\n") << "no echo of the last";
}

TEST_F(TraceLog, WritesNothingWhereItMustNot)
{
    const auto failed = [](bool ok) {
        traceTrace("x");
        traceQuestion("x");
        return traceError(ok, "x") || traceFatal(ok, "x") || traceOsError(ok, "x", true) ||
               traceAssert(ok, "a.cpp", 7); // which lets the process go on
    };
    traceInit("log", "", TRACE_NO_ERRORS);
    EXPECT_FALSE(failed(false));
    traceSetFlags(0);
    EXPECT_FALSE(failed(true));
    traceInit(static_cast<TraceParams*>(nullptr));
    traceSetFlags(TRACE_ON);
    EXPECT_FALSE(failed(false));
    traceSetFile("other");
    traceAddTraceList(1, 2);
    EXPECT_EQ(logged(), "");
}

TEST_F(TraceLog, LinesOfEveryLengthAreWhole)
{
    traceInit("log", "p", TRACE_ON);
    for (int length = 980; length <= 3000000; length = length == 1060 ? 3000000 : length + 1) {
        const std::string text = times(length, 'x');
        traceQuestion("%s", text.c_str());
        traceQuestion("%s%5d%s", text.c_str(), 7, "z"); // the second conversion is for printf
        ASSERT_EQ(logged(), "p QUEST!: " + text + ".\np QUEST!: " + text + "    7z.\n");
    }
}

TEST_F(TraceLog, EightThreadsTearNoLine)
{
    traceInit("log", "p", TRACE_ON);
    std::vector<std::thread> writers;
    for (const char letter : std::string("abcdefgh"))
        writers.emplace_back([=] {
            for (int i = 1; i <= 400; ++i) traceError(false, "%s", times(i * 5, letter).c_str());
        });
    for (std::thread& writer : writers) writer.join();
    const std::string all = logged();
    EXPECT_TRUE(echoed() == all) << "in the same order";
    std::map<char, int> lines;
    std::istringstream log(all);
    for (std::string line; std::getline(log, line);) {
        const char letter = line.substr(0, 10).back();
        ASSERT_EQ(line, "p ERROR: " + times(5 * ++lines[letter], letter) + ".");
    }
    for (const char letter : std::string("abcdefgh")) EXPECT_EQ(lines[letter], 400) << letter;
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
    traceInit("log", "", 0);
    const AddressSet& secret = traceGetParamset()->secretAddrs;
    EXPECT_TRUE(secret.size() == 3 && secret.count(5) + secret.count(322) + secret.count(388) == 3);

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
    // white list, black list: black-list mode, size, some that are listed
    // clang-format off
    const std::tuple<const char*, const char*, bool, std::uint64_t, std::vector<int>> rows[] = {
        {nullptr, nullptr, true, 0, {}}, {"", "1 9", false, 0, {}}, {"10 9 7 7", nullptr, false, 1, {7}},
        {nullptr, "010 0X1f -3 -2", true, 26, {8, 31, -3, -2}},
        {"0x300 0x30f\n5 5\n", "1 9", false, 17, {768, 783, 5}},
        {"0 2147483647 -2147483648 -5", nullptr, false, 4294967292, {0, 2147483647, -2147483647 - 1, -5}},
        {"-2147483648 2147483647", nullptr, false, 4294967296, {0}},
        {"0xFFFFFFFF 0 0x80000000 -0x7fffffff", nullptr, false, 4, {-1, 0, -2147483647 - 1, -2147483647}},
        // as numbers of 64 bits -1 to 0 and -2 to 0
        {"99999999999999999999 -9223372036854775808 9223372036854775806 -99999999999999999999", nullptr,
         false, 3, {-2, -1, 0}},
        // the rest is not read, also from half a pair on; 1 to -1, 0 to 8 (no octal digit), half a pair
        {"1 2 3", nullptr, false, 2, {1, 2}}, {"1 1 two 2 3 3", nullptr, false, 1, {1}},
        {"1 1 5 x 3 3", nullptr, false, 1, {1}}, {"+1-1 08 12", nullptr, false, 9, {0, 8}},
        {"0x 5 6", nullptr, false, 0, {}}, {"1 1 - 2 2", nullptr, false, 1, {1}}};
    // clang-format on
    for (const auto& row : rows) {
        const auto& [white, black, blacklistMode, size, listed] = row;
        std::filesystem::remove("tracewhitelist.txt");
        if (white != nullptr) std::ofstream("tracewhitelist.txt") << white;
        if (black != nullptr) std::ofstream("traceblacklist.txt") << black;
        traceInit("", "", 0);
        const TraceParams& params = *traceGetParamset();
        EXPECT_TRUE(params.blacklistMode == blacklistMode && params.traceList.size() == size) << &row - rows;
        for (const int address : listed) EXPECT_EQ(params.traceList.count(address), 1U) << &row - rows;
    }
    std::filesystem::remove("tracewhitelist.txt");
    ASSERT_EQ(mkfifo("tracewhitelist.txt", 0600), 0);
    traceInitLists();
    EXPECT_FALSE(traceGetParamset()->blacklistMode) << "a pipe that nobody writes to is empty";
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
    EXPECT_TRUE(german.works()) << "the caller's locale stays";
}

TEST_F(TraceLog, StampsAreThoseOfPrintf)
{
    std::vector<double> stamps = {0.016, -0.0,     -1e-9, -4294967.295, 0.9996,  0.0625,        0.1875,
                                  1e15,  HUGE_VAL, -NAN,  999.9996,     1.7e308, 1.7e9 + 0.1875};
    for (unsigned now = 1, start = 4294960000; start > 15485863; now += 104729, start -= 15485863)
        stamps.push_back(now * 0.001 - start * 0.001);
    for (const double seconds : stamps) {
        tracelog::Line line;
        line.appendStamp(seconds);
        char text[400];
        std::snprintf(text, sizeof text, "[%.3f]", seconds);
        EXPECT_EQ(line.text(), text);
    }
}

TEST_F(TraceLog, ReasonsAndComposedTextsWhichAreFormatsThatTouchNoMemory)
{
    const std::pair<int, const char*> reasons[] = {
        {0, "ok"}, {1, "invalid address"}, {2, "out of range"}, {99, "unknown error"}, {3, "3"}, {-7, "-7"}};
    for (const auto& [reason, text] : reasons) EXPECT_STREQ(tracePrintReason(reason), text);
    // clang-format off
    const std::tuple<const char*, int, bool, const char*> rows[] = {
        {"open", ENOENT, false, "open - No such file or directory"}, {nullptr, 111, true, " - WSA_Error #111"},
        {"%n%s%5$d%%d%*c%%%", 1, true, "%n%s%5$d%d%*c%% - WSA_Error #1"}};
    // clang-format on
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
    const auto traced = contents("log").find("]: Answer = " + std::to_string(answer) + ".\n");
    _exit(traced != std::string::npos ? answer : 102);
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
