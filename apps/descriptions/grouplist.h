#pragma once

#include <limits>
#include <QString>
#include <QVector>
#include <string_view>
#include <vorelutil/config/datagroup.h>

/// Descriptions of data groups as people read them: with lines, and with what is wrong.
namespace descriptions {

struct Group
{
    DataGroup group;
    int line = 0; ///< where its start tag begins
};

struct Problem
{
    QString text;         ///< one line, without control characters
    int line = 0;         ///< of an element: where its start tag begins; 0: none is known
    bool isError = false; ///< there are no groups for it
};

struct GroupList
{
    QVector<Group> groups;     ///< as `DataGroup::parseDataGroups` gives them, in the order of the file
    QVector<Problem> problems; ///< in the order of the file, but for what concerns it as a whole
    int unlisted = 0;          ///< problems beyond those that were asked for
};

/// Lists the groups of a document, which was read from `source`, and tells which elements are left out or
/// replaced, which numbers may be read as others than were meant, and what of the text was not read as it
/// stands. An empty document has a problem that is an error, as one without groups has.
GroupList listGroups(const XmlDoc& document, std::string_view source,
                     int mostProblems = std::numeric_limits<int>::max());

/// A text on one line, without control characters, cut when it is longer than `length`; for what a file may
/// hold.
QString shortened(const QString& text, int length);

} // namespace descriptions
