#pragma once

#include "streamdecoder.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

namespace timestamps {

/// Packets of any number of events, which `StreamDecoder` decodes to the same events again.
///
/// Formats 56 and 52 begin with a high word 0; format 60 is cut into packets, each with an absolute time.
/// Format 60b is written in the library's own form of that stream, which does not read back. 52x cannot be
/// written.
///
/// What a format cannot carry is refused: channels and times that it has no bits for, times that descend
/// (56; 52: from one high part to a lower one), markers off the 5000-clock grid (60).
class StreamEncoder
{
public:
    /// Takes the next bytes of the stream; may throw.
    using Sink = std::function<void(const void* data, std::size_t size)>;

    explicit StreamEncoder(Format format);

    /// Encodes events up to the first one that the format cannot carry. Result: how many; fewer than
    /// `count` when there is such a one.
    std::size_t encode(const PpTimest* events, std::size_t count, const Sink& sink);
    /// What was wrong with the event at which `encode` stopped.
    const std::string& problem() const { return m_problem; }

private:
    struct Free
    {
        void operator()(Tdc56Instance* instance) const { tdc56DeInit(instance); }
    };

    bool carries(const PpTimest& event);
    std::size_t pieceOf(const PpTimest* events, std::size_t count) const;
    std::size_t encodePiece(const PpTimest* events, std::size_t count);

    const Format m_format;
    const std::unique_ptr<Tdc56Instance, Free> m_instance;
    std::vector<std::uint32_t> m_words;
    std::int64_t m_previous = 0; ///< time of the event before
    bool m_begun = false;
    std::string m_problem;
};

} // namespace timestamps
