#pragma once

#include "xmllexer.h"

#include <map>
#include <memory>
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
    ///
    /// Kept: attributes and a slash in an end tag are read and ignored. And where a text begins with "=", "/"
    /// or ">", the element is that character alone, and its text is what the lexer held before: in
    /// "<a>=</a>" the text of "a" is "a". A text that begins with a double quote is that string alone,
    /// decoded; what stands behind it is the next element, so that `getNode` finds no end tag there.
    void getNextElement();
    /// Builds the tree of the current element, up to its end tag, which is the current element then. Nothing
    /// is read behind it. Null when the current one is no start tag. The caller owns the result. Throws
    /// `XmlError`; nothing of the tree is left then. The depth of a document costs memory in proportion, and
    /// no stack.
    XmlDocNode* getNode();

private:
    enum ElementKind : int
    {
        startTag = 1,
        endTag = 2,
        textRun = 3
    };

    void readTag();
    [[noreturn]] void fail(const std::string& message, int line) const;
    void requireEndTag(const XmlDocNode& node) const;
    std::unique_ptr<XmlDocNode> takeNode();

    ILexer* const m_lexer;
    std::map<std::string, std::string> m_attributes;
    bool m_selfClosing = false;
    int m_kind = textRun;
    std::string m_name; ///< of a tag; the text of a run
};

} // namespace XmlInternal
