#include "logfixture.h"

#include <cstring>
#include <QRegularExpression>
#include <tuple>
#include <vector>
#include <vorelutil/trace/telegram.h>

namespace {

class Telegram : public LogFixture
{
protected:
    void SetUp() override { traceInit("log", "", TRACE_ON); }

    /// A telegram with room for 200 data words: 2, 0xabc, 0xabc, ...
    const UcTelegram* make(const UcTelegram& header)
    {
        m_words.assign(5 + 200, 0xABC);
        std::memcpy(m_words.data(), &header, sizeof header);
        m_words[5] = 2;
        return reinterpret_cast<const UcTelegram*>(m_words.data());
    }

    static std::string lines()
    {
        static const QRegularExpression stamps("\\[[0-9.]*\\]: ");
        return QString::fromStdString(logged()).remove(stamps).toStdString();
    }

    std::vector<std::uint32_t> m_words;
};

TEST_F(Telegram, LinesShowTypeHeaderAndData)
{
    std::string abc;
    for (int i = 0; i < 127; ++i) abc += " abc";
    constexpr int full = TRACE_ON | TRACE_FULL_DATA;
    const std::tuple<UcTelegram, int, std::string> rows[] = {
        {{16, 1, 0x21, 0, 0x10005}, 4, "GET  Len=16 Addr=21 Ind=0 CNo=1-5"},
        {{20, 0, 5, -3, -1}, 4, "SET  Len=20 Addr=05 Ind=-3 CNo=-1-65535 2"},
        {{19, 2, -1, 0, 0}, 4, "DO   Len=19 Addr=ffffffff Ind=0 CNo=0-0"},
        {{32, 3, 0x1234, 0, 0}, 4, "ACK  Len=32 Addr=1234 Ind=0 CNo=0-0 2 abc abc abc"},
        {{36, 4, 1, 0, 0}, 4 | 0x100, "TELL Len=36 Addr=01 Ind=0 CNo=0-0 2 abc abc abc"},
        {{56, 5, 1, 0, 0}, full, "STAT Len=56 Addr=01 Ind=0 CNo=0-0 2" + abc.substr(0, 36)},
        {{816, 6, 1, 0, 0}, full, "CHRQ Len=816 Addr=01 Ind=0 CNo=0-0 2" + abc},
        {{INT32_MIN, 9, 1, 0, 0}, full, "!!!9!!! Len=-2147483648 Addr=01 Ind=0 CNo=0-0"},
        {{15, 26, 1, INT32_MIN, INT32_MIN}, 4, "!!!1a!!! Len=15 Addr=01 Ind=-2147483648 CNo=-32768-0"},
    };
    for (const auto& [header, flags, line] : rows) {
        traceSetFlags(flags);
        traceTelegram("rx %d", make(header), 4);
        EXPECT_EQ(lines(), "rx %d: " + line + ".\n");
    }
}

TEST_F(Telegram, FlagsAndListsDecideWhatIsTraced)
{
    const std::tuple<const char*, int, int, unsigned, int, bool> rows[] = {
        // what, flags, kind, type, address, shown
        {"common category", 0x0C, 0x08, 1, 1, true},
        {"no common category", 0x0C, 0x10, 1, 1, false},
        {"common bit that is no category", 0x07, 0x03, 1, 1, false},
        {"tracing off", 0x08, 0x08, 1, 1, false},
        {"system range without its flag, first", 0x04, 0x04, 1, 0xF00, false},
        {"system range without its flag, last", 0x04, 0x04, 1, 0xF62, false},
        {"below the system range", 0x04, 0x04, 1, 0xEFF, true},
        {"above the system range", 0x04, 0x04, 1, 0xF63, true},
        {"system range with its flag", 0x84, 0x04, 1, 0xF00, true},
        {"system range, all kinds", 0x04, 0x1FC, 1, 0xF00, true},
        {"TELL without its flag", 0x04, 0x04, 4, 1, false},
        {"TELL with its flag", 0x104, 0x04, 4, 1, true},
        {"TELL, all kinds", 0x04, 0x1FC, 4, 1, true},
        {"TELL in the system range needs the range's flag only", 0x84, 0x04, 4, 0xF10, true},
        {"TELL in the system range is not helped by its own", 0x104, 0x04, 4, 0xF10, false},
        {"secret, all kinds", 0x1FF, 0x1FC, 1, 322, false},
        {"black-listed", 0x04, 0x04, 1, 77, false},
        {"above the white list", 0x04, 0x04, 1, 389, false},
        {"white-listed", 0x04, 0x04, 1, 387, true},
        {"white-listed, yet secret", 0x1FF, 0x1FC, 1, 388, false},
    };
    traceAddTraceList(77, 77);
    for (const auto& [desc, flags, kind, type, addr, shown] : rows) {
        if (addr == 389) traceInitTraceList(true), traceAddTraceList(78, 388);
        traceSetFlags(flags);
        traceTelegram("", make({16, type, addr, 0, 0}), kind);
        EXPECT_EQ(!lines().empty(), shown) << desc;
    }
}

TEST_F(Telegram, ErrorLinesIgnoreFiltersAndShowTheReturnCode)
{
    traceSetFlags(0);
    const std::tuple<const char*, UcTelegram, const char*> rows[] = {
        {"tx", {20, 3, 322, 0, 0x10005}, "tx: ACK  Len=20 Addr=142 Ind=0 CNo=1-5 Rc=2"},
        {"tx", {16, 3, 1, 0, 0}, "tx: ACK  Len=16 Addr=01 Ind=0 CNo=0-0"},
        {"tx", {24, 0, 1, 0, 0}, "tx: SET  Len=24 Addr=01 Ind=0 CNo=0-0"},
        {"5%% %n%s", {16, 26, 1, 0, 0}, "5% %n%s: !!!1a!!! Len=16 Addr=01 Ind=0 CNo=0-0"},
    };
    for (const auto& [text, header, line] : rows) {
        EXPECT_FALSE(traceTelError(true, text, make(header)));
        EXPECT_TRUE(traceTelError(false, text, make(header)));
        EXPECT_EQ(lines(), std::string("ERROR: ") + line + ".\n");
    }
    traceInit(static_cast<TraceParams*>(nullptr));
    traceTelegram("tx", make({16, 1, 1, 0, 0}), 4);
    EXPECT_FALSE(traceTelError(false, "tx", make({16, 1, 1, 0, 0})));
}

} // namespace
