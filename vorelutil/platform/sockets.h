#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// TCP sockets (IPv4, client side) and name look-up, with the differences between systems removed.
///
/// Failures come back as the system's error codes (on Linux: errno); nothing is thrown.
namespace platform {

/// What a transfer gave: the bytes moved, 0 at the end of the stream, or -1 and the system's error code.
struct Transfer
{
    int count;
    int error; ///< 0 unless `count` is -1
};

/// Whether the code means that a socket which does not block has nothing to do now.
bool wouldBlock(int error);

/// The code for bytes that break the protocol.
int protocolError();

/// The code for received bytes that found no room.
int noRoomError();

/// The code for memory that has run out.
int outOfMemoryError();

/// An open socket, shared by all who use it: the descriptor is closed with the last reference, so that its
/// number is never given to another file while a thread is still in a call on it.
///
/// Whoever wants to end the connection calls `shutdown`, which wakes every call that is at work. Any thread
/// may call any function at any time. The descriptor is never 0 and is not inherited by child processes.
class Socket
{
public:
    /// Longest time that `send` waits for a peer that does not read.
    static constexpr int sendTimeoutMs = 5000;

    /// A new TCP socket. Null with the reason in `error` (not null) if the system has none.
    static std::shared_ptr<Socket> open(int* error);

    /// Takes over an open descriptor above 0.
    explicit Socket(int descriptor);
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int descriptor() const { return m_descriptor; }

    /// Connects to an address in network byte order, port in host byte order. Waits as long as the system
    /// tries, or until `shutdown`. 0, or the error code; the socket blocks again afterwards.
    int connect(std::uint32_t address, std::uint16_t port);

    /// Waits for data and receives at most `length` bytes.
    Transfer receive(char* data, int length);

    /// Waits until all `length` bytes are handed to the system. A signal handler may cut it short: then the
    /// count is what was handed over; if that was nothing, it goes on for the rest of the time (which then
    /// bounds other threads' sends that wait on this socket, too). Fails after `sendTimeoutMs`, also when a
    /// part was handed over by then. A closed peer is an error code, never a signal.
    Transfer send(const char* data, int length);

    /// Ends the connection in both directions, and for good: calls at work in other threads return, a
    /// `connect` too.
    void shutdown();

private:
    const int m_descriptor;
    std::atomic<bool> m_isShutDown{false};
};

/// Looks up the first IPv4 address of a host name or dotted address: 0 and the address in network byte order,
/// or an error code that is not 0. The resolver's own failures have its (negative) numbers.
///
/// A dotted address is converted at once. A name is looked up by a helper thread, because the system's
/// resolver cannot be interrupted; it has ended when the function returns. Only where `cancelled` becomes
/// true, which is asked every few milliseconds, is it left to itself (it then touches nothing of the
/// caller's); the result is that of an interrupted call.
int resolve(const std::string& host, const std::function<bool()>& cancelled, std::uint32_t* address);

} // namespace platform
