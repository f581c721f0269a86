#pragma once

#include <string>
#include <vector>
#include <vorelutil/platform/export.h>

/// Readers for the four kinds of file that `FrameBuffer` writes.
///
/// They accept what the writers write, and little else: every header line, in order, with its exact caption;
/// counts that agree with the size of the file, and nothing behind the last value. Numbers are integers or
/// decimal numbers within the range of a double, without blanks or a plus sign, with a decimal point in every
/// locale; a sample value may also be "inf", "-inf", "nan" or "-nan". Lines of a text file end in "\n" or all
/// in "\r\n", also the last one; only rows of a matrix may have 65536 bytes and more. Time stamps have the
/// writers' shape or are empty; unit and channel texts may be any bytes but NUL, so that a channel with a
/// line break in it does not read back.
///
/// All or nothing: a file that is damaged, cut short or too long throws `FormatError` with the reason (for
/// text with the line: "area.asc: line 4: pixel count expected"), and nothing of it is returned. A file that
/// does not open throws `FileOpenError`, a failed read `IOError` ("Can't read file\n", the path, ": " and the
/// system's reason), want of memory `OomError`. A log or line export that ends behind a whole line cannot be
/// told from a complete one.
///
/// A file is read in blocks and parsed as it comes; nothing is read on behind the first thing that is wrong,
/// or much behind the last value. Memory is at most about twelve times what was read, whatever the header
/// says; a binary snapshot takes twice the file's size, reserved at once when that size is right. No state:
/// any thread.

/// The kinds of file, by the writer: `saveFrameAsc`, `saveFrameBcr`, `saveLineCsv`, and `startPermCsv` or
/// `saveSimpleCsv`.
enum class FrameFileFormat
{
    Asc,     ///< text image snapshot
    Bcr,     ///< binary image snapshot
    LineCsv, ///< two-column line export
    PermCsv  ///< running log
};

/// An image snapshot. Lengths and offsets are in the x/y unit, values in the z unit, without prefix.
struct FrameImage
{
    int xPixels = 0; ///< 1 and more
    int yPixels = 0; ///< 1 and more
    double xLength = 0;
    double yLength = 0;
    double xOffset = 0; ///< of the centre
    double yOffset = 0; ///< of the centre
    std::string xUnit;  ///< UTF-8
    std::string yUnit;
    std::string zUnit;
    int scanSpeed = 0;         ///< entry 0x2016 of the frame's metadata / 1000, rounded
    long long voidPixels = -1; ///< pixels without a sample; -1 in a text snapshot, which does not say
    std::string channel;       ///< empty in a binary snapshot
    std::string direction;     ///< "fwd" or "bwd"; empty in a binary snapshot
    std::string startTime; ///< local time: "2024-05-31T23:59:58", in a binary snapshot "31 05 24 23:59:58"
    /// xPixels * yPixels in row order. NaN is a void pixel of a binary snapshot, or a sample that is not a
    /// number.
    std::vector<double> values;
};

/// A line export: one row a sample. Positions are in the x unit, values in the y unit, without prefix.
struct FrameLine
{
    std::string channel;
    std::string startTime; ///< local time: "2024-05-31T23:59:58"
    std::string xUnit;     ///< UTF-8
    std::string yUnit;     ///< unit of the values
    int xPixels = 0; ///< as the header says: 2 for a line of one pixel; below 1 only where there are no rows
    std::vector<double> x; ///< positions; same length as `y`, may be empty
    std::vector<double> y; ///< values
};

/// A running log. One that is still open, or of a program that died, usually ends inside a line, and is
/// refused.
struct FrameLog
{
    std::string channel;
    std::string startTime;      ///< local time: "2024-05-31T23:59:58"
    std::string unit;           ///< UTF-8
    std::vector<double> values; ///< in the unit, without prefix; may be empty
};

/// Which kind of file it is, by its first line alone; `FormatError` ("not a frame file") when it is none.
VORELUTIL_EXPORT FrameFileFormat detectFrameFile(const std::string& path);

/// Reads a text image snapshot, with one value a line or as a matrix.
///
/// The pixel counts must be 1 or more and agree with the number of values; lengths and offsets are finite.
VORELUTIL_EXPORT FrameImage readFrameAsc(const std::string& path);

/// Reads a binary image snapshot.
///
/// The file must have 2048 bytes of header (lines end in "\n" alone; blanks and one line feed fill it up) and
/// 4 bytes a pixel; a regular file of another size is refused before any pixel is read. "voidpixels" is 0 or
/// more, less than the pixel count, and not more than there are void pixels in the data; it may be less,
/// since a sample may happen to look like a void pixel.
VORELUTIL_EXPORT FrameImage readFrameBcr(const std::string& path);

/// Reads a line export. It may have no row, and at most two rows a pixel of "x-pixels" (there and back).
VORELUTIL_EXPORT FrameLine readLineCsv(const std::string& path);

/// Reads a running log. It may have no value.
VORELUTIL_EXPORT FrameLog readPermCsv(const std::string& path);
