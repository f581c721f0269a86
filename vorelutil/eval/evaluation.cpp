#include "evaluator.h"
#include "token.h"

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <string_view>
#include <vorelutil/trace/error.h>

// A formula is a token or a call, and the arguments of a call are formulas again. They are walked from left
// to right with a stack of the calls that are open, so that depth costs memory alone and every character is
// looked at a bounded number of times.
//
// Only the outermost formula can have parentheses that do not match: the arguments lie between a call's
// parenthesis and its match, and so each is balanced in itself. Whether an argument is a call shows at its
// start (a parenthesis comes before its end), with one exception: a "#" outside parentheses, however late,
// makes a token of it. Where a formula has any "#", a pass ahead marks those arguments.

namespace {

constexpr std::size_t none = std::string_view::npos;

using Variables = std::map<std::string, double, std::less<>>;
using Functions = std::map<std::string, Evaluator::FctInfo, std::less<>>;

/// What can be said of a formula before anything in it is evaluated.
struct Outline
{
    explicit Outline(std::string_view text)
    {
        std::ptrdiff_t depth = 0;
        std::ptrdiff_t openDepth = 0;
        for (std::size_t i = 0; i < text.size(); ++i) {
            const char c = text[i];
            if (c == '(') {
                if (open == none) {
                    open = i;
                    openDepth = depth;
                }
                ++depth;
            } else if (c == ')') {
                --depth;
                if (open != none && close == none && depth == openDepth) close = i;
            } else if (c == '#') {
                (depth == 0 ? hashOutside : hashInside) = true;
            }
        }
    }
    bool isToken() const { return hashOutside || close == none; }

    std::size_t open = none;  ///< the first opening parenthesis
    std::size_t close = none; ///< its match
    bool hashOutside = false; ///< a "#" at depth 0, counted from the start
    bool hashInside = false;  ///< a "#" elsewhere
};

/// Where the comma or parenthesis stands that ends the argument in which `from` is a place outside
/// parentheses.
std::size_t endOfArgument(std::string_view text, std::size_t from)
{
    for (std::size_t depth = 0;; ++from) {
        const char c = text[from];
        if (c == '(') {
            ++depth;
        } else if (c == ')') {
            if (depth == 0) return from;
            --depth;
        } else if (c == ',' && depth == 0) {
            return from;
        }
    }
}

/// The starts of all arguments, at any depth, with a "#" outside parentheses; ascending.
std::vector<std::size_t> hashedArguments(std::string_view text, const Outline& outline)
{
    std::vector<std::size_t> starts; // of the argument at each depth
    std::vector<std::size_t> hashed;
    for (std::size_t i = outline.open; i < outline.close; ++i) {
        const char c = text[i];
        if (c == '(') starts.push_back(i + 1);
        if (c == ')') starts.pop_back();
        if (c == ',') starts.back() = i + 1;
        if (c == '#') hashed.push_back(starts.back());
    }
    std::sort(hashed.begin(), hashed.end());
    return hashed;
}

class Evaluation
{
public:
    const Functions& functions;
    const Variables& primary;
    const Variables& secondary;
    const std::string& source;
    int line;
    bool debug;

    double evaluate(std::string_view expr) const
    {
        const Outline outline(expr);
        return outline.isToken() ? evaluateToken(expr) : evaluateCall(expr, outline);
    }

private:
    struct Call
    {
        std::size_t start; ///< of its text
        const Evaluator::FctInfo* function;
        std::size_t firstValue; ///< where its arguments begin among the values
    };

    double evaluateCall(std::string_view expr, const Outline& outline) const;
    double evaluateToken(std::string_view expr) const;
    const Evaluator::FctInfo* function(std::string_view name) const;
    const double* variable(std::string_view name) const;
    void report(std::string_view expr, double value) const;
    [[noreturn]] void fail(const char* text, std::string_view expr, int atLine) const;
};

double Evaluation::evaluateCall(std::string_view expr, const Outline& outline) const
{
    const std::vector<std::size_t> hashed =
        outline.hashInside ? hashedArguments(expr, outline) : std::vector<std::size_t>();
    std::vector<Call> calls;
    std::vector<double> values;
    std::vector<double> arguments;
    calls.reserve(16);
    values.reserve(16);

    // The text of the argument from `start` on, or the whole; `from` lies in it, outside parentheses.
    const auto textOf = [&](std::size_t start, std::size_t from) {
        return calls.empty() ? expr : eval::strip(expr.substr(start, endOfArgument(expr, from) - start));
    };
    const auto enter = [&](std::size_t start, std::size_t open) {
        if (open == start) fail("Unbalanced Parentheses in", textOf(start, start), line);
        const Evaluator::FctInfo* const entry = function(eval::strip(expr.substr(start, open - start)));
        if (entry == nullptr) fail("Can't evaluate", textOf(start, start), line);
        calls.push_back({start, entry, values.size()});
    };

    enter(0, outline.open);
    std::size_t at = outline.open + 1;
    for (;;) {
        // An argument begins.
        const bool isHashed = !hashed.empty() && std::binary_search(hashed.begin(), hashed.end(), at);
        while (eval::isSpace(expr[at])) ++at;
        const std::size_t start = at;
        if (isHashed) {
            at = endOfArgument(expr, at);
        } else {
            while (expr[at] != '(' && expr[at] != ',' && expr[at] != ')') ++at;
            if (expr[at] == '(') {
                enter(start, at);
                ++at;
                continue;
            }
        }
        values.push_back(evaluateToken(eval::strip(expr.substr(start, at - start))));

        // An argument has ended, and perhaps the calls whose last it is.
        while (expr[at] == ')') {
            const Call call = calls.back();
            calls.pop_back();
            ++at;
            const auto count = static_cast<std::ptrdiff_t>(values.size() - call.firstValue);
            if (!(call.function->minArgs <= count && count <= call.function->maxArgs))
                fail("Parameter count doesn't match in", textOf(call.start, at), -1);
            arguments.assign(values.end() - count, values.end());
            values.resize(call.firstValue);
            const double value = call.function->function(arguments);
            if (debug) report(textOf(call.start, at), value);
            if (calls.empty()) return value;
            values.push_back(value);
            at = endOfArgument(expr, at);
        }
        ++at;
    }
}

double Evaluation::evaluateToken(std::string_view expr) const
{
    const std::string_view token = eval::strip(expr);
    if (token.empty()) throw XmlError("Empty expression", source, line);
    double value = 0.0;
    if (!eval::readNumber(token, &value)) {
        const std::size_t hash = token.find('#');
        const double* found = nullptr;
        if (hash != none && token.find('#', hash + 1) == none) {
            // No deeper than this: there is no other "#".
            const double index = evaluate(token.substr(hash + 1));
            found = variable(std::string(token.substr(0, hash)) + eval::shortText(index));
        } else {
            found = variable(token);
        }
        if (found == nullptr) fail("Can't evaluate", expr, line);
        value = *found;
    }
    if (debug) report(expr, value);
    return value;
}

const Evaluator::FctInfo* Evaluation::function(std::string_view name) const
{
    const auto entry = functions.find(name);
    return entry == functions.end() ? nullptr : &entry->second;
}

const double* Evaluation::variable(std::string_view name) const
{
    for (const Variables* table : {&primary, &secondary}) {
        const auto entry = table->find(name);
        if (entry != table->end()) return &entry->second;
    }
    return nullptr;
}

void Evaluation::report(std::string_view expr, double value) const
{
    std::string text = "Evaluated: ";
    text.append(expr).append(" --> ").append(eval::shortText(value)) += '\n';
    std::cout << text << std::flush;
}

void Evaluation::fail(const char* text, std::string_view expr, int atLine) const
{
    throw XmlError(std::string(text).append(" \"").append(expr) + '"', source, atLine);
}

} // namespace

double Evaluator::evaluateDouble(const std::string& expr, const std::string& source, int line,
                                 bool debug) const
{
    return Evaluation{functions(), m_primary, m_secondary, source, line, debug}.evaluate(expr);
}
