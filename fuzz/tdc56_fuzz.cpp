// Packets of format 56, beside the literal decoder.
#include "tdcfuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<std::uint32_t>(
        data, size,
        [](tdcfuzz::Twin& twin, const std::vector<std::uint32_t>& words, bool) { twin.decode56(words); });
}
