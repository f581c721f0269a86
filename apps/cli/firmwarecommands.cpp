#include "apps/controller/stopsignal.h"
#include "apps/firmware/image.h"
#include "cli.h"
#include "inputfile.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <QCoreApplication>
#include <QDirIterator>
#include <QFile>
#include <vorelutil/trace/error.h>

namespace cli {
namespace {

constexpr int mostBlocks = 1000000; ///< as many as six digits number

struct FirmwareArguments
{
    std::string in;
    std::int64_t address = 0;
    std::int64_t blockSize = 0;
    std::string out;
};

/// A folder of telegrams, which are all there in the end or, after a failure, not at all. Throws `IOError`.
class TelegramFolder
{
public:
    /// Makes the folder when it is missing; one that holds telegrams is refused.
    explicit TelegramFolder(const std::string& name)
        : m_name(name)
        , m_path(QFile::decodeName(name.c_str()))
    {
        std::error_code error;
        const std::filesystem::path path(name);
        m_made = std::filesystem::create_directory(path, error);
        if (!error && !std::filesystem::is_directory(path, error) && !error)
            error = std::make_error_code(std::errc::not_a_directory);
        if (error) fail(m_name, error.message());
        QDirIterator old(m_path, {QStringLiteral("*.tel")}, QDir::AllEntries | QDir::Hidden | QDir::System);
        if (old.hasNext()) fail(m_name, "a .tel file is there already (" + baseName(old.next()) + ')');
    }
    ~TelegramFolder()
    {
        if (m_finished) return;
        while (m_count > 0) QFile::remove(pathOf(--m_count));
        std::error_code error;
        if (m_made) std::filesystem::remove(m_name, error);
    }
    TelegramFolder(const TelegramFolder&) = delete;
    TelegramFolder& operator=(const TelegramFolder&) = delete;

    void add(const QByteArray& telegram)
    {
        QFile file(pathOf(m_count));
        bool good = file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered);
        if (good) {
            ++m_count;
            qint64 written = 0;
            while (good && written < telegram.size()) {
                const qint64 count = file.write(telegram.constData() + written, telegram.size() - written);
                good = count > 0;
                written += count;
            }
            const QString reason = file.errorString(); // closing forgets it
            file.close();
            if (!good) fail(QFile::encodeName(file.fileName()).toStdString(), reason.toStdString());
            good = file.error() == QFileDevice::NoError;
        }
        if (!good) fail(QFile::encodeName(file.fileName()).toStdString(), file.errorString().toStdString());
    }
    void finish() { m_finished = true; }

private:
    QString pathOf(int number) const
    {
        return m_path + QStringLiteral("/%1.tel").arg(number, 6, 10, QLatin1Char('0'));
    }
    static std::string baseName(const QString& path)
    {
        return QFile::encodeName(path.section(QLatin1Char('/'), -1)).toStdString();
    }
    [[noreturn]] static void fail(const std::string& name, const std::string& reason)
    {
        throw IOError("cannot write " + name + ": " + reason);
    }

    const std::string m_name;
    const QString m_path;
    bool m_made = false;
    bool m_finished = false;
    int m_count = 0; ///< files that are there
};

FirmwareFile open(const InputFile& input)
{
    return firmware::openImage(QFile::decodeName(input.path().c_str()));
}

int info(const InputFile& input, const FirmwareArguments&)
{
    const FirmwareFile image = open(input);
    nlohmann::ordered_json json = {{"kind", firmware::kindKey(image.type).toStdString()},
                                   {"product", image.product.toStdString()},
                                   {"version", image.version.toStdString()},
                                   {"part", image.partName.toStdString()},
                                   {"size", image.fileSize},
                                   {"configLength", nullptr}};
    if (image.configLength >= 0) json["configLength"] = image.configLength;
    std::printf("%s\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    const QString odd = image.info();
    if (!odd.isEmpty()) diagnose("Note", input.named(input.path() + ": " + odd.toStdString()));
    return exitDone;
}

int cut(const InputFile& input, const FirmwareArguments& arguments)
{
    const firmware::ImageCutter cutter(open(input), std::int32_t(std::uint32_t(arguments.address)),
                                       int(arguments.blockSize));
    const int count = cutter.blockCount();
    if (count > mostBlocks)
        throw FormatError("these are " + std::to_string(count) + " blocks, and " +
                              std::to_string(mostBlocks) + " at most can be numbered: enlarge --block",
                          input.path());
    StopSignal signal;
    bool stop = false;
    QObject::connect(&signal, &StopSignal::received, [&] { stop = true; });
    TelegramFolder folder(arguments.out);
    for (int block = 0; block < count; ++block) {
        folder.add(cutter.telegram(block, 0));
        QCoreApplication::processEvents();
        if (stop) throw IOError("stopped by a signal; what was written is removed");
    }
    folder.finish();
    return exitDone;
}

} // namespace

void addFirmwareCommands(CLI::App& app, Work* work)
{
    const auto arguments = std::make_shared<FirmwareArguments>();
    CLI::App* firmware =
        app.add_subcommand("firmware", "Firmware images: FPGA bit files, DSP and SAM images.");
    firmware->require_subcommand(1);
    const auto finish = [&](CLI::App* command, int (*function)(const InputFile&, const FirmwareArguments&)) {
        command->add_option("FILE", arguments->in, "The image; - is standard input")->required();
        command->callback([arguments, work, function] {
            *work = [arguments, function] {
                const InputFile input(arguments->in, FirmwareFile::maxFileSize);
                try {
                    return function(input, *arguments);
                } catch (const Error& error) {
                    diagnose(error.title, input.named(error.message));
                    return int(exitFailed);
                }
            };
        });
    };
    finish(firmware->add_subcommand("info", "Print what an image states, as JSON."), info);

    CLI::App* command = firmware->add_subcommand(
        "cut", "Cut an image into SET telegrams, one a file: 000000.tel, 000001.tel ...");
    finish(command, cut);
    const auto takeAddress = [arguments](const std::string& text) {
        if (!parseNumber(text, -2147483648LL, 4294967295LL, &arguments->address) || arguments->address == 0)
            throw CLI::ValidationError("--addr", '"' + text + "\" is no 32-bit number other than 0");
    };
    command
        ->add_option_function<std::string>("--addr", takeAddress,
                                           "Address that takes the image, for instance 0x202; not 0")
        ->required();
    const auto takeBlock = [arguments](const std::string& text) {
        if (!parseNumber(text, 4, 65536, &arguments->blockSize) || arguments->blockSize % 4 != 0)
            throw CLI::ValidationError("--block", '"' + text + "\" is no multiple of 4 from 4 to 65536");
    };
    command
        ->add_option_function<std::string>("--block", takeBlock,
                                           "Bytes of the image in a telegram: a multiple of 4, 4 to 65536")
        ->required();
    command->add_option("--out", arguments->out, "Folder, made when missing; without .tel files in it")
        ->required();
}

} // namespace cli
