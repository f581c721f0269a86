// Packets of format 60b, beside the literal decoder; a tidy one has its length in words.
#include "tdcfuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return tdcfuzz::run<std::uint8_t>(data, size,
                                      [](tdcfuzz::Twin& twin, std::vector<std::uint8_t>& bytes, bool tidy) {
                                          if (tidy) {
                                              bytes.resize(bytes.size() / 4 * 4);
                                              bytes.shrink_to_fit();
                                          }
                                          twin.decode60b(bytes, tidy);
                                      });
}
