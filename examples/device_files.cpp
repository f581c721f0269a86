// Lists the data groups of a device description, and cuts a firmware image into telegrams.
//     device_files DESCRIPTION [IMAGE]
#include <cstdio>
#include <vorelutil/config/datagroup.h>
#include <vorelutil/config/enummap.h>
#include <vorelutil/firmware/firmwarefile.h>
#include <vorelutil/trace/error.h>

namespace {

void listGroups(const char* path)
{
    const EnumMap triggers(QStringLiteral("sample:line:frame:marker"));
    XmlDoc document;
    document.readFile(path);
    QMap<int, DataGroup> groups;
    DataGroup::parseDataGroups(document.getChild(), groups);
    for (const int id : DataGroup::sortGroupsBySequence(groups)) {
        const DataGroup& group = groups[id];
        std::printf("%d %s, trigger %s%s\n", id, qPrintable(group.name),
                    qPrintable(triggers.caption(group.trigger, QStringLiteral("unknown"))),
                    group.storeFrame ? ", stored with each frame" : "");
    }
}

void cutImage(const char* path)
{
    constexpr int blockSize = 1024; // bytes, a multiple of 4
    const FirmwareFile image(QString::fromLocal8Bit(path), QString(), QStringLiteral("image"), 0x200, 0x201,
                             0x202, false);
    if (!image.loaded) throw FileOpenError(path, false);
    std::printf("%s, version %s\n", qPrintable(image.product), qPrintable(image.version));
    qint64 bytes = 0;
    int block = 0;
    for (; qint64(block) * blockSize < image.contents.size(); ++block) {
        UcTelegram telegram{0, 0, image.addrFlash, block, 0}; // a "SET"; `Len` is filled in
        bytes += image.getContents(block * blockSize, blockSize, &telegram).size();
    }
    std::printf("%d telegrams, %lld bytes\n", block, static_cast<long long>(bytes));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: device_files DESCRIPTION [IMAGE]\n");
        return 2;
    }
    try {
        listGroups(argv[1]);
        if (argc > 2) cutImage(argv[2]);
    } catch (const Error& error) {
        std::fprintf(stderr, "%s: %s\n", error.title.c_str(), error.message.c_str());
        return 1;
    }
    return 0;
}
