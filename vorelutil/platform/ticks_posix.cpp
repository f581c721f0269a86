#include "ticks.h"

#include <ctime>

namespace platform {

std::uint32_t tickCount()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto seconds = static_cast<std::uint64_t>(now.tv_sec);
    const auto nanoseconds = static_cast<std::uint64_t>(now.tv_nsec);
    return static_cast<std::uint32_t>(seconds * 1000U + nanoseconds / 1000000U);
}

} // namespace platform
