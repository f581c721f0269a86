// Packets of format 52x, beside the literal decoder.
#include "tdcfuzz.h"

namespace {

struct Format
{
    using Element = std::uint32_t;
    static void tidy(tdcfuzz::Twin&, std::vector<Element>&) {}
    static void plain(std::vector<Element>& words, bool narrow)
    {
        for (std::uint32_t& word : words) word = 0x80000000U | (narrow ? word & 0x700000FFU : word);
    }
    static void decode(tdcfuzz::Twin& twin, const std::vector<Element>& words, bool)
    {
        twin.decode52x(words);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<Format>(data, size);
}
