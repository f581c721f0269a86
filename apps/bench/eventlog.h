#pragma once

#include "pendingfile.h"

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

namespace bench {

/// Writes events to a file as they come, with the header `time,channel` and a line for each.
///
/// While it runs the file is beside the target, with ".part" at its end: after a crash what came is there.
/// At the end it is read back and compared before it takes the target's name. Discarding the object without
/// `stop` removes it. At most a block of 1 MB waits in memory.
class EventLog
{
public:
    EventLog();
    ~EventLog();
    EventLog(const EventLog&) = delete;
    EventLog& operator=(const EventLog&) = delete;

    /// One that runs is discarded.
    SaveResult start(const QString& target);
    bool isRunning() const { return m_file != nullptr; }
    void add(const PpTimest* events, std::size_t count);
    std::uint64_t count() const { return m_count; }
    /// The disk does not take what comes; `stop` says why.
    bool hasFailed() const;
    SaveResult stop();
    /// The same, in a thread of its own: reading back takes its time. Another one may be started meanwhile.
    /// The future waits for it, at the latest when it is destroyed.
    std::future<SaveResult> stopInBackground();

private:
    class CheckedFile;

    static SaveResult finish(std::unique_ptr<CheckedFile> file, const QString& target, std::uint64_t count);

    friend SaveResult saveHistogram(const std::vector<std::uint64_t>& counts, const QString& target);

    std::unique_ptr<CheckedFile> m_file; ///< null when none runs
    QString m_target;
    std::uint64_t m_count = 0;
};

/// Writes a histogram with the header `bin,count` and a line for each bin, in the same safe way.
SaveResult saveHistogram(const std::vector<std::uint64_t>& counts, const QString& target);

} // namespace bench
