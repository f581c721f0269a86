#pragma once

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QPair>
#include <QString>

/// The text of a settings file (docs/formats/settings.md): what it says, whether it is whole, and how it is
/// changed. Works on the bytes of whole files; knows no files and no settings. Any bytes are accepted.
namespace settingstext {

using Key = QPair<QString, QString>; ///< owner and name, neither empty
using Values = QHash<Key, QString>;  ///< no value is null
using Changes = QMap<Key, QString>;  ///< the new value; null: the key goes

/// Whether nothing of the file seems to be lost. An empty one is whole.
bool isWhole(const QByteArray& bytes);

/// The values. Of a key that stands there more than once the first counts, as a setting takes one value.
Values read(const QByteArray& bytes);

/// The file with the changes. Lines that they do not touch stay as they are, byte for byte, among them those
/// that are no values; only the first and the last line of a whole file are put where they belong.
QByteArray merge(const QByteArray& bytes, const Changes& changes);

} // namespace settingstext
