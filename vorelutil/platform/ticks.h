#pragma once

#include <cstdint>

/// The system's tick counter.
namespace platform {

/// Milliseconds of a monotonic clock since an arbitrary start.
///
/// Wraps to 0 after 2^32 ms (about 49.7 days): use differences in `uint32_t` arithmetic only.
/// Any thread may call it.
std::uint32_t tickCount();

} // namespace platform
