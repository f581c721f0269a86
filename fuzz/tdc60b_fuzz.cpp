// Packets of format 60b, beside the literal decoder.
#include "tdcfuzz.h"

namespace {

struct Format
{
    using Element = std::uint8_t;
    /// With a length in words.
    static void tidy(tdcfuzz::Twin&, std::vector<Element>& bytes) { bytes.resize(bytes.size() / 4 * 4); }
    /// Records of 4 bytes. Narrow: deltas from 0 to 255.
    static void plain(std::vector<Element>& bytes, bool narrow)
    {
        for (std::size_t i = 0; i + 3 < bytes.size(); i += 4) {
            bytes[i] = static_cast<Element>((bytes[i] & 0x7CU) | 1U);
            if (narrow) bytes[i + 2] = bytes[i + 3] = 0;
        }
    }
    static void decode(tdcfuzz::Twin& twin, const std::vector<Element>& bytes, bool tidy)
    {
        twin.decode60b(bytes, tidy && bytes.size() % 4 == 0);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<Format>(data, size);
}
