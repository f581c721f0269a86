#include <exception>
#include <gtest/gtest.h>
#include <tuple>
#include <vorelutil/trace/error.h>

namespace {

TEST(Error, TitlesAndMessages)
{
    const std::tuple<Error, const char*, const char*> rows[] = {
        {Error("what", "Caption"), "Caption", "what"},
        {FormatError("Not a valid bitfile", "x.bit"), "Format Error", "x.bit: Not a valid bitfile"},
        {IOError("disk gone"), "I/O error", "disk gone"},
        {FileOpenError("a.txt", true), "I/O error", "Can't open file\na.txt\nfor writing"},
        {FileOpenError("a.txt", false), "I/O error", "Can't open file\na.txt\nfor reading"},
        {OomError("too much"), "Out of memory", "too much"},
        {XmlError("Comment expected", "setup.xml", 12), "XML Error", "setup.xml line 12: Comment expected"},
        {XmlError("text", "setup.xml", 0), "XML Error", "setup.xml line 0: text"},
        {XmlError("text", "setup.xml", -1), "XML Error", "setup.xml: text"},
        {XmlError("names not complete", "", -1), "XML Error", "names not complete"},
        {XmlError("x", "", 3), "XML Error", " line 3: x"},
    };
    for (const auto& [error, title, message] : rows) {
        EXPECT_EQ(error.title, title);
        EXPECT_EQ(error.message, message);
    }
}

TEST(Error, IsCaughtByItsBasesAndNotAsAStandardException)
{
    const auto caughtBy = [](const auto& error) -> std::string {
        try {
            throw error;
        } catch (const std::exception&) {
            return "std::exception";
        } catch (const IOError&) {
            return "IOError";
        } catch (const Error&) {
            return "Error";
        }
    };
    EXPECT_EQ(caughtBy(FileOpenError("a.txt", true)), "IOError");
    EXPECT_EQ(caughtBy(FormatError("a", "b")), "Error");
    EXPECT_EQ(caughtBy(OomError("a")), "Error");
    EXPECT_EQ(caughtBy(XmlError("a", "b", 1)), "Error");
}

} // namespace
