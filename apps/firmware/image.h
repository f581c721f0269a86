#pragma once

#include <cstdint>
#include <QByteArray>
#include <QString>
#include <vorelutil/firmware/firmwarefile.h>

/// Firmware images as the programs use them: opened by path, described in words, cut into telegrams.
namespace firmware {

/// Loads an image for the controller's addresses. Throws `FileOpenError` when the file does not open, with
/// the system's reason behind its text, and what `FirmwareFile` throws.
FirmwareFile openImage(const QString& path);

/// "fpga", "dsp", "sam", "unknown": a `FirmwareFile::Type` as files name it.
QString kindKey(int type);
/// The same for people: "FPGA bit file", "DSP image", "SAM image".
QString kindName(int type);

/// The telegrams of a download: "SET"s to one address, `Ind` is the block's number, from 0 on.
class ImageCutter
{
public:
    /// `blockSize`: bytes in a telegram, a multiple of 4, 4 to 65536. `pageSize`: what the last block is
    /// padded to with zero bytes, a divisor of the block size; below 1: only to a multiple of 4.
    ImageCutter(const FirmwareFile& image, int address, int blockSize, int pageSize = 0);

    int blockCount() const;
    /// The telegram of a block, 0 to `blockCount() - 1`, with `CNo` = `number`.
    QByteArray telegram(int block, int number) const;

private:
    FirmwareFile m_image;
    int m_address;
    int m_blockSize;
    int m_pageSize;
};

/// CRC-32 (polynomial 0x04C11DB7, reflected, as in ISO 3309) of what the controller got: continues `sum`, 0
/// at first, with a block's data.
std::uint32_t checkSum(std::uint32_t sum, const void* data, std::size_t size);

} // namespace firmware
