#pragma once

#include "apps/controller/addresses.h"

#include <QString>
#include <QtGlobal>

class FrameBuffer;

namespace bench {

/// What the console can collect.
enum class ScanKind
{
    Area,
    Line,
    Stream
};

/// "area", "line", "stream".
QString scanKindName(ScanKind kind);

/// Geometry and speed of a scan, as the operator chooses them.
struct ScanSettings
{
    ScanKind kind = ScanKind::Area;
    int xPixels = 128; ///< pixels per line; of a stream: samples per frame
    int yPixels = 96;  ///< lines of an area; a line scan and a stream have one
    int mode = 4;      ///< 3 to 6, as `FrameBuffer` has them; a stream is always mode 2
    int rate = 1000;   ///< lines (stream: samples) per second

    int frameMode() const;
    int lines() const;
    /// Samples per frame. At least 1 for pixel counts from 1 on.
    qint64 frameSize() const;
    controller::Acquisition acquisition() const;
};

/// Positions stay below this bound; see `reachesPositionLimit`.
constexpr qint64 positionLimit = qint64(1) << 30;

/// Whether a frame of `frameSize` samples that starts at `position` would reach the bound.
bool reachesPositionLimit(qint64 position, qint64 frameSize);

/// Where a scan starts: the controller's first position, rounded up to a frame boundary; 0 when the frame
/// would reach the bound there.
qint64 startPosition(qint64 firstPosition, qint64 frameSize);

/// Where a scan that nears the bound goes on: low, at the same place within its frame, and in a frame of the
/// same parity, as the slow axis runs up and down in turn.
qint64 restartPosition(qint64 nextPosition, qint64 frameSize);

/// Gives a buffer the geometry, lengths, units and scaling of a scan. Only metadata is touched; a change of
/// geometry clears the buffer. `OomError` when an active buffer has no memory for
/// the frame.
void describeFrame(const ScanSettings& settings, FrameBuffer* buffer);

} // namespace bench
