#include "cli.h"

#include <charconv>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <QString>
#include <vorelutil/trace/error.h>

namespace cli {
namespace {

/// Diagnostics of the libraries below: warnings are the user's, the rest is the developer's.
void handleMessage(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtDebugMsg || type == QtInfoMsg) return;
    diagnose("Warning", text.toStdString());
}

/// What is wrong with a command line. The parser misses a command before it looks at what stands in its
/// place.
std::string usageText(const CLI::App& app, const CLI::ParseError& error)
{
    const CLI::App* command = &app;
    while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
    if (command->get_require_subcommand_min() > 0 && command->remaining_size() > 0)
        return '"' + command->remaining().front() + "\" is no command";
    return error.what();
}

int parseAndWork(CLI::App& app, Work& work, int argc, char** argv)
{
    std::vector<const char*> words(argv, argv + argc);
    shieldFormulas(&words);
    try {
        app.parse(static_cast<int>(words.size()), words.data());
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) { // --help, --version
            app.exit(error);
            return exitDone;
        }
        diagnose("Usage", usageText(app, error) + " (try --help)");
        return exitUsage;
    }
    try {
        return work();
    } catch (const Error& error) {
        diagnose(error.title, error.message);
    } catch (const std::bad_alloc&) {
        diagnose("Out of memory", "the input is too large for this machine");
    } catch (const std::exception& error) {
        diagnose("Error", error.what());
    }
    return exitFailed;
}

} // namespace

int run(int argc, char** argv)
{
    qInstallMessageHandler(handleMessage);
    CLI::App app("Command-line tool of the Vorel instrument control.", "vorel");
    app.set_version_flag("--version", VORELUTIL_VERSION);
    app.require_subcommand(1);
    Work work;
    addSimCommand(app, &work);
    addLinkCommands(app, &work);
    addFrameCommands(app, &work);
    addEvalCommand(app, &work);
    addTdcCommands(app, &work);
    addXmlCommands(app, &work);
    addGroupCommand(app, &work);
    addFirmwareCommands(app, &work);

    const int code = parseAndWork(app, work, argc, argv);
    if ((std::fflush(stdout) != 0 || std::ferror(stdout) != 0) && code == exitDone) {
        diagnose("I/O error", "cannot write to standard output");
        return exitFailed;
    }
    return code;
}

void diagnose(const std::string& title, const std::string& message)
{
    std::string line = "vorel: " + title + ": " + message;
    for (char& c : line)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    line += '\n';
    std::fflush(stdout);
    std::fputs(line.c_str(), stderr);
}

bool parseNumber(const std::string& text, std::int64_t first, std::int64_t last, std::int64_t* value)
{
    const char* p = text.data();
    const char* const end = p + text.size();
    const bool negative = p != end && *p == '-';
    if (p != end && (*p == '-' || *p == '+')) ++p;
    int base = 10;
    if (end - p > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
        base = 16;
        p += 2;
    }
    if (p == end || *p == '-') return false;
    std::int64_t number = 0;
    const auto [stop, error] = std::from_chars(p, end, number, base);
    if (error != std::errc() || stop != end) return false;
    if (negative) number = -number;
    if (number < first || number > last) return false;
    *value = number;
    return true;
}

bool parseReal(const std::string& text, double first, double last, double* value)
{
    double number = 0.0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || !(number >= first && number <= last)) return false;
    *value = number;
    return true;
}

CLI::Option* addNumber(CLI::App& command, const std::string& name, std::int64_t first, std::int64_t last,
                       std::int64_t* value, const std::string& help)
{
    const auto take = [=](const std::string& text) {
        if (!parseNumber(text, first, last, value))
            throw CLI::ValidationError(name, '"' + text + "\" is no number from " + std::to_string(first) +
                                                 " to " + std::to_string(last));
    };
    return command.add_option_function<std::string>(name, take, help);
}

CLI::Option* addFile(CLI::App& command, const std::string& name, std::string* file, const std::string& help)
{
    const auto take = [=](const std::string& text) {
        if (text.empty()) throw CLI::ValidationError(name, "a file name, or -, is needed");
        *file = text;
    };
    return command.add_option_function<std::string>(name, take, help);
}

CLI::Option* addSeconds(CLI::App& command, const std::string& name, double* value, const std::string& help)
{
    const auto take = [=](const std::string& text) {
        if (!parseReal(text, 0.0, 1e6, value))
            throw CLI::ValidationError(name, '"' + text + "\" is no number of seconds");
    };
    return command.add_option_function<std::string>(name, take, help);
}

} // namespace cli
