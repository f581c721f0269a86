// A list file of the trace log, as text of any kind.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vorelutil/trace/listfile.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0; // no stream over nothing
    std::FILE* file = fmemopen(const_cast<std::uint8_t*>(data), size, "r");
    if (file == nullptr) std::abort();
    AddressSet set;
    tracelog::readListFile(file, set);
    std::fclose(file);

    // What was read is a set: ascending, its size and look-ups right, also after removals.
    std::uint64_t seen = 0;
    std::int64_t last = INT64_MIN;
    for (const int address : set) {
        if (address <= last || set.count(address) != 1) std::abort();
        last = address;
        if (++seen == 500) break; // of perhaps 2^32
    }
    if (seen < 500 && set.size() != seen) std::abort();
    const std::uint64_t before = set.size();
    for (std::uint64_t i = 0; i < seen; ++i) {
        if (set.erase(*set.begin()) != 1) std::abort();
    }
    if (set.size() != before - seen) std::abort();
    return 0;
}
