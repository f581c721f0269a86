#include "tdcdecode.h"

#include "../trace/tracelog.h"
#include "tdc56.h"

#include <cstdint>

namespace {

using namespace tdc;

constexpr std::uint32_t secondWord = 0x80000000U;
constexpr std::uint32_t typeBit = 0x40000000U;
constexpr std::uint32_t contents = 0x3FFFFFFFU;
constexpr std::uint32_t startChannel = 5;
constexpr std::uint32_t carrierChannel = 6; // 7 is ignored
constexpr std::int64_t markerGrid = 5000;

bool isSecond(std::uint32_t word)
{
    return (word & secondWord) != 0;
}

/// Markers ride on a grid of times, their mask bits in the remainder.
template <class Sink> void putMarkers(std::int64_t time, std::uint32_t mask, Sink& sink)
{
    std::int64_t rest = time % markerGrid;
    if (rest < 0) rest += markerGrid;
    const std::uint32_t markers = mask & static_cast<std::uint32_t>(rest);
    const std::int64_t stamp = Tdc56Instance::wrappingSum(time, -rest);
    for (std::size_t bit = 0; bit < markerCodes.size(); ++bit) {
        if (((markers >> bit) & 1U) != 0) sink.put(stamp, markerCodes[bit], true);
    }
}

/// One record's `events`, each in as many of its 60 bits: a delta of time, and the channel in the upper
/// three.
template <int events, class Sink, class Step>
std::int64_t putEvents(std::int64_t time, std::uint64_t record, std::uint32_t mask, Sink& sink, Step& step)
{
    constexpr int bits = 60 / events;
    constexpr int unused = 64 - (bits - 3); // above the delta
    for (int i = 0; i < events; ++i, record >>= bits) {
        const auto channel = static_cast<std::uint32_t>(record >> (bits - 3)) & 7U;
        time = Tdc56Instance::wrappingSum(time, static_cast<std::int64_t>(record << unused) >> unused);
        if (channel == carrierChannel) {
            putMarkers(time, mask, sink);
        } else {
            const bool deliver = channel < carrierChannel;
            const std::int64_t stamp = deliver ? step.event(sink, time, channel == startChannel) : time;
            sink.put(stamp, static_cast<std::uint8_t>(channel), deliver);
        }
    }
    return time;
}

/// Decodes records while they consist of a first and a second word. Result: where it stopped.
const std::uint32_t* decodeRecords(Tdc56Instance& instance, const std::uint32_t* word, std::size_t records,
                                   std::uint32_t mask)
{
    const std::uint32_t* const end = word + 2 * records;
    decode(instance, 3 * records, [&](auto& sink, auto& step) {
        std::int64_t time = instance.time;
        for (; word != end && sink.room(); word += 2) {
            const std::uint32_t lo = word[0];
            const std::uint32_t hi = word[1];
            if (isSecond(lo) || !isSecond(hi)) break;
            const std::uint64_t record = std::uint64_t{hi & contents} << 30 | (lo & contents);
            const bool upper = (hi & typeBit) != 0;
            const bool lower = (lo & typeBit) != 0;
            if (!upper && !lower)
                time = static_cast<std::int64_t>(record);
            else if (time == 0)
                continue; // no absolute time yet
            else if (!upper)
                time = putEvents<3>(time, record, mask, sink, step);
            else if (!lower)
                time = putEvents<2>(time, record, mask, sink, step);
            else
                time = putEvents<1>(time, record, mask, sink, step);
        }
        instance.time = time;
    });
    return word;
}

} // namespace

int tdc56Decode60(Tdc56Instance* instance, const uint32_t* words, int count, uint32_t markerMask)
{
    if (count <= 0) return static_cast<int>(instance->carryWord);
    if (count > 1 && isSecond(words[0]) == isSecond(words[1])) {
        ++instance->orderingErrors;
        return static_cast<int>(words[0]);
    }
    const std::uint32_t* begin = words;
    int carried = 0; // records completed
    if (isSecond(words[0])) {
        if (instance->carryWord != 0) {
            const std::uint32_t record[2] = {instance->carryWord, words[0]};
            decodeRecords(*instance, record, 1, markerMask);
            carried = 1;
        }
        ++begin;
    }
    const std::size_t records = static_cast<std::size_t>(words + count - begin) / 2;
    const std::uint32_t* const stop = decodeRecords(*instance, begin, records, markerMask);
    if (stop != begin + 2 * records) {
        ++instance->orderingErrors;
        instance->carryWord = 0;
        traceTrace("Ordering error index %d, %08x %08x, dropping packet",
                   carried + static_cast<int>(stop - begin) / 2, stop[0], stop[1]);
        return 0;
    }
    const std::uint32_t last = words[count - 1];
    instance->carryWord = isSecond(last) ? 0 : last;
    return static_cast<int>(instance->carryWord);
}
