// Packets of format 52, beside the literal decoder.
#include "tdcfuzz.h"

namespace {

struct Format
{
    using Element = std::uint32_t;
    static void tidy(tdcfuzz::Twin&, std::vector<Element>&) {}
    /// Narrow: at even distances.
    static void plain(std::vector<Element>& words, bool narrow)
    {
        const std::uint32_t distance = words.empty() ? 0 : words[0] & 0x00FFFFFFU;
        std::uint32_t low = 0;
        for (std::uint32_t& word : words) {
            word &= 0x7FFFFFFFU;
            if (narrow) word = (word & 0x7C000000U) | (low & 0x03FFFFFFU);
            low += distance;
        }
    }
    static void decode(tdcfuzz::Twin& twin, const std::vector<Element>& words, bool) { twin.decode52(words); }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<Format>(data, size);
}
