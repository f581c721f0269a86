#pragma once

#include <QString>
#include <QVector>
#include <vorelutil/platform/export.h>

/// A list of values with captions, as descriptions write it: "Off:Slow=10:Fast:Auto=0x20".
///
/// Entries are separated by ":"; each is a caption, optionally followed by "=" and a value: decimal with an
/// optional sign, hexadecimal ("0x1F"), or octal ("017"). A value that is left out is the one before plus
/// one, the first 0; one after 2147483647 is -2147483648. The last "=" of an entry separates, and white space
/// around captions and values is dropped. A value that is no number, or lies outside 32 bits, counts as left
/// out and stays a part of the caption. Entries without caption (as in "A::B") are skipped and count no
/// value, unless they have a value.
///
/// Positions count the entries as they are written, from 0 on; orders count them by ascending value, from 0
/// on, equal values in the order of their positions. Of entries with the same value or caption, the first one
/// answers. Copyable; functions that do not change it may be called from several threads.
class VORELUTIL_EXPORT EnumMap
{
public:
    EnumMap() = default;
    explicit EnumMap(QString const& text);

    /// Number of entries.
    int count() const { return m_entries.size(); }
    bool isEmpty() const { return m_entries.isEmpty(); }

    /// What stands at a position, or in an order. Outside 0 to `count() - 1`: an empty caption, `dflt`, -1.
    QString captionAt(int position) const;
    int valueAt(int position, int dflt = 0) const;
    int positionInOrder(int order) const;

    /// Position of a value, or of a caption (case counts); -1 when there is none.
    int positionOf(int value) const;
    int positionOf(QString const& caption) const;
    /// Order of a position; -1 outside the list.
    int orderOf(int position) const;

    /// The caption of a value, and the value of a caption; `dflt` when there is none.
    QString caption(int value, QString const& dflt = QString()) const;
    int value(QString const& caption, int dflt = 0) const;

private:
    struct Entry
    {
        QString caption;
        int value;
    };

    QVector<Entry> m_entries; ///< by position
    QVector<int> m_order;     ///< positions, by ascending value
};
