#include "firmwareroad.h"

#include "apps/controller/controllerlink.h"
#include "apps/firmware/image.h"

#include <cstddef>
#include <new>
#include <QFileInfo>
#include <utility>
#include <vorelutil/trace/error.h>
#include <vorelutil/trace/tracelog.h>

namespace bench {

namespace {

constexpr int quietLooks = 6; ///< without an answer; a busy event loop is no silent device
constexpr int headerSize = sizeof(UcTelegram);

QString refusal(int reason)
{
    return FirmwareRoad::tr("%1 (reason %2)").arg(QLatin1String(tracePrintReason(reason))).arg(reason);
}

QString hex(std::uint32_t sum)
{
    return QStringLiteral("%1").arg(sum, 8, 16, QLatin1Char('0')).toUpper();
}

} // namespace

FirmwareRoad::FirmwareRoad(ControllerLink* link, QObject* parent)
    : QObject(parent)
    , m_link(link)
{
    m_askTimer.setSingleShot(true);
    setAnswerLimit(answerMilliseconds);
    connect(link, &ControllerLink::stateChanged, this, &FirmwareRoad::onLinkState);
    connect(link, &ControllerLink::acknowledged, this,
            [this](int number, int, int, int reason, int value) { onAcknowledged(number, reason, value); });
    connect(&m_lookTimer, &QTimer::timeout, this, &FirmwareRoad::look);
    connect(&m_askTimer, &QTimer::timeout, this, [this] {
        m_device.isAsking = false;
        emit changed();
    });
    askDevice();
}

FirmwareRoad::~FirmwareRoad() = default;

void FirmwareRoad::setAnswerLimit(int milliseconds)
{
    m_lookTimer.setInterval(milliseconds / quietLooks);
    m_askTimer.setInterval(milliseconds);
}

// The image

bool FirmwareRoad::open(const QString& path)
{
    m_openError.clear();
    std::unique_ptr<FirmwareFile> image;
    const QFileInfo info(path);
    if (isActive()) {
        m_openError = tr("no image can be opened while one is downloaded");
    } else if (info.exists() && !info.isFile()) { // a pipe would not end
        m_openError = tr("%1: not a file").arg(path);
    } else {
        try {
            image = std::make_unique<FirmwareFile>(firmware::openImage(path));
        } catch (const Error& error) {
            m_openError = QString::fromStdString(error.message).replace(QLatin1Char('\n'), QLatin1Char(' '));
        } catch (const std::bad_alloc&) {
            m_openError = tr("%1: there is no memory for it").arg(path);
        }
    }
    if (image == nullptr) {
        emit message(tr("Firmware: %1").arg(m_openError), true);
        emit changed();
        return false;
    }
    m_image = std::move(image);
    m_state = State::Ready;
    m_endText.clear();
    m_blocks = m_sent = m_confirmed = 0;
    emit changed();
    return true;
}

// The device

void FirmwareRoad::askDevice()
{
    if (m_link->state() != ControllerLink::Connected) return;
    m_productRequest = m_link->get(controller::firmwareProduct);
    m_versionRequest = m_link->get(controller::firmwareVersion);
    m_device.isAsking = m_productRequest != 0 && m_versionRequest != 0;
    m_askTimer.start();
}

QString FirmwareRoad::deviceProduct() const
{
    return m_device.hasProduct ? QString::fromUtf8(controller::productName(m_device.product)) : QString();
}

FirmwareRoad::Comparison FirmwareRoad::comparison() const
{
    if (m_image == nullptr || !m_device.hasVersion) return Unknown;
    return Comparison(m_image->compareVersion(QString::number(m_device.version)));
}

bool FirmwareRoad::isOtherProduct() const
{
    if (m_image == nullptr || !m_device.hasProduct) return false;
    const QString product = m_image->product.trimmed();
    return !product.isEmpty() && product != deviceProduct();
}

// The download

QString FirmwareRoad::obstacle() const
{
    if (isActive()) return tr("A download is under way");
    if (m_image == nullptr) return tr("There is no image to download");
    if (m_link->state() != ControllerLink::Connected) return tr("A download needs a connected controller");
    return QString();
}

bool FirmwareRoad::start()
{
    const QString reason = obstacle();
    if (!reason.isEmpty()) {
        emit message(reason, true);
        return false;
    }
    m_cutter = std::make_unique<firmware::ImageCutter>(*m_image, controller::flashBlock, blockSize, pageSize);
    m_blocks = m_cutter->blockCount();
    m_lastBlockSize = m_cutter->telegram(m_blocks - 1, 0).size() - headerSize;
    m_sent = m_confirmed = 0;
    m_sum = 0;
    m_waiting.clear();
    m_finishRequest = 0;
    m_endText.clear();
    m_quietLooks = 0;
    m_lookTimer.start();
    m_clock.start();
    m_state = State::Downloading;
    emit message(tr("Firmware: %1 is downloaded in %2 blocks")
                     .arg(QFileInfo(m_image->fileName).fileName())
                     .arg(m_blocks),
                 false);
    emit changed();
    sendMore();
    return true;
}

void FirmwareRoad::sendMore()
{
    while (m_state == State::Downloading && m_sent < m_blocks && m_waiting.size() < window) {
        const QByteArray telegram = m_cutter->telegram(m_sent, 0);
        const int number = m_link->send(telegram);
        if (number == 0) {
            end(State::Failed, tr("the link was lost at %1").arg(place()));
            return;
        }
        m_sum = firmware::checkSum(m_sum, telegram.constData() + headerSize,
                                   std::size_t(telegram.size() - headerSize));
        m_waiting.insert(number, m_sent++);
    }
}

void FirmwareRoad::cancel()
{
    if (isActive()) end(State::Cancelled, tr("cancelled at %1").arg(place()));
}

void FirmwareRoad::onAcknowledged(int number, int reason, int value)
{
    if (number == m_productRequest || number == m_versionRequest) {
        const bool isProduct = number == m_productRequest;
        (isProduct ? m_productRequest : m_versionRequest) = 0;
        (isProduct ? m_device.product : m_device.version) = value;
        (isProduct ? m_device.hasProduct : m_device.hasVersion) = reason == controller::reasonOk;
        if (m_productRequest == 0 && m_versionRequest == 0) {
            m_device.isAsking = false;
            m_askTimer.stop();
        }
        emit changed();
        return;
    }
    if (!isActive()) return;
    const auto block = m_waiting.find(number);
    if (block != m_waiting.end()) {
        const int which = *block;
        m_waiting.erase(block);
        onBlockAnswered(which, reason);
    } else if (number == m_finishRequest) {
        onFinished(reason, value);
    }
}

void FirmwareRoad::onBlockAnswered(int block, int reason)
{
    m_quietLooks = 0;
    if (reason != controller::reasonOk) {
        end(State::Failed,
            tr("block %1 of %2 was refused: %3").arg(block + 1).arg(m_blocks).arg(refusal(reason)));
        return;
    }
    ++m_confirmed;
    if (m_confirmed == m_blocks)
        verify();
    else
        sendMore();
    emit progressed();
}

void FirmwareRoad::verify()
{
    m_finishRequest = m_link->run(controller::flashFinish);
    if (m_finishRequest == 0) {
        end(State::Failed, tr("the link was lost at %1").arg(place()));
        return;
    }
    m_state = State::Verifying;
    emit changed();
}

void FirmwareRoad::onFinished(int reason, int value)
{
    const std::uint32_t sum = std::uint32_t(value);
    if (reason != controller::reasonOk) {
        end(State::Failed, tr("the device refused to finish: %1").arg(refusal(reason)));
    } else if (sum != m_sum) {
        end(State::Failed,
            tr("the check sum differs: the image has %1, the device %2").arg(hex(m_sum), hex(sum)));
    } else {
        const double seconds = double(m_clock.elapsed()) / 1000.0;
        end(State::Verified, tr("verified after %1 s, check sum %2").arg(seconds, 0, 'f', 1).arg(hex(m_sum)));
    }
}

void FirmwareRoad::onLinkState()
{
    m_productRequest = m_versionRequest = 0;
    m_device = Device();
    m_askTimer.stop();
    if (m_link->state() != ControllerLink::Connected && isActive())
        end(State::Failed, tr("the link was lost at %1").arg(place()));
    askDevice();
    emit changed();
}

// Counted in looks and not in time: while a slot takes its time, answers wait.
void FirmwareRoad::look()
{
    if (m_link->isReceiving() || ++m_quietLooks < quietLooks) return;
    end(State::Failed, tr("no answer for %1 s at %2").arg(m_askTimer.interval() / 1000.0).arg(place()));
}

void FirmwareRoad::end(State state, const QString& text)
{
    m_lookTimer.stop();
    m_waiting.clear();
    m_finishRequest = 0;
    m_duration = m_clock.elapsed();
    m_state = state;
    m_endText = text;
    askDevice();
    emit message(tr("Firmware: %1").arg(text), state == State::Failed);
    emit changed();
}

/// Where the download is, by the first block that is not confirmed.
QString FirmwareRoad::place() const
{
    return m_confirmed == m_blocks ? tr("the check sum")
                                   : tr("block %1 of %2").arg(m_confirmed + 1).arg(m_blocks);
}

FirmwareRoad::Progress FirmwareRoad::progress() const
{
    Progress progress;
    if (m_blocks == 0) return progress;
    progress.blocks = m_blocks;
    progress.confirmedBlocks = m_confirmed;
    progress.bytes = (m_blocks - 1) * blockSize + m_lastBlockSize;
    progress.confirmedBytes = m_confirmed == m_blocks ? progress.bytes : m_confirmed * blockSize;
    progress.milliseconds = isActive() ? m_clock.elapsed() : m_duration;
    if (progress.confirmedBytes > 0 && progress.milliseconds > 0) {
        progress.bytesPerSecond = 1000.0 * progress.confirmedBytes / double(progress.milliseconds);
        progress.remainingSeconds = (progress.bytes - progress.confirmedBytes) / progress.bytesPerSecond;
    }
    return progress;
}

} // namespace bench
