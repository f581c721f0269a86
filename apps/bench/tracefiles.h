#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

namespace bench {

/// The console's own trace log: every telegram, flushed line by line.
///
/// In a folder, logs are named by their start time and the last ten are kept; one that has grown large goes
/// on in a new file. Or it is one file that the caller names; one that has grown large says so and goes on
/// without "TELL"s. GUI thread only; one object a process.
class TraceFiles : public QObject
{
    Q_OBJECT

public:
    static constexpr int keptFiles = 10;
    static constexpr qint64 largestFile = 100 * 1024 * 1024;

    explicit TraceFiles(QObject* parent = nullptr);

    /// Traces to a new file in `folder`, which is made. False when it cannot be written; the log is then
    /// on standard error.
    bool openInFolder(const QString& folder);
    /// Traces to `path`. False as above.
    bool openFile(const QString& path);

    /// The file that is being written; empty when the log is on standard error.
    QString currentFile() const { return m_file; }

    /// Removes the oldest logs of a folder, so that `kept` stay. Other files are left alone.
    static void prune(const QString& folder, int kept);

signals:
    void fileChanged(const QString& path);

private:
    void checkSize();
    QString newName() const;

    QString m_folder; ///< empty: a single file
    QString m_file;
    QTimer m_sizeTimer;
};

} // namespace bench
