// Time of `vorel tdc decode` for a file of format 56, to a NumPy file: the whole process, beside a loop that
// reads the same file and writes as many bytes, in blocks. VORELUTIL_TDC_MB is the size of the file in
// millions of bytes (8, so that a brief run stays brief). Both write a new file each time.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

extern char** environ;

namespace {

constexpr std::size_t blockSize = std::size_t(256) * 1024;
constexpr std::size_t headerSize = 192;
constexpr std::uint64_t wordsPerHigh = 270;

std::string folder, inPath, outPath;
std::uint64_t wordCount = 0;

/// Word number `i` of the file: a high word, or an event at `time`.
std::uint32_t wordAt(std::uint64_t i, PpTimest* event)
{
    const std::uint64_t high = i / wordsPerHigh;
    const std::uint64_t low = i % wordsPerHigh;
    if (low == 0) return static_cast<std::uint32_t>(high | 0x10000000);
    const auto channel = static_cast<std::uint8_t>((i * 2654435761U >> 7) % 8);
    const std::uint64_t time = low * 990000 + i % 1000;
    *event = PpTimest{static_cast<std::int64_t>(high << 28 | time), channel, {}};
    return static_cast<std::uint32_t>(time | std::uint64_t{channel} << 29);
}

std::uint64_t eventCount()
{
    return wordCount - (wordCount + wordsPerHigh - 1) / wordsPerHigh;
}

bool writeInput()
{
    std::FILE* const file = std::fopen(inPath.c_str(), "wb");
    if (file == nullptr) return false;
    std::vector<std::uint32_t> block;
    PpTimest event;
    for (std::uint64_t i = 0; i < wordCount; ++i) {
        block.push_back(wordAt(i, &event));
        if (block.size() * sizeof block[0] < blockSize && i + 1 < wordCount) continue;
        std::fwrite(block.data(), sizeof block[0], block.size(), file);
        block.clear();
    }
    return std::fclose(file) == 0;
}

/// Runs the command. Result: its peak of resident memory in MB; below 0: it failed.
double decode()
{
    std::string words[] = {VOREL_PATH, "tdc", "decode", "--format", "56", inPath, "-o", outPath};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    const int started = posix_spawn(&child, VOREL_PATH, &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    rusage used{};
    if (started != 0 || wait4(child, &status, 0, &used) != child || status != 0) return -1.0;
    return static_cast<double>(used.ru_maxrss) / 1024.0;
}

/// Result: 0; below 0: it failed.
double copy()
{
    const int in = open(inPath.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    std::vector<char> input(blockSize / 4);
    std::vector<char> output(blockSize, 1);
    std::uint64_t left = headerSize + eventCount() * sizeof(PpTimest);
    bool good = in >= 0 && out >= 0;
    while (good) {
        const ssize_t count = read(in, input.data(), input.size());
        if (count <= 0) break;
        const auto piece = std::min<std::uint64_t>(left, static_cast<std::uint64_t>(count) * 4);
        good = write(out, output.data(), piece) == static_cast<ssize_t>(piece);
        left -= piece;
    }
    if (good && left > 0) good = write(out, output.data(), left) == static_cast<ssize_t>(left);
    good = close(in) == 0 && close(out) == 0 && good && left < blockSize;
    return good ? 0.0 : -1.0;
}

/// Whether the output has each event of the input, and the other road writes as many bytes.
bool isRight()
{
    if (decode() < 0.0) return false;
    std::FILE* const file = std::fopen(outPath.c_str(), "rb");
    if (file == nullptr || std::fseek(file, headerSize, SEEK_SET) != 0) return false;
    std::vector<PpTimest> block(blockSize / sizeof(PpTimest));
    std::uint64_t events = 0;
    bool right = true;
    std::uint64_t word = 0;
    while (const std::size_t count = std::fread(block.data(), sizeof block[0], block.size(), file)) {
        for (std::size_t i = 0; i < count; ++i, ++word) {
            PpTimest expected{};
            if (word % wordsPerHigh == 0) ++word;
            wordAt(word, &expected);
            right = right && std::memcmp(&expected, &block[i], sizeof expected) == 0;
        }
        events += count;
    }
    std::fclose(file);
    const auto size = std::filesystem::file_size(outPath);
    std::filesystem::remove(outPath);
    return right && events == eventCount() && copy() == 0.0 && std::filesystem::file_size(outPath) == size;
}

void run(benchmark::State& state, double (*work)())
{
    static const bool right = isRight();
    if (!right) {
        state.SkipWithError("the decoded file is wrong");
        return;
    }
    for (auto unused : state) {
        (void)unused;
        std::filesystem::remove(outPath);
        const auto start = std::chrono::steady_clock::now();
        const double megabytes = work();
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        if (megabytes < 0.0) state.SkipWithError("the work failed");
        if (megabytes > 0.0) state.counters["resident_MB"] = megabytes;
    }
}

} // namespace

int main(int argc, char** argv)
{
    const char* const size = std::getenv("VORELUTIL_TDC_MB");
    wordCount = std::max(size != nullptr ? std::strtoull(size, nullptr, 10) : 0ULL, 8ULL) * 1000000 / 4;
    std::string pattern = (std::filesystem::temp_directory_path() / "tdccommand-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    folder = pattern;
    inPath = folder + "/in.56";
    outPath = folder + "/out.npy";
    const bool ready = writeInput();
    if (ready) {
        for (auto* item : {benchmark::RegisterBenchmark("ToNpy/ours", run, decode),
                           benchmark::RegisterBenchmark("ToNpy/peer", run, copy)})
            item->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
    }
    std::filesystem::remove_all(folder);
    return ready ? 0 : 1;
}
