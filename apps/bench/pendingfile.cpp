#include "pendingfile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <unistd.h>

namespace bench {

namespace {

constexpr int nameAttempts = 20;

// Brings a file, or a folder's entries, to the disk.
bool syncToDisk(const QString& path)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return false;
    const bool ok = ::fsync(descriptor) == 0;
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return ok;
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

PendingFile::PendingFile(const QString& target)
    : m_target(target)
{
    const QFileInfo info(target);
    if (info.isSymLink() && info.exists()) m_target = info.canonicalFilePath();
}

PendingFile::~PendingFile()
{
    if (!m_path.isEmpty()) QFile::remove(m_path);
}

bool PendingFile::create(QString* error)
{
    const QFileInfo info(m_target);
    if (m_target.isEmpty() || info.fileName().isEmpty()) {
        *error = QStringLiteral("no file is named");
        return false;
    }
    if (info.exists() && !info.isFile()) {
        *error = QStringLiteral("%1 is not a regular file").arg(m_target);
        return false;
    }
    if (info.exists() && !info.isWritable()) {
        *error = QStringLiteral("%1 is write-protected").arg(m_target);
        return false;
    }
    for (int attempt = 0; attempt < nameAttempts; ++attempt) {
        const QString name = QStringLiteral("%1.%2.part")
                                 .arg(m_target)
                                 .arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0'));
        QFile file(name);
        if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            if (info.exists()) file.setPermissions(info.permissions());
            m_path = name;
            return true;
        }
        *error = file.errorString();
    }
    return false;
}

QByteArray PendingFile::path() const
{
    return QFile::encodeName(m_path);
}

bool PendingFile::commit(QString* error)
{
    if (!syncToDisk(m_path)) {
        *error = systemError();
        return false;
    }
    if (std::rename(path().constData(), QFile::encodeName(m_target).constData()) != 0) {
        *error = systemError();
        return false;
    }
    m_path.clear();
    // The data is safe and has its name; whether the folder's entry has reached the disk is a matter of time.
    syncToDisk(QFileInfo(m_target).absolutePath());
    return true;
}

} // namespace bench
