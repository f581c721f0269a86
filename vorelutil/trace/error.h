#pragma once

#include <string>
#include <vorelutil/platform/export.h>

/// The exceptions that the library throws where the caller must react: files, formats, XML, formulas, memory.
///
/// The family stands apart from the standard library's: `Error` has no base class and no `what()`, and a
/// handler for `std::exception` does not catch it. Throw by value, catch `Error&` or a subclass; show
/// `title` as the caption and `message` as the body of a message box. The destructor is the only virtual
/// operation. Composing a message fails only where the string cannot be made (`std::length_error`,
/// `std::bad_alloc`).
class VORELUTIL_EXPORT Error
{
public:
    /// Takes both texts as they are.
    Error(const std::string& text, const std::string& caption);
    virtual ~Error();
    Error(const Error&) = default;
    Error& operator=(const Error&) = default;

    std::string message; ///< what happened, composed from the caller's details
    std::string title;   ///< the kind of failure, one fixed text per class
};

/// A file, or a text, that is not of the format it should have. Title "Format Error".
class VORELUTIL_EXPORT FormatError : public Error
{
public:
    /// Message: the file name, ": ", the text ("x.bit: Not a valid bitfile").
    FormatError(const std::string& text, const std::string& fileName);
    ~FormatError() override;
    FormatError(const FormatError&) = default;
    FormatError& operator=(const FormatError&) = default;
};

/// A failed read or write. Title "I/O error".
class VORELUTIL_EXPORT IOError : public Error
{
public:
    /// Takes the message as it is.
    explicit IOError(const std::string& text);
    ~IOError() override;
    IOError(const IOError&) = default;
    IOError& operator=(const IOError&) = default;
};

/// A file that cannot be opened. It is an `IOError` and has its title.
class VORELUTIL_EXPORT FileOpenError : public IOError
{
public:
    /// Message: "Can't open file\n", the file name, then "\nfor writing" or "\nfor reading".
    FileOpenError(const std::string& fileName, bool forWriting);
    ~FileOpenError() override;
    FileOpenError(const FileOpenError&) = default;
    FileOpenError& operator=(const FileOpenError&) = default;
};

/// A buffer that cannot be allocated. Title "Out of memory".
class VORELUTIL_EXPORT OomError : public Error
{
public:
    /// Takes the message as it is.
    explicit OomError(const std::string& text);
    ~OomError() override;
    OomError(const OomError&) = default;
    OomError& operator=(const OomError&) = default;
};

/// A syntax error in an XML document. Title "XML Error".
class VORELUTIL_EXPORT XmlError : public Error
{
public:
    /// `location` is the name of what is being read, or empty; a negative `line` means that none is known.
    ///
    /// "setup.xml", 12: "setup.xml line 12: Comment expected". Neither known: the text alone. No line:
    /// "setup.xml: Comment expected". Kept: an empty location with a line leaves its blank in front,
    /// " line 3: x".
    XmlError(const std::string& text, const std::string& location, int line);
    ~XmlError() override;
    XmlError(const XmlError&) = default;
    XmlError& operator=(const XmlError&) = default;
};
