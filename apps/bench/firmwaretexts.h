#pragma once

#include <QString>

namespace bench {

class FirmwareRoad;

/// How an image goes with the device.
struct FirmwareRemark
{
    enum Verdict
    {
        Better,  ///< newer
        Fits,    ///< nothing speaks against it
        Unknown, ///< nobody can tell
        Wrong
    };
    Verdict verdict = Unknown;
    QString text; ///< for people; empty: there is nothing to say
};

/// Of the products. A device that is none of the known ones is `Wrong` with any image, and without one.
FirmwareRemark productRemark(const FirmwareRoad& road);
/// Of the versions. Without an image: `Unknown`, and empty.
FirmwareRemark versionRemark(const FirmwareRoad& road);

/// What the device has told, or why there is nothing.
QString deviceProductText(const FirmwareRoad& road);
QString deviceVersionText(const FirmwareRoad& road);

/// A foreign text for people: on one line, without characters that do not print, cut to a length.
QString printable(const QString& text, int longest = 100);
/// A dash instead of nothing.
QString orDash(const QString& text);
/// With places in its long words where a line may be broken.
QString breakable(const QString& text);

} // namespace bench
