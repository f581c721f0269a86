// Packets of format 56, beside the literal decoder.
#include "tdcfuzz.h"

namespace {

struct Format
{
    using Element = std::uint32_t;
    static void tidy(tdcfuzz::Twin&, std::vector<Element>&) {}
    /// Narrow: starts, at even distances.
    static void plain(std::vector<Element>& words, bool narrow)
    {
        const std::uint32_t distance = words.empty() ? 0 : words[0] & 0x00FFFFFFU;
        std::uint32_t low = 0;
        for (std::uint32_t& word : words) {
            word = narrow ? low & 0x0FFFFFFFU : word & 0xEFFFFFFFU;
            low += distance;
        }
    }
    static void decode(tdcfuzz::Twin& twin, const std::vector<Element>& words, bool) { twin.decode56(words); }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<Format>(data, size);
}
