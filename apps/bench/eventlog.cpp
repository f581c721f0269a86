#include "eventlog.h"

#include <charconv>
#include <functional>
#include <new>
#include <QFile>
#include <string>
#include <string_view>
#include <utility>

namespace bench {

namespace {

constexpr std::size_t blockBytes = 1 << 20;
constexpr std::size_t numberBytes = 24; ///< more than any 64-bit number takes

void append(std::string* text, const std::to_chars_result& end, const char* digits)
{
    text->append(digits, std::size_t(end.ptr - digits));
}

/// One line of two numbers at the end of `text`.
template <class First, class Second> void appendLine(std::string* text, First first, Second second)
{
    char digits[numberBytes];
    append(text, std::to_chars(digits, digits + numberBytes, first), digits);
    *text += ',';
    append(text, std::to_chars(digits, digits + numberBytes, second), digits);
    *text += '\n';
}

} // namespace

/// A new file beside its target, written in blocks; what was written is remembered by its length and a hash.
class EventLog::CheckedFile
{
public:
    explicit CheckedFile(const QString& target)
        : m_pending(target)
    {
        m_text.reserve(blockBytes + (blockBytes >> 3));
    }

    bool create(QString* error)
    {
        if (!m_pending.create(error)) return false;
        m_file.setFileName(QFile::decodeName(m_pending.path()));
        if (m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) return true;
        *error = m_file.errorString();
        return false;
    }

    std::string& text() { return m_text; }
    bool hasFailed() const { return !m_failure.isEmpty(); }

    /// Writes whole blocks of `text`.
    void writeBlocks()
    {
        std::size_t done = 0;
        for (; m_text.size() - done >= blockBytes; done += blockBytes)
            write(std::string_view(m_text).substr(done, blockBytes));
        if (done > 0) m_text.erase(0, done);
    }

    /// The rest, then the comparison, then the target's name. False with `*error` in words.
    bool finish(QString* error)
    {
        writeBlocks();
        write(m_text);
        m_file.close();
        if (!hasFailed()) compare();
        if (hasFailed()) {
            *error = m_failure;
            return false;
        }
        return m_pending.commit(error);
    }

private:
    static std::size_t mix(std::size_t hash, std::string_view block)
    {
        return hash * 31 + std::hash<std::string_view>()(block);
    }

    void write(std::string_view block)
    {
        if (hasFailed() || block.empty()) return;
        // A disk that is nearly full takes a part of it, and says what is wrong at the next try.
        for (qint64 done = 0, size = qint64(block.size()); done < size && !hasFailed();) {
            const qint64 taken = m_file.write(block.data() + done, size - done);
            if (taken <= 0) m_failure = m_file.errorString();
            done += taken;
        }
        m_hash = mix(m_hash, block);
        m_bytes += block.size();
    }

    void compare()
    {
        if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
            m_failure = m_file.errorString();
            return;
        }
        std::string block(blockBytes, '\0');
        std::size_t hash = 0;
        std::size_t bytes = 0;
        for (qint64 got = 0; (got = m_file.read(block.data(), qint64(blockBytes))) > 0;) {
            hash = mix(hash, std::string_view(block).substr(0, std::size_t(got)));
            bytes += std::size_t(got);
        }
        if (bytes != m_bytes || hash != m_hash)
            m_failure = QStringLiteral("read back, it is not what was written");
        m_file.close();
    }

    PendingFile m_pending;
    QFile m_file;
    std::string m_text;
    std::size_t m_hash = 0;
    std::size_t m_bytes = 0;
    QString m_failure; ///< empty: none yet
};

namespace {

SaveResult failure(const QString& target, const QString& reason)
{
    return {false, QStringLiteral("%1 was not saved: %2").arg(target, reason)};
}

} // namespace

EventLog::EventLog() = default;

EventLog::~EventLog() = default;

SaveResult EventLog::start(const QString& target)
{
    m_count = 0;
    m_target = target;
    m_file.reset();
    auto file = std::make_unique<CheckedFile>(target);
    QString error;
    if (!file->create(&error)) return failure(target, error);
    file->text() = "time,channel\n";
    m_file = std::move(file);
    return {true, QStringLiteral("saving events to %1").arg(target)};
}

void EventLog::add(const PpTimest* events, std::size_t count)
{
    if (m_file == nullptr || m_file->hasFailed()) return;
    for (std::size_t i = 0; i < count; ++i) {
        appendLine(&m_file->text(), events[i].time, unsigned(events[i].channel));
        if (m_file->text().size() >= blockBytes) m_file->writeBlocks();
    }
    m_count += count;
}

bool EventLog::hasFailed() const
{
    return m_file != nullptr && m_file->hasFailed();
}

SaveResult EventLog::stop()
{
    return finish(std::move(m_file), m_target, m_count);
}

std::future<SaveResult> EventLog::stopInBackground()
{
    return std::async(std::launch::async, &EventLog::finish, std::move(m_file), m_target, m_count);
}

SaveResult EventLog::finish(std::unique_ptr<CheckedFile> file, const QString& target, std::uint64_t count)
{
    if (file == nullptr) return {false, QStringLiteral("no events are being saved")};
    QString error;
    try {
        if (file->finish(&error)) return {true, QStringLiteral("saved %1, %2 events").arg(target).arg(count)};
    } catch (const std::bad_alloc&) {
        error = QStringLiteral("there is no memory to read it back");
    }
    return failure(target, error);
}

SaveResult saveHistogram(const std::vector<std::uint64_t>& counts, const QString& target)
{
    EventLog::CheckedFile file(target);
    QString error;
    if (!file.create(&error)) return failure(target, error);
    file.text() = "bin,count\n";
    for (std::size_t bin = 0; bin < counts.size(); ++bin) appendLine(&file.text(), bin, counts[bin]);
    if (!file.finish(&error)) return failure(target, error);
    return {true, QStringLiteral("saved %1").arg(target)};
}

} // namespace bench
