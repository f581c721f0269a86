#include "apps/bench/axisunit.h"
#include "apps/bench/logview.h"
#include "apps/bench/plotstyle.h"
#include "apps/bench/repaintgate.h"
#include "apps/bench/scanimage.h"
#include "apps/bench/tracefiles.h"
#include "vorelutil/frames/framebuffer.h"

#include <fstream>
#include <gtest/gtest.h>
#include <QDir>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QtTest>
#include <qwt_text.h>

#include "tests/support/germanlocale.h"
#include "tests/support/require.h"

using namespace bench;

namespace {

void append(const QString& path, const QByteArray& text)
{
    std::ofstream(path.toStdString(), std::ios::app) << text.constData();
}

TEST(AxisUnitTest, ChoosesThePrefixForTheRange)
{
    // clang-format off
    const struct { double largest; int code, divisor; const char* title; double factor; } rows[] = {
        {100000, 0x17C, 1, "x [nm]", 1e-3},   {600, 0x17C, 1, "x [pm]", 1}, {0, 0x17C, 1, "x [pm]", 1},
        {5000, 0x280, 1000, "x [V]", 1e-3},   {5, 0x280, 0, "x [V]", 1},    {20, 0x17E, 1, "x [\u00b5m]", 1},
        {50000, 0xB80, 1, "x [[dB]]", 1}, /* a unit that is fixed */        {50000, 0x80, 1, "x", 1}};
    // clang-format on
    for (const auto& row : rows) {
        const AxisUnit unit = axisUnit(row.largest, row.code, row.divisor);
        EXPECT_EQ(unit.title(QStringLiteral("x")), QString::fromUtf8(row.title)) << &row - rows;
        EXPECT_NEAR(unit.factor, row.factor, 1e-12 * row.factor) << &row - rows;
    }
}

TEST(AxisUnitTest, TicksKeepTheirPointInAGermanSession)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    QLocale::setDefault(QLocale(QLocale::German));
    EXPECT_EQ(PointScaleDraw().label(12345.5).text(), QStringLiteral("12345.5"));
    QLocale::setDefault(QLocale::c());
}

TEST(ScanImageTest, ShowsTheRunningFrameOverTheLastWholeOne)
{
    const ScanSettings settings{ScanKind::Area, 3, 2, 3, 1000};
    auto whole = std::make_shared<FrameBuffer>();
    FrameBuffer running;
    for (FrameBuffer* frame : {whole.get(), &running}) {
        describeFrame(settings, frame);
        frame->setActive(true);
    }
    const int first[] = {1, 2, 3, 4, 5, 6}, second[] = {-7, 8};
    whole->addData(first, 6, 0);
    running.addData(second, 2, 12); // frame 2, rows upwards as in frame 0
    const int none = ScanImage::voidPixel;
    // clang-format off
    const struct { SharedFrame whole; bool forward, isPart; int low, high; std::vector<int> seen; } rows[] = {
        {nullptr, true,  true,  -7, 8, {none, none, none, -7, 8, none}},
        {whole,   true,  false, -7, 8, {4, 5, 6, -7, 8, 3}},
        {whole,   false, true,   0, 0, {none, none, none, none, none, none}}}; // mode 3 has no backward pass
    // clang-format on
    ScanImage image;
    for (const auto& row : rows) {
        image.update(row.whole, &running, row.forward);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(image.pixel(i / 3, i % 3), row.seen[std::size_t(i)]) << i;
        EXPECT_EQ(image.hasVoid(), row.isPart);
        EXPECT_EQ(std::pair(image.lowest(), image.highest()), std::pair(row.low, row.high));
    }
    image.update(nullptr, nullptr, true);
    EXPECT_TRUE(image.isEmpty());
}

TEST(LogViewTest, FollowsAFileAndSkipsWhatIsTooMuch)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("log"));
    append(path, "one\ntw");
    LogView view;
    view.follow(path);
    view.readMore();
    EXPECT_EQ(view.toPlainText(), QStringLiteral("one"));
    append(path, "o\nthree\n");
    view.readMore();
    EXPECT_EQ(view.toPlainText(), QStringLiteral("one\ntwo\nthree"));
    append(path, "v [1.5]: rx: TELL Len=20 Addr=27 Ind=0 CNo=0-0 4d2.\n" // come by themselves
                 "v [1.5]: rx: TELL Len=2012 Addr=100 Ind=-5 CNo=0-0 f 1 2 3.\n"
                 "v [1.5]: tx: SET  Len=1040 Addr=202 Ind=5 CNo=0-7 1 2 3 4.\n"
                 "v [1.5]: tx: GET  Len=16 Addr=26 Ind=0 CNo=0-8.\n"
                 "v [1.5]: rx: ACK  Len=24 Addr=26 Ind=0 CNo=0-8 0 7ffffe19.\n");
    view.readMore();
    EXPECT_EQ(view.blockCount(), 3);
    append(path, "v [1.5]: rx: TELL Len=20 Addr=22 Ind=0 CNo=0-0 4d2.\n" // the third one is a refusal
                 "v [1.5]: rx: ACK  Len=24 Addr=27 Ind=0 CNo=0-9 0 63.\n"
                 "v [1.5]: rx: ACK  Len=24 Addr=26 Ind=0 CNo=1-8 63 0.\nv ERROR: a.\nv [1.5]: b ERROR: \n");
    view.readMore();
    for (const auto& [block, coloured] : {std::pair(3, 0), {4, 0}, {5, 1}, {6, 1}, {7, 0}})
        EXPECT_EQ(view.document()->findBlockByNumber(block).layout()->formats().size(), coloured) << block;
    view.clear();
    // Telegrams of 64 bytes, of which the last 32 KB are shown; what is periodic is not missed.
    const QByteArray telegram =
        QByteArray("v [1.5]: rx: ACK  Len=24 Addr=27 Ind=0 CNo=0-9 0 0.").leftJustified(63) + "\n";
    append(path,
           "v ERROR: a.\n" + telegram.repeated(1000) + "v [1.5]: said\n" + telegram.repeated(10000) +
               QByteArray("v [1.5]: rx: TELL Len=2012 Addr=110 Ind=4 CNo=0-0 f 1 2 3.\n").repeated(9000));
    for (int i = 0; i < 8; ++i) view.readMore();
    const QStringList lines = view.toPlainText().split('\n');
    EXPECT_EQ(lines.mid(0, 1) + lines.filter("said"), (QStringList{"v ERROR: a.", "v [1.5]: said"}));
    const QStringList gaps = lines.filter("bytes are in the file only");
    EXPECT_EQ(gaps.value(0), QStringLiteral("... 64000 bytes are in the file only ..."));
    EXPECT_LE(lines.size(), 2 + gaps.size() + 2 * 512);
    for (const QString& gap : gaps) EXPECT_FALSE(gaps.contains(lines.value(lines.indexOf(gap) + 1)));
    append(path, QByteArray("0123456789abcde\n").repeated(10000));
    view.readMore();
    EXPECT_EQ(view.blockCount(), LogView::shownLines);
}

TEST(RepaintGateTest, CoalescesRequestsAndLeavesTimeForOthers)
{
    int repaints = 0;
    QElapsedTimer sinceLast;
    qint64 shortestPause = 1000;
    RepaintGate gate([&] {
        if (sinceLast.isValid()) shortestPause = qMin(shortestPause, sinceLast.elapsed());
        ++repaints;
        QTest::qSleep(30);
        sinceLast.start();
    });
    gate.setRefreshRate(0);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            for (int i = 0; i < 1000; ++i) gate.request();
            return repaints >= 4;
        },
        20000));
    EXPECT_GE(shortestPause, 59);
}

TEST(TraceFilesTest, KeepsTheLastTenLogs)
{
    const QTemporaryDir folder;
    for (int i = 10; i < 25; ++i)
        append(folder.filePath(QStringLiteral("vorelbench-201001%1-120000-000.log").arg(i)), "x");
    append(folder.filePath(QStringLiteral("other.log")), "x");
    TraceFiles::prune(folder.path(), TraceFiles::keptFiles);
    const QStringList names = QDir(folder.path()).entryList(QDir::Files, QDir::Name);
    ASSERT_EQ(names.size(), 11);
    EXPECT_EQ(names[0], QStringLiteral("other.log"));
    EXPECT_EQ(names[1], QStringLiteral("vorelbench-20100115-120000-000.log"));
}

} // namespace
