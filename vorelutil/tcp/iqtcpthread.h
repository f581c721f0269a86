#pragma once

#include "ucfifo.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <QElapsedTimer>
#include <QObject>
#include <string>
#include <vector>
#include <vorelutil/platform/sockets.h>
#include <vorelutil/thread/thread.h>

/// The receiving half of a link, and its sends: connects, reads frames into the ring, tells the owner by
/// posted events.
///
/// A frame is a 4-byte length L (32-bit, the machine's byte order) and L bytes of payload; the ring holds the
/// 4 + L bytes as received (docs/formats/wire.md). Lengths and small payloads go through a read-ahead buffer,
/// so that one receive serves many frames, and are copied once; what is missing of a payload, if it is 16384
/// bytes or more, is received straight into the ring.
///
/// Everything that the socket thread and the owner's thread share is in a counted Core, which the running
/// thread holds as well. So the object may be deleted while its thread is still in a system call, once
/// `hasEntered` or `finished` is true.
class IQTcpThread : public IThread
{
public:
    /// What the owner is told, as an event of type 1000 plus the value.
    enum Trigger : int
    {
        TrigConnected = 0,    ///< the socket is connected
        TrigData = 1,         ///< frames are waiting in the ring
        TrigDisconnected = 2, ///< the thread ended while connected
        TrigError = 3         ///< a socket operation failed; see Core::lastError
    };

    struct Core;

    /// Not started. `owner` gets the events and is in practice an IQTcp; `name` is shown in debug messages
    /// and stays the caller's; `socketMutex`, made by the owner and not null, is taken over. Throws
    /// std::bad_alloc.
    IQTcpThread(int fifoSize, QObject* owner, const char* name, std::unique_ptr<IMutex> socketMutex);
    ~IQTcpThread() override;

    /// The thread's body: connects, with pauses that grow, and receives, until `shutdown`, or the link's
    /// state is closing. If memory runs out it ends as well, the connection closed, and TrigError tells so if
    /// that is still possible.
    void run() override;

    /// One connection attempt, on the calling thread: 1 connected; 0 the host was found and a socket made,
    /// but the connection failed; -1 no owner, unknown host, or no socket.
    int connect();

    /// Receives one frame into the ring: 4 + L; 0 when the frame was abandoned (shutdown, owner gone, or the
    /// ring is full while the link's state is not connected, which the error code says); -1 when the socket
    /// is closed or failed, or the length is negative.
    ///
    /// Waits for room in steps of 20 ms, also for a length that can never fit (one debug line says so), and
    /// raises the overload flag. Kept: where the socket does not block and has no more, the bytes of the
    /// frame so far are dropped and their number is returned.
    int read();

    /// Sends the block on the caller's thread; see IQTcp::writeBlock.
    bool writeBlock(const char* data, int length);

    /// Closes the socket, if any: calls that are at work on it end. The argument has no meaning.
    void disconnect(int);

    /// As `disconnect`; then the thread ends, and the owner gets no more events, from the return on.
    void shutdown();

    /// Posts the event to the owner, if there is one; TrigData only if none is on its way.
    void triggerBuddy(Trigger t);

    /// The owner has drained the ring: the next frame is announced again, at once if it is already there.
    void ackEvent();

    /// Whether a frame had to wait for room since the last call.
    bool getAndClearOverload();

    /// Makes an open socket the connected one (for the thread that calls `read`). What was read ahead from
    /// the one before is dropped.
    void adopt(const std::shared_ptr<platform::Socket>& socket);

    /// Whether the thread has taken its reference to the Core: it no longer needs this object.
    bool hasEntered() const;

    /// Shared with whoever must keep the ring alive. Never null.
    const std::shared_ptr<Core>& core() const { return m_core; }

private:
    const std::shared_ptr<Core> m_core; ///< constant after construction
};

/// What the socket thread and the owner's thread share. The functions are those of IQTcpThread.
///
/// Lock order: never the ring's mutex before `socketMutex`. Posting happens under `socketMutex`, so that it
/// and the clearing of `owner` exclude each other, and so that each connection's end is told once and before
/// the next connection.
struct IQTcpThread::Core
{
    Core(int fifoSize, QObject* theOwner, const char* theName, std::unique_ptr<IMutex> theSocketMutex);

    void run();
    void giveUp(const char* reason);
    int connect();
    int read();
    bool writeBlock(const char* data, int length);
    void disconnect();
    void shutdown();
    void triggerBuddy(Trigger t);
    void ackEvent();
    void adopt(const std::shared_ptr<platform::Socket>& newSocket);

    UcFifo fifo;                 ///< has a mutex of its own
    std::atomic<QObject*> owner; ///< written, and used to post, under socketMutex
    const std::unique_ptr<IMutex> socketMutex;
    std::atomic<bool> connected{false};       ///< written under socketMutex
    std::shared_ptr<platform::Socket> socket; ///< guarded by socketMutex; null: none
    std::atomic<int> eventPending{0};         ///< 1 while a data event is on its way and not acknowledged
    std::atomic<bool> overload{false};
    std::atomic<bool> shutdownRequested{false};

    // What the owner keeps here because the thread reads or writes it.
    const char* const name;    ///< used under socketMutex while there is an owner
    std::string host;          ///< Latin-1, guarded by socketMutex
    std::uint16_t port = 0;    ///< guarded by socketMutex
    std::atomic<int> state{0}; ///< IQTcp::State, written by the owner; to closing under socketMutex
    std::atomic<int> lastError{0};
    std::atomic<bool> patient{false};
    std::atomic<bool> entered{false};

private:
    bool isEnding() const;
    void receiveOne();
    void attempt();
    void closeSocket();
    std::string ownerName();
    char* reserve(std::int64_t total);
    platform::Transfer fillAhead(int size);
    int take(char* target, int wanted);
    int abandoned(const platform::Transfer& transfer, int received);

    // Socket thread only.
    QElapsedTimer m_retryTimer; ///< started at every attempt; invalid until the first
    int m_attempts = 0;         ///< connection attempts since data was last received
    int m_socketError = 0;      ///< of the last connect() or read(); 0: the system reported none
    std::shared_ptr<platform::Socket> m_reading; ///< the socket that read() receives from
    std::vector<char> m_ahead;                   ///< read-ahead: one recv serves many small frames
    int m_aheadBegin = 0;
    int m_aheadEnd = 0;
    bool m_large = false; ///< the last frame went straight into the ring
};
