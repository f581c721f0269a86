#include "evaluator.h"

#include "builtins.h"
#include "token.h"

#include <iostream>
#include <vorelutil/algo/rounding.h>
#include <vorelutil/trace/error.h>

Evaluator::Evaluator() = default;

int Evaluator::evaluate(const std::string& expr, const std::string& source, int line, bool debug) const
{
    return algoNearest(evaluateDouble(expr, source, line, debug));
}

std::string Evaluator::tryToEvaluate(const std::string& expr, const std::string& source, int line) const
{
    try {
        return std::to_string(evaluate(expr, source, line, false));
    } catch (const XmlError&) {
        return expr;
    }
}

void Evaluator::setFunction(const std::string& name, Function function, int minArgs, int maxArgs)
{
    if (!m_functions) m_functions = eval::builtInFunctions();
    (*m_functions)[name] = {function, minArgs, maxArgs};
}

void Evaluator::setVariable(const std::string& name, double value)
{
    m_primary[name] = value;
}

void Evaluator::removeVariable(const std::string& name)
{
    m_primary.erase(name);
}

void Evaluator::dumpEnvironment() const
{
    std::cout << "Evaluator Variable Dump" << std::endl;
    for (const auto& [name, value] : m_primary)
        std::cout << "Primary:   " << name << " = " << eval::shortText(value) << std::endl;
    for (const auto& [name, value] : m_secondary)
        std::cout << "Secondary: " << name << " = " << eval::shortText(value) << std::endl;
}

const Evaluator::Functions& Evaluator::functions() const
{
    return m_functions ? *m_functions : eval::builtInFunctions();
}
