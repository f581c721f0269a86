#include "telegram.h"

#include "currentlog.h"
#include "tracelog.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

namespace {

constexpr std::uint32_t typeAck = 3;
constexpr std::uint32_t typeTell = 4;
constexpr int allKinds = 0x1FC;
constexpr std::int64_t fewWords = 4;
constexpr std::int64_t manyWords = 128;

/// The fields of a telegram as both lines show them.
struct Fields
{
    explicit Fields(const UcTelegram& tel)
    {
        static constexpr const char* names[] = {"SET ", "GET ", "DO  ", "ACK ", "TELL", "STAT", "CHRQ"};
        char type[16];
        if (tel.Type < std::size(names)) {
            std::snprintf(type, sizeof type, "%s", names[tel.Type]);
        } else {
            std::snprintf(type, sizeof type, "!!!%x!!!", tel.Type);
        }
        std::snprintf(text, sizeof text, "%s Len=%d Addr=%02x Ind=%d CNo=%d-%d", type, tel.Len,
                      static_cast<unsigned>(tel.Addr), tel.Ind, tel.CNo >> 16, tel.CNo & 0xFFFF);
    }
    char text[96]; // 77 at most
};

std::int64_t dataWords(const UcTelegram& tel)
{
    return (std::int64_t{tel.Len} - 16) / 4;
}

std::uint32_t dataWord(const UcTelegram& tel, std::int64_t index)
{
    std::uint32_t word = 0;
    std::memcpy(&word, reinterpret_cast<const char*>(&tel) + sizeof tel + 4 * index, sizeof word);
    return word;
}

bool passes(const TraceParams& record, const UcTelegram& tel, int kind)
{
    const bool systemAddr = tel.Addr >= 0xF00 && tel.Addr <= 0xF62;
    const bool inRange = systemAddr && kind != allKinds;
    const bool tellOutside = !systemAddr && tel.Type == typeTell && kind != allKinds;
    if ((kind & record.flags & TRACE_CATEGORY_MASK) == 0) return false;
    if (inRange && (record.flags & TRACE_SYSTEM_RANGE) == 0) return false;
    if (tellOutside && (record.flags & TRACE_TELL) == 0) return false;
    if (record.secretAddrs.count(tel.Addr) != 0) return false;
    const bool listed = record.traceList.count(tel.Addr) != 0;
    return listed != record.blacklistMode;
}

} // namespace

void traceTelegram(char const* text, UcTelegram const* tel, int kind)
{
    const TraceParams* record = tracelog::current();
    if (record == nullptr || !passes(*record, *tel, kind)) return;
    const bool full = (record->flags & TRACE_FULL_DATA) != 0;
    const std::int64_t count = std::min(dataWords(*tel), full ? manyWords : fewWords);
    char data[manyWords * 9 + 1];
    char* end = data;
    for (std::int64_t i = 0; i < count; ++i) {
        *end++ = ' ';
        end = std::to_chars(end, std::end(data), dataWord(*tel, i), 16).ptr;
    }
    *end = '\0';
    traceTrace("%s: %s%s", text != nullptr ? text : "", Fields(*tel).text, data);
}

bool traceTelError(bool ok, char const* text, UcTelegram const* tel)
{
    if (ok) return false;
    std::string message = std::string(text != nullptr ? text : "") + ": " + Fields(*tel).text;
    if (tel->Type == typeAck && dataWords(*tel) >= 1) {
        message += " Rc=" + std::to_string(static_cast<std::int32_t>(dataWord(*tel, 0)));
    }
    return tracelog::writeComposedError(message);
}
