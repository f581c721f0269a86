#include "xmlinput.h"

#include "streams.h"

#include <algorithm>
#include <vector>
#include <vorelutil/trace/error.h>

namespace cli {

std::string readDocument(const std::string& name, XmlDoc* document)
{
    constexpr std::size_t mostBytes = std::size_t(1) << 30;
    InputStream in(name, true);
    std::string content;
    content.reserve(std::min(std::size_t(in.size()), mostBytes)); // growing would hold it twice
    std::vector<char> piece(std::size_t(256) * 1024);
    while (const std::size_t count = in.read(piece.data(), piece.size())) {
        if (count > mostBytes - content.size()) throw FormatError("more than 1 GiB", in.name());
        content.append(piece.data(), count);
    }
    document->setContent(content, in.name());
    if (document->getChild() == nullptr) {
        const auto begins = [&content](const char* mark) { return content.rfind(mark, 0) == 0; };
        const bool marked = begins("\xEF\xBB\xBF") || begins("\xFF\xFE") || begins("\xFE\xFF");
        throw XmlError(marked ? "Empty document: the file begins with a byte-order mark, which is not read"
                              : "Empty document",
                       in.name(), -1);
    }
    return content;
}

} // namespace cli
