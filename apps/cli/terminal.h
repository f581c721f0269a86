#pragma once

#include <cstdio>

namespace cli {

/// Whether what is written there goes to a terminal.
bool isTerminal(std::FILE* stream);

/// From now on, writing to a pipe that nobody reads any more fails instead of ending the process.
void outliveBrokenPipes();

} // namespace cli
