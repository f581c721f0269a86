// A document: as its literal reader has it, from every kind of source, written and read again, and beside
// libxml2.
#include "literalxml.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <memory>
#include <string>
#include <string_view>
#include <vorelutil/trace/error.h>
#include <vorelutil/xml/xmldoc.h>
#include <vorelutil/xml/xmllexer.h>
#include <vorelutil/xml/xmlparser.h>

using namespace XmlInternal;

namespace {

void require(bool condition)
{
    if (!condition) std::abort();
}

/// A source that lends nothing.
class OneByOne : public ILexer
{
public:
    explicit OneByOne(const std::string& content)
        : ILexer("s")
        , m_content(content)
    {
    }
    void getNextChar() override { setChar(m_position < m_content.size() ? m_content[m_position++] : '\0'); }

private:
    const std::string& m_content;
    std::size_t m_position = 0;
};

struct Literal
{
    std::unique_ptr<literalxml::Node> root;
    std::string message; ///< as in an error; empty when there was none
    bool atOnce = false; ///< whether it failed in the first tag
};

Literal readLiterally(const std::string& content)
{
    Literal result;
    try {
        literalxml::Parser parser(content);
        result.atOnce = true;
        parser.getNextElement();
        result.atOnce = false;
        result.root = parser.getNode(true);
    } catch (const literalxml::Failure& failure) {
        result.message = "s line " + std::to_string(failure.line) + ": " + failure.message;
    }
    return result;
}

void requireSame(const XmlDocNode& ours, const literalxml::Node& literal)
{
    require(ours.name == literal.name && ours.text == literal.text && ours.attributes == literal.attributes);
    require(ours.file == "s" && ours.line == static_cast<int>(literal.line));
    require(ours.children.size() == literal.children.size());
    auto child = ours.children.begin();
    for (const auto& expected : literal.children) requireSame(**child++, *expected);
}

void requireSame(const XmlDocNode* ours, const literalxml::Node* literal)
{
    require((ours == nullptr) == (literal == nullptr));
    if (ours != nullptr) requireSame(*ours, *literal);
}

/// But for the lines.
void requireSameData(const XmlDocNode& first, const XmlDocNode& second)
{
    require(first.name == second.name && first.text == second.text && first.attributes == second.attributes);
    require(first.children.size() == second.children.size());
    auto child = second.children.begin();
    for (const XmlDocNode* node : first.children) requireSameData(*node, **child++);
}

void requireSame(ILexer&& lexer, const Literal& literal)
{
    try {
        IParser parser(&lexer);
        parser.getNextElement();
        const std::unique_ptr<XmlDocNode> root(parser.getNode());
        require(literal.message.empty());
        requireSame(root.get(), literal.root.get());
    } catch (const XmlError& error) {
        require(error.message == literal.message);
    }
}

void requireSameFromAStream(const std::string& content, const Literal& literal)
{
    if (content.empty()) return; // no stream over nothing
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(
        fmemopen(const_cast<char*>(content.data()), content.size(), "r"), std::fclose);
    require(stream != nullptr);
    requireSame(StreamLexer(stream.get(), "s", content.size() % 13 + 1), literal);
}

bool hasText(const XmlDocNode& node)
{
    return !node.text.empty() || std::any_of(node.children.begin(), node.children.end(),
                                             [](auto* child) { return hasText(*child); });
}

/// What was read without any text reads back the same. (A text does not: it may begin with what was decoded
/// from a string there, or with a symbol.)
void requireSameWhenWritten(const XmlDoc& doc)
{
    if (hasText(*doc.getChild())) return;
    XmlDoc again;
    again.setContent(doc.write(false), "again");
    require(again.getChild() != nullptr);
    requireSameData(*doc.getChild(), *again.getChild());
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

/// Whether the bytes leave no room for what libxml2 takes otherwise than the library does, on purpose:
///   - encodings, and control characters but for tabulators and line feeds;
///   - declarations and CDATA sections: no "<!" but that of a comment;
///   - values in single quotes, names with a hyphen, names with a name space;
///   - references other than the four;
///   - instructions that end in two question marks; comments that end in three hyphens are errors there.
/// Single quotes, hyphens, and colons are left out wherever they stand: a document that is in the subset may
/// be called outside, never the other way round.
bool isInSubset(std::string content)
{
    for (const std::string_view mark : {"<!--", "-->"}) {
        std::size_t at = 0;
        while ((at = content.find(mark, at)) != std::string::npos) content.replace(at, mark.size(), "  ");
    }
    for (std::size_t i = 0; i < content.size(); ++i) {
        const char c = content[i];
        if ((c < ' ' && c != '\t' && c != '\n') || c > '~' || c == '\'' || c == '-' || c == ':') return false;
        if (c != '&') continue;
        const std::string_view reference = std::string_view(content).substr(i, 6);
        const auto is = [reference](std::string_view wanted) {
            return reference.substr(0, wanted.size()) == wanted;
        };
        if (!is("&amp;") && !is("&lt;") && !is("&gt;") && !is("&quot;")) return false;
    }
    return !contains(content, "<!") && !contains(content, "?\?>") && !contains(content, "encoding") &&
           !contains(content, "xmlns");
}

const char* bytes(const xmlChar* text)
{
    return reinterpret_cast<const char*>(text);
}

/// Whether each element has children or one text, and no text begins with what would be a symbol to the
/// library. Texts that comments cut in two are two.
bool isInSubset(const xmlNode* element)
{
    int children = 0;
    int texts = 0;
    for (const xmlNode* node = element->children; node != nullptr; node = node->next) {
        if (node->type == XML_ELEMENT_NODE) {
            ++children;
            if (!isInSubset(node)) return false;
        } else if (node->type == XML_TEXT_NODE) {
            const char* text = bytes(node->content);
            text += std::strspn(text, " \t\n");
            if (*text != '\0') ++texts;
            if (*text != '\0' && std::strchr("\"/=>", *text) != nullptr) return false;
        }
    }
    return texts == 0 || (texts == 1 && children == 0);
}

void requireSameAsPeer(const XmlDocNode& ours, const xmlNode* element)
{
    require(ours.name == bytes(element->name));
    std::map<std::string, std::string> expected;
    for (const xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
        xmlChar* const value = xmlNodeListGetString(element->doc, attribute->children, 1);
        expected[bytes(attribute->name)] = value != nullptr ? bytes(value) : "";
        xmlFree(value);
    }
    std::map<std::string, std::string> attributes = ours.attributes;
    for (auto& [name, value] : attributes) { // the peer reads white space in values as blanks
        std::replace(value.begin(), value.end(), '\t', ' ');
        std::replace(value.begin(), value.end(), '\n', ' ');
    }
    require(attributes == expected);
    auto child = ours.children.begin();
    for (const xmlNode* node = element->children; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE) continue;
        require(child != ours.children.end());
        requireSameAsPeer(**child++, node);
    }
    require(child == ours.children.end());
}

void requireSameAsPeer(const std::string& content, const XmlDocNode* root)
{
    if (!isInSubset(content)) return;
    const std::unique_ptr<xmlDoc, void (*)(xmlDoc*)> peer(
        xmlReadMemory(content.data(), static_cast<int>(content.size()), "s", nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    if (peer == nullptr) return;
    const xmlNode* const element = xmlDocGetRootElement(peer.get());
    if (!isInSubset(element)) return;
    require(root != nullptr);
    requireSameAsPeer(*root, element);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 16384) return 0; // the literal reader's depth is the stack's
    const std::string content(reinterpret_cast<const char*>(data), size);
    const Literal literal = readLiterally(content);

    XmlDoc doc;
    XmlDocNode* const before = new XmlDocNode("before", nullptr, "", 0);
    doc.setChild(before);
    try {
        doc.setContent(content, "s");
        require(literal.message.empty());
        requireSame(doc.getChild(), literal.root.get());
        if (doc.getChild() != nullptr) requireSameWhenWritten(doc);
    } catch (const XmlError& error) {
        require(error.message == literal.message);
        require(doc.getChild() == (literal.atOnce ? before : nullptr));
        require(!literal.atOnce || before->name == "before");
        doc.setChild(nullptr);
    }
    requireSame(OneByOne(content), literal);
    requireSameFromAStream(content, literal);
    requireSameAsPeer(content, doc.getChild());
    return 0;
}
