#pragma once

#include <initializer_list>
#include <numeric>
#include <utility>
#include <vector>
#include <vorelutil/frames/framebuffer.h>

/// Sets entries of a buffer's meta data, in that order.
inline void set(FrameBuffer* frame, std::initializer_list<std::pair<int, int>> entries)
{
    for (const auto& [key, value] : entries) frame->setMetaData(key, value);
}

inline int add(FrameBuffer* frame, const std::vector<int>& samples, int position = 0)
{
    return frame->addData(samples.data(), static_cast<int>(samples.size()), position);
}

/// Gives a buffer its geometry, switches it on and adds samples.
inline void activate(FrameBuffer* frame, int mode, int xPixels, int yPixels,
                     const std::vector<int>& samples = {}, int position = 0)
{
    set(frame, {{0x2001, mode}, {0x2002, xPixels}, {0x2003, yPixels}});
    frame->setActive(true);
    add(frame, samples, position);
}

/// `count` samples: first, first + 1 ...
inline std::vector<int> numbers(int first, int count)
{
    std::vector<int> samples(static_cast<std::size_t>(count));
    std::iota(samples.begin(), samples.end(), first);
    return samples;
}
