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

InputStream::InputStream(const std::string& name, bool withBar)
    : m_name(name == "-" ? "standard input" : name)
{
    constexpr auto mode = QIODevice::ReadOnly | QIODevice::Unbuffered;
    m_file.setFileName(QFile::decodeName(name.c_str()));
    if (!(name == "-" ? m_file.open(0, mode) : m_file.open(mode))) throw FileOpenError(m_name, false);
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
    const int marks = percent * width / 100;
    std::fprintf(stderr, "\r[%s%s] %3d %%", std::string(std::size_t(marks), '#').c_str(),
                 std::string(std::size_t(width - marks), ' ').c_str(), percent);
}

void InputStream::eraseBar()
{
    if (m_shown >= 0) std::fprintf(stderr, "\r%48s\r", "");
    m_shown = -1;
    m_size = 0;
}

OutputStream::OutputStream(const std::string& name)
    : m_name(name == "-" ? "standard output" : name)
{
    outliveBrokenPipes();
    if (name == "-") return;
    m_path = QFile::decodeName(name.c_str());
    const QFileInfo present(m_path);
    m_replaces = !present.exists() || present.isFile();
    bool good = false;
    if (m_replaces) {
        if (present.exists() && present.isSymLink()) m_path = present.canonicalFilePath(); // stays a link
        m_file.setFileName(QStringLiteral("%1.%2.part").arg(m_path).arg(QCoreApplication::applicationPid()));
        good = m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered);
        if (good && present.exists()) m_file.setPermissions(present.permissions());
    } else {
        m_file.setFileName(m_path);
        good = m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    }
    if (!good) fail(m_file.errorString().toStdString());
}

OutputStream::~OutputStream()
{
    if (m_replaces && !m_finished && m_file.isOpen()) m_file.remove();
}

void OutputStream::write(const void* data, std::size_t size)
{
    if (size == 0) return;
    if (m_path.isEmpty()) {
        if (std::fwrite(data, 1, size, stdout) != size) fail(std::strerror(errno));
    } else if (m_file.write(static_cast<const char*>(data), qint64(size)) != qint64(size)) {
        fail(m_file.errorString().toStdString());
    }
}

void OutputStream::rewind()
{
    if (!m_file.seek(0)) fail(m_file.errorString().toStdString());
}

void OutputStream::finish()
{
    m_finished = true;
    if (m_path.isEmpty()) {
        if (std::fflush(stdout) != 0) fail(std::strerror(errno));
        return;
    }
    m_file.close();
    if (m_file.error() != QFileDevice::NoError) fail(m_file.errorString().toStdString());
    if (!m_replaces) return;
    std::error_code error;
    std::filesystem::rename(QFile::encodeName(m_file.fileName()).constData(),
                            QFile::encodeName(m_path).constData(), error);
    if (!error) return;
    m_file.remove();
    fail(error.message());
}

void OutputStream::fail(const std::string& reason) const
{
    throw IOError("cannot write " + m_name + ": " + reason);
}

} // namespace cli
