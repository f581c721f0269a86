#include "cli.h"

#include <algorithm>
#include <charconv>
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <vector>
#include <vorelutil/eval/evaluator.h>
#include <vorelutil/trace/error.h>

namespace cli {
namespace {

struct EvalArguments
{
    Evaluator evaluator;
    std::string formula;
};

/// A number as in a formula, or a hexadecimal one beyond 32 bits.
bool parseValue(const std::string& text, double* value)
{
    if (text.find('(') != std::string::npos) return false;
    try {
        *value = Evaluator().evaluateDouble(text); // no calls, no variables: what is left are numbers
        return true;
    } catch (const XmlError&) {
    }
    std::int64_t whole = 0;
    const std::int64_t last = std::numeric_limits<std::int64_t>::max();
    if (!parseNumber(text, -last, last, &whole)) return false;
    *value = static_cast<double>(whole);
    return true;
}

/// Sets the variable of a text NAME=VALUE. The name ends at the last "=", as a value has none.
void setVariable(Evaluator& evaluator, const std::string& text)
{
    const std::size_t equals = text.rfind('=');
    double value = 0.0;
    if (equals == 0 || equals == std::string::npos || !parseValue(text.substr(equals + 1), &value))
        throw CLI::ValidationError("--var", '"' + text + "\" is no NAME=VALUE with a number for VALUE");
    evaluator.setVariable(text.substr(0, equals), value);
}

int eval(const EvalArguments& arguments)
{
    double value = arguments.evaluator.evaluateDouble(arguments.formula);
    if (std::isnan(value)) value = std::fabs(value); // a NaN's sign says nothing
    char text[32];
    const char* const end = std::to_chars(text, text + sizeof text, value).ptr;
    std::printf("%.*s\n", static_cast<int>(end - text), text);
    return exitDone;
}

} // namespace

void addEvalCommand(CLI::App& app, Work* work)
{
    const auto arguments = std::make_shared<EvalArguments>();
    CLI::App* const command =
        app.add_subcommand("eval", "Print the value of a formula, for instance \"+(*(x,scale),offset)\".");

    const auto takeVariables = [arguments](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) setVariable(arguments->evaluator, text);
    };
    command
        ->add_option_function<std::vector<std::string>>(
            "--var", takeVariables, "NAME=VALUE: a variable, in decimal or 0x hexadecimal; may be repeated")
        ->allow_extra_args(false)
        ->take_all();

    const CLI::Option* const formula =
        command->add_option("EXPR", arguments->formula,
                            "The formula; one is required; put \"--\" before one that begins with \"-\"");
    command->allow_extras(); // to name what is too much without the "--" in front
    command->callback([command, formula, arguments, work] {
        for (const std::string& word : command->remaining())
            if (word != "--") throw CLI::ExtrasError({word});
        if (formula->count() == 0) throw CLI::RequiredError("EXPR");
        *work = [arguments] { return eval(*arguments); };
    });
}

void shieldFormulas(std::vector<const char*>* words)
{
    if (words->size() < 2 || std::string((*words)[1]) != "eval") return;
    // A difference, "-(a,b)", looks like an option; "++" means the end of a command to the parser.
    const auto isPlain = [](const std::string& word) {
        return word != "++" && word.compare(0, 2, "-(") != 0;
    };
    const auto end = std::find(words->begin(), words->end(), std::string("--"));
    const auto formulas = std::stable_partition(words->begin(), end, isPlain);
    if (formulas != end) words->insert(formulas, "--");
}

} // namespace cli
