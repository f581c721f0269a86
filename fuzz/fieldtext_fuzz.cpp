// Any text in a field of any settings: judged, committed, stepped, given up, and rendered anew. The field
// never throws, its state says what its text is, and a text that it wrote itself reads back as the same
// value.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <QApplication>
#include <vector>
#include <vorelutil/widgets/dbledit.h>
#include <vorelutil/widgets/unitedit.h>

// What the toolkit's libraries keep is no leak of ours.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig\nleak:libQt5\nleak:libglib\n";
}

namespace {

void require(bool condition)
{
    if (!condition) std::abort();
}

bool same(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

/// The input, read from its begin; zeros behind its end.
class Bytes
{
public:
    Bytes(const std::uint8_t* data, std::size_t size)
        : m_data(data)
        , m_left(size)
    {
    }

    template <typename T> T take()
    {
        T value{};
        const std::size_t count = std::min(m_left, sizeof value);
        std::memcpy(&value, m_data, count);
        skip(count);
        return value;
    }

    /// One of a table.
    template <typename T, std::size_t size> T choose(const T (&table)[size])
    {
        return table[take<std::uint8_t>() % size];
    }

    /// Up to the next end of line, or the end.
    QString line()
    {
        const auto* const end = std::find(m_data, m_data + m_left, '\n');
        const auto count = static_cast<std::size_t>(end - m_data);
        const QString text =
            QString::fromUtf8(reinterpret_cast<const char*>(m_data), static_cast<int>(count));
        skip(std::min(count + 1, m_left));
        return text;
    }

private:
    void skip(std::size_t count)
    {
        m_data += count;
        m_left -= count;
    }

    const std::uint8_t* m_data;
    std::size_t m_left;
};

constexpr char prefixes[] = {' ', 'm', 'k', '\xB5', 'u', 'X', 'Y', 'y', 'G', '?', '\0'};
constexpr double factors[] = {1, 0.001, 2.5, -1, 1e9, 1.0 / 3, 0, 1e300, INFINITY, NAN};
constexpr double offsets[] = {0, 10, -2147483648.0, 0.5, 1e20, INFINITY};
constexpr double tolerances[] = {0, 0.01, 1e-11};
constexpr int resolutions[] = {4, 17, 0, 1, 9, 100, 2147483647};

bool isPlain(const QString& unit)
{
    return !unit.isEmpty() &&
           std::all_of(unit.begin(), unit.end(), [](QChar c) { return c.isLetter() && c.unicode() < 128; });
}

/// Whether 17 digits and the unit say exactly which raw value the field shows.
bool readsBack(const UnitEdit& field)
{
    const double factor = std::fabs(field.inputFactor());
    const bool isTime = field.baseUnit() == "s" && field.text().endsWith('h');
    return field.resolution() >= 17 && isPlain(field.baseUnit()) && !isTime &&
           field.toNumberFormula().isEmpty() && field.toValueFormula().isEmpty() && factor > 1e-6 &&
           factor < 1e6 && std::fabs(field.inputOffset()) < 1e6 && field.inputPrefix() != '?' &&
           field.inputPrefix() != '\0';
}

void requireAgreement(const UnitEdit& field)
{
    bool converts = false;
    const double n = field.getNumber(&converts);
    require(field.isValid() == (converts && field.checkNumberValid(n)));
    require(field.status() == (field.isValid() ? UnitEdit::EsEditValid : UnitEdit::EsEditInvalid));
    // What is remembered of the text is what reading it once more gives.
    if (!field.text().isEmpty()) require(same(n, field.getNumber(nullptr, nullptr, nullptr, field.text())));
}

void requireShown(const UnitEdit& field)
{
    require(field.status() == UnitEdit::EsIdle && !field.isReadOnly() && !field.isTextDirty());
    if (field.isValueShown() && readsBack(field))
        require(field.number2Value(field.getNumber()) == field.getValue());
}

void tryUnitEdit(Bytes input)
{
    const auto flags = input.take<std::uint8_t>();
    UnitEdit field(nullptr, static_cast<UnitEdit::DfltInputPf>(flags % 3), nullptr, (flags & 4) != 0);
    std::vector<int> announced;
    QObject::connect(&field, &UnitEdit::changed, [&](int value) { announced.push_back(value); });
    field.setInputUnsigned((flags & 8) != 0);
    field.setOutputPrefixSelection(static_cast<UnitEdit::OutputPfSelect>(flags >> 6));
    field.setInputPrefix(input.choose(prefixes), false);
    field.setInputFactor(input.choose(factors), false);
    field.setInputOffset(input.choose(offsets), false);
    field.setTolerance(input.choose(tolerances));
    field.setResolution(input.choose(resolutions));
    field.setMinimum(input.take<std::int16_t>());
    field.setMaximum(input.take<std::int16_t>());
    const int value = input.take<int>();
    const int steps = input.take<std::int8_t>();
    field.setBaseUnit(input.line());
    const QString text = input.line();
    const QString toNumber = input.line();
    field.setFormulas(toNumber, input.line());

    field.setValue(value, (flags & 16) != 0);
    requireShown(field);

    const QString former = field.text();
    field.setText(text);
    if (field.text() != former) {
        requireAgreement(field);
        const int before = field.getValue();
        const int typed = field.number2Value(field.getNumber());
        const bool wasValid = field.isValid();
        field.setValue(~value, false);
        require(field.getValue() == before && UnitEdit::isStatusEditing(field.status()));
        if ((flags & 32) != 0) {
            if (field.step(steps)) requireAgreement(field);
        } else {
            field.commit();
            require(announced.size() <= 1 && (wasValid || announced.empty()));
            require(announced.empty() ? field.getValue() == before
                                      : announced[0] == typed && typed == field.getValue());
        }
    }
    field.restore();
    requireShown(field);
    field.setNumber(field.getNumber(), true);
    field.setValueAndCommit(value, false);
}

void tryDblEdit(Bytes input)
{
    DblEdit field;
    const auto flags = input.take<std::uint8_t>();
    int announced = 0;
    QObject::connect(&field, &DblEdit::changed,
                     [&](double n) { announced += same(n, field.getNumber()) ? 1 : 2; });
    field.setResolution(input.choose(resolutions));
    field.setTolerance(input.choose(tolerances));
    const auto minimum = input.take<float>();
    const auto maximum = input.take<float>();
    const auto number = input.take<double>();
    field.configure(input.line(), static_cast<double>(minimum), static_cast<double>(maximum));
    field.setNumber(number, (flags & 1) != 0);
    const QString former = field.text();
    field.setText(input.line());
    if (field.text() != former) {
        bool converts = false;
        const double n = field.parseNumber(&converts);
        require(field.isValid() == (converts && field.checkNumberValid(n)));
    }
    const bool wasValid = field.isValid();
    if ((flags & 2) != 0) field.step(flags - 128);
    const double before = field.getNumber();
    field.commit();
    require(announced <= 1 && (announced == 1 || same(before, field.getNumber())));
    require(wasValid || announced == 0);
    require(announced == 0 || field.checkNumberValid(field.getNumber()));
    field.restore();
    require(field.text() == field.normalizedText(field.getNumber()) && field.status() == DblEdit::EsIdle);
}

void startToolkit()
{
    static char name[] = "fieldtext";
    static char* arguments[] = {name, nullptr};
    static int count = 1;
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    static QApplication application(count, arguments);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    startToolkit();
    if (size == 0) return 0;
    const Bytes rest(data + 1, size - 1);
    if (data[0] % 4 == 3) {
        tryDblEdit(rest);
    } else {
        tryUnitEdit(rest);
    }
    return 0;
}
