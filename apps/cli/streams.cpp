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

/// What `name` leads to when it is a link to a file, or to none; else `name`. Throws `IOError`.
std::string targetOf(const std::string& name)
{
    constexpr int mostLinks = 40; // followed by the system, too
    namespace fs = std::filesystem;
    fs::path path(name);
    std::error_code error;
    for (int links = 0;
         fs::is_symlink(path, error) && (!fs::exists(path, error) || fs::is_regular_file(path, error));
         ++links) {
        if (links == mostLinks)
            error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
        else
            path = path.parent_path() / fs::read_symlink(path, error);
        if (error) throw IOError("cannot write " + name + ": " + error.message());
    }
    return path.string();
}

} // namespace

QString pathOf(const std::string& name)
{
    const QString path = QFile::decodeName(name.c_str());
    if (QFile::encodeName(path) != name.c_str())
        throw IOError("cannot use the file name " + name +
                      ": its bytes are no text in the locale (LC_ALL, LANG)");
    return path;
}

InputStream::InputStream(const std::string& name, bool withBar)
    : m_name(name == "-" ? "standard input" : name)
{
    constexpr auto mode = QIODevice::ReadOnly | QIODevice::Unbuffered;
    m_file.setFileName(pathOf(name));
    if (!(name == "-" ? m_file.open(0, mode) : m_file.open(mode))) {
        FileOpenError error(m_name, false);
        error.message += ": " + m_file.errorString().toStdString();
        throw error;
    }
    if (withBar) m_bar.emplace(size());
}

std::size_t InputStream::read(void* data, std::size_t size)
{
    const qint64 count = m_file.read(static_cast<char*>(data), qint64(size));
    if (count < 0) throw IOError("cannot read " + m_name + ": " + m_file.errorString().toStdString());
    m_done += count;
    if (m_bar && count == 0)
        m_bar->erase();
    else if (m_bar)
        m_bar->show(m_done);
    return std::size_t(count);
}

OutputStream::OutputStream(const std::string& name)
    : m_name(name == "-" ? "standard output" : name)
{
    outliveBrokenPipes();
    if (name == "-") return;
    if (name.empty()) fail(std::strerror(ENOENT));
    m_path = pathOf(targetOf(name));
    const QFileInfo present(m_path);
    m_replaces = !present.exists() || present.isFile();
    bool good = false;
    if (m_replaces) {
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
