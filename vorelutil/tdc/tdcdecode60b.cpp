#include "tdcdecode.h"

#include "tdc56.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

using namespace tdc;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are read as they stand in memory");

constexpr std::ptrdiff_t longest = 8; ///< bytes of a record at most
constexpr std::ptrdiff_t shortest = 3;

// 16 bits for each type.
constexpr std::uint64_t lengths = 0x0008000500040003; ///< in bytes
constexpr std::uint64_t excess = 0x0028001000080000;  ///< the bits that are more than `shortest` has

/// Where a type, the lower two bits of `bits`, has its 16 bits.
unsigned placeOf(std::uint64_t bits)
{
    return static_cast<unsigned>(bits << 4) & 48U;
}

std::ptrdiff_t lengthAt(unsigned place)
{
    return static_cast<std::uint16_t>(lengths >> place);
}

/// How the value of a record comes out of its first 8 bytes, an absolute time as a delta from 0.
struct Value
{
    std::uint64_t keep; ///< the bits of the time before that count
    std::uint8_t lift;  ///< such a shift takes the value to the upper end
    std::uint8_t drop;  ///< and this one down again
    std::uint8_t event; ///< 1: is one
};
constexpr Value values[] = {
    {~std::uint64_t{0}, 40, 48, 1},
    {~std::uint64_t{0}, 32, 40, 1},
    {~std::uint64_t{0}, 24, 32, 1},
    {0, 0, 2, 0},
};

std::uint64_t load(const std::uint8_t* data)
{
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, data, sizeof bytes);
    return bytes;
}

/// Calls `put(record)` for each record, its first byte lowest, while there is room. Result: where it
/// stopped.
template <class Sink, class Put>
const std::uint8_t* decodeBytes(const std::uint8_t* data, const std::uint8_t* end, const Sink& sink, Put put)
{
    // Where a record begins is known only when the type of the one before has been read. So they are taken
    // in pairs, of which the second one's type is found in what was read with the first one's.
    while (std::ptrdiff_t pairs = std::min((end - data) / (2 * longest), sink.room() / 2)) {
        for (; pairs != 0; --pairs) {
            const std::uint64_t first = load(data);
            const std::uint64_t types = load(data + shortest) << 4;
            const unsigned place = placeOf(first);
            const unsigned placeBehind = types >> (excess >> place & 63U) & 48U;
            const std::uint8_t* const behind = data + lengthAt(place);
            put(first);
            put(load(behind));
            data = behind + lengthAt(placeBehind);
        }
    }
    while (data != end && sink.fits(1)) {
        std::uint8_t bytes[longest] = {};
        std::memcpy(bytes, data, static_cast<std::size_t>(std::min(end - data, longest)));
        const std::uint64_t record = load(bytes);
        const std::ptrdiff_t length = lengthAt(placeOf(record));
        if (length > end - data) return end; // cut
        put(record);
        data += length;
    }
    return data;
}

} // namespace

void tdc56Decode60b(Tdc56Instance* instance, const uint8_t* data, int length, uint32_t markerMask)
{
    if (length == 0) return;
    const std::ptrdiff_t size = length > 0 ? std::ptrdiff_t{length} * 4 : -std::ptrdiff_t{length};
    const std::uint8_t* const end = data + size;
    const CodeTable table(markerMask);
    decode(*instance, static_cast<std::size_t>(size) / 3, [&](auto& sink, auto& step) {
        std::int64_t time = instance->time;
        data = decodeBytes(data, end, sink, [&](std::uint64_t record) {
            const Value& value = values[record & 3U];
            const auto base = static_cast<std::int64_t>(static_cast<std::uint64_t>(time) & value.keep);
            if (rarely(base < 0)) return;
            time = Tdc56Instance::wrappingSum(base,
                                              static_cast<std::int64_t>(record << value.lift) >> value.drop);
            const std::size_t code = record >> 2 & 63U;
            const bool isChannel = value.event != 0 && code < CodeTable::channels;
            const std::int64_t stamp = isChannel ? step.event(sink, time, false) : time;
            sink.put(stamp, table.code[code], table.deliver[code] & value.event);
        });
        instance->time = time;
    });
}

int tdc56Cut60b(const uint8_t* data, int length)
{
    std::ptrdiff_t position = 0;
    while (position < length) {
        const std::ptrdiff_t taken = lengthAt(placeOf(data[position]));
        if (taken > length - position) break;
        position += taken;
    }
    return static_cast<int>(position);
}
