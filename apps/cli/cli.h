#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

/// What the commands of `vorel` have in common.
namespace cli {

enum ExitCode : int
{
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2
};

/// The work of the command that the command line chose. Result: an exit code. May throw `Error`.
using Work = std::function<int()>;

/// Each adds its commands to `app`; parsing a command line then sets `*work`. Both outlive the parsing.
void addSimCommand(CLI::App& app, Work* work);
void addLinkCommands(CLI::App& app, Work* work);
void addFrameCommands(CLI::App& app, Work* work);
void addEvalCommand(CLI::App& app, Work* work);
void addTdcCommands(CLI::App& app, Work* work);
void addXmlCommands(CLI::App& app, Work* work);
void addGroupCommand(CLI::App& app, Work* work);
void addFirmwareCommands(CLI::App& app, Work* work);

/// Whether the command draws text, so that `run` needs a `QGuiApplication`.
bool drawsText(int argc, char** argv);

/// Puts the formulas among the words of `vorel eval` that the parser would not take for such behind a "--".
void shieldFormulas(std::vector<const char*>* words);

/// Runs `vorel`. A `QCoreApplication` must exist, a `QGuiApplication` where `drawsText`. Result: the exit
/// code.
int run(int argc, char** argv);

/// Writes "vorel: TITLE: MESSAGE" to standard error, in one line: control characters, which names and
/// documents may hold, become blanks.
void diagnose(const std::string& title, const std::string& message);

/// A whole number, decimal or 0x hexadecimal, with an optional sign, and nothing else in the text.
/// False, with `*value` untouched, when it is none or lies outside `first` to `last`.
bool parseNumber(const std::string& text, std::int64_t first, std::int64_t last, std::int64_t* value);

/// A number with a decimal point, whatever the locale; `first` to `last`.
bool parseReal(const std::string& text, double first, double last, double* value);

/// Adds an option (or, without dashes in `name`, an argument) that `parseNumber` reads.
CLI::Option* addNumber(CLI::App& command, const std::string& name, std::int64_t first, std::int64_t last,
                       std::int64_t* value, const std::string& help);

/// Adds an option (or argument) that names a file. No name at all is wrong usage.
CLI::Option* addFile(CLI::App& command, const std::string& name, std::string* file, const std::string& help);

/// Adds an option of seconds, 0 and up.
CLI::Option* addSeconds(CLI::App& command, const std::string& name, double* value, const std::string& help);

} // namespace cli
