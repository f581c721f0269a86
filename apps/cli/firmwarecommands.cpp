#include "apps/firmware/image.h"
#include "cli.h"
#include "inputfile.h"
#include "progressbar.h"
#include "streams.h"
#include "terminal.h"

#include <cerrno>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>
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
        : m_path(name)
    {
        std::error_code error;
        m_made = std::filesystem::create_directory(m_path, error);
        if (error) fail(m_path, error);
        if (m_made) return;
        std::filesystem::directory_iterator entry(m_path, error);
        for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
            const std::string old = entry->path().filename().string();
            if (old.size() >= 4 && old.compare(old.size() - 4, 4, ".tel") == 0)
                throw IOError("cannot write " + name + ": a .tel file is there already (" + old + ')');
        }
        if (error) fail(m_path, error);
    }
    ~TelegramFolder()
    {
        if (m_finished) return;
        std::error_code error;
        while (m_count > 0) std::filesystem::remove(fileOf(--m_count), error);
        if (m_made) std::filesystem::remove(m_path, error);
    }
    TelegramFolder(const TelegramFolder&) = delete;
    TelegramFolder& operator=(const TelegramFolder&) = delete;

    void add(const QByteArray& telegram)
    {
        const std::filesystem::path path = fileOf(m_count);
        std::FILE* const file = std::fopen(path.c_str(), "wbx"); // no file that is there, nor its target
        if (file == nullptr) fail(path, lastError());
        ++m_count;
        std::setvbuf(file, nullptr, _IONBF, 0);
        const std::size_t size = std::size_t(telegram.size());
        std::error_code error;
        if (std::fwrite(telegram.constData(), 1, size, file) != size) error = lastError();
        if (std::fclose(file) != 0 && !error) error = lastError();
        if (error) fail(path, error);
    }
    void finish() { m_finished = true; }

private:
    std::filesystem::path fileOf(int number) const
    {
        char name[32];
        std::snprintf(name, sizeof name, "%06d.tel", number);
        return m_path / name;
    }
    static std::error_code lastError() { return {errno, std::generic_category()}; }
    [[noreturn]] static void fail(const std::filesystem::path& path, const std::error_code& error)
    {
        throw IOError("cannot write " + path.string() + ": " + error.message());
    }

    const std::filesystem::path m_path; ///< the very bytes of the command line
    bool m_made = false;
    bool m_finished = false;
    int m_count = 0; ///< files that are there
};

FirmwareFile open(const InputFile& input)
{
    return firmware::openImage(pathOf(input.path()));
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
    const HeldSignals held; // until the folder is whole, or gone
    TelegramFolder folder(arguments.out);
    ProgressBar bar(count);
    for (int block = 0; block < count; ++block) {
        folder.add(cutter.telegram(block, 0));
        if (held.any()) return exitFailed;
        bar.show(block + 1);
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
        addFile(*command, "FILE", &arguments->in, "The image; - is standard input")->required();
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
    const auto takeFolder = [arguments](const std::string& text) {
        if (text.empty() || text == "-")
            throw CLI::ValidationError("--out", "the name of a folder is needed");
        arguments->out = text;
    };
    command
        ->add_option_function<std::string>("--out", takeFolder,
                                           "Folder, made when missing; without .tel files in it")
        ->required();
}

} // namespace cli
