#include "terminal.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

namespace cli {
namespace {

constexpr int endings[] = {SIGINT, SIGTERM, SIGHUP, SIGXFSZ};

/// A path that the handler may read whenever `stands` is set.
struct Doomed
{
    volatile std::sig_atomic_t stands;
    char path[PATH_MAX];
};

Doomed doomed[4];
volatile std::sig_atomic_t lineStands = 0;
volatile std::sig_atomic_t held = 0; ///< the signal that `HeldSignals` noted; 0: none
struct sigaction former[std::size(endings)];

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

extern "C" void note(int signal)
{
    held = signal;
}

void catchSignals()
{
    for (const int signal : endings) {
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

void occupyStandardStreams()
{
    // In the wrong direction, so that reading standard input and writing the others fail.
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(number, F_GETFD) < 0) open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
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

HeldSignals::HeldSignals()
{
    held = 0;
    for (std::size_t i = 0; i < std::size(endings); ++i) {
        if (sigaction(endings[i], nullptr, &former[i]) != 0 || former[i].sa_handler == SIG_IGN) continue;
        struct sigaction action = {};
        action.sa_handler = note;
        action.sa_flags = SA_RESTART;
        sigaction(endings[i], &action, nullptr);
    }
}

HeldSignals::~HeldSignals()
{
    for (std::size_t i = 0; i < std::size(endings); ++i) sigaction(endings[i], &former[i], nullptr);
    if (held != 0) raise(held);
}

bool HeldSignals::any() const
{
    return held != 0;
}

} // namespace cli
