// The decoders of time-stamp packets beside a loop that only reads words and stores as many records, and
// beside the same steps one at a time. Events are counted away, not taken out, so that decoding alone is
// timed.
#include "../fuzz/literaltdc.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>
#include <vorelutil/tdc/instance.h>

namespace {

constexpr std::size_t packetCount = 128; // more than a processor learns by heart
constexpr std::size_t events = 12000;    // in each packet, about
constexpr std::uint32_t allMarkers = 0x1FF;
constexpr std::int64_t startPeriod = 100000;
constexpr std::int32_t divider = 4;

struct Free
{
    void operator()(Tdc56Instance* instance) const { tdc56DeInit(instance); }
};
using Instance = std::unique_ptr<Tdc56Instance, Free>;

/// Packets that each make sense by themselves after a reset.
using Packet = std::vector<std::uint32_t>;
using Packets = std::vector<Packet>;

std::uint32_t below(std::mt19937& random, std::uint32_t end)
{
    return std::uniform_int_distribution<std::uint32_t>(0, end - 1)(random);
}

/// One word a record, mean gap 1000 clocks, with a high word where the high part changes.
Packets wordPackets(int lowBits, std::uint32_t high, const std::function<std::uint32_t(std::mt19937&)>& code,
                    std::size_t size)
{
    std::mt19937 random(1);
    Packets packets(packetCount);
    std::uint64_t time = 1000000;
    for (Packet& packet : packets) {
        std::uint64_t last = ~std::uint64_t{0};
        while (packet.size() < size) {
            time += below(random, 2000);
            if (time >> lowBits != last)
                packet.push_back(high | static_cast<std::uint32_t>(last = time >> lowBits));
            const std::uint64_t low = time & ((std::uint64_t{1} << lowBits) - 1);
            packet.push_back(code(random) << (lowBits == 28 ? 29 : 26) | static_cast<std::uint32_t>(low));
        }
    }
    return packets;
}

/// Channels 0 to 7; one event in `starts` is a start.
Packets packets56(std::uint32_t starts, std::size_t size)
{
    return wordPackets(
        28, 0x10000000U,
        [starts](std::mt19937& random) { return below(random, starts) == 0 ? 0 : 1 + below(random, 7); },
        size);
}

/// Channels 0 to 31, one event in 20 a marker.
Packets packets52()
{
    return wordPackets(
        26, 0xFC000000U,
        [](std::mt19937& random) {
            return below(random, 20) == 0 ? 33 + below(random, 9) : below(random, 32);
        },
        events);
}

/// Records of two words, of the types that `type` gives. One event in 1000 carries markers.
Packets packets60(const std::function<std::uint32_t(std::mt19937&)>& type)
{
    std::mt19937 random(1);
    Packets packets(packetCount);
    std::uint64_t time = 1000000;
    const auto channel = [&] { return below(random, 1000) == 0 ? 6 : below(random, 6); };
    for (Packet& packet : packets) {
        std::size_t made = 0;
        for (std::uint32_t kind = 0; made < events; kind = type(random), made += kind == 0 ? 0 : 4 - kind) {
            std::uint64_t record = time;
            if (kind != 0) record = 0;
            const int bits = kind == 0 ? 0 : 60 / static_cast<int>(4 - kind);
            for (int at = 0; kind != 0 && at < 60; at += bits) {
                const std::uint64_t to = channel();
                const std::uint64_t flag = std::uint64_t{1} << below(random, 9);
                const std::uint64_t gap = to == 6 ? 5000 - time % 5000 + flag : below(random, 2000);
                time += gap;
                record |= (gap | to << (bits - 3)) << at;
            }
            packet.push_back(static_cast<std::uint32_t>(record & 0x3FFFFFFF) | (kind & 1U) << 30);
            packet.push_back(static_cast<std::uint32_t>(record >> 30) | (kind >> 1) << 30 | 0x80000000U);
        }
    }
    return packets;
}

/// Records of 3, 4, 5 and 8 bytes (which have the absolute time and no event), equally often; one event in 20
/// is a marker. Filled up to whole words by a record that the end cuts.
Packets packets60b()
{
    std::mt19937 random(1);
    Packets packets(packetCount);
    std::uint64_t time = 1000000;
    for (Packet& packet : packets) {
        std::vector<std::uint8_t> bytes;
        for (std::size_t made = 0; made < events;) {
            const std::uint32_t type = below(random, 4);
            const std::uint32_t gap = below(random, 2000);
            const std::uint32_t code = below(random, 20) == 0 ? 33 + below(random, 9) : below(random, 32);
            std::uint64_t record = type == 3 ? time << 2 | 3 : std::uint64_t{gap} << 8 | code << 2 | type;
            if (type != 3) time += gap, ++made;
            for (std::uint32_t i = 0; i < (type == 3 ? 8 : 3 + type); ++i, record >>= 8)
                bytes.push_back(static_cast<std::uint8_t>(record));
        }
        while (bytes.size() % 4 != 0) bytes.push_back(3);
        packet.resize(bytes.size() / 4);
        std::memcpy(packet.data(), bytes.data(), bytes.size());
    }
    return packets;
}

struct Item
{
    const char* name;
    Packets packets;
    void (*ours)(Tdc56Instance*, const Packet&);
    void (*literally)(literal::Instance&, const Packet&);
    std::int32_t dividedBy = 1;
    std::int64_t period = 0;
};

const std::uint8_t* bytesOf(const Packet& packet)
{
    return reinterpret_cast<const std::uint8_t*>(packet.data());
}

int sizeOf(const Packet& packet)
{
    return static_cast<int>(packet.size());
}

void ours56(Tdc56Instance* instance, const Packet& packet)
{
    tdc56Decode(instance, packet.data(), sizeOf(packet));
}
void literally56(literal::Instance& instance, const Packet& packet)
{
    instance.decode56(packet.data(), sizeOf(packet));
}
void ours52(Tdc56Instance* instance, const Packet& packet)
{
    tdc56Decode52(instance, packet.data(), sizeOf(packet), allMarkers);
}
void literally52(literal::Instance& instance, const Packet& packet)
{
    instance.decode52(packet.data(), sizeOf(packet), allMarkers);
}
void ours60(Tdc56Instance* instance, const Packet& packet)
{
    tdc56Decode60(instance, packet.data(), sizeOf(packet), allMarkers);
}
void literally60(literal::Instance& instance, const Packet& packet)
{
    instance.decode60(packet.data(), sizeOf(packet), allMarkers);
}
void ours60b(Tdc56Instance* instance, const Packet& packet)
{
    tdc56Decode60b(instance, bytesOf(packet), sizeOf(packet), allMarkers);
}
void literally60b(literal::Instance& instance, const Packet& packet)
{
    instance.decode60b(bytesOf(packet), sizeOf(packet), allMarkers);
}

/// As before the first packet, but for the settings.
void begin(const Item& item, Tdc56Instance* instance)
{
    tdc56Reset(instance);
    tdc56SetDivider(instance, item.dividedBy);
    tdc56SetStartPeriod(instance, item.period);
}

void begin(const Item& item, literal::Instance& instance)
{
    instance.reset();
    instance.setDivider(item.dividedBy);
    instance.setStartPeriod(item.period);
}

/// Whether all packets give the same events as the literal steps, and no more than the buffer holds.
bool same(const Item& item)
{
    const Instance ours(tdc56Init());
    literal::Instance peer;
    std::vector<PpTimest> a(tdc56Capacity);
    std::vector<PpTimest> b;
    for (const Packet& packet : item.packets) {
        begin(item, ours.get());
        item.ours(ours.get(), packet);
        if (tdc56GetCount(ours.get()) > tdc56Capacity) return false;
        begin(item, peer);
        item.literally(peer, packet);
        const auto count = static_cast<std::size_t>(tdc56Pop(ours.get(), a.data()));
        peer.pop(&b);
        if (count == 0 || count != b.size() || std::memcmp(a.data(), b.data(), count * sizeof a[0]) != 0)
            return false;
    }
    return true;
}

void runOurs(benchmark::State& state, const Item& item)
{
    if (!same(item)) return state.SkipWithError("not the events of the literal steps");
    const Instance instance(tdc56Init());
    std::size_t at = 0;
    for (auto _ : state) {
        begin(item, instance.get());
        item.ours(instance.get(), item.packets[at++ % packetCount]);
    }
}

void runLiterally(benchmark::State& state, const Item& item)
{
    literal::Instance instance;
    std::size_t at = 0;
    for (auto _ : state) {
        begin(item, instance);
        item.literally(instance, item.packets[at++ % packetCount]);
    }
}

/// Reads a word and stores a record, in an instance's buffer, for each event of the packets.
void runLimit(benchmark::State& state, const Item& item)
{
    const Instance instance(tdc56Init());
    Packets words;
    for (const Packet& packet : item.packets) {
        begin(item, instance.get());
        item.ours(instance.get(), packet);
        words.emplace_back(static_cast<std::size_t>(tdc56GetCount(instance.get())), packet.front());
    }
    std::size_t at = 0;
    for (auto _ : state) {
        PpTimest* next = instance->buffer;
        for (const std::uint32_t word : words[at++ % packetCount]) {
            next->time = word & 0x0FFFFFFFU;
            next->channel = static_cast<std::uint8_t>(word >> 29);
            ++next;
        }
        benchmark::ClobberMemory();
    }
}

void add(const std::string& name, void (*run)(benchmark::State&, const Item&),
         const std::shared_ptr<Item>& item)
{
    benchmark::RegisterBenchmark(name.c_str(), [run, item](benchmark::State& state) { run(state, *item); });
}

} // namespace

int main(int argc, char** argv)
{
    const auto mixed = [](std::mt19937& random) { return below(random, 4); }; // absolute times, too
    const std::array<Item, 5> items = {{
        {"Decode56", packets56(8, events), ours56, literally56},
        {"Decode52", packets52(), ours52, literally52},
        {"Decode60ThreeEvents", packets60([](std::mt19937&) { return 1; }), ours60, literally60},
        {"Decode60Mixed", packets60(mixed), ours60, literally60},
        {"Decode60bMixed", packets60b(), ours60b, literally60b},
    }};
    for (const Item& item : items) {
        const auto shared = std::make_shared<Item>(item);
        add(item.name + std::string("/ours"), runOurs, shared);
        add(item.name + std::string("/peer"), runLimit, shared);
    }
    auto item = std::make_shared<Item>(
        Item{"Folding", packets56(8, events), ours56, literally56, divider, startPeriod});
    add("Folding/ours", runOurs, item);
    add("Folding/peer", runOurs, std::make_shared<Item>(items[0]));
    item =
        std::make_shared<Item>(Item{"VirtualEvents", packets56(10, events), ours56, literally56, divider, 0});
    add("VirtualEvents/ours", runOurs, item);
    add("VirtualEvents/peer", runLiterally, item);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
