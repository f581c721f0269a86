// Firmware images: what is read from any contents, compared with a plain account of it, and the pieces.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vorelutil/firmware/firmwarefile.h>
#include <vorelutil/trace/error.h>

namespace {

void require(bool condition)
{
    if (!condition) std::abort();
}

struct Outside
{
};

struct Texts
{
    std::string version, product;
};

/// A bit file's header, step by step.
std::optional<Texts> literalBitFile(const std::string& contents)
{
    const auto at = [&contents](std::int64_t index) {
        if (index < 0 || index >= static_cast<std::int64_t>(contents.size())) throw Outside();
        return static_cast<int>(static_cast<signed char>(contents[static_cast<std::size_t>(index)]));
    };
    const auto text = [&at](std::int64_t from, int most) {
        std::string bytes;
        while (static_cast<int>(bytes.size()) < most) {
            const int byte = at(from++);
            if (byte == 0) break;
            bytes += static_cast<char>(byte);
        }
        return bytes;
    };
    try {
        Texts texts;
        const int nameLength = at(14) * 256 + at(15);
        texts.product = text(16, std::min(nameLength, 28));
        std::int64_t place = 16 + nameLength; // of the key 'b'
        place += 3 + at(place + 1) * 256 + at(place + 2);
        const int dateLength = at(place + 1) * 256 + at(place + 2);
        const int n = std::max(0, std::min(dateLength, 28));
        texts.version = text(place + 3, n);
        if (n > 0) {
            texts.version.resize(static_cast<std::size_t>(n), ' ');
            texts.version[static_cast<std::size_t>(n) - 1] = ',';
        }
        place += 3 + dateLength;
        const int timeLength = at(place + 1) * 256 + at(place + 2);
        texts.version += text(place + 3, std::min(timeLength, 28 - n));
        if (at(place + 3 + timeLength) != 'e') return std::nullopt;
        texts.product = texts.product.substr(0, texts.product.find(';'));
        return texts;
    } catch (const Outside&) {
        return std::nullopt;
    }
}

Texts literalProcessor(const std::string& contents, const char* versionKey, const char* productKey)
{
    Texts texts{"before", "before"};
    if (const std::size_t key = contents.find(versionKey); key != std::string::npos) {
        std::size_t from = key + 11;
        for (const char* mark : {"$Revision: ", "$Date: "}) {
            const std::size_t found = contents.find(mark, key + 11);
            if (found == key + 11 || found == key + 12) {
                from = found + std::strlen(mark);
                break;
            }
        }
        const std::string rest = contents.substr(from);
        texts.version = rest.substr(0, rest.find_first_of(std::string("$\0", 2)));
    }
    if (const std::size_t key = contents.find(productKey); key != std::string::npos) {
        const std::string rest = contents.substr(key + 11);
        texts.product = rest.substr(0, rest.find('\0'));
    }
    return texts;
}

FirmwareFile imageOf(const std::string& contents)
{
    FirmwareFile file("none", "/dev/null/", "shown", 1, 1, 1, false); // does not open
    require(!file.loaded);
    file.contents = QByteArray::fromStdString(contents);
    file.version = file.product = "before";
    return file;
}

void checkTexts(const FirmwareFile& file, const Texts& expected)
{
    require(file.version == QString::fromStdString(expected.version));
    require(file.product == QString::fromStdString(expected.product));
}

void checkBitFile(const std::string& contents)
{
    FirmwareFile file = imageOf(contents);
    const std::optional<Texts> expected = literalBitFile(contents);
    try {
        file.extractFpgaInfo();
        require(expected.has_value());
        checkTexts(file, *expected);
        require(file.version.size() <= 28 && file.product.size() <= 28);
        require(file.configBytes >= -1 && file.configBytes < file.contents.size());
        require(file.configLength >= -1 && file.configLength <= UINT_MAX);
    } catch (const FormatError& error) {
        require(!expected.has_value() && error.message == "none: Not a valid bitfile");
        checkTexts(file, {"before", "before"});
    }
    const std::string pattern = std::string(16, '\xFF') + "\xAA\x99\x55\x66";
    file.removeFpgaHeader();
    const std::size_t begin = contents.find(pattern);
    require(file.contents.toStdString() == contents.substr(begin == std::string::npos ? 0 : begin));
}

void checkProcessor(const std::string& contents)
{
    const bool bit =
        contents.compare(0, 13, std::string("\0\x09\x0F\xF0\x0F\xF0\x0F\xF0\x0F\xF0\0\0\1", 13)) == 0;
    const bool sam = contents.find("SamProduct:") != std::string::npos;
    const bool dsp = contents.find("DspProduct:") != std::string::npos;
    FirmwareFile file = imageOf(contents);
    file.guessFileType();
    require(file.type == (bit ? 0 : sam ? 2 : dsp ? 1 : 3));
    const char* versionKey = sam ? "SamVersion:" : "DspVersion:";
    const char* productKey = sam ? "SamProduct:" : "DspProduct:";
    file.extractDspInfo(versionKey, productKey);
    checkTexts(file, literalProcessor(contents, versionKey, productKey));
    const bool missing = FirmwareFile::parseVersion(file.version) == 0;
    require(file.compareVersion(file.version) == (missing ? 3 : 1));
    const int there = file.compareVersion(file.product);
    const int back = FirmwareFile::compareVersion(file.product, file.version);
    require(there == 3 ? back == 3 : there + back == 2);
}

/// Pieces, whose sizes the contents choose, joined are the contents again.
void checkPieces(const std::string& contents)
{
    const FirmwareFile file = imageOf(contents);
    QByteArray joined;
    for (std::size_t i = 0; joined.size() < file.contents.size(); ++i) {
        const int length = static_cast<unsigned char>(contents[i]) + 1;
        UcTelegram tel{-1, 0, 1, 2, 3};
        const QByteArray piece = file.getContents(joined.size(), length);
        const QByteArray sent = file.getContents(joined.size(), length, &tel);
        require(!piece.isEmpty() && piece.size() <= length);
        require(tel.Len % 4 == 0 && tel.Len - 16 >= piece.size() && tel.Len - 16 < piece.size() + 4);
        require(sent.size() == tel.Len + 4 && std::memcmp(sent.constData(), &tel, sizeof tel) == 0);
        require(sent.mid(20) == piece + QByteArray(tel.Len - 16 - piece.size(), '\0'));
        joined += piece;
    }
    require(joined == file.contents);
    if (contents.size() < 8) return;
    int offset = 0;
    int length = 0;
    std::memcpy(&offset, contents.data(), sizeof offset);
    std::memcpy(&length, contents.data() + sizeof offset, sizeof length);
    const bool any = offset >= 0 && offset < file.contents.size() && length > 0;
    require(file.getContents(offset, length) == (any ? file.contents.mid(offset, length) : QByteArray()));
}

void checkPage(const std::string& contents)
{
    if (contents.size() < 2) return;
    const int page = static_cast<signed char>(contents[0]) * 64 + static_cast<signed char>(contents[1]);
    FirmwareFile file = imageOf(contents);
    const QByteArray before = file.contents;
    file.expandToPage(page);
    if (page < 1 || before.size() < 20) {
        require(file.contents == before);
        return;
    }
    const int data = file.contents.size() - 20;
    require(data % page == 0 && file.contents.size() - before.size() < page);
    require(file.contents.mid(4) == before.mid(4) + QByteArray(file.contents.size() - before.size(), '\0'));
    for (int i = 0; i < 4; ++i)
        require(static_cast<unsigned char>(file.contents[i]) == (((data + 16) >> 8 * i) & 0xFF));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string contents(reinterpret_cast<const char*>(data), size);
    checkBitFile(contents);
    checkProcessor(contents);
    checkPieces(contents);
    checkPage(contents);
    return 0;
}
