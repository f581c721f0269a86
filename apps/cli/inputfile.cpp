#include "inputfile.h"

#include <QFile>
#include <vector>
#include <vorelutil/trace/error.h>

namespace cli {

InputFile::InputFile(const std::string& name, qint64 most)
    : m_path(name)
{
    if (name != "-") return;
    QFile in;
    const auto unread = [&in] {
        throw IOError("cannot read standard input: " + in.errorString().toStdString());
    };
    if (!in.open(0, QIODevice::ReadOnly | QIODevice::Unbuffered)) unread();
    if (!m_copy.open()) throw IOError("cannot write a temporary file");
    std::vector<char> piece(std::size_t(256) * 1024);
    while (m_copy.size() <= most) {
        const qint64 count = in.read(piece.data(), qint64(piece.size()));
        if (count < 0) unread();
        if (count == 0) break;
        if (m_copy.write(piece.data(), count) != count) throw IOError("cannot write a temporary file");
    }
    if (!m_copy.flush()) throw IOError("cannot write a temporary file");
    m_path = QFile::encodeName(m_copy.fileName()).toStdString();
    m_isCopy = true;
}

std::string InputFile::named(std::string message) const
{
    const std::size_t at = m_isCopy ? message.find(m_path) : std::string::npos;
    return at == std::string::npos ? message : message.replace(at, m_path.size(), "standard input");
}

} // namespace cli
