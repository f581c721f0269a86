#include "iqtcpthread.h"

#include "iqtcp.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>
#include <mutex>
#include <QCoreApplication>
#include <QEvent>
#include <utility>

// Only the socket thread makes sockets; both sides close them, under socketMutex. Closing means: shut the
// connection down, which wakes a connect, recv or send that is at work, and let go of the reference. The
// descriptor itself is closed by its last user. So a thread that finds the shared socket gone knows that the
// other side has ended the connection, and has told it.

namespace {

constexpr int firstEventType = 1000;
constexpr int lengthSize = 4;
constexpr int aheadSize = 65536;
constexpr int directSize = 16384; ///< frames of this size go straight into the ring
constexpr int roomPollMs = 20;
constexpr int backOffStepMs = 50;
constexpr int backOffSteps = 100; ///< 5 s at most
constexpr int backOffPollMs = 10;
constexpr int pauseStepMs = 100;
constexpr int pauseSteps = 20;        ///< after a refused connection
constexpr int patientPauseSteps = 30; ///< the same, once after IQTcp::setPatient

} // namespace

IQTcpThread::IQTcpThread(int fifoSize, QObject* owner, const char* name, std::unique_ptr<IMutex> socketMutex)
    : m_core(std::make_shared<Core>(fifoSize, owner, name, std::move(socketMutex)))
{
}

IQTcpThread::~IQTcpThread() = default;

void IQTcpThread::run()
{
    const std::shared_ptr<Core> core = m_core;
    core->entered = true; // from here on this object may go
    try {
        core->run();
    } catch (const std::exception& failure) { // out of memory
        core->giveUp(failure.what());
    }
}

int IQTcpThread::connect()
{
    return m_core->connect();
}

int IQTcpThread::read()
{
    return m_core->read();
}

bool IQTcpThread::writeBlock(const char* data, int length)
{
    const std::shared_ptr<Core> core = m_core;
    return core->writeBlock(data, length);
}

void IQTcpThread::disconnect(int)
{
    m_core->disconnect();
}

void IQTcpThread::shutdown()
{
    m_core->shutdown();
}

void IQTcpThread::triggerBuddy(Trigger t)
{
    m_core->triggerBuddy(t);
}

void IQTcpThread::ackEvent()
{
    m_core->ackEvent();
}

bool IQTcpThread::getAndClearOverload()
{
    return m_core->overload.exchange(false);
}

void IQTcpThread::adopt(const std::shared_ptr<platform::Socket>& socket)
{
    m_core->adopt(socket);
}

bool IQTcpThread::hasEntered() const
{
    return m_core->entered;
}

IQTcpThread::Core::Core(int fifoSize, QObject* theOwner, const char* theName,
                        std::unique_ptr<IMutex> theSocketMutex)
    : fifo(fifoSize)
    , owner(theOwner)
    , socketMutex(std::move(theSocketMutex))
    , name(theName != nullptr ? theName : "")
    , m_ahead(aheadSize)
{
}

bool IQTcpThread::Core::isEnding() const
{
    return shutdownRequested || owner == nullptr || state == IQTcp::Closing;
}

void IQTcpThread::Core::run()
{
    while (!isEnding()) {
        if (connected) {
            receiveOne();
        } else {
            attempt();
        }
    }
    const std::lock_guard lock(*socketMutex);
    if (!connected) return;
    closeSocket();
    triggerBuddy(TrigDisconnected);
}

/// The thread ends here: it cannot go on.
void IQTcpThread::Core::giveUp(const char* reason)
{
    const std::lock_guard lock(*socketMutex);
    closeSocket();
    if (owner != nullptr) lastError = platform::outOfMemoryError();
    try {
        triggerBuddy(TrigError);
        qWarning("IQTcp: %s", reason);
    } catch (const std::exception&) {
        return; // there is no memory to tell it with
    }
}

void IQTcpThread::Core::receiveOne()
{
    if (read() > 0) {
        m_attempts = 0;
        if (!isEnding())
            m_aheadBegin += fifo.writeFrames(m_ahead.data() + m_aheadBegin, m_aheadEnd - m_aheadBegin);
        triggerBuddy(TrigData);
        return;
    }
    const std::lock_guard lock(*socketMutex);
    if (socket == nullptr) return; // closed, and told, by the owner's side
    closeSocket();
    lastError = m_socketError;
    triggerBuddy(TrigError);
}

void IQTcpThread::Core::attempt()
{
    if (m_retryTimer.isValid() &&
        m_retryTimer.elapsed() < std::min(m_attempts, backOffSteps) * backOffStepMs) {
        IThread::sleep(backOffPollMs);
        return;
    }
    const int result = connect();
    m_retryTimer.start();
    ++m_attempts;
    if (result > 0) {
        const std::lock_guard lock(*socketMutex);
        if (connected) triggerBuddy(TrigConnected);
        return;
    }
    if (isEnding()) return;
    lastError = result < 0 ? m_socketError : 0;
    triggerBuddy(TrigError);
    if (result < 0) return;
    const int steps = patient.exchange(false) ? patientPauseSteps : pauseSteps;
    for (int i = 0; i < steps && !isEnding(); ++i) IThread::sleep(pauseStepMs);
}

int IQTcpThread::Core::connect()
{
    std::string wantedHost;
    std::uint16_t wantedPort = 0;
    {
        const std::lock_guard lock(*socketMutex);
        if (owner == nullptr) {
            connected = false;
            return -1;
        }
        wantedHost = host;
        wantedPort = port;
    }
    std::uint32_t address = 0;
    m_socketError = platform::resolve(
        wantedHost, [this] { return isEnding(); }, &address);
    if (m_socketError != 0) return -1;
    const auto candidate = platform::Socket::open(&m_socketError);
    if (candidate == nullptr) return -1;
    {
        const std::lock_guard lock(*socketMutex);
        if (isEnding()) return 0;
        socket = candidate; // from here on disconnect() interrupts the attempt
    }
    const int error = candidate->connect(address, wantedPort);
    const std::lock_guard lock(*socketMutex);
    if (error == 0 && socket == candidate) {
        adopt(candidate);
        return 1;
    }
    closeSocket();
    return 0;
}

void IQTcpThread::Core::adopt(const std::shared_ptr<platform::Socket>& newSocket)
{
    const std::lock_guard lock(*socketMutex);
    socket = newSocket;
    connected = true;
    m_reading = newSocket;
    m_aheadBegin = m_aheadEnd = 0;
}

/// Under socketMutex.
void IQTcpThread::Core::closeSocket()
{
    if (socket != nullptr) socket->shutdown();
    socket.reset();
    connected = false;
}

void IQTcpThread::Core::disconnect()
{
    const std::lock_guard lock(*socketMutex);
    closeSocket();
}

void IQTcpThread::Core::shutdown()
{
    const std::lock_guard lock(*socketMutex);
    closeSocket();
    shutdownRequested = true;
    owner = nullptr;
}

// Receiving. The frames are cut from m_ahead as if each had been received by itself: room is reserved frame
// by frame, and only whole frames are committed. A large frame goes straight into the ring, and after one
// only the next one's length is read ahead: reading more would copy it twice.

int IQTcpThread::Core::read()
{
    m_socketError = 0;
    if (m_reading == nullptr) return -1;
    while (m_aheadEnd - m_aheadBegin < lengthSize) {
        const platform::Transfer transfer = fillAhead(m_large ? lengthSize : aheadSize);
        if (shutdownRequested) return 0;
        if (transfer.count <= 0) return abandoned(transfer, m_aheadEnd - m_aheadBegin);
    }
    std::int32_t length = 0;
    take(reinterpret_cast<char*>(&length), lengthSize);
    if (length < 0) {
        m_socketError = platform::protocolError();
        return -1;
    }
    char* const place = reserve(std::int64_t{lengthSize} + length);
    if (place == nullptr) return 0;
    const int total = lengthSize + length;
    m_large = total >= directSize;
    std::memcpy(place, &length, lengthSize);
    int received = lengthSize + take(place + lengthSize, length);
    while (received < total) {
        const int rest = total - received;
        const platform::Transfer transfer =
            m_large ? m_reading->receive(place + received, rest) : fillAhead(aheadSize);
        if (shutdownRequested) return 0;
        if (transfer.count <= 0) return abandoned(transfer, received);
        received += m_large ? transfer.count : take(place + received, rest);
    }
    fifo.finishWrite(total);
    return total;
}

/// Receives what is there, until the read-ahead buffer holds `size` bytes.
platform::Transfer IQTcpThread::Core::fillAhead(int size)
{
    const int kept = m_aheadEnd - m_aheadBegin;
    std::memmove(m_ahead.data(), m_ahead.data() + m_aheadBegin, static_cast<std::size_t>(kept));
    m_aheadBegin = 0;
    m_aheadEnd = kept;
    const platform::Transfer transfer = m_reading->receive(m_ahead.data() + kept, size - kept);
    if (transfer.count > 0) m_aheadEnd += transfer.count;
    return transfer;
}

/// Moves at most `wanted` bytes out of the read-ahead buffer; gives how many.
int IQTcpThread::Core::take(char* target, int wanted)
{
    const int count = std::min(wanted, m_aheadEnd - m_aheadBegin);
    std::memcpy(target, m_ahead.data() + m_aheadBegin, static_cast<std::size_t>(count));
    m_aheadBegin += count;
    return count;
}

/// What read() gives when the socket gave no more.
int IQTcpThread::Core::abandoned(const platform::Transfer& transfer, int received)
{
    m_aheadBegin = m_aheadEnd = 0;
    if (transfer.count < 0 && platform::wouldBlock(transfer.error)) return received;
    m_socketError = transfer.error;
    return -1;
}

/// Room for a frame in the ring, waited for as long as the link stays connected; else null.
char* IQTcpThread::Core::reserve(std::int64_t total)
{
    const bool fits = total <= fifo.size();
    int waits = 0;
    for (;;) {
        char* const place = fits ? fifo.startWrite(static_cast<int>(total)) : nullptr;
        if (place != nullptr) {
            if (waits > 0) qDebug("IQTcp (%s):  ... for %d ms.", ownerName().c_str(), waits * roomPollMs);
            return place;
        }
        if (owner == nullptr || state != IQTcp::Connected) {
            m_socketError = platform::noRoomError();
            return nullptr;
        }
        if (waits == 0) {
            const std::string text = ownerName();
            qDebug("IQTcp (%s): Can't write into Fifo", text.c_str());
            if (!fits) {
                qDebug("IQTcp (%s): A frame of %lld bytes can never fit", text.c_str(),
                       static_cast<long long>(total));
            }
        }
        overload = true;
        waits = std::min(waits + 1, INT_MAX / roomPollMs);
        IThread::sleep(roomPollMs);
    }
}

/// The name may go with the owner, so it is copied while there is one.
std::string IQTcpThread::Core::ownerName()
{
    const std::lock_guard lock(*socketMutex);
    return owner != nullptr ? name : "";
}

bool IQTcpThread::Core::writeBlock(const char* data, int length)
{
    if (length < 1 || !connected) return length == 0;
    std::shared_ptr<platform::Socket> sending;
    {
        const std::lock_guard lock(*socketMutex);
        sending = socket;
    }
    std::int64_t sum = 0;
    while (sending != nullptr && sum < length && connected) {
        const platform::Transfer transfer =
            sending->send(data, length); // from the start, after a partial send too
        if (transfer.count < 1) {
            const std::lock_guard lock(*socketMutex);
            if (socket != sending) break; // closed, and told, by the other side
            closeSocket();
            if (owner != nullptr) lastError = transfer.error;
            triggerBuddy(TrigError);
            break;
        }
        sum += transfer.count;
    }
    return sum == length;
}

void IQTcpThread::Core::triggerBuddy(Trigger t)
{
    if (t == TrigData) {
        int none = 0;
        if (eventPending != 0 || !eventPending.compare_exchange_strong(none, 1)) return;
    }
    const std::lock_guard lock(*socketMutex);
    if (owner == nullptr) return;
    // The owner has ended the link. Only a thread that ends with its socket open still has something to say.
    if (state == IQTcp::Closing && t != TrigDisconnected) return;
    QCoreApplication::postEvent(owner, new QEvent(static_cast<QEvent::Type>(firstEventType + t)));
}

void IQTcpThread::Core::ackEvent()
{
    bool readable = false;
    eventPending = 1;
    {
        const std::lock_guard lock(fifo.mutex());
        --eventPending;
        readable = fifo.startRead(nullptr) != nullptr;
    }
    if (readable) triggerBuddy(TrigData);
}
