#pragma once

#include "framereader.h"

#include <string>
#include <string_view>

/// The readers of framereader.h on the content of a file; `fileName` is for the messages only.
///
/// They throw `FormatError` and, for want of memory, `std::bad_alloc`.
namespace frameparser {

/// The first line of each kind of file, without its line end.
inline constexpr std::string_view ascTitle = "# Vorel frame view snapshot";
inline constexpr std::string_view bcrTitle = "fileformat = bcrf";
inline constexpr std::string_view lineCsvTitle = "# Vorel frameless snapshot";
inline constexpr std::string_view permCsvTitle = "# Vorel data log";

/// Whether the content begins with `title` as a whole line.
bool hasTitle(std::string_view content, std::string_view title);

FrameImage parseAsc(std::string_view content, const std::string& fileName);
FrameImage parseBcr(std::string_view content, const std::string& fileName);
FrameLine parseLineCsv(std::string_view content, const std::string& fileName);
FrameLog parsePermCsv(std::string_view content, const std::string& fileName);

} // namespace frameparser
