#pragma once

#include "framereader.h"
#include "linereader.h"

#include <string>

/// The readers of framereader.h on any source of bytes; `fileName` is for the messages only.
///
/// They throw `FormatError`, what the source throws and, for want of memory, `std::bad_alloc`.
namespace frameparser {

FrameImage parseAsc(Source& source, const std::string& fileName);
FrameImage parseBcr(Source& source, const std::string& fileName);
FrameLine parseLineCsv(Source& source, const std::string& fileName);
FrameLog parsePermCsv(Source& source, const std::string& fileName);

} // namespace frameparser
