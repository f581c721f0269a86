// Process CPU time to receive one frame: the link, with its socket thread, beside QTcpSocket peeking at the
// length and reading the frame in an event loop. The frames come over loopback from a child process, so that
// their making is not counted.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <QCoreApplication>
#include <QEventLoop>
#include <QTcpSocket>
#include <QTimer>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>
#include <vorelutil/tcp/iqtcp.h>

namespace {

constexpr int chunkSize = 131072;
constexpr int fifoSize = 4 << 20;
constexpr int stallMs = 60000;

/// What a receiver asks the sender for.
struct Request
{
    std::int32_t payload; ///< bytes of each frame, 4 and more; the first four are its number
    std::int32_t frames;
};

std::uint16_t port = 0;

void sendAll(int socket, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t count = send(socket, data, size, MSG_NOSIGNAL);
        if (count < 1) return;
        data += count;
        size -= static_cast<std::size_t>(count);
    }
}

/// Keeps the process on the last processor, or off it: the sender has one of its own, as a controller has, so
/// that the receivers find neither its data in their cache nor its work in their time.
void useLastProcessor(bool last)
{
    const long processors = sysconf(_SC_NPROCESSORS_ONLN);
    if (processors < 2) return;
    cpu_set_t set;
    CPU_ZERO(&set);
    for (long i = 0; i < processors; ++i) {
        if ((i == processors - 1) == last) CPU_SET(static_cast<std::size_t>(i), &set);
    }
    sched_setaffinity(0, sizeof set, &set);
}

/// The child: serves one connection after the other until it is killed, or its parent has gone.
[[noreturn]] void serve(int listener)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    useLastProcessor(true);
    for (;;) {
        const int socket = accept(listener, nullptr, nullptr);
        if (socket < 0) std::_Exit(1);
        Request request{};
        if (recv(socket, &request, sizeof request, MSG_WAITALL) == sizeof request) {
            const auto frameSize = sizeof request.payload + static_cast<std::size_t>(request.payload);
            const auto perChunk = static_cast<std::int32_t>(std::max<std::size_t>(chunkSize / frameSize, 1));
            std::vector<char> chunk(frameSize * static_cast<std::size_t>(perChunk));
            for (std::size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i * 7);
            for (std::int32_t first = 0; first < request.frames; first += perChunk) {
                const std::int32_t count = std::min(perChunk, request.frames - first);
                char* frame = chunk.data();
                for (std::int32_t number = first; number < first + count; ++number, frame += frameSize) {
                    std::memcpy(frame, &request.payload, sizeof request.payload);
                    std::memcpy(frame + sizeof request.payload, &number, sizeof number);
                }
                sendAll(socket, chunk.data(), frameSize * static_cast<std::size_t>(count));
            }
            recv(socket, &request, 1, 0); // until the receiver closes
        }
        close(socket);
    }
}

pid_t startSender()
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), size) != 0 || listen(listener, 4) != 0)
        return -1;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
    const pid_t child = fork();
    if (child == 0) serve(listener);
    close(listener);
    return child;
}

double cpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Counts frames and looks at each one's length and number; with `hashing`, at every byte.
struct Receiver
{
    Request request;
    bool hashing;
    std::int32_t received = 0;
    std::uint64_t hash = 14695981039346656037U;
    bool wrong = false;
    double start = 0; ///< CPU time when the request went out
    double used = 0;
    QEventLoop loop;

    Receiver(const Request& wanted, bool hashBytes)
        : request(wanted)
        , hashing(hashBytes)
    {
        QTimer::singleShot(stallMs, &loop, [this] { wrong = true, loop.quit(); });
    }
    void take(const char* frame, std::int32_t length)
    {
        std::int32_t number = -1;
        std::memcpy(&number, frame + sizeof length, sizeof number);
        if (length != request.payload || number != received) wrong = true;
        if (hashing) {
            for (std::int32_t i = 0; i < length + 4; ++i) {
                hash = (hash ^ static_cast<unsigned char>(frame[i])) * 1099511628211U;
            }
        }
        if (++received == request.frames) {
            used = cpuSeconds() - start;
            loop.quit();
        }
    }
};

void receiveOurs(Receiver& receiver)
{
    IQTcp link(fifoSize, nullptr, "benchmark");
    QObject::connect(&link, &IQTcp::connected, [&](bool) {
        receiver.start = cpuSeconds();
        link.writeBlock(reinterpret_cast<const char*>(&receiver.request), sizeof receiver.request);
    });
    QObject::connect(&link, &IQTcp::dataReceived, [&](const char* block, int length) {
        for (const char* const end = block + length; block < end;) {
            std::int32_t payload = 0;
            std::memcpy(&payload, block, sizeof payload);
            receiver.take(block, payload);
            block += sizeof payload + static_cast<std::size_t>(payload);
        }
    });
    link.connectToHost("127.0.0.1", port);
    receiver.loop.exec();
}

void receivePeer(Receiver& receiver)
{
    QTcpSocket socket;
    QObject::connect(&socket, &QTcpSocket::connected, [&] {
        receiver.start = cpuSeconds();
        socket.write(reinterpret_cast<const char*>(&receiver.request), sizeof receiver.request);
    });
    QObject::connect(&socket, &QTcpSocket::readyRead, [&] {
        while (socket.bytesAvailable() >= 4) {
            const QByteArray head = socket.peek(4);
            std::int32_t payload = 0;
            std::memcpy(&payload, head.constData(), sizeof payload);
            if (socket.bytesAvailable() < payload + 4) return;
            const QByteArray frame = socket.read(payload + 4);
            receiver.take(frame.constData(), payload);
        }
    });
    socket.connectToHost("127.0.0.1", port);
    receiver.loop.exec();
}

/// Both must have received the same bytes before anything is timed.
bool sameBytes(const Request& request)
{
    Receiver ours(request, true);
    Receiver peer(request, true);
    receiveOurs(ours);
    receivePeer(peer);
    return !ours.wrong && !peer.wrong && ours.hash == peer.hash;
}

void receive(benchmark::State& state, void (*receiveFrames)(Receiver&))
{
    const auto payload = static_cast<std::int32_t>(state.range(0));
    const Request request{payload, 100000000 / (payload + 4)};
    if (!sameBytes({payload, request.frames / 50})) {
        state.SkipWithError("the receivers disagree");
        return;
    }
    for (auto unused : state) {
        (void)unused;
        Receiver receiver(request, false);
        receiveFrames(receiver);
        if (receiver.wrong) state.SkipWithError("a frame was lost or changed");
        state.SetIterationTime(receiver.used / request.frames);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const pid_t sender = startSender(); // before there are threads
    if (sender < 0) {
        std::perror("sender");
        return 1;
    }
    useLastProcessor(false);
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString&) {}); // "Can't write into Fifo"
    for (const int payload : {64, 1024, 65536}) {
        // One iteration receives 100 MB; its time is the CPU time of one frame.
        for (auto* item : {benchmark::RegisterBenchmark("Frame/ours", receive, receiveOurs),
                           benchmark::RegisterBenchmark("Frame/peer", receive, receivePeer)}) {
            item->Arg(payload)->Iterations(1)->UseManualTime();
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    kill(sender, SIGKILL);
    waitpid(sender, nullptr, 0);
    return 0;
}
