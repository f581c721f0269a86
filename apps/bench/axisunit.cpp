#include "axisunit.h"

#include <vorelutil/algo/prefix.h>
#include <vorelutil/algo/unit.h>

namespace bench {

QString AxisUnit::title(const QString& name) const
{
    return text.isEmpty() ? name : QStringLiteral("%1 [%2]").arg(name, text);
}

AxisUnit axisUnit(double largest, int unitCode, int divisor)
{
    AxisUnit unit;
    if (divisor != 0) unit.factor = 1.0 / divisor;
    char prefix = 0;
    const QString name = QString::fromUtf8(algoGetBaseUnit(unitCode, &prefix, nullptr));
    if (name.isEmpty()) return unit;
    double value = largest * unit.factor;
    if (value != 0.0) {
        double factor = 1.0;
        prefix = algoNormalize(&value, prefix, &factor, 0);
        unit.factor *= factor;
    }
    unit.text = algoGetPrintablePrefix(prefix) + name;
    return unit;
}

} // namespace bench
