#include "buffers.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <QDateTime>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <random>
#include <tests/support/files.h>
#include <vorelutil/frames/frametext.h>
#include <vorelutil/platform/clocale.h>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using namespace std::string_literals;

namespace {

/// Six heights, scaled to volts on an area in nanometres.
void fillArea(FrameBuffer* frame)
{
    activate(frame, 3, 3, 2, {10, 20, 30, 40, 50, 60});
    set(frame, {{0x2004, 300}, {0x2005, 200}, {0x2006, 15}, {0x2007, -7}, {0x200A, 4}});
    set(frame, {{0x2012, 0x17D}, {0x2013, 0x27F}, {0x2014, 2}, {0x2016, 1499}});
}

class FrameFiles : public ::testing::Test
{
protected:
    std::string path(const char* name) const { return folder.filePath(name).toStdString(); }

    /// A file with its time stamp, which must be that of a few seconds ago, replaced by TIME.
    std::string text(const char* name) const
    {
        QString content = QString::fromStdString(contents(path(name)));
        static const QRegularExpression form(
            R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d|\d\d \d\d \d\d \d\d:\d\d:\d\d)");
        const QString stamp = form.match(content).captured();
        const QDateTime time = stamp.contains('T')
                                   ? QDateTime::fromString(stamp, Qt::ISODate)
                                   : QDateTime::fromString(stamp, "dd MM yy HH:mm:ss").addYears(100);
        EXPECT_LT(std::abs(time.secsTo(QDateTime::currentDateTime())), 60);
        return content.replace(stamp, "TIME").toStdString();
    }

    QTemporaryDir folder;
};

} // namespace

TEST(FrameText, PrintsAsTheCRuntimeDoes)
{
    // clang-format off
    std::vector<double> values = {
        0.0, -0.0, -HUGE_VAL, std::nan(""), std::copysign(std::nan(""), -1.0), 100, 999999999, 999999999.5,
        1000000000, 0.0001, 0.00001, 0.00009999999995000001, 12345678.25, 12345678.75, -1.5e-18, 9.9e-19,
        5e-324, 1.5e300};
    // clang-format on
    std::mt19937_64 random(1);
    for (int i = 0; i < 300000; ++i) {
        const std::uint64_t bits = random();
        double value = std::ldexp(static_cast<double>(bits >> 11), static_cast<int>(bits % 100) - 115);
        if (i % 3 == 0) value = static_cast<double>(static_cast<std::int32_t>(bits)) * 0.5;
        if (i % 10 == 0) std::memcpy(&value, &bits, sizeof value);
        values.push_back(value);
    }
    const platform::CLocaleScope cLocale; // for snprintf
    for (const double value : values) {
        char expected[32];
        std::snprintf(expected, sizeof expected, "%.9g", value);
        ASSERT_STREQ(frametext::Number(value).text(), expected);
    }
}

TEST_F(FrameFiles, WritesTextSnapshots)
{
    const std::string header =
        "# Vorel frame view snapshot\n# TIME\n# display:   channel height fwd\n# x-pixels:  3\n"
        "# y-pixels:  2\n# x-length:  3e-07\n# y-length:  2e-07\n# x-offset:  1.5e-08\n# y-offset:  -7e-09\n"
        "# x-unit:    m\n# y-unit:    m\n# z-unit:    V\n# scanspeed: 1\n# Start of Data:\n";
    FrameBuffer frame;
    fillArea(&frame);
    ASSERT_EQ(frame.saveFrameAsc(path("rows").c_str(), "height", true, true), 0);
    EXPECT_EQ(text("rows"), header + "0.0095  0.012  0.0145  \n0.002  0.0045  0.007  \n");
    ASSERT_EQ(frame.saveFrameAsc(path("values").c_str(), "height", true, false), 0);
    EXPECT_EQ(text("values"), header + "0.0095\n0.012\n0.0145\n0.002\n0.0045\n0.007\n");
    for (const auto& [entry, written] : {std::pair(1500, "2\n"), {-1499, "0\n"}, {INT_MIN, "-2147483\n"}}) {
        frame.setMetaData(0x2016, entry);
        ASSERT_EQ(frame.saveFrameAsc(path("speed").c_str(), "", true, false), 0);
        EXPECT_THAT(text("speed"), HasSubstr(std::string("# scanspeed: ") + written));
    }

    // Backward, null channel, no divisor worth the name; pixels without a sample are a sample of 0.
    FrameBuffer part;
    activate(&part, 5, 2, 2, {7, 9});
    set(&part, {{0x200A, 0}, {0x2014, 9}});
    ASSERT_EQ(part.saveFrameAsc(path("part").c_str(), nullptr, false, true), 0);
    EXPECT_THAT(text("part"), HasSubstr("# display:   channel  bwd\n"));
    EXPECT_THAT(text("part"), ::testing::ContainsRegex("# Start of Data:\n-inf  -inf  \n-?nan  -inf  \n$"));
}

TEST_F(FrameFiles, WritesBinarySnapshots)
{
    FrameBuffer frame;
    activate(&frame, 4, 2, 2, {1, 2, 3, -4, 5}); // forward lines 1 2 and 5
    frame.setMetaData(0x2013, 0x280);
    ASSERT_EQ(frame.saveFrameBcr(path("void.bcr").c_str(), "not written", true), 0);
    const std::string head =
        "fileformat = bcrf\nstarttime TIME\nxpixels = 2\nypixels = 2\nxlength = 1\nylength = 0\nxoffset = 0\n"
        "yoffset = 0\nxunit = \nyunit = \nzunit = V\nscanspeed = 0\nvoidpixels = 1\nintelmode = 0\n";
    const std::string content = contents(path("void.bcr"));
    ASSERT_EQ(content.size(), 2048U + 16U);
    EXPECT_EQ(text("void.bcr").substr(0, head.size()), head);
    const std::size_t blanksFrom = content.find("intelmode = 0\n") + 14;
    EXPECT_EQ(content.substr(blanksFrom, 2048 - blanksFrom), std::string(2047 - blanksFrom, ' ') + '\n');
    EXPECT_EQ(content.substr(2048), "\x40\xA0\0\0\x7F\0\0\0\x3F\x80\0\0\x40\0\0\0"s);

    // With an own sort array, and with one that is too small; five pixels, of which one looks void.
    for (const unsigned sortSize : {5U, 4U}) {
        FrameBuffer line;
        activate(&line, 3, 5, 1);
        line.reallocBuffer(5, sortSize);
        add(&line, {0, -1, 3, 2147483642, 8});
        ASSERT_EQ(line.saveFrameBcr(path("line.bcr").c_str(), nullptr, true), 0);
        EXPECT_THAT(contents(path("line.bcr")), HasSubstr("voidpixels = 0\n"));
        EXPECT_THAT(contents(path("line.bcr")),
                    EndsWith("\n\0\0\0\0\xBF\x80\0\0\x40\x40\0\0\x7F\0\0\0\x41\0\0\0"s));
    }
}

TEST_F(FrameFiles, ReturnsCodesAndMakesNoFile)
{
    using Codes = std::vector<int>; // of text image, binary image, line
    const auto all = [](const FrameBuffer& frame, bool forward, const char* image, const char* line) {
        return Codes{frame.saveFrameAsc(image, "c", forward, false), frame.saveFrameBcr(image, "c", forward),
                     frame.saveLineCsv(line, "c")};
    };
    FrameBuffer inactive, empty, frame, wide;
    activate(&empty, 5, 2, 1);
    activate(&frame, 5, 2, 1, {1, 2});
    activate(&wide, 2, 100000, 100000, {1, 2, 3});
    // clang-format off
    const struct { const char* desc; const FrameBuffer* frame; bool forward; Codes codes; } rows[] = {
        {"inactive",                    &inactive, true,  {1, 1, 1}},
        {"empty",                       &empty,    true,  {1, 1, 1}},
        {"no forward lines",            &frame,    true,  {1, 1, 0}},
        {"an image of 10^10 pixels",    &wide,     false, {3, 3, 0}}};
    // clang-format on
    for (const auto& row : rows) {
        EXPECT_EQ(all(*row.frame, row.forward, path("image").c_str(), path("line").c_str()), row.codes)
            << row.desc;
        EXPECT_FALSE(QFile::exists(folder.filePath("image"))) << row.desc;
        EXPECT_EQ(QFile::remove(folder.filePath("line")), row.codes[2] == 0) << row.desc;
    }
    const std::string missing = path("missing/file");
    for (const char* const file : {missing.c_str(), "/tmp", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(all(frame, false, file, file), (Codes{2, 2, 2})) << testing::PrintToString(file);
    EXPECT_EQ(all(frame, false, "/dev/full", "/dev/full"), (Codes{0, 0, 0})) << "short writes go unnoticed";
}

TEST_F(FrameFiles, ExportsLines)
{
    // clang-format off
    const struct { int mode, x, y, position; std::vector<int> samples; const char* rows; } rows[] = {
        {3, 3, 2, 0, {5, 6, 7, 8}, "-1 ; 5\n0 ; 6\n1 ; 7\n"}, {3, 1, 1, 0, {5}, "0 ; 5\n"}, // one pixel
        {4, 3, 2, 0, {5, 6, 7, 8, 9, 4, 3}, "-1 ; 5\n0 ; 6\n1 ; 7\n1 ; 8\n0 ; 9\n-1 ; 4\n"},
        {4, 3, 1, 0, {5, 6, 7, 8}, "-1 ; 5\n0 ; 6\n1 ; 7\n1 ; 8\n"}, {5, 3, 1, 0, {5, 6, 7}, "1 ; 5\n0 ; 6\n-1 ; 7\n"},
        {6, 3, 1, 0, {5, 6, 7, 8, 9, 4}, "1 ; 5\n0 ; 6\n-1 ; 7\n-1 ; 8\n0 ; 9\n1 ; 4\n"},
        // Streams, and no geometry.
        {2, 4, 9, 8, {5, 6, 7}, "6.5 ; 5\n7.5 ; 6\n8.5 ; 7\n"}, {2, 2, 1, -2, {5, 6}, "-2.5 ; 5\n-1.5 ; 6\n"},
        {1, 3, 1, 0, {5}, ""}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        FrameBuffer frame;
        frame.setDfltBufSize(4, false);
        frame.setMetaData(0x2004, row.x - 1);
        activate(&frame, row.mode, row.x, row.y, row.samples, row.position);
        ASSERT_EQ(frame.saveLineCsv(path("line.csv").c_str(), "c"), 0);
        EXPECT_EQ(text("line.csv"),
                  "# Vorel frameless snapshot\n# TIME\n# display:  channel c\n# x-pixels: " +
                      std::to_string(row.x == 1 ? 2 : row.x) + "\n# x-unit:   \n# y-unit:   \nX ; Y\n" +
                      row.rows);
    }
}

TEST_F(FrameFiles, LogsValues)
{
    const std::string head =
        "# Vorel data log\n# TIME\n# display:   channel c\n# unit:    V\n# Start of Data:\n";
    const int values[] = {10, 20};
    FrameBuffer frame;
    fillArea(&frame);
    const auto log = [&](const char* name) { return frame.startPermCsv(path(name).c_str(), "c"); };
    EXPECT_EQ(log("first.csv"), 0);
    frame.setMetaData(0x200A, 1); // does not alter the running log
    frame.setMetaData(0x2014, 0);
    FrameBuffer copy(frame, true);
    copy = frame;
    copy.savePermCsv(values, 2);
    EXPECT_EQ(frame.savePermCsv(values, 2) + frame.savePermCsv(values, 0) + frame.savePermCsv(nullptr, 2), 0);
    EXPECT_EQ(frame.startPermCsv(path("missing/x").c_str(), "c"), 2) << "closes the first";
    EXPECT_EQ(text("first.csv"), head + "0.002\n0.0045\n");
    EXPECT_EQ(log("second.csv"), 0);
    frame.savePermCsv(values, 1);
    EXPECT_EQ(frame.startPermCsv(nullptr, "c"), 0) << "closes";
    frame.savePermCsv(values, 2);
    EXPECT_EQ(text("second.csv"), head + "0.01\n");

    EXPECT_EQ(frame.saveSimpleCsv(path("simple.csv").c_str(), "c"), 0);
    EXPECT_EQ(text("simple.csv"), head + "0.01\n0.02\n0.03\n0.04\n0.05\n0.06\n");
    frame.savePermCsv(values, 2);
    EXPECT_EQ(frame.saveSimpleCsv(path("missing/x").c_str(), "c"), 2);
    auto ended = std::make_unique<FrameBuffer>();
    EXPECT_EQ(ended->startPermCsv(path("ended.csv").c_str(), nullptr), 0);
    ended->savePermCsv(values, 2);
    ended.reset();
    EXPECT_THAT(text("ended.csv"), EndsWith("channel \n# unit:    \n# Start of Data:\n10\n20\n"));
}
