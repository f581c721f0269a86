#include "tracelog.h"

#include "currentlog.h"
#include "line.h"
#include "listfile.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <vorelutil/platform/files.h>
#include <vorelutil/platform/ticks.h>

namespace {

std::atomic<TraceParams*> _prm = nullptr;

/// The library's own record, made once and never freed, so that late calls from static destructors are safe.
struct OwnLog
{
    TraceParams _localParams;
    std::FILE* opened = nullptr; ///< the log file that traceSetFile opened for it; guarded by its mutex
};

OwnLog& own()
{
    static OwnLog& log = *new OwnLog;
    return log;
}

const char* orEmpty(const char* text)
{
    return text != nullptr ? text : "";
}

std::string_view prefixOf(const TraceParams& record)
{
    return {record.prefix, strnlen(record.prefix, sizeof record.prefix)};
}

double tickSeconds()
{
    return platform::tickCount() * 0.001;
}

TraceParams* tracing()
{
    TraceParams* record = _prm.load(std::memory_order_acquire);
    return record != nullptr && (record->flags & TRACE_ON) != 0 ? record : nullptr;
}

void finish(tracelog::Line& line, const char* format, std::va_list arguments)
{
    line.append(": ");
    line.appendFormatted(orEmpty(format), arguments);
    line.end();
}

void writeTo(std::FILE* file, const tracelog::Line& line)
{
    std::fwrite(line.text().data(), 1, line.text().size(), file);
}

void write(TraceParams& record, const tracelog::Line& line, bool echo)
{
    const std::lock_guard lock(record.mutex);
    std::FILE* log = record.logFile != nullptr ? record.logFile : stderr;
    writeTo(log, line);
    if ((record.flags & TRACE_FLUSH) != 0) std::fflush(log);
    if (echo && log != stderr) writeTo(stdout, line);
}

bool writeError(const char* word, const char* format, std::va_list arguments)
{
    TraceParams* record = tracelog::current();
    if (record == nullptr || (record->flags & TRACE_NO_ERRORS) != 0) return false;
    tracelog::Line line;
    line.append(prefixOf(*record));
    line.append(word);
    finish(line, format, arguments);
    write(*record, line, true);
    return true;
}

void writeQuestion(TraceParams& record, const char* word, const char* format, std::va_list arguments)
{
    tracelog::Line line;
    line.append(prefixOf(record));
    line.append(word);
    finish(line, format, arguments);
    write(record, line, false);
}

/// Apart from traceTrace, so that a call with tracing off does not pay for the line's buffer.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
void writeTrace(TraceParams& record, const char* format, std::va_list arguments)
{
    tracelog::Line line;
    line.append(prefixOf(record));
    line.appendStamp(tickSeconds() - record.startTime);
    finish(line, format, arguments);
    write(record, line, false);
}

} // namespace

TraceParams* tracelog::current()
{
    return _prm.load(std::memory_order_acquire);
}

bool tracelog::writeComposedError(const std::string& text)
{
    std::string message;
    message.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        message += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') ++i;
    }
    return traceError(false, "%s", message.c_str());
}

void traceInit(char const* logFileName, char const* prefix, int flags)
{
    OwnLog& log = own();
    TraceParams& params = log._localParams;
    _prm.store(&params, std::memory_order_release);
    {
        const std::lock_guard lock(params.mutex);
        if (log.opened != nullptr && log.opened == params.logFile) std::fclose(log.opened);
        log.opened = nullptr;
        params.logFile = stderr;
    }
    params.prefix[0] = '\0';
    params.flags = 0;
    params.blacklistMode = true;
    params.secretAddrs.insert(0x142);
    params.secretAddrs.insert(0x184);
    params.startTime = tickSeconds();
    const std::size_t length = strnlen(orEmpty(prefix), 30);
    if (length > 0) {
        std::memcpy(params.prefix, prefix, length);
        params.prefix[length] = ' ';
        params.prefix[length + 1] = '\0';
    }
    traceSetFile(logFileName);
    params.flags = flags;
    traceInitLists();
}

void traceInit(TraceParams* params)
{
    _prm.store(params, std::memory_order_release);
}

TraceParams* traceGetParamset()
{
    return &own()._localParams;
}

void traceSetFlags(int flags)
{
    if (TraceParams* record = tracelog::current()) record->flags = flags;
}

void traceSetFile(char const* path)
{
    TraceParams* record = tracelog::current();
    if (record == nullptr) return;
    {
        OwnLog& log = own();
        const std::lock_guard lock(record->mutex);
        const std::lock_guard lockOwn(log._localParams.mutex); // always the second of the two
        std::FILE* const before = record->logFile;
        // The new file may be the old one: what the old stream still holds must not come after the
        // truncation.
        if (before != nullptr) std::fflush(before);
        const bool toFile = path != nullptr && *path != '\0';
        if (std::FILE* const file = toFile ? platform::openFile(path, "w") : stderr) {
            if (before == log.opened) { // perhaps by way of another record, which borrowed it
                log.opened = nullptr;
                if (log._localParams.logFile == before) log._localParams.logFile = stderr;
            }
            if (before != nullptr && before != stderr && before != stdout) std::fclose(before);
            record->logFile = file;
            if (record == &log._localParams) log.opened = toFile ? file : nullptr;
            return;
        }
    }
    traceError(false, "Failed to open Logfile %s", orEmpty(path));
}

void traceInitLists()
{
    TraceParams* record = tracelog::current();
    if (record == nullptr) return;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(platform::openFile("tracewhitelist.txt", "r"),
                                                         &std::fclose);
    traceInitTraceList(file != nullptr);
    if (file == nullptr) file.reset(platform::openFile("traceblacklist.txt", "r"));
    if (file != nullptr) tracelog::readListFile(file.get(), record->traceList);
}

void traceAddTraceList(int first, int last)
{
    if (TraceParams* record = tracelog::current()) record->traceList.insert(first, last);
}

void traceInitTraceList(bool whitelist)
{
    TraceParams* record = tracelog::current();
    if (record == nullptr) return;
    record->traceList.clear();
    record->blacklistMode = !whitelist;
}

void traceAddSecretAddr(int addr)
{
    if (TraceParams* record = tracelog::current()) record->secretAddrs.insert(addr);
}

bool traceError(bool ok, char const* format, ...)
{
    if (ok) return false;
    std::va_list arguments;
    va_start(arguments, format);
    const bool written = writeError("ERROR", format, arguments);
    va_end(arguments);
    return written;
}

bool traceFatal(bool ok, char const* format, ...)
{
    if (ok) return false;
    std::va_list arguments;
    va_start(arguments, format);
    const bool written = writeError("FATAL", format, arguments);
    va_end(arguments);
    return written;
}

bool traceAssert(bool ok, char const* file, int line)
{
    if (traceFatal(ok, "Assertion failed: %s#%d", orEmpty(file), line)) std::exit(1);
    return false;
}

bool traceOsError(bool ok, char const* text, bool socketError)
{
    const int reason = errno;
    if (ok) return false;
    std::string message = orEmpty(text);
    if (socketError) {
        message += " - WSA_Error #" + std::to_string(reason);
    } else {
        message += std::string(" - ") + std::strerror(reason);
    }
    return tracelog::writeComposedError(message);
}

char const* tracePrintReason(int reason)
{
    switch (reason) {
    case 0:
        return "ok";
    case 1:
        return "invalid address";
    case 2:
        return "out of range";
    case 99:
        return "unknown error";
    default:
        break;
    }
    static char number[12];
    std::snprintf(number, sizeof number, "%d", reason);
    return number;
}

void traceTrace(char const* format, ...)
{
    TraceParams* record = tracing();
    if (record == nullptr) return;
    std::va_list arguments;
    va_start(arguments, format);
    writeTrace(*record, format, arguments);
    va_end(arguments);
}

void traceQuestion(char const* format, ...)
{
    TraceParams* record = tracing();
    if (record == nullptr) return;
    std::va_list arguments;
    va_start(arguments, format);
    writeQuestion(*record, "QUEST!", format, arguments);
    va_end(arguments);
}

int traceReply(char const* format, ...)
{
    for (;;) {
        if (TraceParams* record = tracing()) {
            std::va_list arguments;
            va_start(arguments, format);
            writeQuestion(*record, "QUEST?", format, arguments);
            va_end(arguments);
        }
        if (const auto answer = tracelog::scanNumber(stdin, tracelog::Notation::Decimal)) {
            traceTrace("Answer = %d", *answer);
            return *answer;
        }
        if (std::feof(stdin) != 0 || std::ferror(stdin) != 0) {
            std::clearerr(stdin); // more may come: from a terminal after Ctrl-D, from a file that grows
            IThread::sleep(500);
        }
    }
}
