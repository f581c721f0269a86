#pragma once

#include "xmllexer.h"

#include <map>
#include <string>

class XmlDocNode;

namespace XmlInternal {

/// Turns the symbols of a lexer into elements, and elements into a tree.
class IParser
{
public:
    /// `lexer` must outlive the parser.
    explicit IParser(ILexer* lexer);
    IParser(const IParser&) = delete;
    IParser& operator=(const IParser&) = delete;

    /// Reads one element (start tag, end tag, text), which is the current one then. Throws `XmlError`.
    void getNextElement();
    /// Builds the tree of the current element, up to its end tag, and reads the element after it. Null when
    /// the current one is no start tag. The caller owns the result. Throws `XmlError`; nothing of the tree is
    /// left then. The depth of a document costs memory in proportion, and no stack.
    XmlDocNode* getNode();

private:
    enum ElementKind : int
    {
        startTag = 1,
        endTag = 2,
        textRun = 3
    };

    ILexer* const m_lexer;
    std::map<std::string, std::string> m_attributes;
    bool m_selfClosing = false;
    int m_kind = textRun;
    std::string m_name; ///< of a tag; the text of a run
};

} // namespace XmlInternal
