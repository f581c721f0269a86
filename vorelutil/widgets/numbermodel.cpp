#include "numbermodel.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <QStringBuilder>
#include <QStringView>
#include <vorelutil/algo/prefix.h>
#include <vorelutil/algo/rounding.h>
#include <vorelutil/eval/evaluator.h>
#include <vorelutil/trace/error.h>

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// No double has more significant digits than this, and no exponent is as large: more do not change the text,
// they only take memory.
constexpr int mostDigits = 800;

// Behind these, rounding leaves the 32-bit range.
constexpr double signedBegin = -2147483648.5;
constexpr double signedEnd = 2147483647.5;
constexpr double unsignedEnd = 4294967295.5;

constexpr double secondsOfHour = 3600;
constexpr double secondsOfMinute = 60;
constexpr double timeFrom = 60;
constexpr double timeBefore = 9223372036854775808.0; // 2^63

/// The value of a conversion formula, NaN when it does not evaluate.
double formulaValue(const std::string& formula, double scale, double offset, double x)
{
    try {
        Evaluator evaluator;
        evaluator.setVariable("scale", scale);
        evaluator.setVariable("offset", offset);
        evaluator.setVariable("x", x);
        return evaluator.evaluateDouble(formula);
    } catch (const Error&) {          // the formula
    } catch (const std::exception&) { // the memory
    }
    return notANumber;
}

int roundedRaw(double raw, bool isUnsigned)
{
    return isUnsigned ? static_cast<int>(algoNearestU(raw)) : algoNearest(raw);
}

// Fields show values as fast as they come, so what normalising leaves, at usual resolutions, is written here.
constexpr int usualDigits = 9;
constexpr double powersOfTen[usualDigits + 1] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
constexpr double nearTie = 1e-5; ///< far above what a product below 1e9 is rounded by

/// Writes what `QString::number(n, 'g', digits)` does and returns the end, or null where it takes the toolkit
/// to tell: outside 1 to 1000, with unusual digits, next to a tie, and where rounding adds a digit.
char* writeUsual(double n, int digits, char* out)
{
    const double size = std::fabs(n);
    if (!(size >= 1 && size < 1000)) return nullptr;
    const int whole = size < 10 ? 1 : size < 100 ? 2 : 3;
    if (digits < whole || digits > usualDigits) return nullptr;

    int decimals = digits - whole;
    const double scaled = size * powersOfTen[decimals];
    const double cut = std::floor(scaled);
    if (std::fabs(scaled - cut - 0.5) < nearTie) return nullptr;
    auto number = static_cast<std::uint32_t>(cut) + (scaled - cut > 0.5 ? 1U : 0U);
    if (number >= powersOfTen[digits]) return nullptr;
    for (; decimals > 0 && number % 10 == 0; --decimals) number /= 10;

    if (n < 0) *out++ = '-';
    char* const end = std::to_chars(out, out + usualDigits, number).ptr;
    if (decimals == 0) return end;
    char* const point = end - decimals;
    std::memmove(point + 1, point, static_cast<std::size_t>(decimals));
    *point = '.';
    return end + 1;
}

QString timeText(double seconds)
{
    const auto whole = static_cast<long long>(seconds);
    const auto twoDigits = [](long long n) {
        return n < 10 ? QString(QLatin1Char('0') % QString::number(n)) : QString::number(n);
    };
    return twoDigits(whole / 3600) % QLatin1Char(':') % twoDigits(whole / 60 % 60) % QLatin1Char(':') %
           twoDigits(whole % 60) % QLatin1String(" h");
}

/// "h:m:s", without blanks; 0 unless there are three parts, and a part that is no number counts as 0.
double parseTime(const QString& text, bool* valid)
{
    const int first = text.indexOf(QLatin1Char(':'));
    const int second = first < 0 ? -1 : text.indexOf(QLatin1Char(':'), first + 1);
    if (second < 0 || text.indexOf(QLatin1Char(':'), second + 1) >= 0) {
        if (valid != nullptr) *valid = false;
        return 0;
    }
    bool hoursValid = false;
    bool minutesValid = false;
    bool secondsValid = false;
    const auto hours = static_cast<double>(text.leftRef(first).toLongLong(&hoursValid));
    const auto minutes =
        static_cast<double>(text.midRef(first + 1, second - first - 1).toLongLong(&minutesValid));
    const auto seconds = static_cast<double>(text.midRef(second + 1).toLongLong(&secondsValid));
    if (valid != nullptr) *valid = hoursValid && minutesValid && secondsValid;
    return hours * secondsOfHour + minutes * secondsOfMinute + seconds;
}

enum class UnitFound
{
    None,
    Part,
    Whole
};

/// How much of `unit` stands at the end of `lower`; the number of its characters goes to `*length`.
UnitFound findUnit(const QString& lower, const QString& unit, int* length)
{
    *length = unit.size();
    if (unit.isEmpty()) return UnitFound::None;
    if (lower.endsWith(unit)) return UnitFound::Whole;
    for (*length = std::min(unit.size() - 1, lower.size()); *length > 0; --*length) {
        if (QStringView(lower).endsWith(QStringView(unit).left(*length))) return UnitFound::Part;
    }
    return UnitFound::None;
}

/// Drops the end of `text` that fills `count` characters in lower case. A few characters are longer there.
void chopLower(QString* text, int count)
{
    int kept = text->size();
    while (count > 0 && kept > 0) {
        --kept;
        count -= QString(text->at(kept)).toLower().size();
    }
    text->truncate(kept);
}

/// The last character, when something stands before it; '*' is never a prefix.
char prefixCandidate(const QString& text)
{
    const ushort last = text.size() < 2 ? '*' : text.at(text.size() - 1).unicode();
    return last > 0xFF ? '*' : static_cast<char>(last);
}

} // namespace

double NumberModel::value2Number(int v) const
{
    const double x = unsignedInput ? static_cast<double>(static_cast<unsigned>(v)) : static_cast<double>(v);
    const double unit = algoGetPrefixFactor(inputPf);
    if (value2NumberFormula.empty()) return (x - offset) * unit * factor;
    return formulaValue(value2NumberFormula, factor, offset, x) * unit;
}

double NumberModel::rawResult(double n) const
{
    const double x = n / algoGetPrefixFactor(inputPf);
    if (number2ValueFormula.empty()) return x / factor + offset;
    return formulaValue(number2ValueFormula, factor, offset, x);
}

int NumberModel::number2Value(double n) const
{
    return roundedRaw(rawResult(n), unsignedInput);
}

int NumberModel::prefixedNumber2Value(double n) const
{
    return roundedRaw(offset + n / factor, unsignedInput);
}

bool NumberModel::checkNumberValid(double n) const
{
    const int v = number2Value(n);
    const double back = value2Number(v);
    // Written so that NaN is not valid.
    if (!(std::fabs(algoGetPrefixFactor(inputPf) * factor) > std::fabs(n - back))) return false;
    return !limitsOn() || (minimum <= v && v <= maximum);
}

bool NumberModel::hasRawValue(double n) const
{
    if (!std::isfinite(n)) return false;
    const double raw = rawResult(n); // NaN is within no bounds
    if (unsignedInput) return raw < unsignedEnd;
    return raw > signedBegin && raw < signedEnd;
}

double NumberModel::rawStep(int v) const
{
    const bool last = unsignedInput ? static_cast<unsigned>(v) == std::numeric_limits<unsigned>::max()
                                    : v == std::numeric_limits<int>::max();
    const auto neighbour = static_cast<int>(static_cast<unsigned>(v) + (last ? ~0U : 1U));
    return std::fabs(value2Number(v) - value2Number(neighbour));
}

QString NumberModel::normalizedText(double n, char* pfOut) const
{
    const char largest = inputPf == 'X' ? 'X' : ' ';
    char pf = ' ';
    switch (outputPfSelect) {
    case PfStatic:
        pf = algoNormalizeFixed(&n, largest, inputPf);
        break;
    case PfUseInput:
        pf = algoNormalizeFixed(&n, largest, currentPf);
        break;
    case PfDynamic:
    default:
        pf = algoNormalize(&n, largest, nullptr, resolution);
        break;
    }
    if (n == 0.0) pf = currentPf;
    if (pfOut != nullptr) *pfOut = pf;
    return numberText(n, pf, baseUnit, resolution);
}

double NumberModel::parse(const QString& text, bool* valid, char* prefix, bool* incomplete) const
{
    return parseNumber(text, baseUnit, currentPf, valid, prefix, incomplete);
}

QString numberText(double n, char prefix, const QString& baseUnit, int resolution)
{
    if (baseUnit.size() == 1 && baseUnit.at(0) == QLatin1Char('s')) {
        const double seconds = algoGetPrefixFactor(prefix) * n;
        if (seconds >= timeFrom && seconds < timeBefore) return timeText(seconds);
    }
    const QString printable = prefix == ' ' ? QString() : algoGetPrintablePrefix(prefix);
    char usual[usualDigits + 2]; // a sign and a point
    if (const char* const end = writeUsual(n, resolution, usual)) {
        return QLatin1String(usual, static_cast<int>(end - usual)) % QLatin1Char(' ') % printable % baseUnit;
    }
    return QString::number(n, 'g', std::min(resolution, mostDigits)) % QLatin1Char(' ') % printable %
           baseUnit;
}

double parseNumber(const QString& text, const QString& baseUnit, char defaultPf, bool* valid, char* prefix,
                   bool* incomplete)
{
    QString rest = text.simplified();
    const QString unit = baseUnit.simplified().toLower(); // blanks as in the text
    // The end alone: the toolkit takes quadratic time for some letters. One more for a split pair.
    const QString lower = rest.right(unit.size() + 1).toLower();
    int unitLength = 0;
    const UnitFound found = findUnit(lower, unit, &unitLength);

    if (found == UnitFound::None && unit == QLatin1String("s") && lower.endsWith(QLatin1Char('h'))) {
        if (incomplete != nullptr) *incomplete = false;
        rest.chop(1);
        return parseTime(rest.remove(QLatin1Char(' ')), valid);
    }

    if (found != UnitFound::None) chopLower(&rest, unitLength);
    char pf = prefixCandidate(rest);
    if (algoGetPrefixFactor(pf) == 0.0) {
        pf = found != UnitFound::None ? ' ' : prefix != nullptr ? *prefix : defaultPf;
    } else {
        rest.chop(1);
    }
    if (prefix != nullptr) *prefix = pf;

    bool converts = false;
    const double number = rest.remove(QLatin1Char(' ')).toDouble(&converts);
    if (valid != nullptr) *valid = converts;
    if (incomplete != nullptr) *incomplete = found != UnitFound::Whole;
    return algoGetPrefixFactor(pf) * number;
}
