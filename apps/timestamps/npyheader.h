#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace timestamps {

/// Bytes of every such header.
constexpr std::size_t npyHeaderSize = 192;

/// The beginning of a NumPy file (`.npy`, version 1.0) of `count` events; the events follow as they lie in
/// memory. Its fields are `time` ('<i8') at 0 and `channel` ('u1') at 8, of 16 bytes. The size does not
/// depend on `count`, so that a header can be written over one of 0 when the events are counted.
std::string npyHeader(std::uint64_t count);

} // namespace timestamps
