#include <gtest/gtest.h>
#include <vorelutil/trace/error.h>

namespace {

TEST(Error, TitlesAndMessages)
{
    // clang-format off
    const std::pair<Error, const char*> rows[] = {
        {Error("what", "Caption"), "Caption|what"}, {OomError("too much"), "Out of memory|too much"},
        {FormatError("Not a valid bitfile", "x.bit"), "Format Error|x.bit: Not a valid bitfile"},
        {IOError(FileOpenError("a.txt", true)), "I/O error|Can't open file\na.txt\nfor writing"},
        {FileOpenError("a.txt", false), "I/O error|Can't open file\na.txt\nfor reading"},
        {XmlError("Comment expected", "setup.xml", 12), "XML Error|setup.xml line 12: Comment expected"},
        {XmlError("text", "a.xml", 0), "XML Error|a.xml line 0: text"}, {XmlError("x", "", 3), "XML Error| line 3: x"},
        {XmlError("text", "a.xml", -1), "XML Error|a.xml: text"}, {XmlError("x", "", -1), "XML Error|x"}};
    // clang-format on
    for (const auto& [error, text] : rows) EXPECT_EQ(error.title + "|" + error.message, text);
}

} // namespace
