// The bytes of a peer on their way through the socket thread into the ring. Whatever they are, the ring gives
// exactly the whole frames at their begin, unchanged and in order.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <vorelutil/tcp/iqtcpthread.h>

namespace {

constexpr std::size_t socketRoom = 65536; ///< what a pair of sockets takes without a reader
constexpr int lengthSize = 4;

void require(bool condition)
{
    if (!condition) std::abort();
}

/// Size of the frame at the begin of the bytes; 0 if it is not whole.
int frameSize(std::string_view bytes)
{
    std::int32_t payload = 0;
    if (bytes.size() < lengthSize) return 0;
    std::memcpy(&payload, bytes.data(), lengthSize);
    return payload < 0 || static_cast<std::size_t>(payload) > bytes.size() - lengthSize
               ? 0
               : lengthSize + payload;
}

/// Drains the ring, which must give the next bytes of the wire.
void drain(UcFifo& fifo, std::string_view wire, std::size_t& drained)
{
    int count = 0;
    while (const char* block = fifo.startRead(&count)) {
        const auto size = static_cast<std::size_t>(count);
        require(size <= wire.size() - drained && std::memcmp(block, wire.data() + drained, size) == 0);
        drained += size;
        fifo.finishRead(count);
    }
}

/// Frame by frame from a socket; `plan` says after how many frames the ring is drained.
void throughSocket(std::string_view wire, int fifoSize, int plan)
{
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    require(send(ends[1], wire.data(), wire.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(wire.size()));
    close(ends[1]);
    IQTcpThread thread(fifoSize, nullptr, nullptr,
                       std::make_unique<IMutex>()); // without an owner it does not wait for room
    thread.adopt(std::make_shared<platform::Socket>(ends[0]));
    UcFifo& fifo = thread.core()->fifo;
    std::size_t received = 0;
    std::size_t drained = 0;
    int result = thread.read();
    for (int frames = 1; result > 0; ++frames) {
        require(result == frameSize(wire.substr(received)));
        received += static_cast<std::size_t>(result);
        if (frames % plan == 0) drain(fifo, wire, drained);
        result = thread.read();
    }
    if (result < 0) require(frameSize(wire.substr(received)) == 0);
    drain(fifo, wire, drained);
    require(drained == received);
}

/// The same bytes in pieces into the ring, many frames at a time.
void throughRing(std::string_view wire, int fifoSize, std::size_t piece)
{
    UcFifo fifo(fifoSize);
    std::size_t written = 0;
    std::size_t drained = 0;
    for (std::size_t end = 0; end < wire.size();) {
        end = std::min(end + piece, wire.size());
        const int taken = fifo.writeFrames(wire.data() + written, static_cast<int>(end - written));
        for (int left = taken; left > 0;) {
            const int size = frameSize(wire.substr(written));
            require(size > 0 && size <= left);
            left -= size;
            written += static_cast<std::size_t>(size);
        }
        if (end % 3 != 0) drain(fifo, wire, drained);
    }
    drain(fifo, wire, drained);
    require(drained == written);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) return 0;
    const std::string_view wire(reinterpret_cast<const char*>(data) + 2, std::min(size - 2, socketRoom));
    throughSocket(wire, data[0] * 8, data[1] % 8 + 1);
    throughRing(wire, data[0] * 8, data[1] / 8U + 1U);
    return 0;
}
