#include "tests/support/germanlocale.h"
#include "tests/support/require.h"

#include <climits>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <string>
#include <vorelutil/algo/scan.h>
#include <vorelutil/trace/error.h>
#include <vorelutil/xml/xmldoc.h>

using namespace std::string_literals;

namespace {

const std::string declaration = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n";

/// The message of the error that `work` throws; empty when it throws none.
std::string errorOf(const std::function<void()>& work)
{
    try {
        work();
        return {};
    } catch (const Error& error) {
        return error.message;
    }
}

// clang-format off
TEST(XmlNode, NumbersAreReadAndWrittenInAnyLocale)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    const std::string zeros(31, '0'), ones(99, '1');
    const struct { std::string text; int whole; double number; } rows[] = {
        {" \t\n\v\f\r0x1F", 31, 31}, {" \t\n\v\f\r0b101", 5, 0}, {"-7", -7, -7}, {"+7", 7, 7}, {"0X1F", 0, 31}, {"abc", 42, 42},
        {"", 42, 42}, {"12abc", 12, 12}, {" \t\n\v\f\r9", 9, 9}, {"0x", 0, 42}, {"0xg", 0, 42}, {"0x 1F", 31, 42},
        {"0x-1", -1, 42}, {"0x0x1F", 31, 0}, {"0xFFFFFFFF", -1, 4294967295}, {"0x80000000", INT_MIN, 2147483648},
        {"-0x1F", 0, -31}, {"0x123456789", 0x23456789, 4886718345}, {"0b", 0, 0}, {"0b2", 0, 0}, {"0B1", 0, 0},
        {"0xFFFFFFFFFFFFFFFFF", -1, 295147905179352825855.0}, {"2147483648", INT_MIN, 2147483648},
        {"99999999999999999999", -1, 1e20}, {"-99999999999999999999", 0, -1e20}, {"- 5", 42, 42}, {"1.000", 1, 1},
        {"\xA0" "5", 42, 42}, {"\0" "5"s, 42, 42}, {"6\0" "5"s, 6, 6}, {"1e-3", 1, 0.001}, {"0.5", 0, 0.5}, {"0,5", 0, 0},
        {"-inf", 42, -HUGE_VAL}, {"0x1p3", 1, 8}, {"1e999", 1, HUGE_VAL}, {".", 42, 42},
        {"0b1" + zeros, INT_MIN, 0}, {"0b10" + zeros, 0, 0}, {"0b" + ones + "0", -1, 0}, {"0b 1", 0, 0},
        {"0b" + std::string(98, '0') + "11", 1, 0}};
    const std::pair<double, const char*> written[] = {
        {0.5, "0.5"}, {1234567, "1.23457e+06"}, {1e5, "100000"}, {1e-5, "1e-05"}, {-0.0, "-0"}, {HUGE_VAL, "inf"}};
    XmlDocNode node("n", nullptr, "f", 1);
    EXPECT_EQ(node.findAttrInt("a", 42) + node.findAttrDbl("a", 42), 84);
    for (const auto& row : rows) {
        node.addAttr("a", row.text);
        EXPECT_EQ(node.findAttrInt("a", 42), row.whole) << row.text;
        EXPECT_EQ(node.findAttrDbl("a", 42), row.number) << row.text;
    }
    for (const auto& [number, text] : written) {
        node.addAttr("a", number);
        EXPECT_EQ(node.findAttr("a", "none"), text);
    }
    int value = INT_MIN;
    EXPECT_FALSE(algoScanBinary("0b", &value) || algoScanBinary(nullptr, &value));
    node.addAttr("a", value);
    EXPECT_EQ(node.findAttr("a", "none"), "-2147483648");
}

TEST(XmlNode, LooksUpTextsAndChildren)
{
    XmlDocNode node("n", nullptr, "f", 1);
    node.addAttr("empty", "");
    node.addAttr("n\xC3\xA4", "16\0\xE2\x82\xAC"s); // UTF-8
    EXPECT_EQ(node.findAttr("empty", "d") + node.findAttr("Empty", "default"), "default");
    EXPECT_EQ(node.FindAttr(QStringLiteral("n\u00E4"), ""), QStringLiteral("16\0\u20AC"));
    EXPECT_EQ(node.FindAttr("none", QStringLiteral("\u00DF")), QStringLiteral("\u00DF"));
    EXPECT_EQ(node.FindAttrInt(QStringLiteral("n\u00E4"), 1), 16);

    XmlDocNode* child[5];
    for (int i = 0; i < 5; ++i) child[i] = new XmlDocNode(i % 2 == 0 ? "a" : "b", &node, "f", i);
    const XmlDocNode stranger("a", nullptr, "f", 1);
    const std::pair<const XmlDocNode*, XmlDocNode*> rows[] = {{nullptr, child[0]},  {child[0], child[2]},
                                                              {child[1], child[2]}, {child[2], child[4]},
                                                              {child[4], nullptr},  {&stranger, nullptr}};
    for (const auto& [after, found] : rows) EXPECT_EQ(node.findNode("a", after), found);
    EXPECT_EQ(node.findNode("A"), nullptr);

    node.addChild(child[1]);
    EXPECT_EQ(node.children.size(), 6U);
    for (int i = 0; i < 2; ++i) { // the second time it is in there no more
        node.removeChild(child[1]);
        EXPECT_EQ(node.children, (std::list<XmlDocNode*>{child[0], child[2], child[3], child[4]}));
    }
    child[0]->addChild(child[1]);
    node.deleteChildren();
    EXPECT_TRUE(node.children.empty());
}

TEST(XmlNode, TranslatesUpToAZeroByte)
{
    const std::string x(4095, 'x'); // long enough for more than one piece
    std::string escapes;
    for (int i = 0; i < 4097; ++i) escapes += "&quot;";
    const std::pair<std::string, std::string> rows[] = {
        {"a\"b&c<d>e'f\xE4", "a&quot;b&amp;c&lt;d&gt;e'f\xE4"}, {"a<\0<b"s, "a&lt;"}, {"\0"s, ""}, {"", ""},
        {"&amp;", "&amp;amp;"}, {std::string(4097, '"'), escapes}, {x + "<<" + x, x + "&lt;&lt;" + x},
        {x + "<\0"s + x + x, x + "&lt;"}};
    for (const auto& [text, translated] : rows) EXPECT_EQ(XmlDocNode::translate(text), translated);
}

TEST(XmlDoc, WritesEveryByteAsItStands)
{
    const struct { const char *content, *compact, *indented; } rows[] = {
        {"<r a=\"x&lt;y\"/>", "<r a=\"x&lt;y\"/>", "<r a=\"x&lt;y\"/>"}, {"<r></r>", "<r/>", "<r/>"},
        {"<r b=2 a=1 _=0 Z=3 b=4><c/><d> t </d></r>", "<r Z=\"3\" _=\"0\" a=\"1\" b=\"4\"><c/><d>t </d></r>",
         "<r Z=\"3\" _=\"0\" a=\"1\" b=\"4\">\n  <c/>\n  <d>t \n  </d>\n</r>"},
        {"<r>t\n</r>", "<r>t\n</r>", "<r>t\n\n</r>"}};
    for (const auto& row : rows) {
        XmlDoc doc;
        doc.setContent(row.content, "s");
        EXPECT_EQ(doc.write(false), declaration + row.compact);
        EXPECT_EQ(doc.write(true), declaration + row.indented);
    }
    // Built in code: text behind children, bytes above 127 behind ASCII, a text that is not escaped.
    XmlDocNode root("r", nullptr, "", 0);
    root.text = "<&";
    (new XmlDocNode("c", &root, "", 0))->addChild(new XmlDocNode("d", nullptr, "", 0));
    root.addAttr("\xC4", "\xE4");
    root.addAttr("z", 1);
    const std::string start = "<r z=\"1\" \xC4=\"\xE4\">", compact = start + "<c><d/></c><&</r>";
    const std::pair<int, std::string> levels[] = {
        {2, "\n    " + start + "\n      <c>\n        <d/>\n      </c><&\n    </r>"}, {-2, compact},
        {-1, start + "<c>\n  <d/>\n</c><&</r>"}, {XmlDocNode::unindented, compact}, {INT_MIN, compact}};
    for (const auto& [level, text] : levels) {
        std::string out;
        out.reserve(9000);
        const char* const memory = out.append(5000, '.').data();
        root.write(out, level);
        EXPECT_EQ(out, std::string(5000, '.') + text) << level;
        EXPECT_EQ(out.data(), memory) << "what was there before is no reason to grow";
    }
}

TEST(XmlDoc, KeepsTheOldTreeUntilTheFirstTagIsReadAndClosesTheFile)
{
    const QTemporaryDir folder;
    const std::string path = folder.filePath("d.xml").toStdString();
    XmlDoc doc;
    const auto root = [&] { return doc.getChild() != nullptr ? doc.getChild()->name : ""; };
    using Files = std::filesystem::directory_iterator;
    const auto openFiles = [] { return std::distance(Files("/proc/self/fd"), Files()); };
    const auto openAtFirst = openFiles();
    doc.setContent("<old/>", "s");
    for (const std::string& name : {path, folder.path().toStdString(), ""s})
        EXPECT_EQ(errorOf([&] { doc.readFile(name); }), "Can't open file\n" + name + "\nfor reading");
    EXPECT_EQ(root(), "old");
    // The error, behind the source's name, and the root's name then.
    const struct { std::string content, error, root; } rows[] = {
        {"<a x/>", " line 1: \"=\" expected", "old"}, {"<", " line 1: Text expected", "old"},
        {"<a>\n<b></a>", " line 2: Missing closing tag for b", ""}, {"", "", ""}, {"only text", "", ""},
        {"<?xml?>\r\n<a>\r\n<b/>\r\n</a>", "", "a"}, {"<a/><b", "", "a"}, {"\0<a/>"s, "", ""}};
    for (const auto& row : rows) {
        std::ofstream(path, std::ios::binary) << row.content;
        for (const bool fromFile : {false, true}) {
            doc.setContent("<old/>", "s");
            const auto read = [&] { fromFile ? doc.readFile(path) : doc.setContent(row.content, path); };
            EXPECT_EQ(errorOf(read), row.error.empty() ? "" : path + row.error) << row.content;
            EXPECT_EQ(root(), row.root) << row.content;
        }
    }
    EXPECT_EQ(errorOf([&] { doc.readFile("/proc/self/mem"); }) + root(), "") << "reading fails at once";
    EXPECT_EQ(openFiles(), openAtFirst);
}

TEST(XmlDoc, ReplacesTheTreeThatItsArgumentsAreTakenFrom)
{
    XmlDoc doc;
    doc.setChild(new XmlDocNode("a", nullptr, "source", 1));
    doc.getChild()->text = "<b/>";
    doc.setChild(doc.getChild());
    doc.setContent(doc.getChild()->text, doc.getChild()->file);
    EXPECT_EQ(doc.getChild()->name + doc.getChild()->file, "bsource");
    doc.setChild(nullptr);
    EXPECT_EQ(errorOf([&] { doc.write(false); }), "Empty document");
}
// clang-format on

// Deeper than the level of compact writing is below zero, and longer than the blocks that files are read in.
TEST(XmlDoc, NoDepthIsTooDeep)
{
    const QTemporaryDir folder;
    const std::string path = folder.filePath("deep.xml").toStdString();
    std::string content = declaration;
    for (int i = 0; i < 1000100; ++i) content += "<a>";
    XmlDoc doc;
    EXPECT_EQ(errorOf([&] { doc.setContent(content + "</b>", "s"); }), "s line 2: Missing closing tag for a");
    content += "<a/>";
    for (int i = 0; i < 1000100; ++i) content += "</a>";
    std::ofstream(path, std::ios::binary) << content;
    for (const bool fromFile : {false, true}) {
        fromFile ? doc.readFile(path) : doc.setContent(content, "s");
        EXPECT_TRUE(doc.write(false) == content);
    }
}

} // namespace
