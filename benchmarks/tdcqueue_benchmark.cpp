#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <fuzz/literaltdc.h>
#include <memory>
#include <random>
#include <string>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

// A stream of format 56 with channel offsets: each packet is decoded, and what is ready is taken out in the
// order of its times. The peer takes the same steps literally: word by word into a std::deque, which is
// sorted as a whole by std::sort.

namespace {

constexpr std::size_t packetCount = 64;
constexpr std::array<int, 3> packetSizes = {1000, 4000, 16000};
constexpr std::array<int, 3> gaps = {100, 1000, 10000};

using Events = std::vector<PpTimest>;

struct Stream
{
    std::array<std::int32_t, 8> offsets;
    std::vector<std::vector<std::uint32_t>> packets;
};

/// Packets that go on in time, events with a mean distance of `gap` clocks on random channels. A high word
/// stands at the head of each packet and where the high part changes.
Stream makeStream(int packetSize, int gap)
{
    std::mt19937_64 random(static_cast<std::uint64_t>(packetSize) * 100000 + static_cast<std::uint64_t>(gap));
    std::exponential_distribution<double> distance(1.0 / gap);
    Stream stream;
    for (std::int32_t& offset : stream.offsets)
        offset = static_cast<std::int32_t>(random() % 200001) - 100000;

    double now = 1e6;
    std::uint64_t event = 1000000;
    for (std::size_t i = 0; i < packetCount; ++i) {
        std::vector<std::uint32_t> words;
        std::uint64_t high = ~std::uint64_t{0};
        while (words.size() < static_cast<std::size_t>(packetSize)) {
            if (event >> 28 != high) {
                high = event >> 28;
                words.push_back(static_cast<std::uint32_t>(high) | 0x10000000U);
                continue;
            }
            words.push_back(static_cast<std::uint32_t>(event & 0x0FFFFFFFU) |
                            static_cast<std::uint32_t>(random() % 8) << 29);
            now += distance(random);
            event = static_cast<std::uint64_t>(now);
        }
        stream.packets.push_back(words);
    }
    return stream;
}

class Ours
{
public:
    /// At the stream's beginning, with nothing queued.
    void begin(const Stream& stream)
    {
        tdc56Reset(m_instance.get());
        tdc56Flush(m_instance.get());
        tdc56SetOffsets(m_instance.get(), stream.offsets.data());
    }
    std::size_t packet(const std::vector<std::uint32_t>& words, PpTimest* output)
    {
        tdc56Decode(m_instance.get(), words.data(), static_cast<int>(words.size()));
        return static_cast<std::size_t>(tdc56Pop(m_instance.get(), output));
    }

private:
    std::unique_ptr<Tdc56Instance, void (*)(Tdc56Instance*)> m_instance = {tdc56Init(), tdc56DeInit};
};

class Peer
{
public:
    void begin(const Stream& stream)
    {
        m_instance.reset();
        m_instance.flush();
        m_instance.setOffsets(stream.offsets.data());
    }
    std::size_t packet(const std::vector<std::uint32_t>& words, PpTimest* output)
    {
        m_instance.decode56(words.data(), static_cast<int>(words.size()));
        std::sort(m_instance.queue.begin(), m_instance.queue.end());
        std::size_t count = 0;
        while (!m_instance.queue.empty() && m_instance.queue.front().time <= m_instance.time &&
               count < tdc56Capacity) {
            output[count++] = m_instance.queue.front();
            m_instance.queue.pop_front();
        }
        return count;
    }

private:
    literal::Instance m_instance;
};

template <class Contender> void decodeAll(benchmark::State& state, const Stream& stream)
{
    Contender contender;
    Events output(tdc56Capacity);
    std::int64_t words = 0;
    for (auto _ : state) {
        contender.begin(stream);
        for (const std::vector<std::uint32_t>& packet : stream.packets) {
            benchmark::DoNotOptimize(contender.packet(packet, output.data()));
            benchmark::ClobberMemory();
            words += static_cast<std::int64_t>(packet.size());
        }
    }
    state.SetItemsProcessed(words);
}

template <class Contender> void enter(const std::string& name, const Stream& stream)
{
    benchmark::RegisterBenchmark(name.c_str(), decodeAll<Contender>, std::cref(stream))
        ->Unit(benchmark::kMillisecond);
}

/// Equal times may come in any order from the peer, so it is its channels at each time that count.
bool sameAnswers(const Stream& stream)
{
    Ours ours;
    Peer peer;
    ours.begin(stream);
    peer.begin(stream);
    Events ourEvents(tdc56Capacity), peerEvents(tdc56Capacity);
    std::size_t total = 0;
    const auto order = [](const PpTimest& a, const PpTimest& b) {
        return a.time != b.time ? a.time < b.time : a.channel < b.channel;
    };
    for (const std::vector<std::uint32_t>& packet : stream.packets) {
        const std::size_t count = ours.packet(packet, ourEvents.data());
        if (peer.packet(packet, peerEvents.data()) != count) return false;
        const auto end = static_cast<std::ptrdiff_t>(count);
        std::sort(peerEvents.begin(), peerEvents.begin() + end, order);
        const bool same = std::equal(
            peerEvents.begin(), peerEvents.begin() + end, ourEvents.begin(),
            [](const PpTimest& a, const PpTimest& b) { return a.time == b.time && a.channel == b.channel; });
        if (!same) return false;
        total += count;
    }
    return total > packetCount * stream.packets[0].size() / 2; // and they did come out
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    std::vector<std::unique_ptr<Stream>> streams;
    for (const int size : packetSizes) {
        for (const int gap : gaps) {
            streams.push_back(std::make_unique<Stream>(makeStream(size, gap)));
            const Stream& stream = *streams.back();
            const std::string name = "Sorted" + std::to_string(size) + "Gap" + std::to_string(gap);
            if (!sameAnswers(stream)) {
                std::fprintf(stderr, "%s: the queue and its peer differ\n", name.c_str());
                return 1;
            }
            enter<Ours>(name + "/ours", stream);
            enter<Peer>(name + "/peer", stream);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
