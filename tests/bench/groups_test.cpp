#include "apps/bench/groupspanel.h"
#include "apps/bench/groupstable.h"
#include "apps/bench/sourceview.h"

#include <gtest/gtest.h>
#include <QListWidget>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QtTest>
#include <vorelutil/widgets/savable.h>

using namespace bench;

namespace {

constexpr const char* fileName = "a line 3: b.xml"; // looks like a message

struct GroupsTest : ::testing::Test
{
    QString write(const QByteArray& bytes)
    {
        QFile file(folder.filePath(fileName));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return file.fileName();
    }
    int groups() const { return panel.table()->model()->rowCount(); }
    /// Texts between bars, and a letter for each flag.
    std::string row(int row) const
    {
        QString text;
        for (int column = 0; column < panel.table()->model()->columnCount(); ++column) {
            const QString cell = panel.table()->model()->index(row, column).data().toString();
            const bool isFlag = column >= 5 && column < 22;
            text += !isFlag ? cell + "|" : cell.isEmpty() ? "." : cell == QString("\u2713") ? "x" : cell;
        }
        return text.toStdString();
    }
    std::string problem(int row) const { return panel.problems()->item(row)->text().toStdString(); }

    QTemporaryDir folder;
    GroupsPanel panel;
};

TEST_F(GroupsTest, TellsWhatIsWrongAndWhere)
{
    // clang-format off
    const struct { QByteArray source; int groups; std::vector<std::pair<int, const char*>> problems; } rows[] = {
        {"<G>\n <a Name='A'/></G>", 0, {{2, "String or text expected"}}},
        {"<G>\n\n<![CDATA[]]></G>", 0, {{3, "Comment expected"}}},
        {"", 0, {{0, "No data groups: the file is empty"}}},
        {"text", 0, {{1, "No data groups: the file does not begin with a tag"}}},
        {"\xEF\xBB\xBF<G/>", 0, {{1, "No data groups: the file begins with a byte-order mark, which is not read"}}},
        {"<G>\n<a name=\"a\" Id=\"1\" Trigger=\"x\"/>\n</G>", 0,
         {{0, "No data groups"}, {2, "<a> is left out: no Name (there is \"name\", and case counts), its Trigger \"x\" is no number"}}},
        {"<G><!-- <b/> --->\n<c/> -->\n<a Name=\"100 %1\"\n Id=\"3\" Trigger=\"0\">\"<d>\"</a> <b Name=\"x&\"/>\n<b N=\";\xC3\xA9\x01\"\n"
         "Trigger=\"-5\"/>\n<c\nName=\"%1 %2 %3\" Id=\"0x3\" Trigger=\"12 ms\" Algorithm=\"y\" Properties=\"none,NoShowStream\"/>\n</G>", 1,
         {{3, "<a 100 %1> is replaced by <c %1 %2 %3> of line 7, which has the same Id 3"},
          {4, "<b x&\"/> <b N=\";\xC3\xA9\xEF\xBF\xBD> is left out: no Id, its Trigger is -5, below 0"},
          {7, "<c %1 %2 %3>: its Trigger \"12 ms\" is read as 12"},
          {7, "<c %1 %2 %3>: its Algorithm \"y\" is no number, -1 is taken"},
          {7, "<c %1 %2 %3>: \"none\" in its Properties is no keyword"},
          {7, "<c %1 %2 %3>: \"NoShowStream\" in its Properties counts as ShowStream"}}},
        {"<G>\n<a Name=\"\xE9\" Id=\"1\" Trigger=\"0\"/></G>", 1,
         {{2, "Not in UTF-8, from this line on; such characters are replaced"}}},
        {QByteArray("<G/>\n\0", 6), 0, {{0, "No data groups"}, {2, "A zero byte ends the text here; the rest is not read"}}},
        {QByteArray(32 * 1024 * 1024 + 1, ' '), 0, {{0, "The file is longer than 32 MB and is not read"}}},
        {QByteArray("<a>").repeated(500001), 0, {{0, "The character \"<\" stands there more than 500000 times; the groups are not read"}}},
    };
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.source.left(100).constData());
        panel.openFile(write(row.source));
        EXPECT_EQ(groups(), row.groups);
        ASSERT_EQ(panel.problems()->count(), int(row.problems.size()));
        for (int i = 0; i < panel.problems()->count(); ++i) {
            const auto& [line, text] = row.problems[std::size_t(i)];
            const std::string place = line > 0 ? ", line " + std::to_string(line) : "";
            EXPECT_EQ(problem(i), fileName + place + ": " + text);
            panel.source()->markLine(0, false);
            const QRect entry = panel.problems()->visualItemRect(panel.problems()->item(i));
            QTest::mouseClick(panel.problems()->viewport(), Qt::LeftButton, {}, entry.center());
            EXPECT_EQ(panel.source()->markedLine(), line);
        }
    }
}

TEST_F(GroupsTest, ShowsNothingOfTheEarlierFileWhenOneCannotBeOpened)
{
    const std::pair<const char*, const char*> rows[] = {
        {"/b.xml", "b.xml: Can't open file /b.xml for reading: No such file or directory"},
        {"/", "/: Can't open file / for reading: it is a folder"},
        {"/dev/zero", "zero: Can't open file /dev/zero for reading: it is no ordinary file"}};
    for (const auto& [path, text] : rows) {
        panel.openExample();
        panel.openFile(path);
        EXPECT_EQ(problem(0), text);
        EXPECT_EQ(panel.source()->toPlainText() + QString::number(groups()), QString("0"));
    }
}

TEST_F(GroupsTest, ListsTheExampleInItsOrderWithItsFlags)
{
    panel.openExample();
    const std::pair<const char*, int> rows[] = {
        {"Height, forward|Zf|16|1|1|xxx....x.x...xxx.|", 12},
        {"Height, backward|Zb|17|1|1|xxx....x.x...xxx.passes == 2|", 16},
        {"Oscillation phase|Ph|18|0|0|.xx.x..x......xx.amplitude > 0|", 21},
        {"Drift|Dr|32|2|1|x..x......xx..x..|", 28},
        {"Stage temperature|T|33|2|1|x..x..x.xx...xx.x|", 32},
        {"Photon counts|N|48|3|2|.x...xxx..x..x..x|", 38},
        {"Arrival times|t|49|3|2|.x...x.....x.x...start < stop|", 42},
        {"Noise spectrum|Sp|64|2|3|x...x.......x..x.|", 47}};
    ASSERT_EQ(groups(), 8);
    EXPECT_EQ(panel.problems()->count(), 0);
    for (int i = 0; i < groups(); ++i) {
        EXPECT_EQ(row(i), rows[i].first);
        panel.table()->selectRow(i);
        EXPECT_EQ(panel.source()->markedLine(), rows[i].second) << i;
    }
    const auto tip = [this](int row) { return panel.table()->model()->index(row, 22).data(Qt::ToolTipRole); };
    EXPECT_EQ(tip(0).toString() + tip(2).toString(),
              "<qt>amplitude &gt; 0</qt>"); // none where there is no text
}

TEST_F(GroupsTest, StaysUsableWithAHundredThousandGroups)
{
    QByteArray source = "<G>\n";
    for (int id = 99999; id >= 0; --id)
        source += "<a Name=\"n\" Trigger=\"0\" Id=\"" + QByteArray::number(id) + "\"/>\n<b/>\n";
    panel.openFile(write(source + QByteArray(1000000, ' ') + "</G>"));
    ASSERT_EQ(groups(), 100000);
    EXPECT_EQ(panel.problems()->count(), 1000);
    EXPECT_EQ(problem(999), "... and 99001 more");
    panel.table()->selectRow(99999);
    EXPECT_EQ(panel.source()->textCursor().block().text(), QString("<a Name=\"n\" Trigger=\"0\" Id=\"0\"/>"));
    EXPECT_LE(panel.source()->toPlainText().size(), 2002 * 100);
}

TEST_F(GroupsTest, ReadsTheRememberedFileWhenItIsSeenAndKeepsItsPlaceOnReload)
{
    const QString path = write("<G><a Name=\"A\" Id=\"1\" Trigger=\"0\"/></G>");
    for (Savable* savable : Savable::_savableList) savable->setValueFromExt("DataGroups", "File", path);
    EXPECT_EQ(groups(), 0);
    panel.show();
    ASSERT_EQ(groups(), 1);
    write("<G><a Name=\"B\" Id=\"2\" Trigger=\"0\"/><a Name=\"A\" Id=\"1\" Trigger=\"0\"/></G>");
    panel.reload();
    EXPECT_EQ(panel.table()->currentIndex().row(), 1);
}

} // namespace
