#include "sockets.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int connectPollMs =
    100; ///< shutdown() wakes a connect at once; this is for systems where it does not
constexpr std::chrono::milliseconds cancelPoll(10);
constexpr int timerSlackMs = 50; ///< how much earlier than asked the system may end a time-out

void setBlocking(int descriptor, bool blocking)
{
    const int flags = fcntl(descriptor, F_GETFL);
    fcntl(descriptor, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

/// How long a send may wait; `ms` above 0.
void setSendTimeout(int descriptor, int ms)
{
    timeval timeout{};
    timeout.tv_sec = ms / 1000;
    timeout.tv_usec = ms % 1000 * 1000;
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

/// One call of the system's resolver; `flags` as for getaddrinfo.
int lookUp(const std::string& host, int flags, std::uint32_t* address)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* list = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &hints, &list);
    if (result == EAI_SYSTEM) return errno != 0 ? errno : EIO;
    if (result != 0) return result;
    sockaddr_in first{};
    std::memcpy(&first, list->ai_addr, sizeof first);
    freeaddrinfo(list);
    *address = first.sin_addr.s_addr;
    return 0;
}

/// What the helper thread and the caller of resolve() share; the last of them frees it.
struct LookUp
{
    std::mutex mutex;
    std::condition_variable hasEnded;
    bool ended = false;
    int result = 0;
    std::uint32_t address = 0;
};

} // namespace

bool wouldBlock(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK;
}

int protocolError()
{
    return EPROTO;
}

int noRoomError()
{
    return ENOBUFS;
}

int outOfMemoryError()
{
    return ENOMEM;
}

std::shared_ptr<Socket> Socket::open(int* error)
{
    int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor == 0) { // standard input was closed: 0 means "no socket" to the link
        descriptor = fcntl(0, F_DUPFD_CLOEXEC, 1);
        const int reason = errno;
        close(0);
        errno = reason;
    }
    *error = descriptor < 0 ? errno : 0;
    return descriptor < 0 ? nullptr : std::make_shared<Socket>(descriptor);
}

Socket::Socket(int descriptor)
    : m_descriptor(descriptor)
{
    setSendTimeout(m_descriptor, sendTimeoutMs);
    // Requests are small and often come in bursts: none waits for the confirmation of the one before.
    const int noDelay = 1;
    setsockopt(m_descriptor, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
}

Socket::~Socket()
{
    close(m_descriptor);
}

int Socket::connect(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr.s_addr = address;
    setBlocking(m_descriptor, false);
    int error =
        ::connect(m_descriptor, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) < 0 ? errno : 0;
    while (error == EINPROGRESS || error == EINTR) {
        if (m_isShutDown) break;
        pollfd waiting{m_descriptor, POLLOUT, 0};
        if (poll(&waiting, 1, connectPollMs) <= 0) continue;
        socklen_t size = sizeof error;
        if (getsockopt(m_descriptor, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    }
    setBlocking(m_descriptor, true);
    return m_isShutDown ? ECANCELED : error;
}

Transfer Socket::receive(char* data, int length)
{
    for (;;) {
        const ssize_t count = recv(m_descriptor, data, static_cast<std::size_t>(length), 0);
        if (count >= 0) return {static_cast<int>(count), 0};
        if (errno != EINTR) return {-1, errno};
    }
}

Transfer Socket::send(const char* data, int length)
{
    using std::chrono::milliseconds;
    const auto deadline = Clock::now() + milliseconds(sendTimeoutMs);
    ssize_t count = 0;
    int error = 0;
    int left = sendTimeoutMs;
    bool shortened = false;
    for (;;) {
        count = ::send(m_descriptor, data, static_cast<std::size_t>(length), MSG_NOSIGNAL);
        error = count < 0 ? errno : 0;
        if (count == length) break;
        left = static_cast<int>(std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count());
        if (error != EINTR || left <= timerSlackMs) break;
        setSendTimeout(m_descriptor, left);
        shortened = true;
    }
    if (shortened) setSendTimeout(m_descriptor, sendTimeoutMs);
    if (count == length) return {length, 0};
    const bool interrupted = count >= 0 || error == EINTR;
    if (wouldBlock(error) || (interrupted && left <= timerSlackMs)) return {-1, ETIMEDOUT};
    return count >= 0 ? Transfer{static_cast<int>(count), 0} : Transfer{-1, error};
}

void Socket::shutdown()
{
    m_isShutDown = true;
    ::shutdown(m_descriptor, SHUT_RDWR);
}

int resolve(const std::string& host, const std::function<bool()>& cancelled, std::uint32_t* address)
{
    if (lookUp(host, AI_NUMERICHOST, address) == 0) return 0;
    const auto shared = std::make_shared<LookUp>();
    std::thread helper;
    try {
        helper = std::thread([shared, host] {
            std::uint32_t found = 0;
            const int result = lookUp(host, 0, &found);
            const std::lock_guard lock(shared->mutex);
            shared->result = result;
            shared->address = found;
            shared->ended = true;
            shared->hasEnded.notify_one();
        });
    } catch (const std::system_error& failure) {
        return failure.code().value();
    }
    std::unique_lock lock(shared->mutex);
    while (!shared->ended) {
        if (cancelled()) {
            helper.detach();
            return EINTR;
        }
        shared->hasEnded.wait_for(lock, cancelPoll);
    }
    lock.unlock();
    helper.join();
    if (shared->result == 0) *address = shared->address;
    return shared->result;
}

} // namespace platform
