#include "enummap.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <optional>
#include <QStringRef>

namespace {

int digitOf(QChar character)
{
    const ushort code = character.unicode();
    if (code >= '0' && code <= '9') return code - '0';
    const int letter = code | 0x20;
    return code < 0x80 && letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : 99;
}

/// A value as the map writes it, a whole text of ASCII.
std::optional<int> numberIn(QStringRef text)
{
    const bool negative = text.startsWith(QLatin1Char('-'));
    if (negative || text.startsWith(QLatin1Char('+'))) text = text.mid(1);
    int base = 10;
    if (text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive)) {
        base = 16;
        text = text.mid(2);
    } else if (text.startsWith(QLatin1Char('0'))) {
        base = 8;
    }
    const qint64 largest = base == 10 ? std::numeric_limits<int>::max() : 0xFFFFFFFF;
    const qint64 limit = negative ? qint64(1) << 31 : largest;

    if (text.isEmpty()) return std::nullopt;
    qint64 number = 0;
    for (const QChar character : text) {
        const int digit = digitOf(character);
        if (digit >= base) return std::nullopt;
        number = number * base + digit;
        if (number > limit) return std::nullopt;
    }
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(negative ? -number : number));
}

int successor(int value)
{
    return value == std::numeric_limits<int>::max() ? std::numeric_limits<int>::min() : value + 1;
}

} // namespace

EnumMap::EnumMap(QString const& text)
{
    int next = 0;
    for (int begin = 0; begin < text.size();) {
        int end = text.indexOf(QLatin1Char(':'), begin);
        if (end < 0) end = text.size();
        QStringRef caption = text.midRef(begin, end - begin).trimmed();
        begin = end + 1;

        std::optional<int> value;
        const int sign = caption.lastIndexOf(QLatin1Char('='));
        if (sign >= 0) {
            value = numberIn(caption.mid(sign + 1).trimmed());
            if (value) caption = caption.left(sign).trimmed();
        }
        if (caption.isEmpty() && !value) continue;
        m_entries.append({caption.toString(), value.value_or(next)});
        next = successor(m_entries.constLast().value);
    }
    m_order.resize(m_entries.size());
    std::iota(m_order.begin(), m_order.end(), 0);
    std::stable_sort(m_order.begin(), m_order.end(),
                     [this](int left, int right) { return valueAt(left) < valueAt(right); });
}

QString EnumMap::captionAt(int position) const
{
    return position >= 0 && position < count() ? m_entries[position].caption : QString();
}

int EnumMap::valueAt(int position, int dflt) const
{
    return position >= 0 && position < count() ? m_entries[position].value : dflt;
}

int EnumMap::positionInOrder(int order) const
{
    return order >= 0 && order < count() ? m_order[order] : -1;
}

int EnumMap::positionOf(int value) const
{
    const auto found =
        std::lower_bound(m_order.begin(), m_order.end(), value,
                         [this](int position, int sought) { return valueAt(position) < sought; });
    return found != m_order.end() && valueAt(*found) == value ? *found : -1;
}

int EnumMap::positionOf(QString const& caption) const
{
    for (int position = 0; position < count(); ++position) {
        if (m_entries[position].caption == caption) return position;
    }
    return -1;
}

int EnumMap::orderOf(int position) const
{
    return m_order.indexOf(position);
}

QString EnumMap::caption(int value, QString const& dflt) const
{
    const int position = positionOf(value);
    return position >= 0 ? m_entries[position].caption : dflt;
}

int EnumMap::value(QString const& caption, int dflt) const
{
    return valueAt(positionOf(caption), dflt);
}
