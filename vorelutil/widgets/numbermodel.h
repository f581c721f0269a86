#pragma once

#include <QString>
#include <string>

/// The arithmetic and the texts behind a value field: raw integer to number, number to text, and back.
///
/// Numbers are in base units (seconds, volts); prefixes are those of algo/prefix.h. Not installed, no
/// widgets: `UnitEdit` owns one and fills in its settings, `DblEdit` uses the two functions at the end.
/// Everything is a pure function of its arguments and the settings; nothing throws but `std::bad_alloc`. The
/// texts do not depend on the locale.
struct NumberModel
{
    /// Which prefix a number is shown with. The values are those of `UnitEdit::OutputPfSelect`; any other
    /// acts as `PfDynamic`.
    enum OutputPfSelect : int
    {
        PfDynamic = 0, ///< by the number's magnitude
        PfStatic = 1,  ///< always `inputPf`
        PfUseInput = 2 ///< `currentPf`
    };

    char inputPf = ' ';         ///< prefix in which `factor` counts; 'X': none, never normalise
    char currentPf = ' ';       ///< prefix of a text without a prefix letter, and of zero
    double factor = 1.0;        ///< one raw step, in units of `inputPf` + `baseUnit`
    double offset = 0.0;        ///< raw value of the number zero
    QString baseUnit;           ///< trimmed
    int minimum = -1;           ///< of the raw value
    int maximum = 1;            ///< of the raw value; limits are off unless above `minimum`
    int resolution = 4;         ///< significant digits shown; 0 counts as 1
    bool unsignedInput = false; ///< raw values are read as unsigned
    OutputPfSelect outputPfSelect = PfDynamic; ///< how the displayed prefix is chosen
    std::string value2NumberFormula;           ///< replaces the linear mapping unless empty
    std::string number2ValueFormula;           ///< replaces the linear mapping unless empty

    /// The number that a raw value stands for.
    ///
    /// Linear: (v - `offset`) * prefix factor * `factor`. With a formula: its result for "x" = v, "scale" =
    /// `factor`, "offset" = `offset`, times the prefix factor. NaN when the formula does not evaluate.
    double value2Number(int v) const;

    /// The raw value next to a number: `rawResult` rounded by `algoNearestU` when unsigned, else by
    /// `algoNearest`, and so for numbers that do not fit: signed ones give INT_MIN; unsigned ones give 0
    /// below zero and for NaN, and wrap modulo 2^32 above 4294967295 (0 from 2^63 on).
    int number2Value(double n) const;

    /// The same before it is rounded: n / prefix factor / `factor` + `offset`. With a formula: its result for
    /// "x" = n / prefix factor, "scale" and "offset"; NaN when it does not evaluate.
    double rawResult(double n) const;

    /// Whether `n` is finite, and rounding its raw result gives neither a wrapped value nor what stands for
    /// NaN or for a result that does not fit. Kept: unsigned, a result below zero counts as 0, and is fine.
    bool hasRawValue(double n) const;

    /// As `number2Value` for a number in units of `inputPf`: `offset` + n / `factor`. Kept: no formula.
    int prefixedNumber2Value(double n) const;

    /// Whether a number has a raw value less than one raw step away that lies within the limits. False for
    /// NaN.
    bool checkNumberValid(double n) const;

    bool limitsOn() const { return maximum > minimum; }

    /// What one raw step changes in the number at raw value `v`, not negative; NaN where the formula fails.
    /// Measured from v to v + 1, at the largest raw value from v - 1.
    double rawStep(int v) const;

    /// The text of a number with the prefix that the settings choose; the prefix goes to `*pfOut` unless
    /// null. Kept: exactly zero shows with `currentPf`, whatever the settings choose.
    QString normalizedText(double n, char* pfOut = nullptr) const;

    /// `parseNumber` with the model's unit and `currentPf`.
    double parse(const QString& text, bool* valid = nullptr, char* prefix = nullptr,
                 bool* incomplete = nullptr) const;
};

/// "12.5 ms": the number, a blank, the printable prefix and the unit.
///
/// `n` is in units of `prefix`. It is written as `QString::arg` writes a double with format 'g' and
/// `resolution` digits (0 counts as 1): exact ties are rounded away from zero, NaN and infinities read "nan"
/// and "inf". With the unit "s", from 60 s on, it is "01:02:05 h" instead: hours, minutes and seconds, cut,
/// not rounded. Kept: the time is the prefix's factor times the number as scaled, and may so be a hair below
/// a whole second: 1001 s (1.001 k) reads "00:16:40 h". A time beyond 64 bits has the first form.
QString numberText(double n, char prefix, const QString& baseUnit, int resolution);

/// Reads a number with unit and prefix; the number in base units.
///
/// White space counts at most as a separator, also within the unit. The text ends with the unit, with the
/// first characters of it, or without; case does not matter there. Before it may stand a prefix letter, whose
/// case does matter; a letter alone is none. The rest is read by `QString::toDouble`. Without a prefix letter
/// a unit, or a part of it, means no prefix; without a unit either, the prefix is `*prefix`, or `defaultPf`
/// when that is null. "h:m:s h" is a time where the unit is s: three decimal integers of 64 bits. Kept: the
/// unit S reads times, too.
///
/// `*valid` tells whether it converted. Where it did not the result is 0, but infinite for a number beyond
/// the largest double ("1e999"), and a time of three parts counts those that are none as 0 ("1:x:3 h" ->
/// 3603); a time with another number of parts is 0. `*prefix` receives the prefix used; a time leaves it
/// alone. `*incomplete` tells whether the unit was not complete; with an empty unit it always is. Each may be
/// null. Unit m: "5 mm" -> 0.005; unit Hz: "3 kH" -> 3000, incomplete.
double parseNumber(const QString& text, const QString& baseUnit, char defaultPf, bool* valid = nullptr,
                   char* prefix = nullptr, bool* incomplete = nullptr);
