#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>
#include <vorelutil/platform/export.h>

/// Computes formulas that users and configuration files write, such as the conversions of a value field.
///
/// The language has no infix operators: every operation is a call, "NAME(ARGUMENT,...)", and "+" or "?" are
/// names like any other. So a factor and an offset are "+(*(x,scale),offset)". What is no call is a number or
/// the name of a variable. White space (the six ASCII characters) around names, arguments and the
/// whole formula does not count. Names are bytes, case matters.
///
/// - Numbers are decimal ("2.5", "-1e3", "+.5"; the decimal point in every locale), or "0x" and a signed
///   32-bit hexadecimal number ("0x1F"). Kept: blanks, a sign and a second "0x" may follow the "0x", as
///   stream extraction takes them. What such a read would not take to the end ("12abc", "1e", "0X1F", "inf",
///   "1e400", "0x80000000") is no number but a name; what is too small for a double ("1e-400") is 0.
/// - A name with exactly one "#" is composed: what follows the "#" is evaluated, written with six significant
///   digits, and appended to what precedes it. "gain#+(x,1)" with x = 5 is the variable "gain6". Kept: with
///   two or more "#" the text itself is the name. A "#" outside parentheses, even behind a call, makes a
///   name of the whole ("f(1)#2").
/// - Kept: there are no grouping parentheses; "(1)" is an error. Text after the parenthesis that closes a
///   call is ignored. "f()" has one empty argument, which is an error of its own. A formula whose first
///   parenthesis never closes is taken for a name.
///
/// All arguments are evaluated, from left to right; there is no short cut ("?(c,a,b)" evaluates a and b).
/// Nesting is limited by memory alone, and the time grows with the length of the formula.
///
/// The constructor provides these functions, here with the number of their arguments; "rounded" is
/// `algoNearest`, so that NaN and what does not fit 32 bits becomes -2147483648:
///
/// - "+", "*" (2 to 10): sum, product, from left to right.
/// - "-", "/" (2): difference, quotient (by 0: an infinity or NaN, no error).
/// - "%" (2): remainder of the rounded arguments, with the sign of the dividend; 0 where it is not defined (a
///   divisor that rounds to 0) and for -2147483648 and -1.
/// - "==", "!=", ">", ">=", "<", "<=" (2): 1 or 0; with a NaN 0, but "!=" 1.
/// - "?" (3): the second if the first is not 0 (a NaN is not 0), else the third.
/// - "??" (3 to 10): the first, cut to an integer, says which of the others, counted from 0. Kept: where it
///   is below 0 or beyond the last of them (or NaN) it is itself the result, uncut.
/// - "and", "or" (2 to 10): 1 or 0, of the rounded arguments, so that 0.4 is false.
/// - "!" (1): 1 if the argument is 0, else 0. Kept: it is not rounded: 0.4 and NaN give 0.
/// - "band", "bor" (2 to 10): bits of the rounded arguments, as a signed 32-bit number.
/// - "exp2" (1): 1 shifted left by the lowest five bits of the rounded argument, as a signed 32-bit number.
///   Kept: 31 and -1 give -2147483648, 32 gives 1.
/// - "log2" (1): logarithm to the base 2.
///
/// The evaluating functions do not change the evaluator; several threads may evaluate on one evaluator as
/// long as none changes its tables at the same time. Constructing one is cheap: the built-in table is shared
/// until the first `setFunction`. Copies are independent.
class VORELUTIL_EXPORT Evaluator
{
public:
    /// Computes a call from its arguments, in order. It may evaluate other formulas, but not change the
    /// tables of the evaluator that calls it; what it throws passes through the evaluation.
    using Function = double (*)(const std::vector<double>& arguments);

    struct FctInfo
    {
        Function function;
        int minArgs; ///< least number of arguments
        int maxArgs; ///< greatest number of arguments
    };

    /// The functions above, no variables.
    Evaluator();

    /// Evaluates `expr`. `source` and `line` say where the formula came from; they appear in the error only.
    ///
    /// Every failure of the formula is an `XmlError` with `source` and `line`; "..." stands for the text that
    /// failed: the whole formula as passed, an argument without the white space around it, or what follows
    /// a "#". The first failure from left to right is the one that is thrown.
    /// - "Empty expression": nothing but white space.
    /// - "Unbalanced Parentheses in "..."": it begins with a parenthesis. Kept: a whole formula with white
    ///   space in front of the parenthesis calls the function of the empty name instead.
    /// - "Can't evaluate "..."": no such variable or function; of a function this is found before its
    ///   arguments are evaluated.
    /// - "Parameter count doesn't match in "..."": outside the function's bounds (found after the arguments
    ///   have been evaluated). Kept: it carries line -1.
    ///
    /// With `debug`, each evaluation that succeeds writes "Evaluated: ... --> VALUE" (six significant digits)
    /// as a line to standard output, arguments before their call. Length and depth make that quadratic.
    double evaluateDouble(const std::string& expr, const std::string& source = {}, int line = -1,
                          bool debug = false) const;

    /// As `evaluateDouble`, rounded by `algoNearest` (beyond 32 bits and NaN: -2147483648).
    int evaluate(const std::string& expr, const std::string& source = {}, int line = -1,
                 bool debug = false) const;

    /// As `evaluate`, in decimal digits; `expr` unchanged where that throws an `XmlError`.
    /// "*(2,2.4)" -> "5"; "unknown" -> "unknown".
    std::string tryToEvaluate(const std::string& expr, const std::string& source = {}, int line = -1) const;

    /// Adds a function, or replaces function and bounds of the one with this name, also a built-in one.
    /// `function` must not be null. A name with "(", "#" or white space at its ends cannot be called;
    /// one with "," or ")", and the empty one, at most as the whole formula.
    void setFunction(const std::string& name, Function function, int minArgs, int maxArgs);

    /// Sets a primary variable, adding it if absent; they are looked up before the secondary ones. Kept: a
    /// name that reads as a number ("5") is taken for the number; only a composed name ("#5") reaches the
    /// variable.
    void setVariable(const std::string& name, double value);

    /// Removes the primary variable of this name, if there is one.
    void removeVariable(const std::string& name);

    /// Writes the variables to standard output: the line "Evaluator Variable Dump", then "Primary:   NAME =
    /// VALUE" and "Secondary: NAME = VALUE" lines, both in ascending byte order, six significant digits.
    void dumpEnvironment() const;

private:
    using Variables = std::map<std::string, double, std::less<>>;
    using Functions = std::map<std::string, FctInfo, std::less<>>;

    const Functions& functions() const;

    Variables m_primary;
    Variables m_secondary;                ///< nothing fills it yet
    std::optional<Functions> m_functions; ///< from the first `setFunction` on; before, the built-in table
};
