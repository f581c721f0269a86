#include "error.h"

namespace {

std::string xmlMessage(const std::string& text, const std::string& location, int line)
{
    std::string result = location;
    if (line >= 0) result += " line " + std::to_string(line);
    if (!result.empty()) result += ": ";
    return result + text;
}

} // namespace

Error::Error(const std::string& text, const std::string& caption)
    : message(text)
    , title(caption)
{
}

FormatError::FormatError(const std::string& text, const std::string& fileName)
    : Error(fileName + ": " + text, "Format Error")
{
}

IOError::IOError(const std::string& text)
    : Error(text, "I/O error")
{
}

FileOpenError::FileOpenError(const std::string& fileName, bool forWriting)
    : IOError("Can't open file\n" + fileName + (forWriting ? "\nfor writing" : "\nfor reading"))
{
}

OomError::OomError(const std::string& text)
    : Error(text, "Out of memory")
{
}

XmlError::XmlError(const std::string& text, const std::string& location, int line)
    : Error(xmlMessage(text, location, line), "XML Error")
{
}

// Out of line, so that each class has one vtable and one type_info, in this library: an exception is then
// caught by its type across module borders.
Error::~Error() = default;
FormatError::~FormatError() = default;
IOError::~IOError() = default;
FileOpenError::~FileOpenError() = default;
OomError::~OomError() = default;
XmlError::~XmlError() = default;
