#include "npyheader.h"

#include <vorelutil/tdc/tdc56.h>

namespace timestamps {

static_assert(sizeof(PpTimest) == 16 && offsetof(PpTimest, channel) == 8, "as the header has it");

std::string npyHeader(std::uint64_t count)
{
    const std::string magic("\x93NUMPY\x01\x00", 8);
    constexpr std::size_t dictionarySize = npyHeaderSize - 10; // magic and length
    std::string text = "{'descr': [('time', '<i8'), ('channel', '|u1'), ('', '|V7')], "
                       "'fortran_order': False, 'shape': (" +
                       std::to_string(count) + ",), }";
    text.resize(dictionarySize - 1, ' ');
    return magic + static_cast<char>(dictionarySize) + '\0' + text + '\n';
}

} // namespace timestamps
