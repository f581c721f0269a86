#include "streams.h"

#include "terminal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <QCoreApplication>
#include <QFileInfo>
#include <vorelutil/trace/error.h>

namespace cli {

namespace {

constexpr int mostLinks = 40; ///< followed by the system, too

} // namespace

InputStream::InputStream(const std::string& name, bool withBar)
    : m_name(name == "-" ? "standard input" : name)
{
    constexpr auto mode = QIODevice::ReadOnly | QIODevice::Unbuffered;
    m_file.setFileName(QFile::decodeName(name.c_str()));
    if (!(name == "-" ? m_file.open(0, mode) : m_file.open(mode))) {
        FileOpenError error(m_name, false);
        error.message += ": " + m_file.errorString().toStdString();
        throw error;
    }
    if (withBar && isTerminal(stderr) && !m_file.isSequential()) m_size = m_file.size();
}

InputStream::~InputStream()
{
    eraseBar();
}

std::size_t InputStream::read(void* data, std::size_t size)
{
    const qint64 count = m_file.read(static_cast<char*>(data), qint64(size));
    if (count < 0) throw IOError("cannot read " + m_name + ": " + m_file.errorString().toStdString());
    m_done += count;
    if (count == 0)
        eraseBar();
    else if (m_size > 0)
        showProgress();
    return std::size_t(count);
}

void InputStream::showProgress()
{
    constexpr int width = 40;
    const int percent = int(100.0 * double(qMin(m_done, m_size)) / double(m_size));
    if (percent == m_shown) return;
    m_shown = percent;
    endLineOnSignal(true);
    const int marks = percent * width / 100;
    std::fprintf(stderr, "\r[%s%s] %3d %%", std::string(std::size_t(marks), '#').c_str(),
                 std::string(std::size_t(width - marks), ' ').c_str(), percent);
}

void InputStream::eraseBar()
{
    if (m_shown >= 0) {
        std::fprintf(stderr, "\r%48s\r", "");
        endLineOnSignal(false);
    }
    m_shown = -1;
    m_size = 0;
}

OutputStream::OutputStream(const std::string& name)
    : m_name(name == "-" ? "standard output" : name)
{
    outliveBrokenPipes();
    if (name == "-") return;
    if (name.empty()) fail(std::strerror(ENOENT));
    m_path = QFile::decodeName(name.c_str());
    QFileInfo present(m_path);
    for (int links = 0; !present.exists() && present.isSymLink(); ++links) {
        if (links == mostLinks) fail("Too many levels of symbolic links");
        m_path = present.symLinkTarget();
        present.setFile(m_path);
    }
    m_replaces = !present.exists() || present.isFile();
    bool good = false;
    if (m_replaces) {
        if (present.exists() && present.isSymLink()) m_path = present.canonicalFilePath();
        m_file.setFileName(QStringLiteral("%1.%2.part").arg(m_path).arg(QCoreApplication::applicationPid()));
        good = m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered);
        if (good) removeOnSignal(QFile::encodeName(m_file.fileName()).constData());
        if (good && present.exists()) m_file.setPermissions(present.permissions());
    } else {
        m_file.setFileName(m_path);
        good = m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    }
    if (!good) fail(m_file.errorString().toStdString());
}

OutputStream::~OutputStream()
{
    if (m_replaces && m_file.isOpen()) discard();
}

void OutputStream::write(const void* data, std::size_t size)
{
    if (size == 0) return;
    if (m_path.isEmpty()) {
        if (std::fwrite(data, 1, size, stdout) != size) fail(std::strerror(errno));
        return;
    }
    // What fits may be written without a word; the next attempt tells the reason.
    for (const char* rest = static_cast<const char*>(data); size > 0;) {
        const qint64 count = m_file.write(rest, qint64(size));
        if (count <= 0) fail(m_file.errorString().toStdString());
        rest += count;
        size -= std::size_t(count);
    }
}

void OutputStream::rewind()
{
    if (!m_file.seek(0)) fail(m_file.errorString().toStdString());
}

void OutputStream::finish()
{
    if (m_path.isEmpty()) {
        if (std::fflush(stdout) != 0) fail(std::strerror(errno));
        return;
    }
    m_file.close();
    std::string problem;
    if (m_file.error() != QFileDevice::NoError) problem = m_file.errorString().toStdString();
    if (m_replaces && problem.empty()) {
        std::error_code error;
        const QByteArray part = QFile::encodeName(m_file.fileName());
        std::filesystem::rename(part.constData(), QFile::encodeName(m_path).constData(), error);
        keepOnSignal(part.constData());
        if (error) problem = error.message();
    }
    if (problem.empty()) return;
    if (m_replaces) discard();
    fail(problem);
}

void OutputStream::discard()
{
    m_file.remove();
    keepOnSignal(QFile::encodeName(m_file.fileName()).constData());
}

void OutputStream::fail(const std::string& reason) const
{
    throw IOError("cannot write " + m_name + ": " + reason);
}

} // namespace cli
