#include "download.h"

#include "apps/controller/addresses.h"

#include <limits>
#include <zlib.h>

using namespace controller;

std::int32_t Download::takeBlock(std::int32_t number, std::uint32_t size, std::uint32_t sum)
{
    if (size == 0) return reasonUnknownError;
    if (size > maxBlockSize || (number != 0 && number != m_next)) return reasonOutOfRange;
    if (number == std::numeric_limits<std::int32_t>::max()) return reasonOutOfRange; // none could follow
    m_sum = number == 0 ? sum : std::uint32_t(crc32_combine(m_sum, sum, z_off_t(size)));
    m_next = number + 1;
    return reasonOk;
}

std::int32_t Download::finish(std::uint32_t* sum)
{
    *sum = m_sum;
    if (m_next == 0) return reasonOutOfRange;
    *this = Download();
    return reasonOk;
}

std::uint32_t Download::checkSum(std::uint32_t sum, const void* data, std::size_t size)
{
    return std::uint32_t(crc32(sum, static_cast<const Bytef*>(data), uInt(size)));
}
