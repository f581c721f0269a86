#include "xmlparser.h"

#include "xmldoc.h"

#include <utility>
#include <vector>
#include <vorelutil/trace/error.h>

namespace XmlInternal {

IParser::IParser(ILexer* lexer)
    : m_lexer(lexer)
{
}

void IParser::fail(const std::string& message, int line) const
{
    throw XmlError(message, m_lexer->sourceName(), line);
}

void IParser::getNextElement()
{
    m_attributes.clear();
    m_name.clear();
    m_selfClosing = false;
    m_kind = textRun;
    if (m_lexer->getNextSymbol(false) == symTagOpen)
        readTag();
    else
        m_name = m_lexer->text();
}

/// Reads what follows the "<" of a tag. All its errors are reported in the line of the character behind the
/// "<".
void IParser::readTag()
{
    const int line = static_cast<int>(m_lexer->line());
    int symbol = m_lexer->getNextSymbol(true);
    m_kind = startTag;
    if (symbol == symSlash) {
        m_kind = endTag;
        symbol = m_lexer->getNextSymbol(true);
    }
    if (symbol != symWord) fail("Text expected", line);
    m_name = m_lexer->text();

    symbol = m_lexer->getNextSymbol(true);
    while (symbol == symWord) {
        std::string name = m_lexer->text();
        if (m_lexer->getNextSymbol(true) != symEquals) fail("\"=\" expected", line);
        symbol = m_lexer->getNextSymbol(true);
        if (symbol != symString && symbol != symWord) fail("String or text expected", line);
        // Names mostly come in order. The value is copied, to its size: the lexer's text goes on being used.
        const std::size_t count = m_attributes.size();
        const auto at = m_attributes.emplace_hint(m_attributes.end(), std::move(name), m_lexer->text());
        if (m_attributes.size() == count) at->second = m_lexer->text();
        symbol = m_lexer->getNextSymbol(true);
    }
    if (symbol == symSlash) {
        m_selfClosing = true;
        symbol = m_lexer->getNextSymbol(true);
    }
    if (symbol != symTagClose) fail("\">\" expected", line);
}

/// Makes the current start tag a node. The element after the tag is the current one then, unless the tag
/// closes itself.
std::unique_ptr<XmlDocNode> IParser::takeNode()
{
    std::string name = std::move(m_name);
    std::map<std::string, std::string> attributes = std::move(m_attributes);
    if (!m_selfClosing) getNextElement();
    auto node = std::make_unique<XmlDocNode>(std::string(), nullptr, m_lexer->sourceName(),
                                             static_cast<int>(m_lexer->line()));
    node->name = std::move(name);
    node->attributes = std::move(attributes);
    return node;
}

void IParser::requireEndTag(const XmlDocNode& node) const
{
    if (m_kind != endTag || m_name != node.name) fail("Missing closing tag for " + node.name, node.line);
}

XmlDocNode* IParser::getNode()
{
    if (m_kind != startTag) return nullptr;
    std::unique_ptr<XmlDocNode> root;
    std::vector<XmlDocNode*> open; // elements whose children are being read, the innermost one last
    for (;;) {
        // The current element is a start tag.
        const bool selfClosing = m_selfClosing;
        std::unique_ptr<XmlDocNode> made = takeNode();
        if (!open.empty()) open.back()->addChild(made.get());
        XmlDocNode* const node = made.release();
        if (!root) root.reset(node);
        if (selfClosing) {
            m_kind = endTag;
        } else {
            switch (m_kind) {
            case startTag:
                open.push_back(node);
                continue;
            case textRun:
                node->text = std::move(m_name);
                getNextElement();
                break;
            case endTag:
                break;
            default:
                fail("Unexpected tag type", node->line);
            }
            requireEndTag(*node);
        }
        // A node is complete, and so are those that end with it.
        while (!open.empty()) {
            getNextElement();
            if (m_kind == startTag) break;
            requireEndTag(*open.back());
            open.pop_back();
        }
        if (open.empty()) return root.release();
    }
}

} // namespace XmlInternal
