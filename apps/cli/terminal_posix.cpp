#include "terminal.h"

#include <csignal>
#include <unistd.h>

namespace cli {

bool isTerminal(std::FILE* stream)
{
    return isatty(fileno(stream)) == 1;
}

void outliveBrokenPipes()
{
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace cli
