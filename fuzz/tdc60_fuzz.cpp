// Packets of format 60, beside the literal decoder; a tidy one has first and second words in turn, and goes
// on where the packet before it ended.
#include "tdcfuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<std::uint32_t>(
        data, size, [](tdcfuzz::Twin& twin, std::vector<std::uint32_t>& words, bool tidy) {
            std::uint32_t second = twin.stated.carryWord != 0 ? 0x80000000U : 0;
            for (std::uint32_t& word : words) {
                if (tidy) word = (word & 0x7FFFFFFFU) | second;
                second ^= 0x80000000U;
            }
            twin.decode60(words);
        });
}
