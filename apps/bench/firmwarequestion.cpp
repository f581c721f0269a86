#include "firmwarequestion.h"

#include "firmwareroad.h"
#include "firmwaretexts.h"

#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QStringList>

namespace bench {

namespace {

QString questionText(const FirmwareRoad& road)
{
    const FirmwareFile& image = *road.image();
    return FirmwareQuestion::tr("Download %1 (%2, version %3)\nto the device (%4, version %5)?")
        .arg(printable(QFileInfo(image.fileName).fileName()), orDash(printable(image.product)),
             orDash(printable(image.version)), deviceProductText(road), deviceVersionText(road));
}

/// What speaks against the download, or cannot be told.
QStringList warningLines(const FirmwareRoad& road)
{
    QStringList lines;
    for (const FirmwareRemark& remark : {productRemark(road), versionRemark(road)})
        if (remark.verdict == FirmwareRemark::Unknown || remark.verdict == FirmwareRemark::Wrong)
            lines += remark.text;
    const QString odd = road.image()->info();
    if (!odd.isEmpty()) lines += odd;
    return lines;
}

QString wholeText(const FirmwareRoad& road)
{
    return questionText(road) + QLatin1Char('\n') + warningLines(road).join(QLatin1Char('\n'));
}

} // namespace

FirmwareQuestion::FirmwareQuestion(FirmwareRoad* road, QWidget* parent)
    : QMessageBox(QMessageBox::Question, tr("Download"), QString(), QMessageBox::Cancel, parent)
    , m_road(road)
    , m_image(road->imageNumber())
    , m_asked(wholeText(*road))
{
    setAttribute(Qt::WA_DeleteOnClose);
    setText(breakable(questionText(*road)));
    const QStringList lines = warningLines(*road);
    setInformativeText(breakable(lines.join(QLatin1Char('\n'))));
    for (QLabel* label : findChildren<QLabel*>()) {
        label->setTextFormat(Qt::PlainText); // setTextFormat() of the box leaves one out
        label->setWordWrap(true);
    }
    QPushButton* const go = addButton(tr("&Download"), QMessageBox::AcceptRole);
    setDefaultButton(lines.isEmpty() ? go : qobject_cast<QPushButton*>(button(QMessageBox::Cancel)));
    connect(road, &FirmwareRoad::changed, this, &FirmwareQuestion::check);
    connect(go, &QPushButton::clicked, this, [this] {
        m_road->disconnect(this);
        m_road->start();
    });
}

void FirmwareQuestion::check()
{
    if (m_road->obstacle().isEmpty() && m_road->imageNumber() == m_image && wholeText(*m_road) == m_asked)
        return;
    m_road->disconnect(this);
    emit withdrawn();
    reject();
}

} // namespace bench
