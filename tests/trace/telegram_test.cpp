#include "logfixture.h"

#include <cstring>
#include <QRegularExpression>
#include <tuple>
#include <vector>
#include <vorelutil/trace/telegram.h>

namespace {

using Telegram = LogFixture;

/// A telegram with room for 200 data words: 2, 0xabc, 0xabc, ...
const UcTelegram* make(const UcTelegram& header)
{
    static std::vector<std::uint32_t> words(5 + 200, 0xABC);
    std::memcpy(words.data(), &header, sizeof header);
    words[5] = 2;
    return reinterpret_cast<const UcTelegram*>(words.data());
}

/// What was logged, without the stamps.
std::string lines()
{
    static const QRegularExpression stamps("\\[[0-9.]*\\]: ");
    return QString::fromStdString(LogFixture::logged()).remove(stamps).toStdString();
}

TEST_F(Telegram, LinesShowTypeHeaderAndData)
{
    std::string abc;
    for (int i = 0; i < 127; ++i) abc += " abc";
    const std::tuple<UcTelegram, int, std::string> rows[] = {
        {{16, 1, 0x21, 0, 0x10005}, 4, "GET  Len=16 Addr=21 Ind=0 CNo=1-5"},
        {{20, 0, 5, -3, -1}, 4, "SET  Len=20 Addr=05 Ind=-3 CNo=-1-65535 2"},
        {{19, 2, -1, 0, 0}, 4, "DO   Len=19 Addr=ffffffff Ind=0 CNo=0-0"},
        {{32, 3, 0x1234, 0, 0}, 4, "ACK  Len=32 Addr=1234 Ind=0 CNo=0-0 2 abc abc abc"},
        {{36, 4, 1, 0, 0}, 4 | 0x100, "TELL Len=36 Addr=01 Ind=0 CNo=0-0 2 abc abc abc"},
        {{56, 5, 1, 0, 0}, 5, "STAT Len=56 Addr=01 Ind=0 CNo=0-0 2" + abc.substr(0, 36)},
        {{816, 6, 1, 0, 0}, 5, "CHRQ Len=816 Addr=01 Ind=0 CNo=0-0 2" + abc},
        {{INT32_MIN, 9, 1, 0, 0}, 5, "!!!9!!! Len=-2147483648 Addr=01 Ind=0 CNo=0-0"},
        {{15, 26, 1, INT32_MIN, INT32_MIN}, 4, "!!!1a!!! Len=15 Addr=01 Ind=-2147483648 CNo=-32768-0"}};
    traceInit("log", "", TRACE_ON);
    for (const auto& [header, flags, line] : rows) {
        traceSetFlags(flags);
        traceTelegram("rx %d", make(header), 4);
        EXPECT_EQ(lines(), "rx %d: " + line + ".\n");
    }
}

TEST_F(Telegram, FlagsAndListsDecideWhatIsTraced)
{
    // flags, kind, type, address, shown
    // clang-format off
    const std::tuple<int, int, unsigned, int, bool> rows[] = {
        // a category in common, none, one in a bit that is none, tracing off
        {0x0C, 0x08, 1, 1, true}, {0x0C, 0x10, 1, 1, false}, {0x07, 0x03, 1, 1, false}, {0x08, 0x08, 1, 1, false},
        // the system range without its flag, and its neighbours
        {4, 4, 1, 0xF00, false}, {4, 4, 1, 0xF62, false}, {4, 4, 1, 0xEFF, true}, {4, 4, 1, 0xF63, true},
        // with its flag, with all kinds; TELL likewise
        {0x84, 4, 1, 0xF00, true}, {4, 0x1FC, 1, 0xF00, true},
        {4, 4, 4, 1, false}, {0x104, 4, 4, 1, true}, {4, 0x1FC, 4, 1, true},
        // TELL in the system range needs the range's flag only, its own does not help
        {0x84, 4, 4, 0xF10, true}, {0x104, 4, 4, 0xF10, false},
        // secret, black-listed; above the white list, in it, in it and yet secret
        {0x1FF, 0x1FC, 1, 322, false}, {4, 4, 1, 77, false},
        {4, 4, 1, 389, false}, {4, 4, 1, 387, true}, {0x1FF, 0x1FC, 1, 388, false}};
    // clang-format on
    traceInit("log", "", TRACE_ON);
    traceAddTraceList(77, 77);
    for (const auto& [flags, kind, type, addr, shown] : rows) {
        if (addr == 389) traceInitTraceList(true), traceAddTraceList(78, 388);
        traceSetFlags(flags);
        traceTelegram("", make({16, type, addr, 0, 0}), kind);
        EXPECT_EQ(!lines().empty(), shown) << flags << ", " << kind << ", " << type << ", " << addr;
    }
}

TEST_F(Telegram, ErrorLinesIgnoreFiltersAndShowTheReturnCode)
{
    const std::pair<UcTelegram, const char*> rows[] = {
        {{20, 3, 322, 0, 0x10005}, "ACK  Len=20 Addr=142 Ind=0 CNo=1-5 Rc=2"},
        {{16, 3, 1, 0, 0}, "ACK  Len=16 Addr=01 Ind=0 CNo=0-0"},
        {{24, 0, 1, 0, 0}, "SET  Len=24 Addr=01 Ind=0 CNo=0-0"}};
    traceInit("log", "", 0);
    for (const auto& [header, line] : rows) {
        EXPECT_FALSE(traceTelError(true, "5%% %n%s", make(header)));
        EXPECT_TRUE(traceTelError(false, "5%% %n%s", make(header)));
        EXPECT_EQ(lines(), std::string("ERROR: 5% %n%s: ") + line + ".\n");
    }
    traceInit(static_cast<TraceParams*>(nullptr));
    traceTelegram("tx", make({16, 1, 1, 0, 0}), 4);
    EXPECT_FALSE(traceTelError(false, "tx", make({16, 1, 1, 0, 0})));
}

} // namespace
