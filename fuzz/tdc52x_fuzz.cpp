// Packets of format 52x, beside the literal decoder.
#include "tdcfuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<std::uint32_t>(
        data, size,
        [](tdcfuzz::Twin& twin, const std::vector<std::uint32_t>& words, bool) { twin.decode52x(words); });
}
