// The trace log beside spdlog's file sink: the same text, to a file each, in the same process.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <string>
#include <unistd.h>
#include <vector>
#include <vorelutil/trace/tracelog.h>

namespace {

constexpr int batch = 1000; // lines in one iteration

std::string path(const char* name)
{
    return (std::filesystem::temp_directory_path() / (name + std::to_string(getpid()))).string();
}

const std::string ourFile = path("trace-ours.");
const std::string peerFile = path("trace-peer.");
const char* const names[] = {"voltage", "frequency", "exposure time", "attenuator"};

/// Opens the log with stamps as long as the peer's, which are seconds since 1970.
void startOurs()
{
    traceInit(ourFile.c_str(), "", TRACE_ON);
    traceGetParamset()->startTime -= static_cast<double>(std::time(nullptr));
}

void writeOurs(int i)
{
    traceTrace("Set address %x value %d of %s", 0x20 + i % 64, i * 37, names[i % 4]);
}

void writePeer(spdlog::logger& logger, int i)
{
    logger.info("Set address {:x} value {} of {}", 0x20 + i % 64, i * 37, names[i % 4]);
}

std::shared_ptr<spdlog::logger> peerLogger()
{
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(peerFile, true);
    auto logger = std::make_shared<spdlog::logger>("peer", sink);
    logger->set_pattern("[%E.%e]: %v.");
    return logger;
}

/// The lines of a log, with an x for each digit of their stamps.
std::vector<std::string> linesOf(const std::string& file)
{
    std::vector<std::string> result;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        const auto end = line.begin() + static_cast<std::ptrdiff_t>(line.find(']'));
        std::replace_if(
            line.begin(), end, [](char c) { return c >= '0' && c <= '9'; }, 'x');
        result.push_back(line);
    }
    return result;
}

/// Both must write the same text before anything is timed.
void compare()
{
    startOurs();
    auto logger = peerLogger();
    for (int i = 0; i < batch; ++i) {
        writeOurs(i);
        writePeer(*logger, i);
    }
    traceSetFile(nullptr);
    logger.reset();
    const auto ours = linesOf(ourFile);
    if (ours.size() == batch && ours == linesOf(peerFile)) return;
    std::fprintf(stderr, "the logs differ\n");
    std::exit(1);
}

/// Each run starts with an empty file.
void oursUnflushed(benchmark::State& state)
{
    if (state.thread_index() == 0) startOurs();
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) writeOurs(i);
    }
    if (state.thread_index() == 0) traceSetFile(nullptr);
}

void peerUnflushed(benchmark::State& state)
{
    static std::shared_ptr<spdlog::logger> logger;
    if (state.thread_index() == 0) logger = peerLogger();
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) writePeer(*logger, i);
    }
    if (state.thread_index() == 0) logger.reset();
}

void oursOff(benchmark::State& state)
{
    traceInit(nullptr, "", 0);
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) writeOurs(i);
    }
}

void peerOff(benchmark::State& state)
{
    const auto logger = peerLogger();
    logger->set_level(spdlog::level::off);
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) writePeer(*logger, i);
    }
}

BENCHMARK(oursUnflushed)->Name("Unflushed/ours")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(peerUnflushed)->Name("Unflushed/peer")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(oursOff)->Name("Off/ours");
BENCHMARK(peerOff)->Name("Off/peer");

} // namespace

int main(int argc, char** argv)
{
    compare();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove(ourFile);
    std::filesystem::remove(peerFile);
    return 0;
}
