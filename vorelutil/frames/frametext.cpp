#include "frametext.h"

#include "framebuffer.h"

#include <charconv>
#include <ctime>
#include <vorelutil/algo/unit.h>

namespace frametext {

Unit unitOf(const FrameBuffer& frame, int key)
{
    double factor = 0;
    const char* const name = algoGetBaseUnit(frame.findMeta(key, 0), nullptr, &factor);
    return {name, factor};
}

Scaling scalingOf(const FrameBuffer& frame, int noDivisor)
{
    const double divisor = frame.findMeta(FrameBuffer::KeySampleDivisor, noDivisor);
    const double offset = frame.findMeta(FrameBuffer::KeySampleOffset, 0);
    return {offset, unitOf(frame, FrameBuffer::KeyValueUnit).factor / divisor};
}

char* printNumber(char* to, double value)
{
    return std::to_chars(to, to + maxNumberLength, value, std::chars_format::general, 9).ptr;
}

TimeStamp::TimeStamp(const char* format)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    m_text[0] = '\0';
    if (localtime_r(&now, &local) == nullptr) return;
    if (std::strftime(m_text, sizeof m_text, format, &local) == 0) m_text[0] = '\0';
}

} // namespace frametext
