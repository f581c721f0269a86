#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <QFile>
#include <QTemporaryDir>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <vorelutil/firmware/firmwarefile.h>
#include <vorelutil/trace/error.h>

namespace {

const QTemporaryDir folder;
const QByteArray pattern = QByteArray(16, '\xFF') + QByteArray::fromHex("AA995566");
const std::string unknown = "Format Error|x.bin: File is not a valid firmware file";
const std::string invalid = "Format Error|x.bin: Not a valid bitfile";

/// A literal with its zero bytes, without the last.
template <std::size_t size> QByteArray bytes(const char (&literal)[size])
{
    return QByteArray(literal, static_cast<int>(size) - 1);
}

/// A header's field, whose length may be a lie.
QByteArray field(const QByteArray& text, int beyond = 0)
{
    const int length = text.size() + beyond;
    return QByteArray("k").append(static_cast<char>(length >> 8)).append(static_cast<char>(length)) + text;
}

const QByteArray name = field(bytes("top;v=1\0"));
const QByteArray part = field(bytes("xc-1\0"));
const QByteArray day = field(bytes("2026/11/21\0"));
const QByteArray hour = field(bytes("12:34:56\0"));

QByteArray bit(const QByteArray& fields, const QByteArray& rest = "e")
{
    return QByteArray::fromHex("00090FF00FF00FF00FF0000001") + fields + rest;
}

FirmwareFile open(const QString& file, const char* shown = "x", int prd = 1, int ver = -1, int flash = 1)
{
    return FirmwareFile(file, folder.path() + '/', shown, prd, ver, flash, false);
}

FirmwareFile load(const QByteArray& image)
{
    std::ofstream(folder.filePath("x.bin").toStdString(), std::ios::binary)
        .write(image.constData(), image.size());
    return open("x.bin");
}

/// The kind and the texts of an image, or why there is none.
std::string told(const std::function<FirmwareFile()>& loader)
{
    try {
        const FirmwareFile file = loader();
        const QString texts = file.product + '|' + file.partName + '|' + file.version;
        return (QString::number(file.type) + '|' + (file.loaded ? texts : "not loaded")).toStdString();
    } catch (const Error& error) {
        return error.title + '|' + error.message;
    }
}

} // namespace

TEST(FirmwareFile, TellsWhatAnImageIs)
{
    const QByteArray letters = "abcdefghijklmnopqrstuvwxyzABCDEF";
    // clang-format off
    const std::pair<QByteArray, std::string> rows[] = {
        {bit(name + part + day + hour, "eSamProduct:s"), "0|top|xc-1|2026/11/21,12:34:56"},
        {bit(name + part + day + hour, "f"), invalid},
        {bit(name + part + field("2026/11/21") + hour), "0|top|xc-1|2026/11/2,12:34:56"}, // no zero byte
        {bit(name + part + field(bytes("ab\0cde\0")) + field("noon")), "0|top|xc-1|ab    ,noon"},
        {bit(field(letters) + part + field(letters) + hour),
         "0|abcdefghijklmnopqrstuvwxyzAB|xc-1|abcdefghijklmnopqrstuvwxyzA,"},
        {bit(name + part + field(letters.left(26)) + hour), "0|top|xc-1|abcdefghijklmnopqrstuvwxy,12"},
        {bit(name + part + field("a") + hour), "0|top|xc-1|,12:34:56"},
        {bit(field("") + field("") + field("") + hour), "0|||12:34:56"},
        {bit(name + part + field(bytes("\xC3\xA4\0")) + field("\xFF")), "0|top|xc-1|\u00E4,\uFFFD"},
        // A name of -5 bytes leads back to byte 11: a part of 0x16B bytes, from 14 on.
        {bit(field("", 0xFB)).leftJustified(14 + 0x16B) + day + hour + "e", "0|||2026/11/21,12:34:56"},
        // A date of -16 bytes leads back into the part's text, which goes on as a time.
        {bit(name + field("....." + field("noon") + "e.....") + field("", 0xF0)), "0|top|.....k|noon"},
        {bytes(".DspVersion:$Revision: 1.42 $..DspProduct:Widget\0."), "1|Widget||1.42 "},
        {bytes("DspVersion: $Revision: 1.42$DspProduct:Two words$\0"), "1|Two words$||1.42"},
        {bytes("DspVersion:  $Revision: 1.42$DspProduct:a"), "1|a||  "}, // two blanks are too many
        {bytes("SamProduct:b\0SamVersion:.$Date: 7\0$"), "2|b||7"},
        {bytes("DspVersion:1\0DspProduct:d\0SamProduct:\xC3\xA4\0"), "2|\u00E4||"},
        {"DspVersion:DspProduct:", "1|||DspProduct:"}, {bytes("DspProduct:d\0DspVersion:"), "1|d||"},
        {bytes("SamProduct:d\0SamVersion: $Revision: "), "2|d||"},
        {"DspVersion:1", unknown}, {"", "Format Error|x.bin: Firmware file is empty"},
    };
    // clang-format on
    for (const auto& [image, expected] : rows)
        EXPECT_EQ(told(std::bind(load, image)), expected) << image.constData();
}

TEST(FirmwareFile, RefusesFieldsOutsideTheFile)
{
    const QByteArray whole = bit(name + part + day + hour);
    for (int size = 1; size < whole.size(); ++size) {
        EXPECT_EQ(told(std::bind(load, whole.left(size))), size < 13 ? unknown : invalid) << size;
    }
    // The high bit: FFFF counts as -257, 0080 as -128, 8000 as -32768.
    for (const int length : {0x7FFF, 0x7F7F, 0xFFFF, 0x0080, 0x8000, 0xFF00}) {
        for (const QByteArray& before : {QByteArray(), name, name + part, name + part + day}) {
            const QByteArray image = bit(before + field("", length) + whole + QByteArray(1000, 'x'));
            EXPECT_EQ(told(std::bind(load, image)), invalid) << length;
        }
    }
}

TEST(FirmwareFile, DropsTheHeaderAndChecksTheLengthOfTheConfiguration)
{
    const QByteArray fields = name + part + day + hour;
    FirmwareFile file = load(bit(fields, bytes("e\0\0\0\x1A..") + pattern + "zzzz" + pattern));
    EXPECT_EQ(file.contents, pattern + "zzzz" + pattern);
    EXPECT_EQ(file.fileSize, 109);
    EXPECT_EQ(file.info(), "The header tells of 26 bytes of configuration data, the file holds 46");
    const FirmwareFile exact = load(bit(fields, bytes("e\0\0\0\x14") + pattern));
    EXPECT_EQ(exact.contents, pattern); // at the very end
    EXPECT_EQ(exact.info(), "");
    const FirmwareFile bare = load(bit(fields, bytes("e\0\0\0")));
    EXPECT_EQ(bare.contents, bit(fields, bytes("e\0\0\0"))); // no pattern
    EXPECT_EQ(bare.configLength, -1);
    EXPECT_TRUE(file.readFile()); // what is there now
    EXPECT_EQ(file.contents, bare.contents);
    EXPECT_EQ(file.fileSize, 62);
}

TEST(FirmwareFile, StoresItsArguments)
{
    const FirmwareFile f("none", "/folder/", "Shown", 1, 2, 3, true);
    EXPECT_EQ(QStringList({f.fileName, f.directory, f.displayName}).join('|'), "none|/folder/|Shown");
    EXPECT_EQ(std::tie(f.addrPrd, f.addrVer, f.addrFlash, f.optional), std::tuple(1, 2, 3, true));
    EXPECT_EQ(std::tie(f.enabled, f.capabilities, f.lockMask, f.maskedBit, f.revision),
              std::tuple(1, 0, 0, 0, 0));
}

TEST(FirmwareFile, SaysWhyItDoesNotLoad)
{
    const std::string huge = folder.filePath("huge").toStdString();
    std::ofstream(huge) << "SamProduct:";
    ASSERT_EQ(truncate(huge.c_str(), off_t(3) << 30), 0);
    ASSERT_EQ(mkfifo(folder.filePath("pipe").toStdString().c_str(), 0600), 0);
    ASSERT_TRUE(QFile::link("/proc/self/mem", folder.filePath("mem")));
    const std::string noAddress = "XML Error|Invalid pkd file: adresses not complete";
    const std::string noName = "XML Error|Invalid pkd file: names not complete";
    // clang-format off
    const std::tuple<QString, const char*, int, int, int, std::string> rows[] = {
        {"", "", 0, 1, 1, noAddress}, {"huge", "x", 1, 0, 1, noAddress}, {"huge", "x", 1, 1, 0, noAddress},
        {"", "x", 1, 1, 1, noName}, {"huge", "", 1, -1, 1, noName},
        {"huge", "x", 1, -1, 1, "Format Error|huge: Firmware file is too large"},
        {"pipe", "x", 1, -1, 1, "Format Error|pipe: Firmware file is empty"},
        {"mem", "x", 1, -1, 1, std::string("I/O error|Can't read file\nmem: ") + std::strerror(EIO)},
        {"none", "x", 1, 1, 1, "3|not loaded"}, {".", "x", 1, 1, 1, "3|not loaded"},
        {QString("huge") + QChar(0), "x", 1, 1, 1, "3|not loaded"},
    };
    // clang-format on
    for (const auto& [file, shown, prd, ver, flash, expected] : rows) {
        EXPECT_EQ(told(std::bind(open, file, shown, prd, ver, flash)), expected);
    }
}

TEST(FirmwareFile, HandsOutPieces)
{
    FirmwareFile file = open("none");
    file.contents = "012345678";
    // clang-format off
    const std::tuple<int, int, QByteArray, int, QByteArray> rows[] = { // offset, length, piece; Len, data
        {0, 5, "01234", 24, bytes("01234\0\0\0")}, {1, INT_MAX, "12345678", 24, "12345678"},
        {8, 4, "8", 20, bytes("8\0\0\0")},         {9, 1, "", 16, ""}, {INT_MAX, 1, "", 16, ""},
        {-1, 5, "", 16, ""}, {INT_MIN, INT_MIN, "", 16, ""}, {3, -1, "", 16, ""}, {3, 0, "", 16, ""},
    };
    // clang-format on
    for (const auto& [offset, length, piece, len, data] : rows) {
        EXPECT_EQ(file.getContents(offset, length), piece) << offset << ' ' << length;
        UcTelegram tel{-1, 1, 2, 3, 4};
        const QByteArray sent = file.getContents(offset, length, &tel);
        EXPECT_EQ(tel.Len, len);
        EXPECT_EQ(sent.left(20), QByteArray(reinterpret_cast<const char*>(&tel), 20));
        EXPECT_EQ(sent.mid(20), data);
    }
}

TEST(FirmwareFile, ExpandsToPages)
{
    FirmwareFile file = open("none");
    // clang-format off
    const std::tuple<int, int, int, const char*> rows[] = { // size, page; new size, first word
        {320, 256, 532, "10020000"}, {532, 256, 532, "10020000"}, {20, 256, 20, "10000000"},
        {21, 1, 21, "11000000"}, {21, 7, 27, "17000000"}, {19, 256, 19, "78787878"}, {0, 4, 0, ""},
        {21, 0, 21, "78787878"}, {21, -1, 21, "78787878"}, {21, INT_MIN, 21, "78787878"},
        {21, INT_MAX, 21, "78787878"}, {21, 1 << 30, 21, "78787878"}, {20, INT_MAX, 20, "10000000"},
    };
    // clang-format on
    for (const auto& [size, page, newSize, len] : rows) {
        file.contents = QByteArray(size, 'x');
        file.expandToPage(page);
        EXPECT_EQ(file.contents.left(4).toHex(), len) << size << ' ' << page;
        EXPECT_EQ(file.contents.mid(4),
                  QByteArray(qMax(0, size - 4), 'x') + QByteArray(newSize - size, '\0'));
    }
}

TEST(FirmwareFile, ComparesVersionsAndMasksABit)
{
    EXPECT_EQ(FirmwareFile::parseVersion("v1.2.3 (\u0664)"), 1234.0);
    EXPECT_EQ(FirmwareFile::parseVersion("\U0001D7D8\U0001D7D7x\u00B2"), 9.0); // a superscript is no digit
    FirmwareFile file = open("none");
    const QString endless(5000, '9');
    // clang-format off
    const std::tuple<QString, QString, int> rows[] = {
        {"1.10", "1.9", 0}, {"1.9", "1.10", 2}, {"1.2", "12", 1}, {"", "1.0", 3}, {"1.0", "0.0", 3},
        {endless, endless, 1}, {"1", endless, 2},
    };
    // clang-format on
    for (const auto& [a, b, result] : rows) {
        file.version = a;
        EXPECT_EQ(file.compareVersion(b), result) << a.toStdString() << ' ' << b.toStdString();
    }
    file.setMaskedBit(9);
    EXPECT_TRUE(file.getMask().size() == 10 && file.getMask().count(true) == 1 && file.getMask().testBit(9));
    for (const int none : {-1, INT_MIN, INT_MAX - 15, INT_MAX}) {
        file.setMaskedBit(none);
        EXPECT_TRUE(file.getMask().isEmpty());
    }
}
