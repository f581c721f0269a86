#include "xmlinput.h"

#include "streams.h"

#include <vector>
#include <vorelutil/trace/error.h>

namespace cli {

std::string readDocument(const std::string& name, XmlDoc* document)
{
    constexpr std::size_t mostBytes = std::size_t(1) << 30;
    InputStream in(name, true);
    std::string content;
    std::vector<char> piece(std::size_t(256) * 1024);
    while (const std::size_t count = in.read(piece.data(), piece.size())) {
        if (count > mostBytes - content.size()) throw FormatError("more than 1 GiB", in.name());
        content.append(piece.data(), count);
    }
    document->setContent(content, in.name());
    if (document->getChild() == nullptr) throw XmlError("Empty document", std::string(), -1);
    return content;
}

} // namespace cli
