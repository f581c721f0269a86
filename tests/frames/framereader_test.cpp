#include "buffers.h"

#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <QString>
#include <QTemporaryDir>
#include <tests/support/files.h>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <vorelutil/frames/frameparser.h>
#include <vorelutil/trace/error.h>

using frameparser::MemorySource;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNan;
using namespace std::string_literals;

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

// clang-format off
const std::string ascHeader =
    "# Vorel frame view snapshot\n# 2024-05-31T23:59:58\n# display:   channel Topo 1 bwd\n# x-pixels:  3\n"
    "# y-pixels:  2\n# x-length:  2e-06\n# y-length:  1.5\n# x-offset:  -0.25\n# y-offset:  0.125\n# x-unit:    m\n"
    "# y-unit:    s\n# z-unit:    V\n# scanspeed: -7\n# Start of Data:\n";
const std::string asc = ascHeader + "1\n-2.5\n1e-320\ninf\n-nan\n-0\n";
const std::string matrix = ascHeader + "1  2  3  \n4  5  6  \n";

const std::string bcrHeader =
    "fileformat = bcrf\nstarttime 31 05 24 23:59:58\nxpixels = 1\nypixels = 4\nxlength = 2e-06\nylength = 1.5\n"
    "xoffset = -0.25\nyoffset = 0.125\nxunit = m\nyunit = s\nzunit = V\nscanspeed = -7\nvoidpixels = 1\nintelmode = 0\n";
const std::string bcrPixels = "\x3F\x80\0\0\x7F\0\0\0\xC0\x20\0\0\xFF\x80\0\0"s; // 1, void, -2.5, -inf

std::string filled(const std::string& header)
{
    return header + std::string(2047 - header.size(), ' ') + "\n";
}
const std::string bcr = filled(bcrHeader) + bcrPixels;

const std::string lineHeader =
    "# Vorel frameless snapshot\n# 2024-05-31T23:59:58\n# display:  channel Topo\n# x-pixels: 2\n"
    "# x-unit:   m\n# y-unit:   \xC2\xB0\x43\nX ; Y\n";
const std::string line = lineHeader + "0 ; 1.5\n1e-06 ; inf\n";
const std::string logHeader =
    "# Vorel data log\n# 2024-05-31T23:59:58\n# display:   channel \n# unit:    V\n# Start of Data:\n";
const std::string dataLog = logHeader + "1\n-1e+30\n";
// clang-format on

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    return text.replace(text.find(from), from.size(), to); // throws where there is no such text
}

std::string withReturns(const std::string& text)
{
    return QString::fromUtf8(text.c_str()).replace("\n", "\r\n").toStdString();
}

class FrameReader : public ::testing::Test
{
protected:
    const std::string& file(const std::string& content) const
    {
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    /// The message of the format error (without the file's name in front) or I/O error that a call throws.
    template <typename Call> std::string complaint(Call call) const
    {
        try {
            call();
        } catch (const FormatError& error) {
            EXPECT_EQ(error.message.substr(0, path.size() + 2), path + ": ");
            return error.message.substr(path.size() + 2);
        } catch (const IOError& error) {
            return error.message;
        }
        return "";
    }

    QTemporaryDir folder;
    const std::string path = folder.filePath("frame").toStdString();
};

void expectHeader(const FrameImage& image, int xPixels, int yPixels, int voidPixels)
{
    EXPECT_THAT((std::vector<long long>{image.xPixels, image.yPixels, image.voidPixels, image.scanSpeed}),
                ElementsAre(xPixels, yPixels, voidPixels, -7));
    EXPECT_THAT((std::vector{image.xLength, image.yLength, image.xOffset, image.yOffset}),
                ElementsAre(2e-6, 1.5, -0.25, 0.125));
    EXPECT_EQ(image.xUnit + image.yUnit + image.zUnit, "msV");
}

} // namespace

// clang-format off

TEST_F(FrameReader, ReadsTextsWithBothLineEnds)
{
    for (const bool returns : {false, true}) {
        const auto text = [returns](const std::string& good) { return returns ? withReturns(good) : good; };
        EXPECT_EQ(detectFrameFile(file(text(asc))), FrameFileFormat::Asc);
        const FrameImage image = readFrameAsc(path);
        expectHeader(image, 3, 2, -1);
        EXPECT_EQ(image.startTime + image.channel + image.direction, "2024-05-31T23:59:58Topo 1bwd");
        EXPECT_THAT(image.values, ElementsAre(1, -2.5, 1e-320, inf, IsNan(), 0));
        EXPECT_TRUE(std::signbit(image.values[4]) && std::signbit(image.values[5])); // "-nan", "-0"
        EXPECT_THAT(readFrameAsc(file(text(matrix))).values, ElementsAre(1, 2, 3, 4, 5, 6));

        EXPECT_EQ(detectFrameFile(file(text(line))), FrameFileFormat::LineCsv);
        const FrameLine rows = readLineCsv(path);
        EXPECT_EQ(rows.startTime + rows.channel + rows.xUnit, "2024-05-31T23:59:58Topom");
        EXPECT_EQ(rows.yUnit, "\xC2\xB0\x43");
        EXPECT_EQ(rows.xPixels, 2);
        EXPECT_THAT(rows.x, ElementsAre(0, 1e-6));
        EXPECT_THAT(rows.y, ElementsAre(1.5, inf));

        EXPECT_EQ(detectFrameFile(file(text(dataLog))), FrameFileFormat::PermCsv);
        const FrameLog log = readPermCsv(path);
        EXPECT_EQ(log.startTime + log.channel + log.unit, "2024-05-31T23:59:58V");
        EXPECT_THAT(log.values, ElementsAre(1, -1e30));
    }
    EXPECT_EQ(readFrameAsc(file(replaced(asc, "2024-05-31T23:59:58\n# display:   channel Topo 1",
                                         "\n# display:   channel "))).startTime, "");
    EXPECT_THAT(readLineCsv(file(replaced(lineHeader, ": 2\n", ": -2147483648\n"))).x, IsEmpty());
    // The first line says how lines end: this channel ends in a carriage return.
    EXPECT_EQ(readPermCsv(file(replaced(logHeader, "channel ", "channel A\r"))).channel, "A\r");
}

TEST_F(FrameReader, ReadsBinarySnapshots)
{
    EXPECT_EQ(detectFrameFile(file(bcr)), FrameFileFormat::Bcr);
    const FrameImage image = readFrameBcr(path);
    expectHeader(image, 1, 4, 1);
    EXPECT_EQ(image.startTime + image.channel + image.direction, "31 05 24 23:59:58");
    EXPECT_THAT(image.values, ElementsAre(1, IsNan(), -2.5, -inf));
    EXPECT_EQ(readFrameBcr(file(replaced(bcr, "voidpixels = 1", "voidpixels = 0"))).voidPixels, 0);
}

TEST_F(FrameReader, RejectsDamage)
{
    const char *const time = "time expected", *const pixels = "pixel count expected", *const number = "number expected",
               *const value = "value expected", *const voids = "number of void pixels expected",
               *const cutOff = "the line is cut off", *const tooShort = "too short for its pixel counts",
               *const tooLong = "data behind the last pixel";
    struct Row { const char* from; std::string to; int line; const char* complaint; }; // replaced in a good file
    const Row ascRows[] = {
        {"view", "", 0, "not a text image snapshot"}, {"31T23", "31 23", 2, time}, {"bwd", "up", 3, "direction expected"},
        {"Topo", "To\0po"s, 3, "NUL in a text"},      {"Topo", "To\npo", 3, "direction expected"},
        {"Topo", std::string(65536, 'x'), 3, "the line is too long"}, {":  3", ":  0", 4, pixels},
        {":  3", ":  2147483648", 4, pixels}, {":  3", ":  2147483647", 0, tooShort}, {":  2\n", ":  -2\n", 5, pixels},
        {":  3\n# y-pixels:  2", ":  2147483647\n# y-pixels:  2147483647", 0, tooShort}, {"2e-06", "2,5", 6, number},
        {":  2\n", ":  3\n", 21, "the file ends here"}, {":  2\n", ":  1\n", 0, tooLong}, {"1.5", "inf", 7, number},
        {"-0.25", "1e999", 8, number}, {"x-unit:    ", "x-unit: ", 10, "\"# x-unit:    \" expected"},
        {"d: -7", "d: 1.5", 13, "integer expected"}, {"Data:", "Data: ", 14, "\"# Start of Data:\" expected"},
        {"-2.5", "0x10", 16, value}, {"-2.5", "infinity", 16, value}, {"-2.5", "", 16, value},
        {"-2.5\n", "-2.5\r\n", 16, value},        {"-0\n", "-0", 20, cutOff}, {"-0\n", "-0\n\n", 0, tooLong},
        {"hot\n", "hot\r\n", 2, "the line ends in another way than the first"}};
    const Row matrixRows[] = {
        {"6  \n", "6 \n", 16, "the row has too few values"}, {"3  \n", "3  9  \n", 15, "the row has too many values"},
        {"6  \n", "6  ", 16, cutOff}, {"6  \n", "6 ", 16, cutOff}, {"6  \n", "6  \n7", 0, tooLong},
        {"5  6", "5   6", 16, value}, {"5  ", std::string(65536, '5'), 16, value}};
    const Row bcrRows[] = {
        {"bcrf\n", "bcrf \n", 0, "not a binary image snapshot"},
        {"31 05", "31-05", 2, time}, {"xpixels = 1", "xpixels = 0", 3, pixels}, {"s = 1\n", "s = 2\n", 0, tooShort},
        {"1\nypixels = 4", "2147483647\nypixels = 2147483647", 0, tooShort}, {"s = 4", "s = 3", 0, tooLong},
        {"2e-06", "nan", 5, number}, {"d = -7", "d = 99999999999", 12, "integer expected"},
        {"ls = 1\ni", "ls = 4\ni", 13, voids},
        {"ls = 1\ni", "ls = 2\ni", 0, "fewer void pixels than the header says"},
        {"mode = 0", "mode = 1", 14, "\"intelmode = 0\" expected"},
        {"mode = 0\n", "mode = 0\n\n", 15, "blanks expected"}};
    const Row lineRows[] = {
        {"frameless", "frame", 0, "not a line export"}, {"s: 2", "s: two", 4, "integer expected"},
        {"s: 2", "s: 0", 0, "more rows than its pixel count allows"}, {"X ;", "X;", 7, "\"X ; Y\" expected"},
        {"0 ; 1.5", "0;1.5", 8, "two values expected"}, {"1.5", "1.5 ; 2", 8, value}, {"; inf\n", "; inf", 9, cutOff}};
    const Row logRows[] = {
        {"log\n", "log", 0, "not a data log"}, {"unit:    V", "unit:", 4, "\"# unit:    \" expected"},
        {":\n1\n", ":\n1 \n", 6, value}, {"+30\n", "+3", 7, cutOff}};

    const auto check = [this](const auto& rows, auto reader, const std::string& good, const std::string& behind = "") {
        for (const Row& row : rows) {
            const std::string content = replaced(good, row.from, row.to);
            file(behind.empty() ? content : filled(content) + behind);
            const std::string where = row.line == 0 ? "" : "line " + std::to_string(row.line) + ": ";
            EXPECT_EQ(complaint([&] { reader(path); }), where + row.complaint) << row.from;
        }
    };
    check(ascRows, readFrameAsc, asc);
    check(matrixRows, readFrameAsc, matrix);
    check(bcrRows, readFrameBcr, bcrHeader, bcrPixels);
    check(lineRows, readLineCsv, line);
    check(logRows, readPermCsv, dataLog);
    EXPECT_EQ(complaint([&] { readFrameBcr(file(bcr + '\0')); }), tooLong);
    for (const char* content : {"", "# Vorel data logs\n", "# Vorel data log", "fileformat = bcrf\r\n"})
        EXPECT_EQ(complaint([&] { detectFrameFile(file(content)); }), "not a frame file");
}

TEST_F(FrameReader, RejectsEveryTruncation)
{
    const auto check = [this](auto parse, const std::string& content) {
        for (std::size_t size = 0; size < content.size(); ++size) {
            MemorySource source(std::string_view(content).substr(0, size), 7);
            EXPECT_THROW(parse(source, path), FormatError) << size;
        }
    };
    check(frameparser::parseAsc, asc);
    check(frameparser::parseAsc, withReturns(matrix));
    check(frameparser::parseBcr, bcr);
    check(frameparser::parseLineCsv, lineHeader);
    check(frameparser::parsePermCsv, logHeader);
}

TEST_F(FrameReader, ReadsAcrossBlocks)
{
    std::string content = replaced(replaced(ascHeader, ":  3\n", ":  40000\n"), ":  2\n", ":  1\n");
    for (int i = 0; i < 40000; ++i) content += std::to_string(i) + "  ";
    MemorySource source(content += "\n", 1000);
    const std::vector<double> values = frameparser::parseAsc(source, path).values;
    ASSERT_EQ(values.size(), 40000U);
    for (std::size_t i = 0; i < values.size(); ++i) ASSERT_EQ(values[i], i);
}

TEST_F(FrameReader, StopsReadingAtTheFirstFault)
{
    const auto check = [this](auto parse, std::string text, auto again, std::size_t blocks, const char* fault) {
        while (text.size() < 1000000) text += again;
        MemorySource source(text, text.size());
        EXPECT_EQ(complaint([&] { parse(source, path); }), fault);
        EXPECT_LE(text.size() - source.rest().size(), blocks * 65536) << fault;
    };
    check(frameparser::parseAsc, asc, "1\n", 1, "data behind the last pixel");
    check(frameparser::parseAsc, ascHeader, "1", 2, "line 15: the line is too long");
    check(frameparser::parseBcr, bcr, "\0"s, 1, "data behind the last pixel");
    check(frameparser::parseLineCsv, line, "1 ; 1\n", 1, "more rows than its pixel count allows");
    check(frameparser::parsePermCsv, dataLog, "x\n", 1, "line 8: value expected");
}

TEST_F(FrameReader, ReadsBackWhatTheBufferWritesAlsoInAGermanSession)
{
    FrameBuffer frame;
    set(&frame, {{0x2004, 5}, {0x2006, -2}, {0x200A, 4}, {0x2012, 0x17F}, {0x2013, 0x27F}, {0x2014, 1}});
    activate(&frame, 3, 3, 2, {3, -2, 0}); // the first line, which is the last row
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    const auto hasComma = [this] { return contents(path).find(',') != std::string::npos; };
    EXPECT_EQ(frame.saveFrameBcr(path.c_str(), "Topo", true), 0);
    EXPECT_THAT(readFrameBcr(path).values, ElementsAre(IsNan(), IsNan(), IsNan(), 0.0005F, -0.00075F, -0.00025F));
    EXPECT_FALSE(hasComma() || readFrameBcr(path).xOffset != -0.002);
    EXPECT_EQ(frame.saveFrameAsc(path.c_str(), "Topo", true, true), 0);
    EXPECT_THAT(readFrameAsc(path).values, ElementsAre(-0.00025, -0.00025, -0.00025, 0.0005, -0.00075, -0.00025));
    EXPECT_FALSE(hasComma() || readFrameAsc(path).xOffset != -0.002);
    EXPECT_EQ(frame.saveLineCsv(path.c_str(), "Topo"), 0);
    EXPECT_THAT(readLineCsv(path).x, ElementsAre(-0.0045, -0.002, 0.0005));
    EXPECT_FALSE(hasComma());
}

TEST_F(FrameReader, SaysWhyAFileCannotBeRead)
{
    const std::string place = folder.path().toStdString();
    for (const std::string& name : {place, place + "/none", ""s})
        EXPECT_EQ(complaint([&] { readPermCsv(name); }), "Can't open file\n" + name + "\nfor reading");
    EXPECT_EQ(complaint([] { readPermCsv("/proc/self/mem"); }), "Can't read file\n/proc/self/mem: Input/output error");
}
