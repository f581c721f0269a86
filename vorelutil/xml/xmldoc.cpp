#include "xmldoc.h"

#include "xmllexer.h"
#include "xmlparser.h"

#include <cstdio>
#include <memory>
#include <vorelutil/platform/files.h>
#include <vorelutil/trace/error.h>

namespace {

constexpr char declaration[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n";

struct CloseFile
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// Replaces the tree of `doc`. The lexer has copies of its own of the source and its name, as both may be
/// texts of the tree that goes.
void readTree(XmlDoc* doc, XmlInternal::ILexer* lexer)
{
    XmlInternal::IParser parser(lexer);
    parser.getNextElement();
    doc->setChild(nullptr);
    doc->setChild(parser.getNode());
}

} // namespace

XmlDoc::~XmlDoc()
{
    delete m_root;
}

void XmlDoc::setChild(XmlDocNode* root)
{
    if (root == m_root) return;
    delete m_root;
    m_root = root;
}

void XmlDoc::setContent(const std::string& content, const std::string& sourceName)
{
    XmlInternal::StringLexer lexer(content, sourceName);
    readTree(this, &lexer);
}

void XmlDoc::readFile(const std::string& path)
{
    const std::unique_ptr<std::FILE, CloseFile> file(platform::openFile(path.c_str(), "r"));
    if (file == nullptr) throw FileOpenError(path, false);
    XmlInternal::StreamLexer lexer(file.get(), path);
    readTree(this, &lexer);
}

std::string XmlDoc::write(bool indented) const
{
    if (m_root == nullptr) throw XmlError("Empty document", "", -1);
    std::string out = declaration;
    m_root->write(out, indented ? 0 : XmlDocNode::unindented);
    return out;
}
