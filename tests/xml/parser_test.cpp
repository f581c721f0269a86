#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vorelutil/trace/error.h>
#include <vorelutil/xml/xmldoc.h>
#include <vorelutil/xml/xmllexer.h>
#include <vorelutil/xml/xmlparser.h>

using namespace std::string_literals;
using namespace XmlInternal;

namespace {

/// name(attribute=value)...[text]{child}...@line; what there is of it.
std::string dump(const XmlDocNode& node)
{
    EXPECT_EQ(node.file, "s");
    std::string out = node.name;
    for (const auto& [name, value] : node.attributes) out.append("(" + name + "=" + value + ")");
    if (!node.text.empty()) out += "[" + node.text + "]";
    for (const XmlDocNode* child : node.children) out += "{" + dump(*child) + "}";
    return out + "@" + std::to_string(node.line);
}

/// The root as text, "empty", or the line and text of the error.
std::string outcome(ILexer&& lexer)
{
    try {
        IParser parser(&lexer);
        parser.getNextElement();
        const std::unique_ptr<XmlDocNode> root(parser.getNode());
        EXPECT_EQ(parser.getNode(), nullptr) << "the root's end is no start tag";
        return root ? dump(*root) : "empty";
    } catch (const XmlError& error) {
        EXPECT_EQ(error.message.substr(0, 7), "s line ");
        return error.message.substr(7);
    }
}

/// What a string and a file, read in blocks, make of it.
std::string outcome(const std::string& content)
{
    const std::string result = outcome(StringLexer(content, "s"));
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
    EXPECT_EQ(std::fwrite(content.data(), 1, content.size(), file.get()), content.size());
    for (const std::size_t blockSize : {1U, 3U, 65536U}) {
        std::rewind(file.get());
        EXPECT_EQ(outcome(StreamLexer(file.get(), "s", blockSize)), result) << "in blocks of " << blockSize;
    }
    return result;
}

using Row = std::pair<std::string, std::string>; // a document, its outcome

} // namespace

// clang-format off
TEST(XmlParser, BuildsTheTreeOfWhatIsInTheSubset)
{
    const Row rows[] = {
        // Trees, with the line behind what follows the start tag.
        {"", "empty"}, {"text only", "empty"}, {"=<a/>", "empty"}, {"</a>", "empty"},
        {"\xEF\xBB\xBF<a/>", "empty"}, {"<a/>", "a@1"}, {"<a></a>", "a@1"}, {"< a / >", "a@1"},
        {"<a></ a x=1 / >", "a@1"}, {" \t\v\f\r\n<a/>", "a@2"}, {"<a\n/>\n", "a@3"},
        {"<a>\n<b>\n</b>\n<c/></a>", "a{b@4}{c@4}@3"}, {"<a>\r\n<b/>\r\n</a>\r\n", "a{b@2}@2"},
        {"<a><b><c/></b><b>t</b></a>", "a{b{c@1}@1}{b[t]@1}@1"}, {"<a/><b", "a@1"}, {"<a></a>\n<!x", "a@2"},
        // Texts.
        {"<a> x &amp; y </a>", "a[x &amp; y ]@1"}, {"<a>\n x\r\n y\n</a>", "a[x\r\n y\n]@4"},
        {"<a>b \"c\" / = > 'd'</a>", "a[b \"c\" / = > 'd']@1"}, {"<a>\"x &lt; y\"</a>", "a[x < y]@1"},
        {"<a>\xA0x\x85</a>", "a[\xA0x\x85]@1"}, {"<a>\x85\x80\xFF\xC3\xBC</a>", "a[\x85\x80\xFF\xC3\xBC]@1"},
        // A symbol in the place of a text leaves the text of the one before.
        {"<a>=</a>", "a[a]@1"}, {"<a x=\"1\">/</a>", "a(x=1)[1]@1"}, {"<a x=y>></a>", "a(x=y)[y]@1"},
        // Attributes.
        {"<a v=\"1&amp;2&lt;&foo;\"/>", "a(v=1&2<&foo;)@1"},
        {"<a v=\"&gt;&quot;&apos;&#65;&;&AMP;&amp;lt;&ampx;&quote;&am;&l;\"/>", "a(v=>\"&apos;&#65;&;&AMP;&lt;&ampx;&quote;&am;&l;)@1"},
        {"<a v=\"&a\n\"b;\"/>", "a(v=&a\n\"b;)@2"},
        {"<a v=1.5_x:Y w = z u=\"\"/>", "a(u=)(v=1.5_x:Y)(w=z)@1"},
        {"<a v=\"1\" b=\"2\" v=\"3\"/>", "a(b=2)(v=3)@1"}, {"<a v=\"x\ny\">t</a>", "a(v=x\ny)[t]@2"},
        {"<a b=1 _.:=2 Z=\"3\"0=\"4\"/>", "a(0=4)(Z=3)(_.:=2)(b=1)@1"},
        {"<a v=\"\n\"\nw=\"\xC3\xBC<>'/=\">t</a>", "a(v=\n)(w=\xC3\xBC<>'/=)[t]@3"},
        // Comments, instructions, and what stands behind a zero byte.
        {"<!-- <x> --><?p <y?>\n<a><!----><b/><!----></a>", "a{b@2}@2"},
        {"<a <!-- - -- > --> v <?p?> = <?? ?>\"1\"/>", "a(v=1)@1"}, {"<a>x<!-- --></a>", "a[x]@1"},
        {"<a><!-- -->x</a>", "a[x]@1"}, {"<!-- ---><a/>-->", "empty"}, {"<!-- -----><a/>", "a@1"},
        {"<?x?\?\?><a/>", "a@1"}, {"\0<a/>"s, "empty"}, {"<a/>\0<"s, "a@1"},
    };
    for (const auto& [content, expected] : rows) EXPECT_EQ(outcome(content), expected) << content;
}

TEST(XmlParser, NamesWhatItExpectedAndWhere)
{
    const Row rows[] = {
        {"\n<\n1", "3: \">\" expected"}, {"<a\n-b/>", "1: \">\" expected"}, {"<a/\n/>", "1: \">\" expected"},
        {"<a \"b\"/>", "1: \">\" expected"}, {"<a></\n\n/>", "1: Text expected"},
        {"<\"a\"/>", "1: Text expected"}, {"<a\nb\nc=1/>", "1: \"=\" expected"},
        {"<a>\n<b\n c\n/></a>", "2: \"=\" expected"}, {"<a b=\n'1'/>", "1: String or text expected"},
        {"<a b=/>", "1: String or text expected"}, {"<\xC3\xBC/>", "1: Text expected"},
        {"<a b\xFF=1/>", "1: \"=\" expected"}, {"<a b=\xFF/>", "1: String or text expected"},
        {"<a></A>", "1: Missing closing tag for a"}, {"<a></ab>", "1: Missing closing tag for a"},
        {"<ab></a>", "1: Missing closing tag for ab"}, {"<a>x<b/></a>", "1: Missing closing tag for a"},
        {"<a>\n<b>\n<c>\n</b></a>", "4: Missing closing tag for c"},
        {"<a>\n<b/>\n\n\nx</a>", "3: Missing closing tag for a"},
        {"<a>\n\n<b>\n</b>\n\n</c>\n</a>", "4: Missing closing tag for a"}, {"<\0a/>"s, "1: Text expected"},
        {"<a\0/>"s, "1: \">\" expected"}, {"<a>x\0y</a>"s, "1: Missing closing tag for a"},
        {"<!-- \0--><a/>"s, "1: Unterminated comment"}, {"<a v=\"1\0\"/>"s, "1: \">\" expected"},
        {"<a v=\"&lt\0;\"/>"s, "1: \">\" expected"}, {"<!-- ---\n>", "2: Unterminated comment"},
        {"<!--->", "1: Unterminated comment"}, {"<!-- ----><a/>", "1: Unterminated comment"},
        {"<?x?\?>\n<a/>", "2: Unterminated comment"}, {"<?>", "1: Unterminated comment"},
        {"<!DOCTYPE a><a/>", "1: Comment expected"}, {"<!\n", "2: Comment expected"},
        {"<a>\n<![CDATA[x]]></a>", "2: Comment expected"}, {"<!-\n-", "2: Comment expected"},
        {"<a>x<!-- -->y</a>", "1: Missing closing tag for a"},
        {"<a>\"x\"y</a>", "1: Missing closing tag for a"},
    };
    for (const auto& [content, expected] : rows) EXPECT_EQ(outcome(content), expected) << content;
    for (const char noName : "-^[`;@{\x85\xA0\xE4"s)
        EXPECT_EQ(outcome("<a"s + noName + "/>"), "1: \">\" expected") << noName;
}

TEST(XmlParser, TellsWhatIsMissingWhereverTheInputEnds)
{
    const Row pieces[] = { // the outcome when the input ends at any place within or behind the piece
        {"<", "1: Text expected"}, {"?x?", "1: Unterminated comment"}, {">\n", "empty"},
        {"<", "2: Text expected"}, {"!-", "2: Comment expected"}, {"-c--", "2: Unterminated comment"},
        {">\n", "empty"}, {"<", "3: Text expected"}, {"root ", "3: \">\" expected"},
        {"b ", "3: \"=\" expected"}, {"= ", "3: String or text expected"}, {"\"1&lt;\"", "3: \">\" expected"},
        {">", "3: Missing closing tag for root"}, {"\n", "4: Missing closing tag for root"},
        {"<", "4: Text expected"}, {"c ", "4: \">\" expected"}, {"d", "4: \"=\" expected"},
        {"=", "4: String or text expected"}, {"e/", "4: \">\" expected"},
        {">", "4: Missing closing tag for root"}, {"\n", "5: Missing closing tag for root"},
        {"<", "5: Text expected"}, {"t", "5: \">\" expected"}, {">text", "5: Missing closing tag for t"},
        {"</", "5: Text expected"}, {"t ", "5: \">\" expected"}, {">", "5: Missing closing tag for root"},
        {"</", "5: Text expected"}, {"root", "5: \">\" expected"},
        {">\nany", "root(b=1<){c(d=e)@5}{t[text]@5}@5"},
    };
    std::string content;
    for (const auto& [piece, expected] : pieces)
        for (const char c : piece) EXPECT_EQ(outcome(content += c), expected) << content;
}
// clang-format on

TEST(XmlParser, TakesAnyNumberOfAttributes)
{
    std::string content = "<a";
    for (int i = 299999; i >= 100000; --i)
        content += " n" + std::to_string(i) + "=1 twice=" + std::to_string(i);
    XmlDoc doc;
    doc.setContent(content + "/>", "s");
    EXPECT_EQ(doc.getChild()->attributes.size(), 200001U);
    EXPECT_EQ(doc.getChild()->findAttrInt("twice", 0), 100000);
}

TEST(XmlLexer, DeliversCharactersAndSymbols)
{
    StringLexer characters("a\n\rb", "s");
    for (const char expected : " a\n\rb\0\0"s) {
        EXPECT_EQ(characters.current(), expected);
        characters.getNextChar();
    }
    EXPECT_EQ(characters.line(), 2U);

    StringLexer lexer("!a-b a-b<\"x\"/=>?\"&foo", "s");
    lexer.skipUntil(""); // one character
    const int expected[] = {symUnknown, symWord,   symUnknown,  symWord,    symTagOpen, symString,
                            symSlash,   symEquals, symTagClose, symUnknown, symString,  symEnd};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(lexer.getNextSymbol(i != 3), expected[i]) << i;
    EXPECT_EQ(lexer.text(), "&foo;") << "a reference that the input cuts off";
}
