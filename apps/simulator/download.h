#pragma once

#include <cstddef>
#include <cstdint>

/// A firmware image on its way into the simulated controller: what was taken is summed up, and not kept.
///
/// Blocks come in order; block 0 begins anew.
class Download
{
public:
    static constexpr std::uint32_t maxBlockSize = 64 * 1024; ///< bytes

    /// Takes a block with this many bytes of data and this CRC-32. Result: a `controller::Reason`.
    std::int32_t takeBlock(std::int32_t number, std::uint32_t size, std::uint32_t sum);
    /// Ends the download: the next block is 0 again. `*sum`: CRC-32 of its data. Result: a
    /// `controller::Reason`.
    std::int32_t finish(std::uint32_t* sum);

    /// Number of the block that is awaited.
    std::int32_t next() const { return m_next; }

    /// CRC-32 of data that follows what `sum` is of; 0: of none.
    static std::uint32_t checkSum(std::uint32_t sum, const void* data, std::size_t size);

private:
    std::int32_t m_next = 0;
    std::uint32_t m_sum = 0;
};
