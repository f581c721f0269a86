#include "image.h"

#include "apps/controller/addresses.h"

#include <QFile>
#include <vorelutil/trace/error.h>
#include <zlib.h>

namespace firmware {

FirmwareFile openImage(const QString& path)
{
    if (path.isEmpty()) throw FileOpenError(std::string(), false); // no name is no image without names
    FirmwareFile image(path, QString(), path, controller::firmwareProduct, controller::firmwareVersion,
                       controller::flashBlock, false);
    if (!image.loaded) {
        FileOpenError error(path.toStdString(), false);
        QFile again(path); // the image does not keep the reason
        if (!again.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
            error.message += ": " + again.errorString().toStdString();
        throw error;
    }
    return image;
}

QString kindKey(int type)
{
    switch (type) {
    case FirmwareFile::FpgaBitFile:
        return QStringLiteral("fpga");
    case FirmwareFile::DspImage:
        return QStringLiteral("dsp");
    case FirmwareFile::SamImage:
        return QStringLiteral("sam");
    }
    return QStringLiteral("unknown");
}

QString kindName(int type)
{
    switch (type) {
    case FirmwareFile::FpgaBitFile:
        return QStringLiteral("FPGA bit file");
    case FirmwareFile::DspImage:
        return QStringLiteral("DSP image");
    case FirmwareFile::SamImage:
        return QStringLiteral("SAM image");
    }
    return QStringLiteral("unknown");
}

ImageCutter::ImageCutter(const FirmwareFile& image, int address, int blockSize, int pageSize)
    : m_image(image)
    , m_address(address)
    , m_blockSize(blockSize)
    , m_pageSize(pageSize)
{
}

int ImageCutter::blockCount() const
{
    const int size = m_image.contents.size();
    return size / m_blockSize + (size % m_blockSize != 0 ? 1 : 0);
}

QByteArray ImageCutter::telegram(int block, int number) const
{
    UcTelegram header{0, controller::typeSet, m_address, block, number};
    const QByteArray bytes = m_image.getContents(block * m_blockSize, m_blockSize, &header);
    if (m_pageSize < 1 || block + 1 < blockCount()) return bytes;
    FirmwareFile last = m_image;
    last.contents = bytes;
    last.expandToPage(m_pageSize);
    return last.contents;
}

std::uint32_t checkSum(std::uint32_t sum, const void* data, std::size_t size)
{
    return std::uint32_t(crc32_z(sum, static_cast<const Bytef*>(data), size));
}

} // namespace firmware
