#include "firmwarepanel.h"

#include "apps/controller/controllerlink.h"
#include "apps/firmware/image.h"
#include "console.h"
#include "dialogs.h"
#include "firmwareroad.h"
#include "theme.h"

#include <algorithm>
#include <cmath>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace bench {

namespace {

constexpr int showMilliseconds = 100;
constexpr int longestText = 100; ///< characters of what an image says
const QChar dash(0x2013);

/// For people: on one line, without characters that do not print, cut to a length.
QString plain(const QString& text)
{
    QString shown;
    for (const QChar c : text.left(4 * longestText)) shown += c.isPrint() || c.isSurrogate() ? c : QChar(' ');
    shown = shown.simplified();
    return shown.size() > longestText ? shown.left(longestText - 1) + QChar(0x2026) : shown;
}

QString orDash(const QString& text)
{
    return text.isEmpty() ? QString(dash) : text;
}

QString bytesText(double bytes)
{
    if (bytes < 10e3) return QStringLiteral("%1 bytes").arg(bytes, 0, 'f', 0);
    return bytes < 10e6 ? QStringLiteral("%1 kB").arg(bytes / 1e3, 0, 'f', 0)
                        : QStringLiteral("%1 MB").arg(bytes / 1e6, 0, 'f', 1);
}

QString digitsText(double number)
{
    return QString::number(number, number < 1e18 ? 'f' : 'g', number < 1e18 ? 0 : 6);
}

QString secondsText(double seconds)
{
    const double whole = std::ceil(seconds);
    if (whole < 100) return FirmwarePanel::tr("%1 s").arg(whole);
    return FirmwarePanel::tr("%1 min").arg(std::ceil(seconds / 60));
}

bool isOne(const QMimeData* data)
{
    return data->urls().size() == 1 && data->urls().first().isLocalFile();
}

} // namespace

FirmwarePanel::FirmwarePanel(Console* console, QWidget* parent)
    : QWidget(parent)
    , m_console(console)
    , m_road(console->firmware())
{
    setAcceptDrops(true);
    for (QLabel*& line : m_lines) {
        line = new QLabel(this);
        line->setTextFormat(Qt::PlainText);
        line->setMinimumWidth(1); // a long text is cut, and does not widen the window
    }
    for (const Line line : {Remark, Match, Order, Result}) m_lines[line]->setWordWrap(true);
    auto* top = new QHBoxLayout;
    top->addWidget(makeImageGroup(), 3);
    top->addWidget(makeDeviceGroup(), 2);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(makeDownloadGroup());
    layout->addStretch(1);

    connect(m_road, &FirmwareRoad::changed, this, &FirmwarePanel::refreshNow);
    connect(m_road, &FirmwareRoad::progressed, this, [this] {
        if (!m_showTimer.isActive()) m_showTimer.start();
    });
    connect(console->link(), &ControllerLink::stateChanged, this, &FirmwarePanel::refreshNow);
    m_showTimer.setInterval(showMilliseconds);
    m_showTimer.setSingleShot(true);
    connect(&m_showTimer, &QTimer::timeout, this, &FirmwarePanel::showDownload);
    refreshNow();
}

FirmwarePanel::~FirmwarePanel() = default;

QGroupBox* FirmwarePanel::makeImageGroup()
{
    auto* group = new QGroupBox(tr("Image"), this);
    m_open = new QPushButton(tr("&Open image..."), group);
    m_open->setToolTip(tr("A file can be dropped on this page, too"));
    connect(m_open, &QPushButton::clicked, this, &FirmwarePanel::askForImage);
    auto* form = new QFormLayout(group);
    auto* row = new QHBoxLayout;
    row->addWidget(m_lines[Name], 1);
    row->addWidget(m_open);
    form->addRow(tr("Name:"), row);
    form->addRow(tr("Kind:"), m_lines[Kind]);
    form->addRow(tr("Product:"), m_lines[Product]);
    form->addRow(tr("Version:"), m_lines[Version]);
    form->addRow(tr("Part:"), m_lines[Part]);
    form->addRow(tr("Size:"), m_lines[Size]);
    form->addRow(m_lines[Remark]);
    return group;
}

QGroupBox* FirmwarePanel::makeDeviceGroup()
{
    auto* group = new QGroupBox(tr("Device"), this);
    auto* form = new QFormLayout(group);
    form->addRow(tr("Product:"), m_lines[DeviceProduct]);
    form->addRow(tr("Version:"), m_lines[DeviceVersion]);
    m_lines[DeviceVersion]->setToolTip(tr("The digits of its version: 141 is 1.41"));
    form->addRow(m_lines[Match]);
    form->addRow(m_lines[Order]);
    return group;
}

QGroupBox* FirmwarePanel::makeDownloadGroup()
{
    auto* group = new QGroupBox(tr("Download"), this);
    m_download = new QPushButton(tr("&Download..."), group);
    m_cancel = new QPushButton(tr("Ca&ncel"), group);
    m_bar = new QProgressBar(group);
    m_bar->setAccessibleName(tr("Confirmed part of the image"));
    connect(m_download, &QPushButton::clicked, this, &FirmwarePanel::askForDownload);
    connect(m_cancel, &QPushButton::clicked, m_road, &FirmwareRoad::cancel);
    auto* row = new QHBoxLayout;
    row->addWidget(m_download);
    row->addWidget(m_cancel);
    row->addWidget(m_bar, 1);
    auto* layout = new QVBoxLayout(group);
    layout->addLayout(row);
    layout->addWidget(m_lines[Pace]);
    layout->addWidget(m_lines[Result]);
    return group;
}

QString FirmwarePanel::text(Line line) const
{
    return m_lines[line]->text();
}

void FirmwarePanel::setText(Line line, const QString& text)
{
    if (m_lines[line]->text() != text) m_lines[line]->setText(text);
    if (line == Remark || line == Match || line == Order) m_lines[line]->setVisible(!text.isEmpty());
}

void FirmwarePanel::setColour(Line line, const QColor& colour)
{
    QPalette palette = m_lines[line]->palette();
    palette.setColor(QPalette::WindowText, colour);
    m_lines[line]->setPalette(palette);
}

void FirmwarePanel::refreshNow()
{
    showImage();
    showDevice();
    showDownload();
}

void FirmwarePanel::showImage()
{
    const FirmwareFile* image = m_road->image();
    const bool is = image != nullptr;
    const QString path = is ? image->directory + image->fileName : QString();
    setText(Name, is ? plain(QFileInfo(path).fileName()) : tr("no image is open"));
    m_lines[Name]->setToolTip(path);
    setText(Kind, orDash(is ? firmware::kindName(image->type) : QString()));
    setText(Product, orDash(is ? plain(image->product) : QString()));
    setText(Version, orDash(is ? plain(image->version) : QString()));
    setText(Part, orDash(is ? plain(image->partName) : QString()));
    setText(Size, is ? tr("%1 bytes").arg(image->contents.size()) : QString(dash));
    const QString problem = m_road->openError();
    setText(Remark, !problem.isEmpty() ? problem.left(4 * longestText) : is ? image->info() : QString());
    setColour(Remark, problemColour(palette()));
    m_open->setEnabled(!m_road->isActive());
}

void FirmwarePanel::showDevice()
{
    const FirmwareRoad::Device& device = m_road->device();
    const bool connected = m_console->link()->state() == ControllerLink::Connected;
    const QString none = !connected        ? tr("not connected")
                         : device.isAsking ? tr("is asked...")
                                           : tr("not told");
    const QString name = m_road->deviceProduct();
    setText(DeviceProduct, !device.hasProduct ? none
                           : name.isEmpty()   ? tr("number %1").arg(device.product)
                                              : name);
    setText(DeviceVersion, device.hasVersion ? QString::number(device.version) : none);

    const FirmwareFile* image = m_road->image();
    const bool other = m_road->isOtherProduct();
    setText(
        Match,
        !other ? QString()
               : tr("%1 The image is for another product: %2").arg(QChar(0x26A0)).arg(plain(image->product)));
    setColour(Match, problemColour(palette()));

    const QColor usual = palette().color(QPalette::WindowText);
    QString order;
    QColor colour = usual;
    if (image != nullptr && device.hasVersion) {
        const QString numbers = tr("(%1 against %2)")
                                    .arg(digitsText(FirmwareFile::parseVersion(image->version)))
                                    .arg(device.version);
        switch (m_road->comparison()) {
        case FirmwareRoad::Newer:
            order = tr("%1 The image is newer than the device's %2").arg(QChar(0x25B2)).arg(numbers);
            if (image->type == FirmwareFile::FpgaBitFile)
                order += tr("; its date counts as a number");
            else
                colour = successColour(palette());
            break;
        case FirmwareRoad::Same:
            order = tr("= The image has the device's version %1").arg(numbers);
            break;
        case FirmwareRoad::Older:
            order = tr("%1 The image is older than the device's %2").arg(QChar(0x25BC)).arg(numbers);
            colour = problemColour(palette());
            break;
        case FirmwareRoad::Unknown:
            order = tr("? The versions cannot be compared: one is missing");
            break;
        }
    }
    setText(Order, order);
    setColour(Order, colour);
}

void FirmwarePanel::showDownload()
{
    const FirmwareRoad::Progress progress = m_road->progress();
    m_bar->setRange(0, std::max(progress.bytes, 1));
    m_bar->setValue(progress.confirmedBytes);
    QString pace;
    if (progress.blocks > 0)
        pace = tr("%1 of %2, block %3 of %4")
                   .arg(bytesText(progress.confirmedBytes), bytesText(progress.bytes))
                   .arg(progress.confirmedBlocks)
                   .arg(progress.blocks);
    if (progress.bytesPerSecond > 0) pace += tr(", %1/s").arg(bytesText(progress.bytesPerSecond));
    if (m_road->state() == FirmwareRoad::State::Downloading && progress.remainingSeconds >= 0)
        pace += tr(", %1 left").arg(secondsText(progress.remainingSeconds));

    const QString obstacle = m_road->obstacle();
    m_download->setEnabled(obstacle.isEmpty());
    m_download->setToolTip(obstacle);
    m_cancel->setEnabled(m_road->isActive());
    setText(Pace, pace);

    QString result = m_road->endText();
    QColor colour = palette().color(QPalette::WindowText);
    switch (m_road->state()) {
    case FirmwareRoad::State::Verified:
        colour = successColour(palette());
        result = tr("%1 The image is %2").arg(QChar(0x2713)).arg(result);
        break;
    case FirmwareRoad::State::Failed:
        colour = problemColour(palette());
        result = tr("%1 The download failed: %2").arg(QChar(0x2717)).arg(result);
        break;
    case FirmwareRoad::State::Cancelled:
        result = tr("The download was %1").arg(result);
        break;
    case FirmwareRoad::State::Verifying:
        result = tr("The device is asked for its check sum...");
        break;
    case FirmwareRoad::State::Downloading:
        result = tr("Downloading...");
        break;
    case FirmwareRoad::State::NoImage:
    case FirmwareRoad::State::Ready:
        break;
    }
    if (!obstacle.isEmpty() && !m_road->isActive())
        result += (result.isEmpty() ? QString() : QStringLiteral(". ")) + obstacle;
    setText(Result, result);
    setColour(Result, colour);
}

void FirmwarePanel::askForImage()
{
    askForExistingFile(this, tr("Open a firmware image"),
                       tr("Firmware images (*.bit *.bin *.fw);;All files (*)"),
                       [this](const QString& path) { m_road->open(path); });
}

void FirmwarePanel::askForDownload()
{
    if (!m_road->obstacle().isEmpty()) {
        m_road->start(); // says why not
        return;
    }
    const QString question =
        tr("Download %1 (%2, version %3)\nto the device (%4, version %5)?")
            .arg(text(Name), text(Product), text(Version), text(DeviceProduct), text(DeviceVersion));
    auto* box = new QMessageBox(QMessageBox::Question, tr("Download"), question, QMessageBox::Cancel, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    QStringList warnings;
    for (const Line line : {Match, Remark})
        if (!text(line).isEmpty()) warnings += text(line);
    if (m_road->comparison() == FirmwareRoad::Older) warnings += text(Order);
    box->setInformativeText(warnings.join(QLatin1Char('\n')));
    QPushButton* const go = box->addButton(tr("&Download"), QMessageBox::AcceptRole);
    box->setDefaultButton(warnings.isEmpty() ? go
                                             : qobject_cast<QPushButton*>(box->button(QMessageBox::Cancel)));
    connect(go, &QPushButton::clicked, m_road, &FirmwareRoad::start);
    box->open();
}

void FirmwarePanel::dragEnterEvent(QDragEnterEvent* event)
{
    if (isOne(event->mimeData()) && !m_road->isActive()) event->acceptProposedAction();
}

void FirmwarePanel::dropEvent(QDropEvent* event)
{
    if (!isOne(event->mimeData())) return;
    event->acceptProposedAction();
    m_road->open(event->mimeData()->urls().first().toLocalFile());
}

void FirmwarePanel::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && m_lines[Result] != nullptr) refreshNow();
}

} // namespace bench
