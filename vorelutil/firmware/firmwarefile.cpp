#include "firmwarefile.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <QFile>
#include <QtEndian>
#include <string_view>
#include <system_error>
#include <utility>
#include <vorelutil/platform/files.h>
#include <vorelutil/trace/error.h>

namespace {

using namespace std::string_view_literals;

constexpr std::string_view bitHdrStart = "\x00\x09\x0F\xF0\x0F\xF0\x0F\xF0\x0F\xF0\x00\x00\x01"sv;
constexpr std::string_view bitHdrEnd =
    "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xAA\x99\x55\x66"sv;

constexpr std::size_t npos = std::string_view::npos;
constexpr std::size_t processorKeySize = 11;
constexpr int mostBitText = 28; ///< bytes of a bit file's name, and of its date and time together
constexpr int headerSize = sizeof(UcTelegram);
constexpr int lenSize = sizeof(UcTelegram::Len); ///< `Len` counts what follows it

template <typename Work> auto withinMemory(const QString& fileName, Work work)
{
    try {
        return work();
    } catch (const std::bad_alloc&) {
        throw OomError("Not enough memory to read\n" + fileName.toStdString());
    }
}

/// The bytes of a file that is open.
QByteArray readAll(std::FILE* file, std::uintmax_t expected, const QString& fileName)
{
    constexpr int pieceSize = 1 << 20;
    const auto refuseBeyond = [&fileName](std::uintmax_t size) {
        if (size > FirmwareFile::maxFileSize) {
            throw FormatError("Firmware file is too large", fileName.toStdString());
        }
    };
    refuseBeyond(expected);
    QByteArray bytes;
    bytes.reserve(static_cast<int>(expected) + pieceSize);
    for (bool atEnd = false; !atEnd;) {
        const int size = bytes.size();
        bytes.resize(size + pieceSize);
        errno = 0;
        const std::size_t count = std::fread(bytes.data() + size, 1, pieceSize, file);
        if (std::ferror(file) != 0) {
            throw IOError("Can't read file\n" + fileName.toStdString() + ": " +
                          std::generic_category().message(errno));
        }
        bytes.resize(size + static_cast<int>(count));
        refuseBeyond(static_cast<std::uintmax_t>(bytes.size()));
        atEnd = count < pieceSize;
    }
    bytes.squeeze();
    return bytes;
}

std::string_view viewOf(const QByteArray& bytes)
{
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

/// Where `sought` begins for the first time, or -1. Images are large: memmem() takes a fraction of the time
/// that the searches of Qt and of the standard library need.
std::size_t find(std::string_view all, std::string_view sought)
{
    const void* const found = memmem(all.data(), all.size(), sought.data(), sought.size());
    return found == nullptr ? npos : static_cast<std::size_t>(static_cast<const char*>(found) - all.data());
}

/// Where `mark` ends, if it begins at `begin` or one byte later; else npos.
std::size_t behindMark(std::string_view all, std::size_t begin, std::string_view mark)
{
    for (const std::size_t place : {begin, begin + 1}) {
        if (place < all.size() && all.substr(place, mark.size()) == mark) return place + mark.size();
    }
    return npos;
}

/// The bytes from `begin` on, up to the first one that is in `ends`, or all.
QString textFrom(std::string_view all, std::size_t begin, std::string_view ends)
{
    if (begin >= all.size()) return QString();
    const std::string_view text = all.substr(begin, all.find_first_of(ends, begin) - begin);
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

/// A bit file's header. Lengths in it may be negative or lead anywhere; whatever is read outside the contents
/// makes the file an invalid one.
class BitHeader
{
public:
    BitHeader(const QByteArray& contents, const QString& fileName)
        : m_contents(contents)
        , m_fileName(fileName)
    {
    }

    struct Field
    {
        int length;
        qint64 begin;
        qint64 end; ///< of the text, as the length has it: before `begin` when it is negative
    };

    /// The field whose key stands at `key`, which is not looked at.
    Field field(qint64 key) const
    {
        const int length = at(key + 1) * 256 + at(key + 2);
        return {length, key + 3, key + 3 + length};
    }

    /// At most `most` bytes of a field, up to a zero byte. A negative length has none.
    QByteArray text(const Field& field, int most) const
    {
        QByteArray bytes;
        for (qint64 i = field.begin; i < field.begin + std::min(field.length, most) && at(i) != 0; ++i) {
            bytes.append(static_cast<char>(at(i)));
        }
        return bytes;
    }

    int at(qint64 index) const
    {
        if (index < 0 || index >= m_contents.size()) fail();
        return static_cast<signed char>(m_contents[static_cast<int>(index)]);
    }

    [[noreturn]] void fail() const { throw FormatError("Not a valid bitfile", m_fileName.toStdString()); }

private:
    const QByteArray& m_contents;
    const QString& m_fileName;
};

} // namespace

FirmwareFile::FirmwareFile(QString file, QString folder, QString shownName, int addressPrd, int addressVer,
                           int addressFlash, bool isOptional)
    : fileName(std::move(file))
    , directory(std::move(folder))
    , displayName(std::move(shownName))
    , addrPrd(addressPrd)
    , addrVer(addressVer)
    , addrFlash(addressFlash)
    , optional(isOptional)
{
    if (addrPrd == 0 || addrVer == 0 || addrFlash == 0) {
        throw XmlError("Invalid pkd file: adresses not complete", std::string(), -1);
    }
    if (fileName.isEmpty() || displayName.isEmpty()) {
        throw XmlError("Invalid pkd file: names not complete", std::string(), -1);
    }
    loaded = readFile();
    if (!loaded) return;
    withinMemory(fileName, [this] {
        guessFileType();
        switch (type) {
        case DspImage:
            extractDspInfo("DspVersion:", "DspProduct:");
            break;
        case SamImage:
            extractDspInfo("SamVersion:", "SamProduct:");
            break;
        case FpgaBitFile:
            extractFpgaInfo();
            removeFpgaHeader();
            break;
        default:
            throw FormatError("File is not a valid firmware file", fileName.toStdString());
        }
    });
}

bool FirmwareFile::readFile()
{
    const QByteArray path = QFile::encodeName(directory + fileName);
    if (path.contains('\0')) return false;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(platform::openFile(path.constData(), "rb"),
                                                               &std::fclose);
    if (file == nullptr) return false;
    std::error_code notRegular;
    const std::uintmax_t expected = std::filesystem::file_size(path.toStdString(), notRegular);
    QByteArray bytes =
        withinMemory(fileName, [&] { return readAll(file.get(), notRegular ? 0 : expected, fileName); });
    if (bytes.isEmpty()) throw FormatError("Firmware file is empty", fileName.toStdString());
    contents = std::move(bytes);
    fileSize = contents.size();
    return true;
}

void FirmwareFile::guessFileType()
{
    const std::string_view all = viewOf(contents);
    if (all.substr(0, bitHdrStart.size()) == bitHdrStart) {
        type = FpgaBitFile;
    } else if (find(all, "SamProduct:") != npos) {
        type = SamImage;
    } else if (find(all, "DspProduct:") != npos) {
        type = DspImage;
    } else {
        type = Unknown;
    }
}

void FirmwareFile::extractDspInfo(const char* versionKey, const char* productKey)
{
    const std::string_view all = viewOf(contents);
    if (const std::size_t key = find(all, versionKey); key != npos) {
        std::size_t begin = behindMark(all, key + processorKeySize, "$Revision: ");
        if (begin == npos) begin = behindMark(all, key + processorKeySize, "$Date: ");
        if (begin == npos) begin = key + processorKeySize;
        version = textFrom(all, begin, "$\0"sv);
    }
    if (const std::size_t key = find(all, productKey); key != npos) {
        product = textFrom(all, key + processorKeySize, "\0"sv);
    }
}

void FirmwareFile::extractFpgaInfo()
{
    const BitHeader header(contents, fileName);
    const auto name = header.field(bitHdrStart.size());
    const auto part = header.field(name.end);
    const auto date = header.field(part.end);
    const auto time = header.field(date.end);
    if (header.at(time.end) != 'e') header.fail();

    QByteArray design = header.text(name, mostBitText);
    if (const int end = design.indexOf(';'); end >= 0) design.truncate(end);
    const QByteArray partText = header.text(part, INT_MAX);
    // Without a date (a length of 0 or below) there is nothing to pad, and no comma: the time alone.
    const int dateSize = std::clamp(date.length, 0, mostBitText);
    QByteArray stamp = header.text(date, dateSize).leftJustified(dateSize, ' ');
    if (dateSize > 0) stamp[dateSize - 1] = ',';
    stamp += header.text(time, mostBitText - dateSize);

    version = QString::fromUtf8(stamp);
    product = QString::fromUtf8(design);
    partName = QString::fromUtf8(partText);
    const qint64 lengthBegin = time.end + 1;
    const qint64 lengthEnd = lengthBegin + 4;
    const bool hasLength = lengthEnd <= contents.size();
    configLength = hasLength ? qint64(qFromBigEndian<quint32>(contents.constData() + lengthBegin)) : -1;
    configBytes = hasLength ? contents.size() - lengthEnd : -1;
}

void FirmwareFile::removeFpgaHeader()
{
    const std::size_t begin = find(viewOf(contents), bitHdrEnd);
    if (begin != npos) contents.remove(0, static_cast<int>(begin));
}

QByteArray FirmwareFile::getContents(int offset, int length, UcTelegram* tel) const
{
    const bool within = offset >= 0 && offset < contents.size();
    const int available = within ? std::min(contents.size() - offset, static_cast<int>(maxFileSize)) : 0;
    const int size = std::clamp(length, 0, available);
    const char* piece = contents.constData() + (within ? offset : 0);
    if (tel == nullptr) return QByteArray(piece, size);

    const int padding = (4 - size % 4) % 4;
    tel->Len = size + padding + headerSize - lenSize;
    QByteArray bytes;
    bytes.reserve(headerSize + size + padding);
    bytes.append(reinterpret_cast<const char*>(tel), headerSize);
    bytes.append(piece, size);
    bytes.append(padding, '\0');
    return bytes;
}

void FirmwareFile::expandToPage(int pageSize)
{
    if (pageSize < 1 || contents.size() < headerSize) return;
    const qint64 size = contents.size() - headerSize;
    const qint64 expanded = (size + pageSize - 1) / pageSize * pageSize;
    if (headerSize + expanded > maxFileSize) return;
    contents.append(static_cast<int>(expanded - size), '\0');
    qToLittleEndian(static_cast<qint32>(expanded + headerSize - lenSize), contents.data());
}

double FirmwareFile::parseVersion(QString text)
{
    double number = 0;
    for (const uint character : text.toUcs4()) {
        if (QChar::isDigit(character)) number = number * 10 + QChar::digitValue(character);
    }
    return number;
}

int FirmwareFile::compareVersion(QString a, QString b)
{
    const double numberA = parseVersion(std::move(a));
    const double numberB = parseVersion(std::move(b));
    if (numberA == 0 || numberB == 0) return 3;
    if (numberA > numberB) return 0;
    return numberA == numberB ? 1 : 2;
}

int FirmwareFile::compareVersion(QString other) const
{
    return compareVersion(version, std::move(other));
}

QBitArray FirmwareFile::getMask() const
{
    if (maskedBit < 0 || maskedBit > INT_MAX - 16) return QBitArray();
    QBitArray mask(maskedBit + 1);
    mask.setBit(maskedBit);
    return mask;
}

QString FirmwareFile::info() const
{
    if (configLength == configBytes) return QString();
    return QStringLiteral("The header tells of %1 bytes of configuration data, the file holds %2")
        .arg(configLength)
        .arg(configBytes);
}
