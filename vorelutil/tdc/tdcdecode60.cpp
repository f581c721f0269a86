#include "../trace/tracelog.h"
#include "tdc56.h"
#include "tdcdecode.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace {

using namespace tdc;

constexpr std::uint32_t secondWord = 0x80000000U;
constexpr std::uint32_t startChannel = 5;
constexpr std::uint32_t carrierChannel = 6; // 7 is ignored
constexpr std::int64_t markerGrid = 5000;
constexpr std::ptrdiff_t mostEvents = 27; ///< of a record: three carriers with all markers
constexpr std::ptrdiff_t stretch = 32;    ///< records for which room is looked for together
constexpr std::ptrdiff_t runRecords = 4;  ///< looked at together

bool isSecond(std::uint32_t word)
{
    return (word & secondWord) != 0;
}

bool isRecord(const std::uint32_t* word)
{
    return !isSecond(word[0]) && isSecond(word[1]);
}

/// Bits 0 to 29 of both words, the second above the first. The types 1 to 3 have 3, 2 or 1 events in as many
/// equal parts of these, from below: a delta of time with the channel in the upper three bits.
std::uint64_t contentsOf(const std::uint32_t* word)
{
    return (word[0] & 0x3FFFFFFFU) | std::uint64_t{word[1] << 2} << 28;
}

struct RecordType
{
    std::uint64_t topBits; ///< the highest bit of each part
    std::uint64_t lift;    ///< a factor that takes the lowest delta's sign to bit 63
    std::uint64_t keep;    ///< the bits of the time before that count
    std::uint8_t drop;     ///< such a shift takes the lifted delta down again
    std::uint8_t channel;  ///< where the lowest channel begins
    std::uint8_t events;
};

/// An absolute time is a delta from 0 here, with no event.
constexpr RecordType recordTypes[] = {
    {0, 1, 0, 0, 60, 0},
    {0x0800008000080000U, std::uint64_t{1} << 47, ~std::uint64_t{0}, 47, 17, 3},
    {0x0800000020000000U, std::uint64_t{1} << 37, ~std::uint64_t{0}, 37, 27, 2},
    {0x0800000000000000U, std::uint64_t{1} << 7, ~std::uint64_t{0}, 7, 57, 1},
};

/// Of a first and a second word.
const RecordType& typeOf(const std::uint32_t* word)
{
    return recordTypes[(word[1] >> 30) * 2 + (word[0] >> 30) - 4];
}

/// Whether a record has one of the channels 6 and 7, which are those with both upper bits set.
bool isSpecial(std::uint64_t contents, const RecordType& type)
{
    return (contents & contents << 1 & type.topBits) != 0;
}

/// The lowest of the parts in `contents`.
[[gnu::always_inline]] inline std::int64_t deltaOf(std::uint64_t contents, const RecordType& type)
{
    return static_cast<std::int64_t>(contents * type.lift) >> type.drop;
}

/// Whether the next records have three events each, of ordinary channels.
[[gnu::always_inline]] inline bool isRunOfThrees(const std::uint32_t* word)
{
    std::uint32_t first = 0, second = 0;
    for (std::ptrdiff_t i = 0; i < 2 * runRecords; i += 2) {
        const std::uint32_t a = word[i];
        const std::uint32_t b = word[i + 1];
        first |= ((a ^ 0x40000000U) & 0xC0000000U) | (a & a << 1 & 0x00080000U);
        second |= ((b ^ 0x80000000U) & 0xC0000000U) | (b & b << 1 & 0x20000200U);
    }
    return (first | second) == 0;
}

/// Puts a record of ordinary channels. All parts are put, those that the type does not have beyond its
/// number of events: no branch asks for the type, which could not be foreseen. Result: the record's time.
template <class Sink>
[[gnu::always_inline]] inline std::int64_t putPlain(std::int64_t time, std::uint64_t contents,
                                                    const RecordType& type, Sink& sink)
{
    const std::uint64_t channel0 = contents >> type.channel;
    const std::uint64_t part1 = channel0 >> 3;
    const std::uint64_t channel1 = part1 >> type.channel;
    const std::uint64_t part2 = channel1 >> 3;
    const std::uint64_t channel2 = part2 >> type.channel;
    time = static_cast<std::int64_t>(static_cast<std::uint64_t>(time) & type.keep);
    const std::int64_t time0 = Tdc56Instance::wrappingSum(time, deltaOf(contents, type));
    const std::int64_t time1 = Tdc56Instance::wrappingSum(time0, deltaOf(part1, type));
    const std::int64_t time2 = Tdc56Instance::wrappingSum(time1, deltaOf(part2, type));
    sink.putFirst({time0, time1, time2}, {channel0 & 7, channel1 & 7, channel2}, type.events);
    return time2;
}

/// Puts records as long as they have no channels but ordinary ones. Result: the first that has.
template <class Sink>
[[gnu::always_inline]] inline const std::uint32_t*
putPlainRecords(std::int64_t& time, const std::uint32_t* word, const std::uint32_t* stop, Sink& sink)
{
    std::int64_t now = time;
    while (now != 0 && stop - word >= 2 * runRecords && isRunOfThrees(word))
        for (const std::uint32_t* const end = word + 2 * runRecords; word != end && now != 0; word += 2)
            now = putPlain(now, contentsOf(word), recordTypes[1], sink);
    for (; word != stop; word += 2) {
        if (rarely(!isRecord(word))) break;
        const std::uint64_t contents = contentsOf(word);
        const RecordType& type = typeOf(word);
        if (rarely(isSpecial(contents, type)) || rarely(now == 0)) break;
        now = putPlain(now, contents, type, sink);
    }
    time = now;
    return word;
}

/// Markers ride on a grid of times, their mask bits in the remainder.
template <class Sink>
[[gnu::always_inline]] inline void putMarkers(std::int64_t time, std::uint32_t mask, Sink& sink)
{
    std::int64_t rest = time % markerGrid;
    if (rest < 0) rest += markerGrid;
    const std::uint32_t markers = mask & static_cast<std::uint32_t>(rest);
    const std::int64_t stamp = Tdc56Instance::wrappingSum(time, -rest);
    for (std::size_t bit = 0; bit < markerCodes.size(); ++bit)
        sink.put(stamp, markerCodes[bit], markers >> bit & 1U);
}

/// Puts a record of any kind. Result: its time.
template <class Sink, class Step>
[[gnu::always_inline]] inline std::int64_t putRecord(std::int64_t time, const std::uint32_t* word,
                                                     std::uint32_t mask, Sink& sink, Step& step)
{
    std::uint64_t contents = contentsOf(word);
    const RecordType& type = typeOf(word);
    if (type.events == 0) return static_cast<std::int64_t>(contents);
    if (time == 0) return 0; // no absolute time yet
    for (int i = 0; i < type.events; ++i) {
        time = Tdc56Instance::wrappingSum(time, deltaOf(contents, type));
        contents >>= type.channel;
        const auto channel = static_cast<std::uint8_t>(contents & 7U);
        contents >>= 3;
        if (channel < carrierChannel)
            sink.put(step.event(sink, time, channel == startChannel), channel, 1);
        else if (channel == carrierChannel)
            putMarkers(time, mask, sink);
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
        bool inOrder = true;
        while (inOrder && word != end && sink.fits(stretch * mostEvents)) {
            const std::uint32_t* const stop = word + std::min(end - word, 2 * stretch);
            for (;; word += 2) {
                if constexpr (!std::decay_t<decltype(step)>::alters)
                    word = putPlainRecords(time, word, stop, sink);
                if (word == stop) break;
                inOrder = isRecord(word);
                if (!inOrder) break;
                time = putRecord(time, word, mask, sink, step);
            }
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
