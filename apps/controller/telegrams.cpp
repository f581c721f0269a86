#include "telegrams.h"

#include <QtEndian>

namespace controller {
namespace {

constexpr std::size_t headerBytes = 20;   ///< `Len` and the four header words
constexpr std::int32_t headerLength = 16; ///< `Len` of a telegram without data

} // namespace

std::int32_t TelegramView::word(std::size_t i) const
{
    return i < wordCount ? qFromLittleEndian<std::int32_t>(bytes + headerBytes + 4 * i) : 0;
}

void TelegramView::copyWords(std::size_t first, std::size_t count, std::int32_t* out) const
{
    if (count > 0) qFromLittleEndian<std::int32_t>(bytes + headerBytes + 4 * first, qsizetype(count), out);
}

bool TelegramReader::next(TelegramView* telegram)
{
    if (m_malformed || m_left == 0) return false;
    const std::int32_t length = m_left < headerBytes ? 0 : qFromLittleEndian<std::int32_t>(m_next);
    if (length < headerLength || length % 4 != 0 || std::size_t(length) > m_left - 4) {
        m_malformed = true;
        return false;
    }
    telegram->length = length;
    telegram->type = qFromLittleEndian<std::uint32_t>(m_next + 4);
    telegram->address = qFromLittleEndian<std::int32_t>(m_next + 8);
    telegram->index = qFromLittleEndian<std::int32_t>(m_next + 12);
    telegram->number = qFromLittleEndian<std::int32_t>(m_next + 16);
    telegram->bytes = m_next;
    telegram->wordCount = std::size_t(length - headerLength) / 4;
    m_next += 4 + std::size_t(length);
    m_left -= 4 + std::size_t(length);
    return true;
}

void encodeHeader(std::uint32_t type, std::int32_t address, std::int32_t index, std::int32_t number,
                  std::size_t wordCount, char* out)
{
    qToLittleEndian(std::int32_t(headerLength + 4 * std::int32_t(wordCount)), out);
    qToLittleEndian(type, out + 4);
    qToLittleEndian(address, out + 8);
    qToLittleEndian(index, out + 12);
    qToLittleEndian(number, out + 16);
}

std::vector<char> encodeTelegram(std::uint32_t type, std::int32_t address, std::int32_t index,
                                 std::int32_t number, const std::int32_t* words, std::size_t wordCount)
{
    std::vector<char> bytes(headerBytes + 4 * wordCount);
    encodeHeader(type, address, index, number, wordCount, bytes.data());
    if (wordCount > 0) qToLittleEndian<std::int32_t>(words, qsizetype(wordCount), bytes.data() + headerBytes);
    return bytes;
}

} // namespace controller
