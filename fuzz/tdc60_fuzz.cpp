// Packets of format 60, beside the literal decoder.
#include "tdcfuzz.h"

namespace {

struct Format
{
    using Element = std::uint32_t;
    /// First and second words in turn, going on where the packet before it ended.
    static void tidy(tdcfuzz::Twin& twin, std::vector<Element>& words)
    {
        std::uint32_t second = twin.stated.carryWord != 0 ? 0x80000000U : 0;
        for (std::uint32_t& word : words) {
            word = (word & 0x7FFFFFFFU) | second;
            second ^= 0x80000000U;
        }
    }
    /// Records of type 1. Narrow: they begin with an absolute time below 256, of which deltas from -2 to 1
    /// may come back to 0.
    static void plain(std::vector<Element>& words, bool narrow)
    {
        const std::uint32_t begin = words.empty() ? 0 : words[0] & 0xFFU;
        for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
            std::uint64_t contents = 0;
            for (int part = 0; part < 60; part += 20) {
                std::uint64_t event = (words[i] & 0x3FFFFFFFU) | std::uint64_t{words[i + 1] & 0x3FFFFFFFU}
                                                                     << 30;
                event = event >> part & 0xFFFFFU;
                if ((event & 0x80000U) != 0) event &= ~0x40000U; // no channels 6 and 7
                if (narrow) event = (event & 0xE0001U) | ((event & 2U) != 0 ? 0x1FFFEU : 0);
                contents |= event << part;
            }
            words[i] = static_cast<std::uint32_t>(contents & 0x3FFFFFFFU) | 0x40000000U;
            words[i + 1] = static_cast<std::uint32_t>(contents >> 30) | 0x80000000U;
        }
        if (narrow && words.size() > 1) {
            words[0] = begin;
            words[1] = 0x80000000U;
        }
    }
    static void decode(tdcfuzz::Twin& twin, const std::vector<Element>& words, bool) { twin.decode60(words); }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<Format>(data, size);
}
