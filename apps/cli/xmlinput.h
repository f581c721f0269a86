#pragma once

#include <string>
#include <vorelutil/xml/xmldoc.h>

namespace cli {

/// Reads a document, "-" from standard input, with a progress bar; 1 GiB at most. The root is there then.
/// Result: its text. Throws `FileOpenError`, `IOError`, `XmlError` ("Empty document", too), `FormatError`.
std::string readDocument(const std::string& name, XmlDoc* document);

} // namespace cli
