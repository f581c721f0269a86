#include <exception>
#include <gtest/gtest.h>
#include <tuple>
#include <type_traits>
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

static_assert(std::is_base_of_v<IOError, FileOpenError> && std::is_base_of_v<Error, IOError> &&
              std::is_base_of_v<Error, FormatError> && std::is_base_of_v<Error, OomError> &&
              std::is_base_of_v<Error, XmlError> && std::has_virtual_destructor_v<Error> &&
              !std::is_base_of_v<std::exception, Error>);

} // namespace
