#include "cli.h"

#include <charconv>
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <vector>
#include <vorelutil/eval/evaluator.h>

namespace cli {
namespace {

struct EvalArguments
{
    Evaluator evaluator;
    std::string formula;
    bool given = false;
};

/// Sets the variable of a text NAME=VALUE. The name ends at the last "=", as a value has none.
void setVariable(Evaluator& evaluator, const std::string& text)
{
    const std::size_t equals = text.rfind('=');
    const std::string value = equals == 0 || equals == std::string::npos ? "" : text.substr(equals + 1);
    double number = 0.0;
    if (!parseReal(value, -std::numeric_limits<double>::max(), std::numeric_limits<double>::max(), &number)) {
        std::int64_t whole = 0;
        if (!parseNumber(value, -std::numeric_limits<std::int64_t>::max(),
                         std::numeric_limits<std::int64_t>::max(), &whole))
            throw CLI::ValidationError("--var", '"' + text + "\" is no NAME=VALUE with a number for VALUE");
        number = static_cast<double>(whole);
    }
    evaluator.setVariable(text.substr(0, equals), number);
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

    const auto takeFormula = [arguments](const std::string& text) {
        if (arguments->given) throw CLI::ExtrasError({text});
        arguments->formula = text;
        arguments->given = true;
    };
    command->add_option_function<std::string>("EXPR", takeFormula, "The formula; one is required");
    // A difference, "-(a,b)", looks like an option "-(" with a value.
    command
        ->add_option_function<std::string>(
            "-(", [takeFormula](const std::string& rest) { takeFormula("-(" + rest); })
        ->group("");
    command->callback([arguments, work] {
        if (!arguments->given) throw CLI::RequiredError("EXPR");
        *work = [arguments] { return eval(*arguments); };
    });
}

} // namespace cli
