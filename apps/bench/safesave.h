#pragma once

#include "pendingfile.h"

#include <memory>

class FrameBuffer;

namespace bench {

/// The snapshots that the console writes.
enum class Snapshot
{
    Text,   ///< area, as text
    Binary, ///< area, binary
    Line,   ///< line or stream, two columns
};

/// Writes a snapshot so that "saved" is true: to a new file beside the target, which is read back and
/// compared with the frame sample by sample, brought to the disk, and only then takes the target's name. When
/// anything fails the target stays as it was. `forward` is the pass of an area; a line has both.
SaveResult saveSnapshot(const FrameBuffer& frame, Snapshot kind, const QString& target,
                        const QString& channel, bool forward);

/// A running log that is saved in the same way when it stops.
///
/// While it runs it is a file beside the target, with ".part" at its end: after a crash what was logged is
/// there. Discarding the object without `stop` removes it.
class RunningLog
{
public:
    RunningLog();
    ~RunningLog();
    RunningLog(const RunningLog&) = delete;
    RunningLog& operator=(const RunningLog&) = delete;

    /// Starts a log of samples that have the unit and scale of `frame`; one that runs is discarded.
    SaveResult start(const FrameBuffer& frame, const QString& target, const QString& channel);
    bool isRunning() const { return m_buffer != nullptr; }
    void add(const int* samples, int count);
    qint64 count() const { return m_count; }
    /// Ends it. What the disk did not take is found here: the lines are counted, the last one is compared.
    SaveResult stop();

private:
    void discard();

    std::unique_ptr<FrameBuffer> m_buffer; ///< holds the log's handle and scale; null when none runs
    std::unique_ptr<PendingFile> m_file;
    QString m_target;
    qint64 m_count = 0;
    int m_last = 0;
};

} // namespace bench
