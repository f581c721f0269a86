#pragma once

#include <QString>

namespace bench {

/// How raw integers of one quantity are shown: a factor, and the unit with its prefix.
struct AxisUnit
{
    double factor = 1.0; ///< shown value = raw value * factor
    QString text;        ///< "nm"; empty without a unit

    /// "x [nm]", or the name alone without a unit.
    QString title(const QString& name) const;
};

/// The prefix that shows `largest` raw counts as a number from 1 to 1000. `divisor` is the raw counts per
/// unit of `unitCode` (0 counts as 1). A unit that is not scaled stays as it is, and so does a `largest` of
/// 0.
AxisUnit axisUnit(double largest, int unitCode, int divisor = 1);

} // namespace bench
