#pragma once

#include <limits>
#include <QTemporaryFile>
#include <string>

namespace cli {

/// A file by name, for readers that want a path; "-" is standard input, kept in a temporary file while this
/// lives. Throws `IOError`.
class InputFile
{
public:
    /// Of standard input, not much more than `most` bytes are read: as many as a reader needs to find it too
    /// large.
    explicit InputFile(const std::string& name, qint64 most = std::numeric_limits<qint64>::max());

    const std::string& path() const { return m_path; }
    /// A message with the name that the user knows.
    std::string named(std::string message) const;

private:
    QTemporaryFile m_copy;
    std::string m_path;
    bool m_isCopy = false;
};

} // namespace cli
