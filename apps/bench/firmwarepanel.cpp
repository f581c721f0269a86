#include "firmwarepanel.h"

#include "apps/controller/controllerlink.h"
#include "apps/firmware/image.h"
#include "console.h"
#include "dialogs.h"
#include "elidedlabel.h"
#include "firmwarequestion.h"
#include "firmwareroad.h"
#include "firmwaretexts.h"
#include "theme.h"

#include <algorithm>
#include <cmath>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QUrl>
#include <QVBoxLayout>

namespace bench {

namespace {

constexpr int showMilliseconds = 100;
constexpr int longestProblem = 400; ///< characters

QString bytesText(double bytes)
{
    if (bytes < 10e3) return QStringLiteral("%1 bytes").arg(bytes, 0, 'f', 0);
    return bytes < 10e6 ? QStringLiteral("%1 kB").arg(bytes / 1e3, 0, 'f', 0)
                        : QStringLiteral("%1 MB").arg(bytes / 1e6, 0, 'f', 1);
}

QString secondsText(double seconds)
{
    const double whole = std::ceil(seconds);
    if (whole < 100) return FirmwarePanel::tr("%1 s").arg(whole);
    return FirmwarePanel::tr("%1 min").arg(std::ceil(seconds / 60));
}

QString sizeText(const FirmwareRoad& road)
{
    const qint64 size = road.image()->fileSize;
    const QString text = FirmwarePanel::tr("%1 bytes").arg(size);
    return size == road.downloadSize()
               ? text
               : FirmwarePanel::tr("%1, %2 are downloaded").arg(text, QString::number(road.downloadSize()));
}

/// These may be long, and are shown whole; the others are cut at the width that there is.
bool isWrapped(FirmwarePanel::Line line)
{
    switch (line) {
    case FirmwarePanel::Remark:
    case FirmwarePanel::OpenError:
    case FirmwarePanel::Match:
    case FirmwarePanel::Order:
    case FirmwarePanel::Result:
        return true;
    default:
        return false;
    }
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
    for (int line = 0; line < LineCount; ++line) {
        if (!isWrapped(Line(line))) {
            m_lines[line] = new ElidedLabel(this);
            continue;
        }
        m_lines[line] = new QLabel(this);
        m_lines[line]->setTextFormat(Qt::PlainText);
        m_lines[line]->setMinimumWidth(1);
        m_lines[line]->setWordWrap(true);
    }
    auto* top = new QHBoxLayout;
    top->addWidget(makeImageGroup(), 3);
    top->addWidget(makeDeviceGroup(), 2);
    auto* content = new QWidget(this);
    auto* lines = new QVBoxLayout(content);
    lines->addLayout(top);
    lines->addWidget(m_lines[OpenError]);
    lines->addWidget(makeDownloadGroup());
    lines->addStretch(1);
    auto* area = new QScrollArea(this); // long texts take many lines in a small window
    area->setFrameShape(QFrame::NoFrame);
    area->setWidgetResizable(true);
    area->setFocusPolicy(Qt::NoFocus);
    area->setWidget(content);
    content->setAutoFillBackground(false);
    area->viewport()->setAutoFillBackground(false);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(area);

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
    const QString shown = isWrapped(line) ? breakable(text) : text;
    if (m_lines[line]->text() != shown) m_lines[line]->setText(shown);
    if (isWrapped(line) && line != Result) m_lines[line]->setVisible(!text.isEmpty());
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
    setText(Name, is ? printable(QFileInfo(path).fileName()) : tr("no image is open"));
    m_lines[Name]->setToolTip(plainToolTip(path));
    setText(Kind, orDash(is ? firmware::kindName(image->type) : QString()));
    setText(Product, orDash(is ? printable(image->product) : QString()));
    setText(Version, orDash(is ? printable(image->version) : QString()));
    setText(Part, orDash(is ? printable(image->partName) : QString()));
    setText(Size, orDash(is ? sizeText(*m_road) : QString()));
    setText(Remark, is ? image->info() : QString());
    QString error = printable(m_road->openError(), longestProblem);
    if (!error.isEmpty() && is) error += tr(". The image above stays.");
    setText(OpenError, error);
    for (const Line line : {Remark, OpenError}) setColour(line, problemColour(palette()));
    m_open->setEnabled(!m_road->isActive());
}

void FirmwarePanel::showDevice()
{
    setText(DeviceProduct, deviceProductText(*m_road));
    setText(DeviceVersion, deviceVersionText(*m_road));
    // What the device has not told is said above.
    showRemark(Match, m_road->device().hasProduct ? productRemark(*m_road) : FirmwareRemark());
    showRemark(Order, m_road->device().hasVersion ? versionRemark(*m_road) : FirmwareRemark());
}

void FirmwarePanel::showRemark(Line line, const FirmwareRemark& remark)
{
    setText(line, remark.text);
    setColour(line, remark.verdict == FirmwareRemark::Better  ? successColour(palette())
                    : remark.verdict == FirmwareRemark::Wrong ? problemColour(palette())
                                                              : palette().color(QPalette::WindowText));
}

void FirmwarePanel::showDownload()
{
    const FirmwareRoad::Progress progress = m_road->progress();
    m_bar->setRange(0, std::max(progress.bytes, 1));
    m_bar->setValue(progress.confirmedBytes);
    QString pace;
    if (progress.blocks > 0)
        pace = tr("%1 of %2, block %3 of %4")
                   .arg(bytesText(progress.confirmedBytes), bytesText(progress.bytes),
                        QString::number(progress.confirmedBlocks), QString::number(progress.blocks));
    if (progress.bytesPerSecond > 0) pace += tr(", %1/s").arg(bytesText(progress.bytesPerSecond));
    if (m_road->state() == FirmwareRoad::State::Downloading && progress.remainingSeconds >= 0)
        pace += tr(", %1 left").arg(secondsText(progress.remainingSeconds));

    const QString obstacle = m_road->obstacle();
    m_download->setEnabled(obstacle.isEmpty());
    m_download->setToolTip(obstacle);
    m_cancel->setEnabled(m_road->isActive());
    setText(Pace, pace);

    const QString again = tr("The device has no whole image now: download it again");
    QString result = m_road->endText();
    QColor colour = palette().color(QPalette::WindowText);
    switch (m_road->state()) {
    case FirmwareRoad::State::Verified:
        colour = successColour(palette());
        result = tr("\u2713 The image is %1").arg(result);
        break;
    case FirmwareRoad::State::Failed:
        colour = problemColour(palette());
        result = tr("\u2717 The download failed: %1. %2").arg(result, again);
        break;
    case FirmwareRoad::State::Cancelled:
        result = tr("The download was %1. %2").arg(result, again);
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
    for (const FirmwareQuestion* asked : findChildren<FirmwareQuestion*>())
        if (asked->isVisible()) return;
    auto* question = new FirmwareQuestion(m_road, this);
    connect(question, &FirmwareQuestion::withdrawn, m_console, [this] {
        m_console->tell(tr("Firmware: the question was closed, as image or device have changed"), true);
    });
    question->open();
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
