#include "tdccommands.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <filesystem>

namespace cli {

using timestamps::Format;

void addTdcCommands(CLI::App& app, Work* work)
{
    CLI::App* const tdc = app.add_subcommand("tdc", "Time stamps of a time-to-digital converter.");
    tdc->require_subcommand(1);
    addTdcDecode(*tdc, work);
    addTdcEncode(*tdc, work);
    addTdcHistogram(*tdc, work);
}

bool drawsText(int argc, char** argv)
{
    return std::any_of(argv, argv + argc,
                       [](const char* word) { return std::string(word).compare(0, 5, "--png") == 0; });
}

void addFormat(CLI::App& command, const std::vector<std::string>& names, timestamps::Format* format)
{
    const auto take = [format](const std::string& name) {
        if (name == "56") *format = Format::F56;
        if (name == "52") *format = Format::F52;
        if (name == "52x") *format = Format::F52x;
        if (name == "60") *format = Format::F60;
        if (name == "60b") *format = Format::F60b;
    };
    command.add_option_function<std::string>("--format", take, "Packet format")
        ->check(CLI::IsMember(names))
        ->required();
}

void refuseSameFile(const std::string& in, const std::string& out, const std::string& option)
{
    std::error_code error;
    if (in == "-" || out == "-" || !std::filesystem::is_regular_file(in, error)) return;
    if (std::filesystem::equivalent(in, out, error))
        throw CLI::ValidationError(option, "IN and OUT are the same file, " + in);
}

} // namespace cli
