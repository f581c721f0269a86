#include "terminal.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <initializer_list>
#include <unistd.h>

namespace cli {
namespace {

/// A path that the handler may read whenever `stands` is set.
struct Doomed
{
    volatile std::sig_atomic_t stands;
    char path[PATH_MAX];
};

Doomed doomed[4];
volatile std::sig_atomic_t lineStands = 0;

/// The default action is in place again when it runs, and follows when it returns.
extern "C" void tidyUp(int signal)
{
    for (const Doomed& file : doomed)
        if (file.stands != 0) unlink(file.path);
    if (lineStands != 0) {
        const ssize_t written = write(STDERR_FILENO, "\n", 1);
        static_cast<void>(written);
    }
    raise(signal);
}

void catchSignals()
{
    static bool caught = false;
    if (caught) return;
    caught = true;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGXFSZ}) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) continue;
        action = {};
        action.sa_handler = tidyUp;
        action.sa_flags = int(SA_RESETHAND);
        sigaction(signal, &action, nullptr);
    }
}

} // namespace

bool isTerminal(std::FILE* stream)
{
    return isatty(fileno(stream)) == 1;
}

void outliveBrokenPipes()
{
    std::signal(SIGPIPE, SIG_IGN);
}

void removeOnSignal(const char* path)
{
    catchSignals();
    if (std::strlen(path) >= sizeof Doomed::path) return;
    for (Doomed& file : doomed) {
        if (file.stands != 0) continue;
        std::strcpy(file.path, path);
        file.stands = 1;
        return;
    }
}

void keepOnSignal(const char* path)
{
    for (Doomed& file : doomed)
        if (file.stands != 0 && std::strcmp(file.path, path) == 0) file.stands = 0;
}

void endLineOnSignal(bool stands)
{
    catchSignals();
    lineStands = stands ? 1 : 0;
}

} // namespace cli
