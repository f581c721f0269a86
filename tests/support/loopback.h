#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "wait.h"

/// The other end of a link: raw sockets on loopback, so that it can behave as badly as it likes.
namespace loopback {

using Bytes = std::string;

inline Bytes frame(const Bytes& payload)
{
    const auto length = static_cast<std::int32_t>(payload.size());
    return Bytes(reinterpret_cast<const char*>(&length), sizeof length) + payload;
}

/// A socket of the peer's.
struct Peer
{
    int descriptor = -1;

    explicit Peer(int opened = -1)
        : descriptor(opened)
    {
        const timeval limit{20, 0}; // for what waits, accept() included: what hangs shall fail
        if (opened >= 0) setsockopt(opened, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~Peer() { shut(); }
    Peer(Peer&& other) noexcept { std::swap(descriptor, other.descriptor); }
    Peer& operator=(Peer&& other) noexcept { return std::swap(descriptor, other.descriptor), *this; }
    void shut()
    {
        if (descriptor >= 0) close(std::exchange(descriptor, -1));
    }
    void write(const Bytes& bytes) const { (void)send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    /// Waits for `size` bytes; gives fewer at the end of the stream, or after 20 s.
    Bytes read(std::size_t size) const
    {
        Bytes bytes(size, '\0');
        const ssize_t count = recv(descriptor, bytes.data(), size, MSG_WAITALL);
        return bytes.substr(0, static_cast<std::size_t>(count > 0 ? count : 0));
    }
};

/// A listening socket; on a port of the system's choice unless one is given.
class Listener
{
public:
    explicit Listener(int backlog = 16, std::uint16_t port = 0)
        : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        m_address.sin_family = AF_INET;
        m_address.sin_port = htons(port);
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof m_address;
        (void)bind(m_socket.descriptor, address(), size);
        getsockname(m_socket.descriptor, reinterpret_cast<sockaddr*>(&m_address), &size);
        listen(m_socket.descriptor, backlog);
    }
    std::uint16_t port() const { return ntohs(m_address.sin_port); }
    Peer accept() const { return Peer(accept4(m_socket.descriptor, nullptr, nullptr, SOCK_CLOEXEC)); }
    void stop() { m_socket.shut(); }
    /// Peers of later connections take as little as the system allows until they are read from.
    void setSmallBuffer() const
    {
        const int size = 1;
        setsockopt(m_socket.descriptor, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
    /// Connects until the system answers no more (for a backlog of 0).
    void fillBacklog()
    {
        for (bool answered = true; answered;) {
            m_clients.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            (void)connect(m_clients.back().descriptor, address(), sizeof m_address);
            pollfd waiting{m_clients.back().descriptor, POLLOUT, 0};
            answered = poll(&waiting, 1, 200) == 1;
        }
    }

private:
    const sockaddr* address() const { return reinterpret_cast<const sockaddr*>(&m_address); }
    Peer m_socket;
    sockaddr_in m_address{};
    std::vector<Peer> m_clients;
};

} // namespace loopback
