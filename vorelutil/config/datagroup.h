#pragma once

#include <QMap>
#include <QString>
#include <vorelutil/platform/export.h>
#include <vorelutil/xml/xmldoc.h>

/// One group of data that an instrument delivers, as a device description lists it.
///
///     <Groups>
///       <Group Name="Height" Abbrev="Z" Id="0x10" Trigger="1" Algorithm="2"
///              Formats="Ascii Bin" Properties="StoreFrame ShowAverage" ChannelDescr="Number Name"/>
///     </Groups>
///
/// The format is described in docs/formats/datagroups.md. Texts are UTF-8: bytes that are none
/// become U+FFFD, a byte-order mark at a text's beginning is dropped. A record: all members may be changed.
/// Any thread, one at a time.
class VORELUTIL_EXPORT DataGroup
{
public:
    /// A group without name, id, trigger and algorithm (each -1), at place 0, with every flag off.
    DataGroup() = default;
    /// Reads an element, whatever its tag name. `sequence` is its place among its siblings, from 0 on.
    /// Numbers are read as `XmlDocNode::findAttrInt` reads them ("0x10" is 16, "3rd" is 3; cut to 32 bits:
    /// 2147483648 is negative); one that is missing or is none gives -1. `node` must not be null.
    ///
    /// Kept: a keyword counts wherever it stands in its attribute, also inside a longer word ("Binary"
    /// switches `bin` on); case counts.
    DataGroup(const DocNode* node, int sequence);
    ~DataGroup();
    DataGroup(const DataGroup&) = default;
    DataGroup& operator=(const DataGroup&) = default;

    /// Reads every child of `parent` (null: none) in document order, and puts those that have a name, and an
    /// id and a trigger of 0 or more, into `groups` under their ids. A later group replaces one of the same
    /// id; other groups that are there stay. A child that is left out counts for the places of those after
    /// it.
    static void parseDataGroups(const DocNode* parent, QMap<int, DataGroup>& groups);
    /// The keys of `groups` (the ids) by their `sequence`, so that iteration follows the order of the file.
    /// Of groups with the same sequence (from different files, say) the one with the highest id is kept.
    static QMap<int, int> sortGroupsBySequence(const QMap<int, DataGroup>& groups);

    QString displayName;   ///< at first `name`; the application may show another
    QString displayAbbrev; ///< at first `abbrev`
    QString name;          ///< "Name"
    QString abbrev;        ///< "Abbrev"
    int id = -1;           ///< "Id"
    int trigger = -1;      ///< "Trigger"; its meaning is the application's
    int algorithm = -1;    ///< "Algorithm"; its meaning is the application's
    int sequence = 0;      ///< place of the element among its siblings

    // "Formats"
    bool ascii = false; ///< "Ascii"
    bool bin = false;   ///< "Bin"

    // "Properties": the keywords are the members' names with a capital first letter
    bool storeFrame = false;
    bool storeContinous = false; ///< Kept: spelled so, "StoreContinous" in files as well
    bool storeLocal = false;
    bool storeRetrigger = false;
    bool storeGroup = false;
    bool showChannels = false;
    bool showSource = false;
    bool showAverage = false;
    bool showSampleTime = false;
    bool showStream = false;
    bool hidePage = false;

    // "ChannelDescr"
    bool channelNumber = false; ///< "Number"
    bool channelName = false;   ///< "Name"
    bool channelSignal = false; ///< "Signal"
    bool channelGroup = false;  ///< "Group"

    bool modified = false; ///< the application's; never set here
    QString condition;     ///< "Condition", as it stands
};
