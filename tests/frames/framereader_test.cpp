#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <QTemporaryDir>
#include <string>
#include <vorelutil/frames/frameparser.h>
#include <vorelutil/frames/framereader.h>
#include <vorelutil/trace/error.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNan;
using namespace std::string_literals;

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

const std::string ascHeader =
    "# Vorel frame view snapshot\n# 2024-05-31T23:59:58\n# display:   channel Topo 1 bwd\n"
    "# x-pixels:  3\n# y-pixels:  2\n# x-length:  2e-06\n# y-length:  1.5\n"
    "# x-offset:  -0.25\n# y-offset:  0.125\n# x-unit:    m\n# y-unit:    s\n"
    "# z-unit:    V\n# scanspeed: -7\n# Start of Data:\n";
const std::string asc = ascHeader + "1\n-2.5\n1e-320\ninf\n-nan\n-0\n";
const std::string matrix = ascHeader + "1  2  3  \n4  5  6  \n";

const std::string bcrHeader =
    "fileformat = bcrf\nstarttime 31 05 24 23:59:58\nxpixels = 1\nypixels = 4\nxlength = 2e-06\n"
    "ylength = 1.5\nxoffset = -0.25\nyoffset = 0.125\nxunit = m\nyunit = s\nzunit = V\n"
    "scanspeed = 2\nvoidpixels = 1\nintelmode = 0\n";
const std::string bcrPixels = "\x3F\x80\0\0\x7F\0\0\0\xC0\x20\0\0\xFF\x80\0\0"s; // 1, void, -2.5, -inf

std::string filled(const std::string& header)
{
    return header + std::string(2047 - header.size(), ' ') + "\n";
}
const std::string bcr = filled(bcrHeader) + bcrPixels;

const std::string line =
    "# Vorel frameless snapshot\n# 2024-05-31T23:59:58\n# display:  channel Topo\n# x-pixels: 2\n"
    "# x-unit:   m\n# y-unit:   \xC2\xB0\x43\nX ; Y\n0 ; 1.5\n1e-06 ; inf\n";
const std::string dataLog = "# Vorel data log\n# 2024-05-31T23:59:58\n# display:   channel \n# unit:    V\n"
                            "# Start of Data:\n1\n-1e+30\n";

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

std::string withReturns(const std::string& text)
{
    std::string result;
    for (const char character : text) result += character == '\n' ? "\r\n"s : std::string(1, character);
    return result;
}

class FrameReader : public ::testing::Test
{
protected:
    std::string file(const std::string& content) const
    {
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    /// What the reader says about a file, without the file's name; empty when it takes it.
    template <typename Reader> std::string complaint(Reader reader, const std::string& content) const
    {
        try {
            reader(file(content));
            return "";
        } catch (const FormatError& error) {
            EXPECT_EQ(error.title, "Format Error");
            EXPECT_EQ(error.message.substr(0, path.size() + 2), path + ": ");
            return error.message.substr(path.size() + 2);
        }
    }

    QTemporaryDir folder;
    const std::string path = folder.filePath("frame").toStdString();
};

} // namespace

TEST_F(FrameReader, ReadsTextSnapshots)
{
    for (const std::string& content : {asc, withReturns(asc)}) {
        EXPECT_EQ(detectFrameFile(file(content)), FrameFileFormat::Asc);
        const FrameImage image = readFrameAsc(path);
        EXPECT_EQ(image.startTime + image.channel + image.direction, "2024-05-31T23:59:58Topo 1bwd");
        EXPECT_THAT((std::vector{image.xPixels, image.yPixels, image.scanSpeed, image.voidPixels}),
                    ElementsAre(3, 2, -7, -1));
        EXPECT_THAT((std::vector{image.xLength, image.yLength, image.xOffset, image.yOffset}),
                    ElementsAre(2e-6, 1.5, -0.25, 0.125));
        EXPECT_THAT((std::vector{image.xUnit, image.yUnit, image.zUnit}), ElementsAre("m", "s", "V"));
        EXPECT_THAT(image.values, ElementsAre(1, -2.5, 1e-320, inf, IsNan(), -0.0));
    }
    for (const std::string& content : {matrix, withReturns(matrix)}) {
        EXPECT_THAT(readFrameAsc(file(content)).values, ElementsAre(1, 2, 3, 4, 5, 6));
    }
    EXPECT_EQ(readFrameAsc(file(replaced(asc, "Topo 1 bwd", " fwd"))).channel, "");
    EXPECT_EQ(readFrameAsc(file(replaced(asc, "2024-05-31T23:59:58", ""))).startTime, "");
}

TEST_F(FrameReader, ReadsBinarySnapshots)
{
    EXPECT_EQ(detectFrameFile(file(bcr)), FrameFileFormat::Bcr);
    const FrameImage image = readFrameBcr(path);
    EXPECT_EQ(image.startTime + image.channel + image.direction, "31 05 24 23:59:58");
    EXPECT_THAT((std::vector{image.xPixels, image.yPixels, image.scanSpeed, image.voidPixels}),
                ElementsAre(1, 4, 2, 1));
    EXPECT_THAT((std::vector{image.xLength, image.yLength, image.xOffset, image.yOffset}),
                ElementsAre(2e-6, 1.5, -0.25, 0.125));
    EXPECT_THAT((std::vector{image.xUnit, image.yUnit, image.zUnit}), ElementsAre("m", "s", "V"));
    EXPECT_THAT(image.values, ElementsAre(1, IsNan(), -2.5, -inf));
    EXPECT_EQ(readFrameBcr(file(replaced(bcr, "voidpixels = 1", "voidpixels = 0"))).voidPixels, 0);
}

TEST_F(FrameReader, ReadsLinesAndLogs)
{
    for (const std::string& content : {line, withReturns(line)}) {
        EXPECT_EQ(detectFrameFile(file(content)), FrameFileFormat::LineCsv);
        const FrameLine read = readLineCsv(path);
        EXPECT_THAT((std::vector{read.startTime, read.channel, read.xUnit, read.yUnit}),
                    ElementsAre("2024-05-31T23:59:58", "Topo", "m", "\xC2\xB0\x43"));
        EXPECT_EQ(read.xPixels, 2);
        EXPECT_THAT(read.x, ElementsAre(0, 1e-6));
        EXPECT_THAT(read.y, ElementsAre(1.5, inf));
    }
    const std::string headerOnly = line.substr(0, line.find("0 ; 1.5"));
    EXPECT_THAT(readLineCsv(file(replaced(headerOnly, "x-pixels: 2", "x-pixels: -2147483648"))).x, IsEmpty());

    for (const std::string& content : {dataLog, withReturns(dataLog)}) {
        EXPECT_EQ(detectFrameFile(file(content)), FrameFileFormat::PermCsv);
        const FrameLog read = readPermCsv(path);
        EXPECT_EQ(read.startTime + read.channel + read.unit, "2024-05-31T23:59:58V");
        EXPECT_THAT(read.values, ElementsAre(1, -1e30));
    }
    EXPECT_THAT(readPermCsv(file(dataLog.substr(0, dataLog.find("1\n-1e")))).values, IsEmpty());
}

TEST_F(FrameReader, RejectsDamage)
{
    struct Row
    {
        const char* from; ///< replaced in a good file
        std::string to;
        const char* complaint;
    };
    // clang-format off
    const Row ascRows[] = {
        {"frame view", "frame", "not a text image snapshot"},     {"31T23", "31 23", "line 2: time expected"},
        {"1 bwd", "1 up", "line 3: direction expected"},          {"Topo", "To\0po"s, "line 3: NUL in a text"},
        {"Topo", "To\npo", "line 3: direction expected"},         {":  3", ":  0", "line 4: pixel count expected"},
        {":  3", ":  2147483648", "line 4: pixel count expected"}, {":  3", ":  3 ", "line 4: pixel count expected"},
        {":  3", ":  2147483647", "too short for its pixel counts"},
        {":  3\n# y-pixels:  2", ":  65536\n# y-pixels:  65536", "too short for its pixel counts"}, // 2^32
        {":  3\n# y-pixels:  2", ":  2147483647\n# y-pixels:  2147483647", "too short for its pixel counts"},
        {"y-pixels:  2", "y-pixels:  -2", "line 5: pixel count expected"},
        {"y-pixels:  2", "y-pixels:  3", "line 21: the file ends here"},
        {"y-pixels:  2", "y-pixels:  1", "data behind the last pixel"},
        {"2e-06", "2,5", "line 6: number expected"},              {"1.5", "inf", "line 7: number expected"},
        {"-0.25", "1e999", "line 8: number expected"},            {"0.125", "", "line 9: number expected"},
        {"x-unit:    ", "x-unit: ", "line 10: \"# x-unit:    \" expected"},
        {"d: -7", "d: 1.5", "line 13: integer expected"},         {"-2.5", "0x10", "line 16: value expected"},
        {"Data:", "Data: ", "line 14: \"# Start of Data:\" expected"},
        {"-2.5", "", "line 16: value expected"},                  {"-2.5", "infinity", "line 16: value expected"},
        {"-2.5", "\0"s, "line 16: value expected"},               {"-0\n", "-0", "line 20: the line is cut off"},
        {"-0\n", "-0\n\n", "data behind the last pixel"},
    };
    const Row matrixRows[] = {
        {"3  \n", "\n", "line 15: the row has too few values"},   {"6  \n", "6  ", "line 16: the line is cut off"},
        {"3  \n", "3  9  \n", "line 15: the row has too many values"},
        {"6  \n", "6 \n", "line 16: the row has too few values"}, {"5  6", "5   6", "line 16: value expected"},
        {"6  \n", "6  \n7", "data behind the last pixel"},
    };
    const Row bcrRows[] = {
        {"bcrf\n", "bcrf \n", "not a binary image snapshot"},     {"31 05", "31-05", "line 2: time expected"},
        {"bcrf\n", "bcrf\r\n", "line 1: \"fileformat = bcrf\" expected"},
        {"xpixels = 1", "xpixels = 0", "line 3: pixel count expected"},
        {"xpixels = 1", "xpixels = 2", "too short for its pixel counts"},
        {"1\nypixels = 4", "2147483647\nypixels = 2147483647", "too short for its pixel counts"},
        {"ypixels = 4", "ypixels = 3", "data behind the last pixel"},
        {"xlength = 2e-06", "xlength = nan", "line 5: number expected"},
        {"scanspeed = 2", "scanspeed = 99999999999", "line 12: integer expected"},
        {"ls = 1\ni", "ls = -1\ni", "line 13: as many void pixels cannot be"},
        {"ls = 1\ni", "ls = 4\ni", "line 13: as many void pixels cannot be"},
        {"ls = 1\ni", "ls = 2\ni", "fewer void pixels than the header says"},
        {"mode = 0", "mode = 1", "line 14: \"intelmode = 0\" expected"},
        {"mode = 0\n", "mode = 0\nx", "line 15: blanks expected"},
        {"mode = 0\n", "mode = 0\n\n", "line 15: blanks expected"},
    };
    const Row lineRows[] = {
        {"frameless", "frame", "not a line export"},              {"s: 2", "s: two", "line 4: integer expected"},
        {"s: 2", "s: 0", "more rows than its pixel count allows"}, {"X ;", "X;", "line 7: \"X ; Y\" expected"},
        {"0 ; 1.5", "0;1.5", "line 8: two values expected"},      {"1.5", "1.5 ; 2", "line 8: value expected"},
        {"; inf\n", "; inf", "line 9: the line is cut off"},
    };
    const Row logRows[] = {
        {"log\n", "log", "not a data log"},
        {"unit:    V", "unit:", "line 4: \"# unit:    \" expected"},
        {":\n1\n", ":\n1 \n", "line 6: value expected"},          {"+30\n", "+3", "line 7: the line is cut off"},
    };
    // clang-format on
    const auto check = [this](const auto& rows, auto reader, const std::string& good) {
        for (const Row& row : rows) {
            const std::string content = replaced(good, row.from, row.to);
            EXPECT_EQ(complaint(reader, content), row.complaint) << row.from << " -> " << row.to;
        }
    };
    check(ascRows, readFrameAsc, asc);
    check(matrixRows, readFrameAsc, matrix);
    check(lineRows, readLineCsv, line);
    check(logRows, readPermCsv, dataLog);
    for (const Row& row : bcrRows) {
        EXPECT_EQ(complaint(readFrameBcr, filled(replaced(bcrHeader, row.from, row.to)) + bcrPixels),
                  row.complaint);
    }
}

TEST_F(FrameReader, RejectsEveryTruncation)
{
    for (std::size_t size = 0; size < asc.size(); ++size) {
        EXPECT_THROW(frameparser::parseAsc(asc.substr(0, size), path), FormatError) << size;
    }
    for (std::size_t size = 0; size < bcr.size(); ++size) {
        EXPECT_THROW(frameparser::parseBcr(bcr.substr(0, size), path), FormatError) << size;
    }
    EXPECT_EQ(complaint(readFrameBcr, bcr + '\0'), "data behind the last pixel");
}

TEST_F(FrameReader, SaysWhyAFileCannotBeRead)
{
    EXPECT_EQ(complaint(detectFrameFile, ""), "not a frame file");
    EXPECT_EQ(complaint(detectFrameFile, "# Vorel data logs\n"), "not a frame file");
    for (const std::string& missing : {path + "/none", folder.path().toStdString(), ""s}) {
        try {
            readPermCsv(missing);
            ADD_FAILURE() << missing;
        } catch (const FileOpenError& error) {
            EXPECT_EQ(error.message, "Can't open file\n" + missing + "\nfor reading");
        }
    }
    EXPECT_THROW(readFrameBcr("/dev/zero"), FormatError); // endless, but of another kind
}
