#pragma once

#include <cstdint>
#include <QImage>
#include <QString>
#include <vector>

namespace cli {

/// A histogram as a picture with axes, on white: counts over the time after the start. `binWidth` is in clock
/// periods. Where several bins share a pixel, the highest is shown. Needs a `QGuiApplication`.
QImage histogramPicture(const std::vector<std::uint64_t>& counts, std::int64_t binWidth,
                        const QString& title);

} // namespace cli
