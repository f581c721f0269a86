#pragma once

#include "apps/timestamps/streamdecoder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

inline bool operator==(const PpTimest& a, const PpTimest& b)
{
    return a.time == b.time && a.channel == b.channel;
}
inline std::ostream& operator<<(std::ostream& out, const PpTimest& event)
{
    return out << event.time << " on " << int(event.channel);
}

using Events = std::vector<PpTimest>;

inline std::string bytesOf(const std::vector<std::uint32_t>& words)
{
    return std::string(reinterpret_cast<const char*>(words.data()), words.size() * sizeof words[0]);
}

/// All events of a stream that comes in chunks of a size.
inline Events decoded(const timestamps::Settings& settings, const std::string& stream, std::size_t chunk,
                      timestamps::Summary* summary = nullptr)
{
    Events events;
    const auto sink = [&](const PpTimest* batch, std::size_t count) {
        events.insert(events.end(), batch, batch + count);
    };
    timestamps::StreamDecoder decoder(settings);
    for (std::size_t at = 0; at < stream.size(); at += chunk)
        decoder.decode(stream.data() + at, std::min(chunk, stream.size() - at), sink);
    decoder.finish(sink);
    if (summary != nullptr) *summary = decoder.summary();
    return events;
}
