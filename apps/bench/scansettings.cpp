#include "scansettings.h"

#include <vorelutil/algo/rounding.h>
#include <vorelutil/algo/unit.h>
#include <vorelutil/frames/framebuffer.h>

namespace bench {

namespace scale = controller::scale;

namespace {

// Lengths run from the first pixel to the last; the offset names the centre. Half of an odd length would be
// cut, so lengths are even.
void setLengths(FrameBuffer* buffer, int xLength, int yLength, int unit)
{
    xLength -= xLength % 2;
    yLength -= yLength % 2;
    buffer->setMetaData(FrameBuffer::KeyXLength, xLength);
    buffer->setMetaData(FrameBuffer::KeyYLength, yLength);
    buffer->setMetaData(FrameBuffer::KeyXOffset, xLength / 2);
    buffer->setMetaData(FrameBuffer::KeyYOffset, yLength / 2);
    buffer->setMetaData(FrameBuffer::KeyXyUnit, unit);
}

} // namespace

QString scanKindName(ScanKind kind)
{
    switch (kind) {
    case ScanKind::Area:
        return QStringLiteral("area");
    case ScanKind::Line:
        return QStringLiteral("line");
    case ScanKind::Stream:
        return QStringLiteral("stream");
    }
    return QString();
}

int ScanSettings::frameMode() const
{
    return kind == ScanKind::Stream ? 2 : mode;
}

int ScanSettings::lines() const
{
    return kind == ScanKind::Area ? yPixels : 1;
}

qint64 ScanSettings::frameSize() const
{
    if (kind == ScanKind::Stream) return xPixels;
    const qint64 passes = mode == 4 || mode == 6 ? 2 : 1;
    return passes * xPixels * lines();
}

controller::Acquisition ScanSettings::acquisition() const
{
    switch (kind) {
    case ScanKind::Area:
        return controller::acquisitionArea;
    case ScanKind::Line:
        return controller::acquisitionLine;
    case ScanKind::Stream:
        return controller::acquisitionStream;
    }
    return controller::acquisitionOff;
}

bool reachesPositionLimit(qint64 position, qint64 frameSize)
{
    return position + frameSize >= positionLimit;
}

qint64 startPosition(qint64 firstPosition, qint64 frameSize)
{
    if (firstPosition < 0 || frameSize < 1) return 0;
    const qint64 rounded = (firstPosition + frameSize - 1) / frameSize * frameSize;
    return reachesPositionLimit(rounded, frameSize) ? 0 : rounded;
}

qint64 restartPosition(qint64 nextPosition, qint64 frameSize)
{
    if (nextPosition < 0 || frameSize < 1) return 0;
    return nextPosition % (2 * frameSize);
}

void describeFrame(const ScanSettings& settings, FrameBuffer* buffer)
{
    buffer->setMetaData(FrameBuffer::KeyMode, settings.frameMode());
    buffer->setMetaData(FrameBuffer::KeyXPixels, settings.xPixels);
    buffer->setMetaData(FrameBuffer::KeyYPixels, settings.lines());
    if (settings.kind == ScanKind::Stream) {
        int unit = algoParseUnit("s");
        const double duration = double(settings.xPixels - 1) / settings.rate;
        const int length = algoRescaleUnitInt(duration, &unit, false);
        setLengths(buffer, length, 0, unit);
    } else {
        setLengths(buffer, scale::scanWidth, settings.kind == ScanKind::Area ? scale::scanHeight : 0,
                   scale::lengthUnit);
    }
    buffer->setMetaData(FrameBuffer::KeySampleDivisor, scale::sampleDivisor);
    buffer->setMetaData(FrameBuffer::KeyValueUnit, scale::sampleUnit);
    buffer->setMetaData(FrameBuffer::KeySampleOffset, 0);
    buffer->setMetaData(FrameBuffer::KeyScanSpeed, settings.rate * 1000);
}

} // namespace bench
