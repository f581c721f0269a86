#pragma once

#include "progressbar.h"

#include <cstddef>
#include <optional>
#include <QFile>
#include <string>

/// Files of any size, in pieces, as the command line names them: "-" is standard input or output.
namespace cli {

/// The path that a name from the command line stands for. Throws `IOError` where its bytes are no text in the
/// locale: the path would be another file's.
QString pathOf(const std::string& name);

/// Read from the beginning to the end, with a progress bar on standard error where that is a terminal and
/// the size is known. Throws `FileOpenError`, with the system's reason behind its text, and `IOError`.
class InputStream
{
public:
    /// `withBar`: whether the bar may be shown at all.
    InputStream(const std::string& name, bool withBar);

    /// The next bytes, up to `size`; 0 at the end.
    std::size_t read(void* data, std::size_t size);
    /// For messages.
    const std::string& name() const { return m_name; }
    /// Bytes in the file; 0 where that is not known.
    qint64 size() const { return m_file.isSequential() ? 0 : m_file.size(); }

private:
    std::string m_name;
    QFile m_file;
    qint64 m_done = 0;
    std::optional<ProgressBar> m_bar;
};

/// Written all or nothing: the file gets its name when it is finished. A link stays, and its target gets the
/// file, whether there is one or not. A pipe or a device that is there keeps its place and takes what comes,
/// as standard output does. Throws `IOError`.
class OutputStream
{
public:
    explicit OutputStream(const std::string& name);
    /// Removes what is not finished; so does a signal that ends the process.
    ~OutputStream();
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

    void write(const void* data, std::size_t size);
    /// Whether `rewind` works: a file, not a pipe, a device or standard output.
    bool canRewind() const { return m_replaces; }
    /// The next bytes go over the first ones.
    void rewind();
    void finish();

private:
    void discard();
    [[noreturn]] void fail(const std::string& reason) const;

    const std::string m_name;
    QString m_path; ///< that the file gets in the end; empty: standard output
    QFile m_file;
    bool m_replaces = false; ///< written beside `m_path`, then renamed
};

} // namespace cli
