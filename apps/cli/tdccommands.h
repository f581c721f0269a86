#pragma once

#include "cli.h"

#include "apps/timestamps/streamdecoder.h"

/// What the commands of `vorel tdc` have in common.
namespace cli {

/// Events read, or written, at a time.
constexpr std::size_t eventsAtOnce = 16384;

/// Adds the required option --format, one of `names`, which are texts of formats: "56", "52x" ...
void addFormat(CLI::App& command, const std::vector<std::string>& names, timestamps::Format* format);

/// Throws the parser's error if the command line's OUT is the file IN, under whatever name.
void refuseSameFile(const std::string& in, const std::string& out, const std::string& option = "-o");

/// Each adds its command to `tdc`.
void addTdcDecode(CLI::App& tdc, Work* work);
void addTdcEncode(CLI::App& tdc, Work* work);
void addTdcHistogram(CLI::App& tdc, Work* work);

} // namespace cli
