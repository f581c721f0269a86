#pragma once

#include <cstdio>
#include <vorelutil/platform/export.h>
#include <vorelutil/thread/thread.h>
#include <vorelutil/trace/addressset.h>

/// The trace log: one line-oriented text log for the process, with a prefix per module, time stamps,
/// severity words, questions to the operator and a filter for controller telegrams (`telegram.h`).
///
/// All functions work on one current record, `TraceParams`. The library has one of its own, which
/// `traceInit(logFileName, prefix, flags)` makes the current one; modules with a library each share one log
/// by handing the record of the one to the others: `traceInit(traceGetParamset())`. Before any `traceInit`
/// nothing is written and no function has an effect, but for `traceReply`, which asks all the same, and for
/// `traceGetParamset` and `tracePrintReason`, which need no current record.
///
/// Callers' formats are those of `printf` and carry neither a full stop nor a newline at their end: the log
/// adds ".\n". Numbers have a decimal point in every locale; only a message with wide characters beyond ASCII
/// is printed in the thread's own locale. Where that fails too (the locale does not have the character) the
/// format itself is written. Null texts act as "".
///
/// Threads: any thread may write lines; each line is written as a whole under the record's mutex. Flags,
/// prefix, start time and address lists are read without it: set them up before other threads trace, and let
/// none trace while `traceInit` runs.

/// Lets the compiler check a `printf` format against its arguments (counted from 1).
#if defined(__GNUC__)
#define VORELUTIL_PRINTF(formatAt, firstAt) __attribute__((format(printf, formatAt, firstAt)))
#else
#define VORELUTIL_PRINTF(formatAt, firstAt)
#endif

/// Bits of `TraceParams::flags`.
enum TraceFlag : int
{
    TRACE_FULL_DATA = 0x0001,     ///< telegram lines show up to 128 data words instead of at most 4
    TRACE_FLUSH = 0x0002,         ///< the log is flushed after every line
    TRACE_ON = 0x0004,            ///< trace, question and reply lines are written; also a telegram category
    TRACE_CATEGORY_MASK = 0x01FC, ///< the telegram categories, 0x004 to 0x100
    TRACE_SYSTEM_RANGE = 0x0080,  ///< telegrams with addresses 0xF00 to 0xF62 are shown
    TRACE_TELL = 0x0100,          ///< "TELL" telegrams outside that range are shown
    TRACE_NO_ERRORS = 0x1000      ///< error and fatal lines are suppressed
};

/// The state of one log. A record that is shared must live for as long as any module traces.
struct TraceParams
{
    std::FILE* logFile = stderr; ///< where lines go; null acts as standard error
    char prefix[32] = {};        ///< in front of every line: at most 30 characters and a blank, or empty
    int flags = 0;               ///< `TraceFlag` bits
    IMutex mutex;                ///< held while a line is written
    bool blacklistMode = false;  ///< true: trace all but the listed addresses; false: only these
    double startTime = 0;        ///< seconds of the tick counter from which time stamps count
    AddressSet traceList;        ///< the white or black list
    AddressSet secretAddrs;      ///< never traced, whatever lists and flags say
};

/// Starts the log on the library's own record and makes it the current one.
///
/// `logFileName` as `traceSetFile` takes it; `prefix` is cut to 30 characters and, unless empty, followed by
/// one blank; `flags` are `TraceFlag` bits, which take effect after the log file is open, so that a failure
/// to open it is always reported. Addresses 0x142 and 0x184 become secret, and the list files are read
/// (`traceInitLists`). It may be called again: the log is opened anew, the stamps start at 0 and the lists
/// are reloaded. A log file that `traceSetFile` opened for this record is closed; other streams are not. An
/// application that replaces `logFile` by hand closes the file that was opened before itself. Kept: secret
/// addresses stay from one call to the next. Throws std::bad_alloc where there is no memory for the lists.
VORELUTIL_EXPORT void traceInit(char const* logFileName, char const* prefix, int flags);

/// Makes the given record the current one, and nothing else; null: none is current. The caller owns it.
VORELUTIL_EXPORT void traceInit(TraceParams* params);

/// The library's own record, current or not. It lives as long as the process.
VORELUTIL_EXPORT TraceParams* traceGetParamset();

/// Replaces the current record's flags.
VORELUTIL_EXPORT void traceSetFlags(int flags);

/// Sends the current record's log to a file, which is emptied first; to standard error for a null or empty
/// path.
///
/// The stream used so far is closed, unless it is standard error or standard output. If it was the file of
/// the library's own record, lent to this one, the own record goes back to standard error; any other record
/// that uses the closed stream needs a new one first. If the file cannot be opened (a directory cannot, nor a
/// named pipe that nobody reads) the error line "Failed to open Logfile PATH" is written and the log goes on
/// where it was. Without a record nothing happens.
VORELUTIL_EXPORT void traceSetFile(char const* path);

/// Reads the current record's address list from a file in the current directory.
///
/// "tracewhitelist.txt", if it opens, makes a white list; else "traceblacklist.txt" a black list; with
/// neither the list is an empty black list: all is traced. A list file is a sequence of pairs of whole
/// numbers, first and last address of a range, decimal, 0x hexadecimal or leading-zero octal, as the scan
/// format " %i %i " reads them. Reading stops at the first pair that does not scan completely; a bare "0x" is
/// no number. Numbers beyond the range of int are cut to 32 bits, so that an address can be listed as the log
/// shows it (0xffffffff is -1); those beyond 64 bits act as the nearest that is not (99999999999999999999 is
/// -1 too). Throws std::bad_alloc where there is no memory for the list. Without a record nothing happens.
VORELUTIL_EXPORT void traceInitLists();

/// Adds the addresses `first` to `last`, both included, to the current record's list; none if `first` is
/// greater than `last`. A range costs the same whatever its length.
VORELUTIL_EXPORT void traceAddTraceList(int first, int last);

/// Empties the current record's list and makes it a white list (traces nothing yet) or a black one (traces
/// all).
VORELUTIL_EXPORT void traceInitTraceList(bool whitelist);

/// Adds an address to those that are never traced.
VORELUTIL_EXPORT void traceAddSecretAddr(int addr);

/// Unless `ok`, writes the line "PREFIX" "ERROR: MESSAGE." to the log, and to standard output as well if the
/// log is not standard error.
///
/// Returns whether it wrote: false if `ok`, without a record, and under `TRACE_NO_ERRORS`.
VORELUTIL_EXPORT bool traceError(bool ok, char const* format, ...) VORELUTIL_PRINTF(2, 3);

/// `traceError` with the word "FATAL". It does not end the process.
VORELUTIL_EXPORT bool traceFatal(bool ok, char const* format, ...) VORELUTIL_PRINTF(2, 3);

/// Unless `ok`, writes "Assertion failed: FILE#LINE" as a fatal line and ends the process with status 1.
///
/// Returns false. Kept: where the line is not written (no record, `TRACE_NO_ERRORS`) the process goes on.
VORELUTIL_EXPORT bool traceAssert(bool ok, char const* file, int line);

/// Unless `ok`, writes an error line of `text` and the system's last error, taken from errno at the call.
///
/// "TEXT - REASON", or "TEXT - WSA_Error #NUMBER" if `socketError`. Returns whether it wrote. Kept: the
/// composed text is used as a format, so "%%" in it becomes "%"; a conversion has no argument and is written
/// as it is. Throws std::bad_alloc where there is no memory for the text.
VORELUTIL_EXPORT bool traceOsError(bool ok, char const* text, bool socketError);

/// The text of a controller's reason code: 0 "ok", 1 "invalid address", 2 "out of range", 99 "unknown error",
/// others their decimal number.
///
/// Kept: the number is in one buffer that all callers share and the next such call overwrites; one thread at
/// a time may ask for unknown codes.
VORELUTIL_EXPORT char const* tracePrintReason(int reason);

/// Writes the line "PREFIX" "[SECONDS]: MESSAGE." if `TRACE_ON` is set.
///
/// The stamp counts from `traceInit`, with three decimals, and wraps with the tick counter, which does so
/// every 49.7 days or so. That counter runs from the system's start, so the wrap can come at any time after
/// `traceInit`; the stamps are negative from then on. A stamp is taken before the thread gets its turn to
/// write, so those of several threads may be out of order by a hair.
VORELUTIL_EXPORT void traceTrace(char const* format, ...) VORELUTIL_PRINTF(1, 2);

/// Writes the line "PREFIX" "QUEST!: MESSAGE." if `TRACE_ON` is set.
VORELUTIL_EXPORT void traceQuestion(char const* format, ...) VORELUTIL_PRINTF(1, 2);

/// Asks the operator for a whole number: writes the line "PREFIX" "QUEST?: MESSAGE." if `TRACE_ON` is set,
/// reads a decimal number from standard input, and asks again until there is one. Traces "Answer = NUMBER",
/// returns it.
///
/// For interactive use only. Kept: a word that is no number is not consumed, so it is asked again, at once
/// and without end. At the end of the input it asks again twice a second. A number beyond the range of int is
/// cut as in a list file (`traceInitLists`). Threads that ask at once get a whole number each.
VORELUTIL_EXPORT int traceReply(char const* format, ...) VORELUTIL_PRINTF(1, 2);
