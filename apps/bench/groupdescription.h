#pragma once

#include <apps/descriptions/grouplist.h>
#include <QByteArray>
#include <QString>

namespace bench {

/// A description of data groups as an operator reads it: its groups, what is wrong with it, and its text.
struct GroupDescription
{
    static constexpr int readLimit = 32 * 1024 * 1024; ///< bytes; a longer file is refused
    /// "<" in a file, those of end tags and comments among them; with more nothing is listed.
    static constexpr int bracketLimit = 500000;
    static constexpr int problemLimit = 999; ///< problems that are listed

    QString name;      ///< the file's name without its folder
    QByteArray source; ///< as it was read; empty when the file was not read
    descriptions::GroupList list;

    /// "groups.xml, line 12: Comment expected"; without the line when none is known.
    QString problemText(const descriptions::Problem& problem) const;
};

/// Reads a file. Nothing is thrown: what is wrong stands in `list`. Waits for nothing but the disk: a
/// pipe or a device is refused as a folder is.
GroupDescription readGroups(const QString& path);

/// Reads what a file of this name would hold, in the same way.
GroupDescription parseGroups(const QByteArray& source, const QString& name);

/// The example that the program brings with it.
GroupDescription exampleGroups();

} // namespace bench
