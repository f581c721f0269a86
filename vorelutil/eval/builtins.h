#pragma once

#include "evaluator.h"

namespace eval {

/// The functions that every evaluator starts with. Made at the first call, never destroyed; any thread.
const std::map<std::string, Evaluator::FctInfo, std::less<>>& builtInFunctions();

} // namespace eval
