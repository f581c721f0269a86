#pragma once

#include <QByteArray>
#include <QVector>

namespace bench {

/// The lines on which the children of a document's root begin, in their order; lines count from 1.
///
/// The parser notes where it was after a tag, which is the next line as a rule. `source` must be a document
/// that it accepts; of any other the result means nothing.
QVector<int> childLines(const QByteArray& source);

} // namespace bench
