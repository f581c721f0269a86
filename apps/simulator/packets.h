#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>
#include <vorelutil/tdc/tdc56.h>

/// Writes the packets of one time-stamp stream, in any format that a converter speaks.
///
/// Each packet begins with a high word or an absolute time and has whole records only, so that it can be read
/// without those before it. One thread at a time.
class PacketWriter
{
public:
    static constexpr std::size_t maxEvents = 1024; ///< of one packet
    static constexpr std::size_t maxWords = 4096;  ///< that one packet of so many events may take

    PacketWriter();

    /// Begins a stream. `format` is a `controller::TimeStampFormat`, not off.
    void begin(std::int32_t format);

    /// Writes one packet to `words` (room for `maxWords`) and returns its words.
    ///
    /// \param time begins the packet: 1 or more, not below the packet before, and at most the first event's.
    /// \param events at most `maxEvents`, ascending. Starts (channel 0) become channel 5 in format 60;
    /// formats 56 and 52x leave markers out. In format 60 markers must lie on the grid of 5000 clocks.
    std::size_t write(std::int64_t time, const PpTimest* events, std::size_t count, std::uint32_t* words);

private:
    struct Step
    {
        std::int64_t delta;
        std::uint32_t channel;
    };
    struct Free
    {
        void operator()(Tdc56Instance* encoder) const { tdc56DeInit(encoder); }
    };

    std::size_t encode(const PpTimest* events, std::size_t count, std::uint32_t* words);
    static std::size_t write52x(std::int64_t time, const PpTimest* events, std::size_t count,
                                std::uint32_t* words);
    std::size_t write60(std::int64_t time, const PpTimest* events, std::size_t count, std::uint32_t* words);
    std::size_t write60b(std::int64_t time, const PpTimest* events, std::size_t count, std::uint32_t* words);

    std::int32_t m_format = 0;
    std::unique_ptr<Tdc56Instance, Free> m_encoder; ///< formats 56 and 52: the high part last written
    std::vector<Step> m_steps;                      ///< format 60: the packet's
    std::vector<std::uint8_t> m_bytes;              ///< format 60b: the packet's
};
