#pragma once

#include <cstdint>
#include <vorelutil/platform/export.h>

/// Tracing of the telegrams that are exchanged with the instrument's controller, one line each
/// (`tracelog.h`).

/// The header of a controller telegram; its data words follow it in memory at once, (`Len` - 16) / 4 of them.
///
/// A telegram is one contiguous block in native byte order; the block must hold as many data words as `Len`
/// says. In an "ACK" the first data word is the return code (`tracePrintReason`). Pointers to telegrams must
/// not be null, and are aligned to 4 bytes.
struct UcTelegram
{
    std::int32_t Len;   ///< bytes after this field: 16, plus 4 for each data word
    std::uint32_t Type; ///< 0 "SET ", 1 "GET ", 2 "DO  ", 3 "ACK ", 4 "TELL", 5 "STAT", 6 "CHRQ"
    std::int32_t Addr;  ///< parameter address on the controller
    std::int32_t Ind;   ///< index at that address
    std::int32_t CNo;   ///< telegram number, two halves of 16 bits
};
static_assert(sizeof(UcTelegram) == 20, "the data words begin right behind the header");

/// Traces a telegram, if the current record's flags and address lists let it pass.
///
/// `text` names the direction or source, null acts as ""; `kind` is the caller's category mask, bits 0x004 to
/// 0x100. The line, written as `traceTrace` writes it, is
/// "TEXT: TYPE Len=%d Addr=%02x Ind=%d CNo=%d-%d" and the first data words in hexadecimal, each after a
/// blank: at most 4, with `TRACE_FULL_DATA` 128. An unknown type shows as "!!!%x!!!".
///
/// It passes if `kind` and flags share a category; and, unless `kind` is 0x1FC: addresses 0xF00 to 0xF62 with
/// `TRACE_SYSTEM_RANGE` only, a "TELL" of other addresses with `TRACE_TELL` only; and if the address is not
/// secret and the white list has it or the black list has not. Any thread may call it.
VORELUTIL_EXPORT void traceTelegram(char const* text, UcTelegram const* tel, int kind);

/// Unless `ok`, writes an error line about a telegram, whatever its category and address, without its data:
/// "TEXT: TYPE Len=%d Addr=%02x Ind=%d CNo=%d-%d", and " Rc=%d" for an "ACK" that has a return code.
///
/// Returns what `traceError` returned. Kept: the composed line is used as a format, so "%%" in `text` becomes
/// "%"; a conversion has no argument and is written as it is. Throws std::bad_alloc where there is no memory
/// for the text.
VORELUTIL_EXPORT bool traceTelError(bool ok, char const* text, UcTelegram const* tel);
