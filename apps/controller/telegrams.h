#pragma once

#include "addresses.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Telegrams as bytes on the wire: a 4-byte little-endian length `Len`, then `Type`, `Addr`, `Ind`, `CNo` and
/// the data words. `Len` counts what follows it.
namespace controller {

/// One telegram inside a block of received bytes. Points into the block and owns nothing.
struct TelegramView
{
    std::int32_t length = 0; ///< `Len`: 16 + 4 per data word
    std::uint32_t type = 0;
    std::int32_t address = 0;
    std::int32_t index = 0;
    std::int32_t number = 0;     ///< `CNo`
    const char* bytes = nullptr; ///< the whole telegram, from `Len` on; not aligned
    std::size_t wordCount = 0;   ///< data words

    /// Data word `i`; 0 beyond `wordCount`.
    std::int32_t word(std::size_t i) const;
    /// Copies `count` data words, from `first` on, to `out`; the range must lie within `wordCount`.
    void copyWords(std::size_t first, std::size_t count, std::int32_t* out) const;
};

/// Walks a block of whole frames.
class TelegramReader
{
public:
    TelegramReader(const char* block, std::size_t size)
        : m_next(block)
        , m_left(size)
    {
    }

    /// The next telegram. False at the end of the block, or at a frame that is no telegram (`Len` below 16,
    /// not a multiple of 4, beyond the block): then `malformed()` is true and nothing more is read.
    bool next(TelegramView* telegram);
    bool malformed() const { return m_malformed; }

private:
    const char* m_next;
    std::size_t m_left;
    bool m_malformed = false;
};

/// The first 20 bytes of a telegram with `wordCount` data words (below 2^28), written to `out`.
void encodeHeader(std::uint32_t type, std::int32_t address, std::int32_t index, std::int32_t number,
                  std::size_t wordCount, char* out);

/// The bytes of a telegram.
std::vector<char> encodeTelegram(std::uint32_t type, std::int32_t address, std::int32_t index,
                                 std::int32_t number, const std::int32_t* words, std::size_t wordCount);

} // namespace controller
