#include "../trace/tracelog.h"
#include "tdc56.h"
#include "tdcdecode.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

using namespace tdc;

constexpr std::uint32_t secondWord = 0x80000000U;
constexpr std::uint32_t startChannel = 5;
constexpr std::uint32_t carrierChannel = 6; // 7 is ignored
constexpr std::int64_t markerGrid = 5000;
constexpr std::ptrdiff_t runRecords = 4;  ///< looked at together
constexpr std::ptrdiff_t mostEvents = 27; ///< of a record: three carriers with all markers

bool isSecond(std::uint32_t word)
{
    return (word & secondWord) != 0;
}

// A record is handled as one number, the second word above the first.
constexpr std::uint64_t framing = 0x8000000080000000U;
constexpr std::uint64_t framed = 0x8000000000000000U;
constexpr std::uint64_t typeBits = 0x4000000040000000U;
constexpr std::uint64_t threeEvents = 0x0000000040000000U; ///< type 1

std::uint64_t recordAt(const std::uint32_t* word)
{
    return std::uint64_t{word[1]} << 32 | word[0];
}

/// The 60 bits of a record without framing and type.
std::uint64_t contentsOf(std::uint64_t record)
{
    return (record & 0x3FFFFFFFU) | (record >> 2 & 0x0FFFFFFFC0000000U);
}

/// The types 1 to 3 have 3, 2 or 1 events in as many equal parts of their contents.
struct RecordType
{
    std::uint64_t topBits; ///< the highest bit of each part
    unsigned bits;         ///< of a part
    unsigned second;       ///< 1: there is a second event
    unsigned third;
};
constexpr RecordType recordTypes[] = {
    {0, 60, 0, 0},
    {0x0800008000080000U, 20, 1, 1},
    {0x0800000020000000U, 30, 1, 0},
    {0x0800000000000000U, 60, 0, 0},
};

/// Whether a record has one of the channels 6 and 7, which are those with both upper bits set.
bool isSpecial(std::uint64_t contents, const RecordType& type)
{
    return (contents & contents << 1 & type.topBits) != 0;
}

/// Whether the next records have three events each, of ordinary channels: then nothing more needs to be
/// looked at. (One at a time, the processor would guess wrong whenever types are mixed.)
bool isPlainRun(const std::uint32_t* word)
{
    std::uint64_t differs = 0;
    for (std::ptrdiff_t i = 0; i < 2 * runRecords; i += 2) {
        const std::uint64_t record = recordAt(word + i);
        differs |= ((record ^ (framed | threeEvents)) & (framing | typeBits)) |
                   (record & record << 1 & 0x2000020000080000U);
    }
    return differs == 0;
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

/// The event in the lower `bits` bits of `part`, a delta of time with the channel in the upper three; unless
/// it is `present`, nothing is to be delivered. Result: its time.
template <bool special, class Sink, class Step>
[[gnu::always_inline]] inline std::int64_t putEvent(std::int64_t time, std::uint64_t part, unsigned bits,
                                                    unsigned present, std::uint32_t mask, Sink& sink,
                                                    Step& step)
{
    const std::uint64_t upper = part << (64 - bits);
    const auto channel = static_cast<std::uint32_t>(upper >> 61);
    time = Tdc56Instance::wrappingSum(time, static_cast<std::int64_t>(upper << 3) >> (67 - bits));
    if (!special || channel < carrierChannel) {
        const std::int64_t stamp = present != 0 ? step.event(sink, time, channel == startChannel) : time;
        sink.put(stamp, static_cast<std::uint8_t>(channel), present);
    } else if (channel == carrierChannel) {
        putMarkers(time, mask, sink);
    }
    return time;
}

/// All parts are put, those that the type does not have as not present: that costs no branch.
template <bool special, class Sink, class Step>
[[gnu::always_inline]] inline std::int64_t putEvents(std::int64_t time, std::uint64_t contents,
                                                     const RecordType& type, std::uint32_t mask, Sink& sink,
                                                     Step& step)
{
    time = putEvent<special>(time, contents, type.bits, 1, mask, sink, step);
    contents >>= type.bits;
    time = putEvent<special>(time, contents, type.bits, type.second, mask, sink, step);
    contents >>= type.bits;
    return putEvent<special>(time, contents, type.bits, type.third, mask, sink, step);
}

/// Decodes records while they consist of a first and a second word. Result: where it stopped.
const std::uint32_t* decodeRecords(Tdc56Instance& instance, const std::uint32_t* word, std::size_t records,
                                   std::uint32_t mask)
{
    const std::uint32_t* const end = word + 2 * records;
    decode(instance, 3 * records, [&](auto& sink, auto& step) {
        std::int64_t time = instance.time;
        bool inOrder = true;
        while (inOrder && word != end && sink.fits(runRecords * mostEvents)) {
            const std::uint32_t* const stop = word + std::min(end - word, 2 * runRecords);
            if (stop - word == 2 * runRecords && isPlainRun(word)) {
                for (; word != stop && time != 0; word += 2)
                    time =
                        putEvents<false>(time, contentsOf(recordAt(word)), recordTypes[1], mask, sink, step);
                if (word == stop) continue;
            }
            for (; word != stop; word += 2) {
                const std::uint64_t record = recordAt(word);
                inOrder = (record & framing) == framed;
                if (!inOrder) break;
                const std::uint64_t contents = contentsOf(record);
                const RecordType& type = recordTypes[(record >> 61 & 2U) | (record >> 30 & 1U)];
                if (rarely((record & typeBits) == 0))
                    time = static_cast<std::int64_t>(contents);
                else if (rarely(time == 0))
                    continue; // no absolute time yet
                else if (rarely(isSpecial(contents, type)))
                    time = putEvents<true>(time, contents, type, mask, sink, step);
                else
                    time = putEvents<false>(time, contents, type, mask, sink, step);
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
