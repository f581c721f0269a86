#include "firmwaretexts.h"

#include "firmwareroad.h"

#include <QCoreApplication>

namespace bench {

namespace {

constexpr int longWord = 40;
const QChar breakPlace(0x200B); ///< zero-width space

QString tr(const char* text)
{
    return QCoreApplication::translate("bench::FirmwareTexts", text);
}

QString digitsText(double number)
{
    return QString::number(number, number < 1e18 ? 'f' : 'g', number < 1e18 ? 0 : 6);
}

QString deviceText(const FirmwareRoad& road, bool isTold, const QString& told)
{
    if (isTold) return told;
    if (!road.isConnected()) return tr("not connected");
    return road.device().isAsking ? tr("is asked...") : tr("not told");
}

} // namespace

FirmwareRemark productRemark(const FirmwareRoad& road)
{
    const FirmwareFile* image = road.image();
    if (road.isUnknownProduct())
        return {FirmwareRemark::Wrong,
                tr("\u26A0 The device's product is not known (number %1)").arg(road.device().product)};
    if (image == nullptr) return {FirmwareRemark::Unknown, QString()};
    if (!road.device().hasProduct)
        return {FirmwareRemark::Unknown, tr("? The device has not told its product")};
    const QString product = printable(image->product);
    if (image->type == FirmwareFile::FpgaBitFile)
        return {FirmwareRemark::Unknown,
                tr("? design %1 - the device is %2").arg(orDash(product), road.deviceProduct())};
    if (product.isEmpty()) return {FirmwareRemark::Unknown, tr("? The image does not tell its product")};
    if (road.isOtherProduct())
        return {FirmwareRemark::Wrong, tr("\u26A0 The image is for another product: %1").arg(product)};
    return {FirmwareRemark::Fits, QString()};
}

FirmwareRemark versionRemark(const FirmwareRoad& road)
{
    const FirmwareFile* image = road.image();
    if (image == nullptr) return {FirmwareRemark::Unknown, QString()};
    if (!road.device().hasVersion)
        return {FirmwareRemark::Unknown, tr("? The device has not told its version")};
    const QString own = digitsText(FirmwareFile::parseVersion(image->version));
    const QString numbers = tr("(digits %1 against %2)").arg(own, QString::number(road.device().version));
    const bool isBitFile = image->type == FirmwareFile::FpgaBitFile;
    switch (road.comparison()) {
    case FirmwareRoad::Newer:
        if (isBitFile)
            return {FirmwareRemark::Fits,
                    tr("\u25B2 The image counts as newer than the device's %1, by its date").arg(numbers)};
        return {FirmwareRemark::Better,
                tr("\u25B2 The image counts as newer than the device's %1").arg(numbers)};
    case FirmwareRoad::Same:
        return {FirmwareRemark::Fits, tr("= The image has the device's version %1").arg(numbers)};
    case FirmwareRoad::Older:
        return {FirmwareRemark::Wrong,
                tr("\u25BC The image counts as older than the device's %1").arg(numbers)};
    case FirmwareRoad::Unknown:
        break;
    }
    return {FirmwareRemark::Unknown, tr("? The versions cannot be compared: one is missing")};
}

QString deviceProductText(const FirmwareRoad& road)
{
    const int number = road.device().product;
    return deviceText(road, road.device().hasProduct,
                      road.isUnknownProduct() ? tr("number %1").arg(number) : road.deviceProduct());
}

QString deviceVersionText(const FirmwareRoad& road)
{
    return deviceText(road, road.device().hasVersion, QString::number(road.device().version));
}

QString printable(const QString& text, int longest)
{
    QString shown;
    for (const QChar c : text.left(4 * longest)) shown += c.isPrint() || c.isSurrogate() ? c : QChar(' ');
    shown = shown.simplified();
    return shown.size() > longest ? shown.left(longest - 1) + QChar(0x2026) : shown;
}

QString orDash(const QString& text)
{
    return text.isEmpty() ? QString(QChar(0x2013)) : text;
}

QString breakable(const QString& text)
{
    QString broken;
    int length = 0; // of the word
    for (const QChar c : text) {
        length = c.isSpace() ? 0 : length + 1;
        if (length > longWord && !c.isLowSurrogate()) {
            broken += breakPlace;
            length = 1;
        }
        broken += c;
    }
    return broken;
}

} // namespace bench
