// The two-column line export and the running one-column log.

#include "fileformat.h"
#include "framebuffer.h"
#include "frametext.h"

#include <algorithm>
#include <vorelutil/platform/files.h>

using frametext::BlockWriter;
using frametext::printLine;
using frametext::Scaling;
using frametext::TimeStamp;
using frametext::Unit;
using namespace frametext::result;

int FrameBuffer::saveLineCsv(const char* path, const char* channel) const
{
    const TimeStamp now(TimeStamp::iso);
    if (!m_active || m_fill == 0) return NothingToWrite;
    const File file(platform::openFile(path, "w"));
    if (file == nullptr) return CannotOpen;

    const Unit xy = frametext::unitOf(*this, KeyXyUnit);
    std::FILE* const out = file.get();
    printLine(out, fileformat::line::title);
    printLine(out, fileformat::line::time, now.text());
    printLine(out, fileformat::line::channel, channel != nullptr ? channel : "");
    printLine(out, fileformat::line::xPixels, m_xPixels == 1 ? 2 : m_xPixels);
    printLine(out, fileformat::line::xUnit, xy.name);
    printLine(out, fileformat::line::yUnit, frametext::unitOf(*this, KeyValueUnit).name);
    printLine(out, fileformat::line::columns);

    const std::int64_t width = m_xPixels;
    const double xLength = findMeta(KeyXLength, 0);
    const double xStep = xLength * xy.factor / static_cast<double>(width == 1 ? 1 : width - 1);
    const double xOrigin = (findMeta(KeyXOffset, 0) - xLength / 2) * xy.factor;
    const Scaling value = frametext::scalingOf(*this, 0);
    BlockWriter writer(out);
    const auto row = [&](std::int64_t xIndex, int sample) {
        writer.append(static_cast<double>(xIndex) * xStep + xOrigin, fileformat::line::separator);
        writer.append(value(sample), "\n");
    };
    const int* const samples = m_samples.get();
    if (m_mode == Stream) {
        for (std::int64_t i = 0; i < m_fill; ++i) row(m_startPosition + i, samples[i]);
    } else if (m_mode >= Forward && m_mode <= ReturnForward) {
        const bool twoPasses = m_mode == ForwardReturn || m_mode == ReturnForward;
        const bool firstDescends = m_mode == Backward || m_mode == ReturnForward;
        const std::int64_t count = std::min<std::int64_t>(m_fill, twoPasses ? 2 * width : width);
        for (std::int64_t i = 0; i < count; ++i) {
            const bool descends = (i < width) == firstDescends;
            row(descends ? width - 1 - i % width : i % width, samples[i]);
        }
    }
    return Written;
}

int FrameBuffer::startPermCsv(const char* path, const char* channel)
{
    m_log.reset();
    if (path == nullptr || *path == '\0') return Written;
    m_log.reset(platform::openFile(path, "w"));
    if (m_log == nullptr) return CannotOpen;

    m_logScale = frametext::scalingOf(*this, 1).scale;
    m_logOffset = findMeta(KeySampleOffset, 0);
    const TimeStamp now(TimeStamp::iso);
    std::FILE* const out = m_log.get();
    printLine(out, fileformat::log::title);
    printLine(out, fileformat::log::time, now.text());
    printLine(out, fileformat::log::channel, channel != nullptr ? channel : "");
    printLine(out, fileformat::log::unit, frametext::unitOf(*this, KeyValueUnit).name);
    printLine(out, fileformat::log::dataStart);
    return Written;
}

void FrameBuffer::writeLog(const int* values, std::size_t count) const
{
    const Scaling value{static_cast<double>(m_logOffset), m_logScale};
    BlockWriter writer(m_log.get());
    for (std::size_t i = 0; i < count; ++i) writer.append(value(values[i]), "\n");
}

int FrameBuffer::savePermCsv(const int* values, int count) const
{
    if (m_log != nullptr && values != nullptr && count > 0) writeLog(values, static_cast<std::size_t>(count));
    return Written;
}

int FrameBuffer::saveSimpleCsv(const char* path, const char* channel)
{
    const int result = startPermCsv(path, channel);
    if (result == Written && m_log != nullptr) {
        writeLog(m_samples.get(), m_fill);
        m_log.reset();
    }
    return result;
}
