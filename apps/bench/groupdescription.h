#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>
#include <vorelutil/config/datagroup.h>

namespace bench {

/// A description of data groups as an operator reads it: its groups, what is wrong with it, and its text.
struct GroupDescription
{
    static constexpr int readLimit = 32 * 1024 * 1024; ///< bytes; a longer file is refused
    static constexpr int tagLimit = 500000;            ///< in a file with more none is listed
    static constexpr int problemLimit = 1000;          ///< problems that are listed

    struct Group
    {
        DataGroup group;
        int line = 0; ///< where its start tag begins
    };

    struct Problem
    {
        QString text;
        int line = 0;         ///< 0: none is known
        bool isError = false; ///< nothing is listed; otherwise the rest of the file is
    };

    QString name;              ///< the file's name without its folder
    QByteArray source;         ///< as it was read; empty when the file was not read
    QVector<Group> groups;     ///< in the order of the file; empty after an error
    QVector<Problem> problems; ///< in the order of the file, but for what concerns it as a whole

    int unlisted = 0; ///< problems beyond those

    /// "groups.xml, line 12: Comment expected"; without the line when none is known.
    QString problemText(const Problem& problem) const;
};

/// Reads a file. Nothing is thrown: what is wrong stands in `problems`. Waits for nothing but the disk: a
/// pipe or a device is refused as a folder is.
GroupDescription readGroups(const QString& path);

/// Reads what a file of this name would hold, in the same way.
GroupDescription parseGroups(const QByteArray& source, const QString& name);

/// The example that the program brings with it.
GroupDescription exampleGroups();

/// A text on one line, cut when it is longer than `length`; for what a file may hold.
QString shortened(const QString& text, int length);

} // namespace bench
