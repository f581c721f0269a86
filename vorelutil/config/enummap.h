#pragma once

#include <QString>
#include <QVector>
#include <vorelutil/platform/export.h>

/// A list of values with captions, as descriptions write it: "Off:Slow=10:Fast:Auto=0x20".
///
/// Entries are separated by ":"; each is a caption, optionally followed by "=" and a value: decimal,
/// hexadecimal ("0x1F", "0X1f"), or octal ("017"), each with an optional sign. White space around entries,
/// captions and values is dropped. A value that is left out is the one before plus one, the first 0; one
/// after 2147483647 is -2147483648. Hexadecimal and octal values above 2147483647 that fit into 32 bits are
/// the negative ones of the same bits: 0xFFFFFFFF is -1.
///
/// The last "=" of an entry separates. What follows it and is no value, as a whole, counts as left out and
/// stays a part of the caption: "x >=", "Mode=fast", "A=08" and "A=4294967296" are captions. Entries without
/// caption (as in "A::B") are skipped and count no value, unless they have a value ("A:=5:B": B is 6).
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
