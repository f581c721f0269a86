#pragma once

#include <QBitArray>
#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <vorelutil/platform/export.h>
#include <vorelutil/trace/telegram.h>

/// A firmware image: loaded from its file, recognised, and cut into controller telegrams for the download.
///
///     const FirmwareFile image("ctrl.bin", "/srv/firmware/", "Controller", 0x200, 0x201, 0x202, false);
///     for (int at = 0, block = 0; at < image.contents.size(); at += 1024, ++block) {
///         UcTelegram telegram{0, 0, image.addrFlash, block, 0}; // a "SET"
///         send(image.getContents(at, 1024, &telegram));
///     }
///
/// Three kinds are known, see `type`; docs/formats/firmware.md describes their bytes. Nothing in a file is
/// trusted: lengths in it are checked against its contents. Texts are read as UTF-8: bytes that are none
/// become U+FFFD, a byte-order mark at a text's beginning is dropped. A record: the members may be changed.
/// One thread at a time.
///
/// The constructor and `readFile` throw `OomError` when memory does not suffice, all other functions
/// `std::bad_alloc`. A step that does so may have set some of its members; `contents` are whole.
class VORELUTIL_EXPORT FirmwareFile
{
public:
    /// Values of `type`.
    enum Type : int
    {
        FpgaBitFile = 0, ///< begins with the 13 bytes 00 09 0F F0 0F F0 0F F0 0F F0 00 00 01
        DspImage = 1,    ///< holds "DspProduct:", and no "SamProduct:"
        SamImage = 2,    ///< holds "SamProduct:"
        Unknown = 3
    };
    static constexpr qint64 maxFileSize = qint64(1) << 30; ///< bytes

    /// Opens `directory` + `fileName` (joined as they stand: the directory ends with a separator, or is
    /// empty) for a device whose product, version and download have the addresses `addrPrd`, `addrVer`,
    /// `addrFlash`. Reads all that the members tell. A file that does not open (a folder never does) is no
    /// error: `loaded` is false then, and nothing else is known. A pipe is read to its end: a named pipe that
    /// nobody writes to is at its end at once, and so empty; for a writer that stays silent there is no limit
    /// of time. Of a bit file, what stands before the synchronisation pattern is dropped from `contents`.
    ///
    /// The arguments mostly come from a package description, a "pkd file", which messages name. Throws
    /// `XmlError` (without file and line), before anything is opened, "Invalid pkd file: adresses not
    /// complete" (spelled so) if an address is 0, "Invalid pkd file: names not complete" if `fileName` or
    /// `displayName` is empty; `FormatError` with the file name: "Firmware file is empty", "Firmware file is
    /// too large" (above `maxFileSize`), "File is not a valid firmware file" for an unknown kind, "Not a
    /// valid bitfile"; `IOError` "Can't read file", name and the system's reason, if the file opens and
    /// cannot be read.
    FirmwareFile(QString fileName, QString directory, QString displayName, int addrPrd, int addrVer,
                 int addrFlash, bool optional);

    // The steps of the constructor

    /// Replaces `contents` and `fileSize` by the file's; false if it does not open. Throws as the
    /// constructor. Nothing is changed then, either.
    bool readFile();
    /// Sets `type` from `contents`. What begins as a bit file is one, whatever keys it holds.
    void guessFileType();
    /// Sets `version` and `product` from the texts behind two keys in `contents`; a key that is missing
    /// leaves its member as it is. Keys must not be null. Kept: both are taken to be 11 bytes long.
    ///
    /// The version ends before the next "$" or zero byte; a "$Revision: " or "$Date: " that begins right
    /// behind the key, or one byte later, is skipped. The product ends before the next zero byte. A text may
    /// also end with the contents.
    void extractDspInfo(const char* versionKey, const char* productKey);
    /// Sets `version`, `product`, `partName`, `configLength` and `configBytes` from the header of a bit file.
    /// Texts end before a zero byte, and are cut byte by byte before they are read. Throws `FormatError`
    /// "Not a valid bitfile" if a field lies outside the contents, or the mark of the configuration data
    /// ('e') is missing; nothing is changed then.
    ///
    /// The product is the name of the design, at most 28 bytes, up to its first ';'. The version is the date,
    /// padded with blanks to its field's length (at most 28), then the time: at most 28 bytes. Kept: a comma
    /// takes the place of the last of the date's bytes, so that one without its zero byte loses its last
    /// character; the bytes of a length count as signed ones, so that a length may be negative: its field has
    /// no text, and the next one begins that much earlier. A date of such a length, or of length 0, has no
    /// comma.
    void extractFpgaInfo();
    /// Drops what stands before the first synchronisation pattern (16 bytes FF, then AA 99 55 66), if there
    /// is one.
    void removeFpgaHeader();

    // The image in pieces

    /// At most `length` bytes from `offset` on, as far as the contents go, and never above `maxFileSize`;
    /// none if `offset` is negative or at or beyond the end, or `length` is not above 0.
    ///
    /// With a telegram: the piece as its data, ready to be sent. Zero bytes pad the piece to a multiple of 4,
    /// `Len` of `*tel` becomes its size plus 16, and the result is the 20 bytes of `*tel`, then the piece. No
    /// piece: the 20 bytes alone.
    QByteArray getContents(int offset, int length, UcTelegram* tel = nullptr) const;
    /// Takes `contents` as one telegram, of 20 bytes of header and data: appends zero bytes until the data is
    /// a multiple of `pageSize` bytes, and writes what `Len` has to be (the size of the data plus 16),
    /// little-endian, to the header. Nothing is changed if `pageSize` is below 1, or the contents are shorter
    /// than a header, or would become longer than `maxFileSize`.
    void expandToPage(int pageSize);

    // Versions

    /// The number that all decimal digits of a text make in their order, of whatever script: "1.2.3" is 123;
    /// 0 without digits, infinity with more than a double holds. Above 15 digits neighbours may become the
    /// same number, so that different versions compare as equal. Kept: 1.10 (110) is above 1.9 (19), but also
    /// above 2.0 (20).
    static double parseVersion(QString text);
    /// 0: `a` is newer, 1: they are equal, 2: `b` is newer, 3: one of them is missing (its number is 0).
    static int compareVersion(QString a, QString b);
    /// This image's version beside another.
    int compareVersion(QString other) const;

    void setRevision(int value) { revision = value; }
    void setFirmwareCapabilities(int mask) { capabilities = mask; }
    void setMaskedBit(int bit) { maskedBit = bit; }
    int getMaskedBit() const { return maskedBit; }
    /// `maskedBit` + 1 bits, all clear but the last; empty when `maskedBit` is negative, or above INT_MAX -
    /// 16, which no bit array holds. Takes a byte of memory for 8 bits, up to 256 MB.
    QBitArray getMask() const;

    /// What is odd about the image, in words for the operator; empty when nothing is: a configuration length
    /// that disagrees with the number of bytes behind it in the file.
    QString info() const;

    int enabled = 1;          ///< a flag; cleared by those who filter the images of a device
    QString fileName;         ///< also in messages
    QString directory;        ///< ends with a separator where one is needed
    QString displayName;      ///< for the operator
    QString version;          ///< from the image
    QString product;          ///< product, or name of the design, from the image
    bool loaded = false;      ///< the file was opened and read
    int capabilities = 0;     ///< bit mask of what the image needs; 0: nothing
    int lockMask = 0;         ///< bit mask of lock bits; 0: none
    int addrPrd;              ///< controller address of the product; these three are not 0
    int addrVer;              ///< controller address of the version
    int addrFlash;            ///< controller address of the download
    int type = Unknown;       ///< a `Type`
    bool optional;            ///< the application's
    QByteArray contents;      ///< the image
    int maskedBit = 0;        ///< a bit number
    int revision = 0;         ///< the application's
    QString partName;         ///< of a bit file: the part that it is for
    qint64 fileSize = 0;      ///< bytes in the file, with what was dropped
    qint64 configLength = -1; ///< of a bit file: bytes of configuration data, by its header; -1: unknown
    qint64 configBytes = -1;  ///< of a bit file: bytes behind that length in the file; -1: no length there
};
