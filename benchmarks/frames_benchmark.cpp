// The frame buffer and its writers beside memcpy and the C runtime. Each pair does the same work on the same
// data and file system, and compares its answers before anything is timed.

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>
#include <vorelutil/frames/framebuffer.h>

namespace {

/// Stops the run: a figure beside a wrong answer is worth nothing.
void require(bool condition, const char* what)
{
    if (condition) return;
    std::fprintf(stderr, "answers differ: %s\n", what);
    std::exit(1);
}

std::vector<int> randomSamples(std::size_t count)
{
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> sample(-30000000, 30000000);
    std::vector<int> samples(count);
    for (int& value : samples) value = sample(random);
    return samples;
}

void setGeometry(FrameBuffer* frame, int mode, int xPixels, int yPixels)
{
    frame->setMetaData(FrameBuffer::KeyMode, mode);
    frame->setMetaData(FrameBuffer::KeyXPixels, xPixels);
    frame->setMetaData(FrameBuffer::KeyYPixels, yPixels);
    frame->setActive(true);
}

// Blocks into a frame of 512 x 512 samples; one iteration is one frame.

constexpr int blockFrameSize = 512 * 512;

void addDataOurs(benchmark::State& state)
{
    const auto length = static_cast<int>(state.range(0));
    const std::vector<int> samples = randomSamples(blockFrameSize);
    FrameBuffer frame;
    setGeometry(&frame, FrameBuffer::Forward, 512, 512);
    int start = 0;
    const auto fill = [&] {
        int last = 0;
        for (int at = 0; at < blockFrameSize; at += length) {
            last = frame.addData(samples.data() + at, length, start + at);
        }
        start = start == 0 ? blockFrameSize : 0;
        return last;
    };
    require(fill() == -1 && std::equal(samples.begin(), samples.end(), frame.getData(nullptr)), "addData");
    for (auto _ : state) {
        benchmark::DoNotOptimize(fill());
        benchmark::ClobberMemory();
    }
}

void addDataPeer(benchmark::State& state)
{
    const auto length = static_cast<std::size_t>(state.range(0));
    const std::vector<int> samples = randomSamples(blockFrameSize);
    std::vector<int> frame(blockFrameSize);
    for (auto _ : state) {
        for (std::size_t at = 0; at < frame.size(); at += length) {
            std::memcpy(frame.data() + at, samples.data() + at, length * sizeof(int));
            benchmark::DoNotOptimize(frame.data());
            benchmark::ClobberMemory();
        }
    }
}

BENCHMARK(addDataOurs)->Name("addData/ours")->Arg(256)->Arg(4096);
BENCHMARK(addDataPeer)->Name("addData/peer_memcpy")->Arg(256)->Arg(4096);

// Whole frames of 2048 x 2048 pixels into images.

constexpr int imageSide = 2048;
constexpr std::size_t imageSize = std::size_t{imageSide} * imageSide;

void sortDataOurs(benchmark::State& state)
{
    const auto mode = static_cast<int>(state.range(0));
    const bool forward = state.range(1) != 0;
    const bool rowsDown = state.range(2) != 0; // frames of odd number
    const bool twoPasses = mode == FrameBuffer::ForwardReturn || mode == FrameBuffer::ReturnForward;
    const std::size_t passes = twoPasses ? 2 : 1;
    const std::vector<int> samples = randomSamples(imageSize * passes);
    FrameBuffer frame;
    setGeometry(&frame, mode, imageSide, imageSide);
    const auto size = static_cast<int>(samples.size());
    require(frame.addData(samples.data(), size, rowsDown ? size : 0) == -1, "a whole frame");
    std::vector<int> image(imageSize);
    require(frame.sortData(image.data(), forward, 7) == static_cast<int>(imageSize), "pixels placed");
    const bool secondPass = twoPasses && forward == (mode == FrameBuffer::ReturnForward);
    for (std::size_t i = 0; i < imageSize; i += 997) {
        const std::size_t row = i / imageSide;
        const std::size_t column = i % imageSide;
        const std::size_t line = row * passes + (secondPass ? 1 : 0);
        const int sample = samples[line * imageSide + (forward ? column : imageSide - 1 - column)];
        require(image[(rowsDown ? row : imageSide - 1 - row) * imageSide + column] == sample, "sortData");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(frame.sortData(image.data(), forward, 7));
        benchmark::ClobberMemory();
    }
}

void sortDataPeer(benchmark::State& state)
{
    const std::vector<int> samples = randomSamples(imageSize);
    std::vector<int> image(imageSize);
    for (auto _ : state) {
        std::memcpy(image.data(), samples.data(), imageSize * sizeof(int));
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
    }
}

BENCHMARK(sortDataOurs)
    ->Name("sortData/ours")
    ->ArgNames({"mode", "forward", "down"})
    ->Args({3, 1, 0})
    ->Args({4, 1, 0})
    ->Args({4, 0, 0})
    ->Args({4, 0, 1})
    ->Args({5, 0, 0})
    ->Args({5, 0, 1})
    ->Args({6, 1, 0})
    ->Args({6, 0, 0});
BENCHMARK(sortDataPeer)->Name("sortData/peer_memcpy");

// Files. Both of a pair write the same bytes, the peer into a file beside ours.

struct TemporaryFile
{
    std::string path;

    TemporaryFile()
    {
        // In memory where the system has such a place: the pace of a disk would drown the difference.
        const char* const chosen = std::getenv("TMPDIR");
        const char* const usual = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        path = std::string(chosen != nullptr ? chosen : usual) + "/frames_benchmark_XXXXXX";
        const int descriptor = mkstemp(path.data());
        require(descriptor >= 0, "temporary file");
        close(descriptor);
    }
    ~TemporaryFile() { std::remove(path.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    std::string content() const
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

/// Heights in nm with a divisor, in the base unit m (exponents, nine digits), or plain voltages (fixed form).
void fillForFile(FrameBuffer* frame, bool small, int xPixels, int yPixels)
{
    setGeometry(frame, FrameBuffer::Forward, xPixels, yPixels);
    frame->setMetaData(FrameBuffer::KeyValueUnit, small ? 0x17D : 0x280);
    frame->setMetaData(FrameBuffer::KeySampleDivisor, 3000);
    const std::vector<int> samples =
        randomSamples(static_cast<std::size_t>(xPixels) * static_cast<std::size_t>(yPixels));
    frame->addData(samples.data(), static_cast<int>(samples.size()), 0);
}

constexpr int textSide = 1000;
constexpr std::string_view textDataMark = "# Start of Data:\n";

/// The same file through the C runtime; the header as a text that is ready.
void printText(const char* path, const std::string& header, const std::vector<int>& image, double scale)
{
    std::FILE* const file = std::fopen(path, "w");
    require(file != nullptr, "open");
    std::fputs(header.c_str(), file);
    for (const int sample : image) std::fprintf(file, "%.9g\n", sample * scale);
    std::fclose(file);
}

void textFile(benchmark::State& state, bool ours)
{
    const bool small = state.range(0) != 0;
    FrameBuffer frame;
    fillForFile(&frame, small, textSide, textSide);
    std::vector<int> image(std::size_t{textSide} * textSide);
    frame.sortData(image.data(), true, 0);
    const double scale = (small ? 1e-9 : 1.0) / 3000;
    const TemporaryFile ourFile;
    const TemporaryFile peerFile;
    require(frame.saveFrameAsc(ourFile.path.c_str(), "height", true, false) == 0, "saveFrameAsc");
    const std::string written = ourFile.content();
    const std::string header = written.substr(0, written.find(textDataMark) + textDataMark.size());
    printText(peerFile.path.c_str(), header, image, scale);
    require(written == peerFile.content(), "saveFrameAsc and fprintf");
    for (auto _ : state) {
        if (ours) {
            frame.saveFrameAsc(ourFile.path.c_str(), "height", true, false);
        } else {
            printText(peerFile.path.c_str(), header, image, scale);
        }
    }
}

BENCHMARK_CAPTURE(textFile, ours, true)->Name("saveFrameAsc/ours")->ArgName("small")->Arg(0)->Arg(1);
BENCHMARK_CAPTURE(textFile, peer, false)->Name("saveFrameAsc/peer_fprintf")->ArgName("small")->Arg(0)->Arg(1);

void binaryFile(benchmark::State& state, bool ours)
{
    FrameBuffer frame;
    fillForFile(&frame, true, 1024, 1024);
    const TemporaryFile ourFile;
    const TemporaryFile peerFile;
    require(frame.saveFrameBcr(ourFile.path.c_str(), "", true) == 0, "saveFrameBcr");
    const std::string bytes = ourFile.content();
    require(bytes.size() == 2048 + 4 * 1024 * 1024, "size of the binary file");
    const auto writeBytes = [&] {
        std::FILE* const file = std::fopen(peerFile.path.c_str(), "wb");
        require(file != nullptr, "open");
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::fclose(file);
    };
    writeBytes();
    require(bytes == peerFile.content(), "fwrite");
    for (auto _ : state) {
        if (ours) {
            frame.saveFrameBcr(ourFile.path.c_str(), "", true);
        } else {
            writeBytes();
        }
    }
}

BENCHMARK_CAPTURE(binaryFile, ours, true)->Name("saveFrameBcr/ours");
BENCHMARK_CAPTURE(binaryFile, peer, false)->Name("saveFrameBcr/peer_fwrite");

} // namespace

BENCHMARK_MAIN();
