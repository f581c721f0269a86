#pragma once

#include <cstddef>
#include <cstdint>

/// What the writers and the readers of frame files must agree on. The pages in docs/formats/ describe the
/// files.
///
/// A caption stands at the beginning of its line, and the value follows at once.
namespace fileformat {

/// The text image snapshot.
namespace asc {
inline constexpr char title[] = "# Vorel frame view snapshot";
inline constexpr char time[] = "# ";
inline constexpr char channel[] = "# display:   channel "; ///< a blank and the direction behind it
inline constexpr char xPixels[] = "# x-pixels:  ";
inline constexpr char yPixels[] = "# y-pixels:  ";
inline constexpr char xLength[] = "# x-length:  ";
inline constexpr char yLength[] = "# y-length:  ";
inline constexpr char xOffset[] = "# x-offset:  ";
inline constexpr char yOffset[] = "# y-offset:  ";
inline constexpr char xUnit[] = "# x-unit:    ";
inline constexpr char yUnit[] = "# y-unit:    ";
inline constexpr char zUnit[] = "# z-unit:    ";
inline constexpr char scanSpeed[] = "# scanspeed: ";
inline constexpr char dataStart[] = "# Start of Data:";
inline constexpr char separator[] = "  "; ///< behind each value of the matrix form, the last of a row too
} // namespace asc

/// The binary image snapshot: a text header, then one big-endian single-precision value a pixel.
namespace bcr {
inline constexpr std::size_t headerSize = 2048; ///< filled up with blanks; the last byte is a line feed
inline constexpr std::uint32_t voidPixel = 0x7F000000; ///< the bits of a pixel without a sample
inline constexpr char title[] = "fileformat = bcrf";
inline constexpr char time[] = "starttime ";
inline constexpr char xPixels[] = "xpixels = ";
inline constexpr char yPixels[] = "ypixels = ";
inline constexpr char xLength[] = "xlength = ";
inline constexpr char yLength[] = "ylength = ";
inline constexpr char xOffset[] = "xoffset = ";
inline constexpr char yOffset[] = "yoffset = ";
inline constexpr char xUnit[] = "xunit = ";
inline constexpr char yUnit[] = "yunit = ";
inline constexpr char zUnit[] = "zunit = ";
inline constexpr char scanSpeed[] = "scanspeed = ";
inline constexpr char voidPixels[] = "voidpixels = ";
inline constexpr char byteOrder[] = "intelmode = 0"; ///< big-endian
} // namespace bcr

/// The two-column line export.
namespace line {
inline constexpr char title[] = "# Vorel frameless snapshot";
inline constexpr char time[] = "# ";
inline constexpr char channel[] = "# display:  channel ";
inline constexpr char xPixels[] = "# x-pixels: ";
inline constexpr char xUnit[] = "# x-unit:   ";
inline constexpr char yUnit[] = "# y-unit:   ";
inline constexpr char columns[] = "X ; Y";
inline constexpr char separator[] = " ; ";
} // namespace line

/// The running log.
namespace log {
inline constexpr char title[] = "# Vorel data log";
inline constexpr char time[] = "# ";
inline constexpr char channel[] = "# display:   channel ";
inline constexpr char unit[] = "# unit:    ";
inline constexpr char dataStart[] = "# Start of Data:";
} // namespace log

} // namespace fileformat
