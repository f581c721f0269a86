#include "firmwareroad.h"

#include "apps/controller/controllerlink.h"
#include "apps/firmware/image.h"

#include <algorithm>
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
    return FirmwareRoad::tr("%1 (reason %2)")
        .arg(QLatin1String(tracePrintReason(reason)), QString::number(reason));
}

QString hex(std::uint32_t sum)
{
    return QStringLiteral("%1").arg(sum, 8, 16, QLatin1Char('0')).toUpper();
}

/// What an error says, on one line, without the name of the file that it is about.
QString reasonOf(const Error& error, const QString& path)
{
    QString text = QString::fromStdString(error.message).replace(QLatin1Char('\n'), QLatin1Char(' '));
    return text.remove(QLatin1Char(' ') + path).remove(path + QStringLiteral(": "));
}

/// Reads the image at `path`; null, and why, when there is none.
std::unique_ptr<FirmwareFile> read(const QString& path, QString* reason)
{
    const QFileInfo info(path);
    if (info.exists() && !info.isFile()) { // a pipe would not end
        *reason = FirmwareRoad::tr("it is no file");
    } else if (info.size() > FirmwareRoad::largestFile) {
        *reason = FirmwareRoad::tr("it has more than %1 MB").arg(FirmwareRoad::largestFile >> 20);
    } else {
        try {
            return std::make_unique<FirmwareFile>(firmware::openImage(path));
        } catch (const FileOpenError&) {
            *reason = info.exists() ? FirmwareRoad::tr("it cannot be read")
                                    : FirmwareRoad::tr("there is no such file");
        } catch (const Error& error) {
            *reason = reasonOf(error, path);
        } catch (const std::bad_alloc&) {
            *reason = FirmwareRoad::tr("there is no memory for it");
        }
    }
    return nullptr;
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
    m_sendTimer.setSingleShot(true);
    connect(&m_sendTimer, &QTimer::timeout, this, &FirmwareRoad::sendMore);
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
    QString reason = tr("one is downloaded just now");
    std::unique_ptr<FirmwareFile> image;
    if (!isActive()) image = read(path, &reason);
    if (image == nullptr) {
        m_openError = tr("%1 could not be opened: %2").arg(QFileInfo(path).fileName(), reason);
        emit message(tr("Firmware: %1").arg(m_openError), true);
        emit changed();
        return false;
    }
    m_openError.clear();
    m_image = std::move(image);
    m_cutter = std::make_unique<firmware::ImageCutter>(*m_image, controller::flashBlock, blockSize, pageSize);
    ++m_imageNumber;
    const int last = m_cutter->blockCount() - 1;
    m_downloadSize = last * blockSize + m_cutter->telegram(last, 0).size() - headerSize;
    m_state = State::Ready;
    m_endText.clear();
    m_blocks = m_sent = m_confirmed = 0;
    emit changed();
    return true;
}

// The device

bool FirmwareRoad::isConnected() const
{
    return m_link->state() == ControllerLink::Connected;
}

void FirmwareRoad::askDevice()
{
    if (!isConnected()) return;
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
    if (m_image == nullptr || m_image->type == FirmwareFile::FpgaBitFile) return false;
    const QString product = m_image->product.trimmed();
    const QString known = deviceProduct();
    return !product.isEmpty() && !known.isEmpty() && product != known;
}

// The download

QString FirmwareRoad::obstacle() const
{
    if (isActive()) return tr("A download is under way");
    if (m_image == nullptr) return tr("There is no image to download");
    if (!isConnected()) return tr("A download needs a connected controller");
    return QString();
}

bool FirmwareRoad::start()
{
    const QString reason = obstacle();
    if (!reason.isEmpty()) {
        emit message(reason, true);
        return false;
    }
    m_blocks = m_cutter->blockCount();
    m_sent = m_confirmed = 0;
    m_sum = 0;
    m_waiting.clear();
    m_finishRequest = 0;
    m_openError.clear();
    m_window = firstWindow;
    m_roundEnd = 0;
    m_isSlow = false;
    m_endText.clear();
    m_quietLooks = 0;
    m_lookTimer.start();
    m_clock.start();
    m_state = State::Downloading;
    emit message(tr("Firmware: the download of %1 begins, %2 blocks")
                     .arg(QFileInfo(m_image->fileName).fileName(), QString::number(m_blocks)),
                 false);
    m_sendTimer.start(0);
    emit changed();
    return true;
}

// From the event loop only: a device that has become slow lets each send wait for a moment, and the answers
// of a whole window may come at once.
void FirmwareRoad::sendMore()
{
    const bool isNewRound = m_confirmed >= m_roundEnd;
    if (isNewRound && m_confirmed > 0) adaptWindow();
    QElapsedTimer sending;
    sending.start();
    while (m_state == State::Downloading && m_sent < m_blocks && m_waiting.size() < m_window) {
        if (sending.hasExpired(longestSend)) {
            m_isSlow = true;
            m_sendTimer.start(0);
            break;
        }
        const QByteArray telegram = m_cutter->telegram(m_sent, 0);
        const Sent sent{m_sent, m_clock.elapsed()};
        const int number = m_link->send(telegram);
        if (number == 0)
            break; // the link tells in a moment that it is lost; look() sees what it does not tell
        m_sum = firmware::checkSum(m_sum, telegram.constData() + headerSize,
                                   std::size_t(telegram.size() - headerSize));
        m_waiting.insert(number, sent);
        ++m_sent;
    }
    if (isNewRound) m_roundEnd = m_sent;
}

void FirmwareRoad::adaptWindow()
{
    m_window = m_isSlow ? std::max(m_window / 2, firstWindow) : std::min(m_window * 2, mostWindow);
    m_isSlow = false;
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
    if (m_waiting.contains(number)) {
        onBlockAnswered(number, reason);
    } else if (number == m_finishRequest) {
        onFinished(reason, value);
    }
}

void FirmwareRoad::onBlockAnswered(int number, int reason)
{
    const Sent sent = m_waiting.take(number);
    m_quietLooks = 0;
    if (reason != controller::reasonOk) {
        end(State::Failed,
            tr("block %1 of %2 was refused: %3")
                .arg(QString::number(sent.block + 1), QString::number(m_blocks), refusal(reason)));
        return;
    }
    const qint64 taken = m_clock.elapsed() - sent.when;
    m_quickest = m_confirmed == 0 ? taken : std::min(m_quickest, taken);
    if (taken > m_quickest + slowMilliseconds) m_isSlow = true;
    ++m_confirmed;
    if (m_confirmed == m_blocks) {
        verify();
    } else if (!m_sendTimer.isActive()) {
        m_sendTimer.start(0);
    }
    emit progressed();
}

void FirmwareRoad::verify()
{
    m_finishRequest = m_link->run(controller::flashFinish); // 0: as in sendMore()
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
        end(State::Verified,
            tr("verified after %1 s, check sum %2").arg(QString::number(seconds, 'f', 1), hex(m_sum)));
    }
}

void FirmwareRoad::onLinkState()
{
    m_productRequest = m_versionRequest = 0;
    m_device = Device();
    m_askTimer.stop();
    if (!isConnected() && isActive()) {
        const QString text = tr("at %1 the link was %2").arg(place(), m_link->stateText());
        end(State::Failed, text);
    }
    askDevice();
    emit changed();
}

// Counted in looks and not in time: while a slot takes its time, answers wait.
void FirmwareRoad::look()
{
    if (m_link->isReceiving() || ++m_quietLooks < quietLooks) return;
    end(State::Failed,
        tr("no answer for %1 s at %2").arg(QString::number(m_askTimer.interval() / 1000.0), place()));
}

void FirmwareRoad::end(State state, const QString& text)
{
    m_lookTimer.stop();
    m_sendTimer.stop();
    m_waiting.clear();
    m_finishRequest = 0;
    m_duration = m_clock.elapsed();
    m_state = state;
    m_endText = text;
    askDevice();
    const auto tell = [this, state, text] {
        emit message(tr("Firmware: %1").arg(text), state == State::Failed);
    };
    // Of a lost link it has something to say itself: the last message is the one that is read.
    if (isConnected()) {
        tell();
    } else {
        QTimer::singleShot(0, this, tell);
    }
    emit changed();
}

/// Where the download is, by the first block that is not confirmed.
QString FirmwareRoad::place() const
{
    return m_confirmed == m_blocks
               ? tr("the check sum")
               : tr("block %1 of %2").arg(QString::number(m_confirmed + 1), QString::number(m_blocks));
}

FirmwareRoad::Progress FirmwareRoad::progress() const
{
    Progress progress;
    if (m_blocks == 0) return progress;
    progress.blocks = m_blocks;
    progress.confirmedBlocks = m_confirmed;
    progress.bytes = m_downloadSize;
    progress.confirmedBytes = m_confirmed == m_blocks ? progress.bytes : m_confirmed * blockSize;
    progress.milliseconds = isActive() ? m_clock.elapsed() : m_duration;
    if (progress.confirmedBytes > 0 && progress.milliseconds > 0) {
        progress.bytesPerSecond = 1000.0 * progress.confirmedBytes / double(progress.milliseconds);
        progress.remainingSeconds = (progress.bytes - progress.confirmedBytes) / progress.bytesPerSecond;
    }
    return progress;
}

} // namespace bench
