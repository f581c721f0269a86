#include "tracefiles.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <vorelutil/trace/tracelog.h>

namespace bench {

namespace {

constexpr int sizeCheckMilliseconds = 500;
constexpr int allTelegrams = TRACE_ON | TRACE_FLUSH | TRACE_CATEGORY_MASK;

// A path can be written when it opens; the trace log itself goes on with standard error when it does not.
bool canWrite(const QString& path)
{
    return QFile(path).open(QIODevice::WriteOnly);
}

} // namespace

TraceFiles::TraceFiles(QObject* parent)
    : QObject(parent)
{
    m_sizeTimer.setInterval(sizeCheckMilliseconds);
    connect(&m_sizeTimer, &QTimer::timeout, this, &TraceFiles::checkSize);
}

QString TraceFiles::newName() const
{
    const QString start = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    for (int i = 0;; ++i) {
        // Sorted by name, files are sorted by age.
        const QString name =
            QStringLiteral("%1/vorelbench-%2-%3.log").arg(m_folder, start).arg(i, 3, 10, QLatin1Char('0'));
        if (!QFileInfo::exists(name)) return name;
    }
}

bool TraceFiles::openInFolder(const QString& folder)
{
    m_folder = folder;
    QDir().mkpath(folder);
    prune(folder, keptFiles - 1);
    return openFile(newName());
}

bool TraceFiles::openFile(const QString& path)
{
    const bool ok = canWrite(path);
    m_file = ok ? path : QString();
    traceInit(QFile::encodeName(m_file).constData(), "vorelbench", allTelegrams);
    traceError(ok, "The trace log %s cannot be written", QFile::encodeName(path).constData());
    m_sizeTimer.start();
    emit fileChanged(m_file);
    return ok;
}

void TraceFiles::checkSize()
{
    if (m_file.isEmpty() || QFileInfo(m_file).size() < largestFile) return;
    if (m_folder.isEmpty()) {
        traceTrace("The log has grown large and goes on without TELLs");
        traceSetFlags(allTelegrams & ~TRACE_TELL);
        m_sizeTimer.stop();
        return;
    }
    prune(m_folder, keptFiles - 1);
    const QString next = newName();
    if (!canWrite(next)) return;
    traceTrace("The log goes on in %s", QFile::encodeName(next).constData());
    traceSetFile(QFile::encodeName(next).constData());
    m_file = next;
    emit fileChanged(m_file);
}

void TraceFiles::prune(const QString& folder, int kept)
{
    const QDir dir(folder);
    QStringList names = dir.entryList({QStringLiteral("vorelbench-*.log")}, QDir::Files, QDir::Name);
    while (names.size() > kept) QFile::remove(dir.filePath(names.takeFirst()));
}

} // namespace bench
