#pragma once

#include <string_view>
#include <vector>

namespace descriptions {

/// The lines on which the start tags of the children of a document's root begin, in their order; lines count
/// from 1.
///
/// The parser notes where it was after a tag, which is the next line as a rule. `source` must be a document
/// that it accepts; of any other the result means nothing.
std::vector<int> childLines(std::string_view source);

} // namespace descriptions
