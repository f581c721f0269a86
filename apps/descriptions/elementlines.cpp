#include "elementlines.h"

#include <algorithm>
#include <cstring>

namespace descriptions {

namespace {

/// Goes through a document by the rules of docs/formats/xml.md, as far as they say where a tag begins and
/// ends.
class Scanner
{
public:
    explicit Scanner(std::string_view source)
        : m_next(source.data())
        , m_end(m_next + std::min(source.find('\0'), source.size())) // a zero byte ends a document
    {
    }

    std::vector<int> childLines()
    {
        std::vector<int> lines;
        for (int depth = 0;;) {
            skipBlank();
            if (m_next == m_end) return lines;
            if (*m_next != '<') {
                skipText();
                continue;
            }
            const int line = m_line;
            const Tag tag = readTag();
            if (depth == 1 && tag != Tag::Closing) lines.push_back(line);
            if (tag == Tag::Opening) ++depth;
            if (tag == Tag::Closing) --depth;
            if (depth <= 0) return lines; // what follows the root is not read
        }
    }

private:
    enum class Tag
    {
        Opening,
        Closing,
        Empty ///< it closes itself
    };

    void advance()
    {
        if (*m_next++ == '\n') ++m_line;
    }

    bool startsWith(const char* text) const
    {
        const auto length = std::strlen(text);
        return std::size_t(m_end - m_next) >= length && std::strncmp(m_next, text, length) == 0;
    }

    /// White space, comments and instructions may stand before every symbol.
    void skipBlank()
    {
        while (m_next != m_end) {
            if (std::strchr(" \t\n\v\f\r", *m_next) != nullptr)
                advance();
            else if (startsWith("<!--"))
                skipUntil(4, "-->");
            else if (startsWith("<?"))
                skipUntil(2, "?>");
            else
                return;
        }
    }

    /// A character that does not match begins the search anew, and is no beginning itself, as in the parser.
    void skipUntil(int start, const char* terminator)
    {
        m_next += start;
        for (const char* expected = terminator; m_next != m_end && *expected != '\0'; advance())
            expected = *m_next == *expected ? expected + 1 : terminator;
    }

    /// A reference goes up to the next ";", also past a quote, as in the parser.
    void skipString()
    {
        bool isReference = false;
        for (advance(); m_next != m_end && (isReference || *m_next != '"'); advance())
            isReference = *m_next == '&' || (isReference && *m_next != ';');
        if (m_next != m_end) advance();
    }

    void skipText()
    {
        if (*m_next == '"') return skipString();
        do advance();
        while (m_next != m_end && *m_next != '<');
    }

    Tag readTag()
    {
        advance();
        skipBlank();
        const bool isClosing = m_next != m_end && *m_next == '/';
        for (char last = '\0';; skipBlank()) {
            if (m_next == m_end || *m_next == '>') {
                if (m_next != m_end) advance();
                return isClosing ? Tag::Closing : last == '/' ? Tag::Empty : Tag::Opening;
            }
            last = *m_next;
            if (last == '"')
                skipString();
            else
                advance();
        }
    }

    const char* m_next;
    const char* m_end;
    int m_line = 1;
};

} // namespace

std::vector<int> childLines(std::string_view source)
{
    return Scanner(source).childLines();
}

} // namespace descriptions
