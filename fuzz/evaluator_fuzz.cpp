// A formula of any bytes, beside a second evaluator that takes the stated steps one by one: it copies every
// piece and calls itself for every argument. Value, error and what is written on the way must be the same.
// What a function computes from its arguments is not compared: both take that from the product.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>
#include <vorelutil/eval/evaluator.h>
#include <vorelutil/trace/error.h>

namespace {

const std::map<std::string, double> variables = {{"x", 5},    {"scale", 2.5}, {"g6", 7},     {"g", -1e-7},
                                                 {"1e", 1.5}, {"a#b#c", 3},   {"x-1e-07", 9}};
const std::map<std::string, std::pair<int, int>> bounds = {
    {"+", {2, 10}}, {"*", {2, 10}},    {"-", {2, 2}},    {"/", {2, 2}},    {"%", {2, 2}},
    {"==", {2, 2}}, {"!=", {2, 2}},    {">", {2, 2}},    {">=", {2, 2}},   {"<", {2, 2}},
    {"<=", {2, 2}}, {"?", {3, 3}},     {"??", {3, 10}},  {"and", {2, 10}}, {"or", {2, 10}},
    {"!", {1, 1}},  {"band", {2, 10}}, {"bor", {2, 10}}, {"exp2", {1, 1}}, {"log2", {1, 1}}};

std::string strip(const std::string& text)
{
    const char* const space = " \t\n\v\f\r";
    const std::size_t first = text.find_first_not_of(space);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(space) - first + 1);
}

std::vector<std::string> split(const std::string& text, char separator, bool outsideParentheses)
{
    std::vector<std::string> parts(1);
    int depth = 0;
    for (const char c : text) {
        if (c == '(') ++depth;
        if (c == ')') --depth;
        if (c == separator && (depth == 0 || !outsideParentheses))
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

std::string written(double value)
{
    std::ostringstream out;
    out << value;
    return out.str();
}

bool isNumber(const std::string& token, double* value)
{
    const bool hexadecimal = token.compare(0, 2, "0x") == 0;
    std::istringstream in(hexadecimal ? token.substr(2) : token);
    if (hexadecimal) {
        std::int32_t whole = 0;
        in >> std::hex >> whole;
        *value = whole;
    } else {
        in >> *value;
    }
    return !in.fail() && in.peek() == std::istringstream::traits_type::eof();
}

struct Failure
{
    std::string text;
    int line;
};

double literal(const std::string& expr, const Evaluator& leaf, std::string* log)
{
    int depth = 0;
    bool token = false;
    for (const char c : expr) {
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        token = token || (c == '#' && depth == 0);
    }
    const std::size_t open = expr.find('(');
    std::size_t close = open;
    for (depth = 0; close < expr.size(); ++close) {
        depth += expr[close] == '(' ? 1 : expr[close] == ')' ? -1 : 0;
        if (depth == 0) break;
    }
    double value = 0.0;
    if (token || open == std::string::npos || close >= expr.size()) {
        std::string name = strip(expr);
        if (name.empty()) throw Failure{"Empty expression", 7};
        if (!isNumber(name, &value)) {
            const std::vector<std::string> parts = split(name, '#', false);
            if (parts.size() == 2) name = parts[0] + written(literal(parts[1], leaf, log));
            if (variables.count(name) == 0) throw Failure{"Can't evaluate \"" + expr + '"', 7};
            value = variables.at(name);
        }
    } else {
        if (open == 0) throw Failure{"Unbalanced Parentheses in \"" + expr + '"', 7};
        const auto entry = bounds.find(strip(expr.substr(0, open)));
        if (entry == bounds.end()) throw Failure{"Can't evaluate \"" + expr + '"', 7};
        Evaluator call = leaf; // which computes a call of variables
        std::string names;
        int count = 0;
        for (const std::string& part : split(expr.substr(open + 1, close - open - 1), ',', true)) {
            const std::string name = 'v' + std::to_string(count++);
            call.setVariable(name, literal(strip(part), leaf, log));
            names += ',' + name;
        }
        if (count < entry->second.first || count > entry->second.second)
            throw Failure{"Parameter count doesn't match in \"" + expr + '"', -1};
        value = call.evaluateDouble(entry->first + '(' + names.substr(1) + ')');
    }
    *log += "Evaluated: " + expr + " --> " + written(value) + '\n';
    return value;
}

/// The value, or the error, as text; bit by bit, but for a NaN.
std::string outcome(double value)
{
    char hex[40];
    std::snprintf(hex, sizeof hex, "%a", value);
    return std::isnan(value) ? "NaN" : hex;
}

/// While it lives, standard output goes to a text.
class Capture
{
public:
    ~Capture() { std::cout.rdbuf(m_former); }
    std::string text() const { return m_text.str(); }

private:
    std::ostringstream m_text;
    std::streambuf* const m_former = std::cout.rdbuf(m_text.rdbuf());
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Evaluator empty;
    const std::string expr(reinterpret_cast<const char*>(data), size);
    Evaluator evaluator;
    for (const auto& [name, value] : variables) evaluator.setVariable(name, value);
    // The second one goes as deep as the formula, and both write each part of it.
    const bool both = size <= 1000;

    std::string ours;
    const Capture capture;
    try {
        ours = outcome(evaluator.evaluateDouble(expr, "f", 7, both));
    } catch (const XmlError& error) {
        ours = error.message;
    }
    if (!both) return 0;

    std::string log;
    std::string expected;
    try {
        expected = outcome(literal(expr, empty, &log));
    } catch (const Failure& failure) {
        expected = XmlError(failure.text, "f", failure.line).message;
    }
    if (ours != expected || capture.text() != log) {
        std::cerr << "ours: " << ours << "\nexpected: " << expected << "\nours:\n"
                  << capture.text() << "expected:\n"
                  << log;
        std::abort();
    }
    return 0;
}
