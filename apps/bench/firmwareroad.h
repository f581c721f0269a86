#pragma once

#include <cstdint>
#include <memory>
#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>
#include <vorelutil/firmware/firmwarefile.h>

class ControllerLink;

namespace firmware {
class ImageCutter;
}

namespace bench {

/// A firmware image on its way into the device.
///
/// The image is read once, when it is opened; what becomes of its file later does not matter. It goes out in
/// blocks of `blockSize` bytes, the last one padded with zero bytes to `pageSize`. When all are confirmed the
/// device is asked for the check sum of what it got. What ends a download before that leaves the device
/// without a whole image; the next one begins with block 0.
///
/// How many blocks may be unanswered follows the device, since what it has not read yet fills the system's
/// buffers, and then a send waits: `firstWindow` at first. A round is over when all blocks are answered that
/// were sent when it began; then the window doubles, up to `mostWindow`. If an answer of the round took more
/// than `slowMilliseconds` longer than the quickest one so far, or a send had to wait, the window is halved
/// instead, down to `firstWindow`. Blocks are sent from the event loop, which runs again as soon as sending
/// has taken `longestSend` milliseconds.
///
/// The device is asked for its product and version whenever a link stands, and after each download. GUI
/// thread only. A single send may wait, see `IQTcp::writeBlock`: for a block's time at a device that has
/// become slow, and once, for up to 5 s, after which the link is lost, at one that was quick for many blocks
/// and then stops reading. Opening an image waits for its file.
class FirmwareRoad : public QObject
{
    Q_OBJECT

public:
    enum class State
    {
        NoImage,
        Ready,
        Downloading,
        Verifying, ///< all blocks are confirmed, the check sum is awaited
        Verified,
        Cancelled,
        Failed,
    };

    /// Results of `FirmwareFile::compareVersion`, of the image against the device.
    enum Comparison
    {
        Newer = 0,
        Same = 1,
        Older = 2,
        Unknown = 3 ///< one of them has no version, or the device has not said it
    };

    static constexpr int blockSize = 1024; ///< bytes
    static constexpr int pageSize = 256;   ///< bytes
    static constexpr int firstWindow = 4;  ///< blocks
    static constexpr int mostWindow = 128; ///< blocks; 1.1 MB/s were measured with 4 MB at 50 ms to an answer
    static constexpr int slowMilliseconds = 250;
    static constexpr int longestSend = 20;                           ///< ms
    static constexpr qint64 largestFile = qint64(256) * 1024 * 1024; ///< bytes
    static constexpr int answerMilliseconds = 3000;

    /// `link` must outlive the road.
    explicit FirmwareRoad(ControllerLink* link, QObject* parent = nullptr);
    ~FirmwareRoad() override;

    /// Reads an image, of a file of up to `largestFile`, and waits for it: about 130 ms for 100 MB. False
    /// when that fails, or while a download is under way: `openError` says why, and the image of before
    /// stays.
    bool open(const QString& path);
    /// "FILE could not be opened: REASON", for people; empty: the last file was opened, or a download begun
    /// since.
    const QString& openError() const { return m_openError; }
    /// Null: there is none.
    const FirmwareFile* image() const { return m_image.get(); }
    /// Of the image: each one that is opened has another number.
    int imageNumber() const { return m_imageNumber; }
    /// What goes out of the image, with the padding, in bytes; 0 without an image.
    int downloadSize() const { return m_downloadSize; }

    /// What the device said over the present link.
    struct Device
    {
        bool isAsking = false;
        bool hasProduct = false;
        bool hasVersion = false;
        int product = 0;
        int version = 0; ///< the digits of its version
    };
    const Device& device() const { return m_device; }
    bool isConnected() const;
    /// As images have it; empty: not known, or no name is known for its number.
    QString deviceProduct() const;
    Comparison comparison() const;
    /// Image and device both say their product, by names, and differ. Never of a bit file, which has the name
    /// of its design instead, nor of a device whose product has no name, see `isUnknownProduct`.
    bool isOtherProduct() const;
    /// The device has said the number of its product, which is none of those that are known.
    bool isUnknownProduct() const { return m_device.hasProduct && deviceProduct().isEmpty(); }

    /// Why no download can start, for people; empty: one can.
    QString obstacle() const;
    /// Begins a download; its blocks are sent from the event loop. False when there is an obstacle, which is
    /// told through `message`.
    bool start();
    /// Nothing happens when no download is under way. What is sent already is not called back.
    void cancel();

    State state() const { return m_state; }
    bool isActive() const { return m_state == State::Downloading || m_state == State::Verifying; }
    /// What became of the last download, for people; empty before.
    const QString& endText() const { return m_endText; }

    /// Of the download that is under way, or of the last one.
    struct Progress
    {
        int blocks = 0;
        int confirmedBlocks = 0;
        int bytes = 0; ///< with the padding
        int confirmedBytes = 0;
        qint64 milliseconds = 0;
        double bytesPerSecond = 0.0;    ///< since the start; 0: not known yet
        double remainingSeconds = -1.0; ///< below 0: not known
    };
    Progress progress() const;

    /// After so long without any answer a download has failed.
    void setAnswerLimit(int milliseconds);

signals:
    /// Of the image, the device or the download.
    void changed();
    /// A block was confirmed.
    void progressed();
    /// For the operator to read. That a download ended with the link comes after what the link tells of it.
    void message(const QString& text, bool isProblem);

private:
    void onLinkState();
    void onAcknowledged(int number, int reason, int value);
    void onBlockAnswered(int number, int reason);
    void onFinished(int reason, int value);
    void askDevice();
    void look();
    void sendMore();
    void verify();
    void adaptWindow();
    void end(State state, const QString& text);
    QString place() const;

    /// A block that is not answered.
    struct Sent
    {
        int block = 0;
        qint64 when = 0; ///< ms of `m_clock`
    };

    ControllerLink* m_link;
    State m_state = State::NoImage;
    std::unique_ptr<FirmwareFile> m_image;
    int m_imageNumber = 0;
    int m_downloadSize = 0; ///< bytes, padded
    QString m_openError;
    QString m_endText;

    Device m_device;
    int m_productRequest = 0; ///< numbers of the requests that are under way; 0: none
    int m_versionRequest = 0;
    QTimer m_askTimer;

    std::unique_ptr<firmware::ImageCutter> m_cutter; ///< of the image
    int m_blocks = 0;
    int m_sent = 0;             ///< blocks
    int m_confirmed = 0;        ///< blocks
    std::uint32_t m_sum = 0;    ///< of what is sent
    QHash<int, Sent> m_waiting; ///< by the numbers of their requests
    int m_finishRequest = 0;
    QTimer m_sendTimer;
    int m_window = 0;      ///< blocks
    int m_roundEnd = 0;    ///< the round is over when so many blocks are confirmed
    bool m_isSlow = false; ///< in this round
    qint64 m_quickest = 0; ///< ms to an answer; of this download, once a block is confirmed
    QElapsedTimer m_clock;
    qint64 m_duration = 0; ///< ms, of a download that has ended
    QTimer m_lookTimer;
    int m_quietLooks = 0; ///< since an answer came
};

} // namespace bench
