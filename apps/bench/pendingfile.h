#pragma once

#include <QByteArray>
#include <QString>

namespace bench {

/// What became of a file that should be written.
struct SaveResult
{
    bool ok = false;
    QString text; ///< for the operator: "saved ..." or what failed
};

/// A new file beside a target, which takes the target's name when it is whole.
///
/// Until `commit` the target stays as it is; without it the new file is removed. A target that is a symbolic
/// link keeps being one. A target that exists and is no regular file (a device, a folder) is refused.
class PendingFile
{
public:
    explicit PendingFile(const QString& target);
    ~PendingFile();
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    /// Makes the empty file. False with `*error` in words.
    bool create(QString* error);
    /// Name of the new file, as the C runtime takes it.
    QByteArray path() const;
    /// Brings the contents to the disk and renames the file over the target. False with `*error` in words.
    bool commit(QString* error);

private:
    QString m_target;
    QString m_path; ///< empty: nothing to remove
};

} // namespace bench
