#include "tdcdecode.h"

#include "tdc56.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

using namespace tdc;

constexpr std::ptrdiff_t longest = 8; ///< bytes of a record at most
constexpr unsigned absolute = 3;      ///< the type of a record with an absolute time

/// 3, 4, 5 or 8.
std::ptrdiff_t lengthOf(unsigned type)
{
    const std::ptrdiff_t base = type;
    return 3 + base + (base + 1) / 4 * 2;
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
        while (data != end && sink.fits(1)) {
            std::uint64_t record = 0;
            if (end - data >= longest) {
                std::memcpy(&record, data, longest);
            } else {
                std::memcpy(&record, data, static_cast<std::size_t>(end - data));
                if (lengthOf(record & 3U) > end - data) {
                    data = end;
                    break;
                }
            }
            const unsigned type = record & 3U;
            data += 3 + type;
            if (rarely(type == absolute)) {
                data += 2;
                time = static_cast<std::int64_t>(record) >> 2;
            } else if (time >= 0) {
                const unsigned unused =
                    48 - 8 * type; // bits above the delta, with the first byte shifted out
                const std::int64_t delta = static_cast<std::int64_t>(record << (unused - 8)) >> unused;
                time = Tdc56Instance::wrappingSum(time, delta);
                const auto code = static_cast<std::size_t>(record >> 2) & 63U;
                const std::int64_t stamp = code < CodeTable::channels ? step.event(sink, time, false) : time;
                sink.put(stamp, table.code[code], table.deliver[code]);
            }
        }
        instance->time = time;
    });
}

int tdc56Cut60b(const uint8_t* data, int length)
{
    std::ptrdiff_t position = 0;
    while (position < length) {
        const std::ptrdiff_t taken = lengthOf(data[position] & 3U);
        if (taken > length - position) break;
        position += taken;
    }
    return static_cast<int>(position);
}
