#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <vorelutil/config/datagroup.h>

namespace {

/// Reads elements, in which single quotes stand for double ones.
void read(std::string children, QMap<int, DataGroup>& groups)
{
    std::replace(children.begin(), children.end(), '\'', '"');
    XmlDoc doc;
    doc.setContent("<Groups>" + children + "</Groups>", "groups.xml");
    DataGroup::parseDataGroups(doc.getChild(), groups);
}

} // namespace

TEST(DataGroup, ReadsTextsAndNumbersAndSwitchesFlagsByKeyword)
{
    // clang-format off
    const std::array<std::string, 4> rows[] = {
        {"Ascii",      "StoreFrame ShowAverage",                   "Number Signal", "10 10000001000 10100"},
        {"Binary",     "StoreContinous|StoreLocal,HidePage",       "Names",         "01 01100000001 01000"},
        {"ascii Name", "storeframe StoreContinuous Group Ascii",   "number Bin",    "00 00000000000 00000"},
        {"",           "StoreRetriggerStoreGroupings,ShowStreams", "Group",         "00 00011000010 00010"},
        {"",           "ShowChannels ShowSource StoreGroup HidePage", "Signal",     "00 00001110001 00100"},
        {"", "ShowSampleTime StoreLocal StoreRetrigger ShowSource ShowAverage", "", "00 00110011100 00000"},
    };
    // clang-format on
    for (const auto& [formats, properties, channels, expected] : rows) {
        QMap<int, DataGroup> groups;
        read("<Any Name='H\xC3\xB6he' Abbrev='\xEF\xBB\xBFZ\xFF' Condition=' a>1 ' Id='0x10' "
             "Trigger='0b11' Algorithm='-7' Formats='" +
                 formats + "' Properties='" + properties + "' ChannelDescr='" + channels + "'/>",
             groups);
        const DataGroup g = groups[16];
        QString flags;
        for (const bool flag :
             {g.ascii, g.bin, g.storeFrame, g.storeContinous, g.storeLocal, g.storeRetrigger, g.storeGroup,
              g.showChannels, g.showSource, g.showAverage, g.showSampleTime, g.showStream, g.hidePage,
              g.channelNumber, g.channelName, g.channelSignal, g.channelGroup, g.modified}) {
            flags += flag ? '1' : '0';
        }
        EXPECT_EQ(flags.insert(2, ' ').insert(14, ' ').toStdString(), expected);
        EXPECT_EQ(QStringList({g.name, g.displayName, g.abbrev, g.displayAbbrev, g.condition}).join('|'),
                  "H\u00F6he|H\u00F6he|Z\uFFFD|Z\uFFFD| a>1 ");
        EXPECT_EQ(QList<int>({g.id, g.trigger, g.algorithm}), QList<int>({16, 3, -7}));
    }
}

TEST(DataGroup, LeavesOutWhatIsIncompleteAndKeepsTheLastOfAnId)
{
    QMap<int, DataGroup> groups;
    groups[4].name = "stays";
    groups[3].name = "goes";
    read("<G Name='a' Id='3' Trigger='0'/><G Name='b' Id='3' Trigger='0'/>"
         "<G Name='no id' Trigger='0'/><G Name='no trigger' Id='5'/><G Id='6' Trigger='0'/>"
         "<G Name='' Id='7' Trigger='0'/><G Name='negative' Id='-8' Trigger='0'/>"
         "<G Name='above 31 bits' Id='2147483648' Trigger='0'/><G Name='malformed' Id='x9' Trigger='0'/>"
         "<G Name='empty' Id='9' Trigger=''/><Other Name='c' Id='0x100000001x' Trigger='2' Algorithm='x'/>",
         groups);
    DataGroup::parseDataGroups(nullptr, groups);
    EXPECT_EQ(groups.keys(), (QList<int>{1, 3, 4}));
    EXPECT_EQ(groups[3].name, "b");
    EXPECT_EQ(groups[4].name, "stays");
    EXPECT_EQ(groups[1].sequence, 10); // those left out count
    EXPECT_EQ(groups[1].algorithm, -1);
    groups[4].sequence = 10;
    EXPECT_EQ(DataGroup::sortGroupsBySequence(groups), (QMap<int, int>{{1, 3}, {10, 4}}));
}

TEST(DataGroup, ReadsAHundredThousand)
{
    std::string children;
    for (int i = 99'999; i >= 0; --i) children += "<G Name='n' Id='" + std::to_string(i) + "' Trigger='0'/>";
    QMap<int, DataGroup> groups;
    read(children, groups);
    EXPECT_EQ(groups.size(), 100'000);
    EXPECT_EQ(DataGroup::sortGroupsBySequence(groups).first(), 99'999);
}
