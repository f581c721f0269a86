#include "stopsignal.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <QSocketNotifier>
#include <unistd.h>

namespace {

int wakePipe[2] = {-1, -1}; ///< the handler writes to [1], the notifier reads [0]
struct sigaction oldTerm, oldInt;

extern "C" void wakeUp(int)
{
    const int saved = errno;
    const char byte = 0;
    const ssize_t written = write(wakePipe[1], &byte, 1); // full: the notifier wakes up anyway
    static_cast<void>(written);
    errno = saved;
}

} // namespace

StopSignal::StopSignal(QObject* parent)
    : QObject(parent)
{
    if (pipe2(wakePipe, O_CLOEXEC | O_NONBLOCK) != 0) return; // then the signals end the process, as ever
    m_notifier = new QSocketNotifier(wakePipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char bytes[16];
        while (read(wakePipe[0], bytes, sizeof bytes) > 0) {
        }
        emit received();
    });
    struct sigaction action = {};
    action.sa_handler = wakeUp;
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, &oldTerm);
    sigaction(SIGINT, &action, &oldInt);
}

StopSignal::~StopSignal()
{
    if (m_notifier == nullptr) return;
    sigaction(SIGTERM, &oldTerm, nullptr);
    sigaction(SIGINT, &oldInt, nullptr);
    delete m_notifier;
    close(wakePipe[0]);
    close(wakePipe[1]);
}
