#include "apps/timestamps/eventcsv.h"
#include "apps/timestamps/npyheader.h"
#include "streams.h"
#include "tdccommands.h"
#include "terminal.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>
#include <memory>
#include <numeric>
#include <QString>
#include <string_view>
#include <vorelutil/trace/error.h>

namespace cli {
namespace {

using timestamps::Format;

struct DecodeArguments
{
    timestamps::Settings settings;
    std::int64_t markers = 0x1FF;
    std::int64_t divider = 1;
    std::string in;
    std::string out = "-";
    std::vector<std::string> notes; ///< settings that have no effect
};

void takeOffsets(const std::string& text, timestamps::Settings* settings)
{
    constexpr std::int64_t last = std::numeric_limits<std::int32_t>::max();
    std::size_t at = 0;
    for (std::size_t i = 0; i < settings->offsets.size(); ++i) {
        const bool isLast = i + 1 == settings->offsets.size();
        const std::size_t comma = isLast ? text.size() : text.find(',', at);
        std::int64_t value = 0;
        if (comma == std::string::npos || !parseNumber(text.substr(at, comma - at), -last - 1, last, &value))
            throw CLI::ValidationError("--offsets",
                                       '"' + text + "\" is no list of eight 32-bit numbers O0,...,O7");
        settings->offsets[i] = std::int32_t(value);
        at = comma + 1;
    }
}

/// What the user set, and the format or another setting makes void.
std::vector<std::string> voidSettings(const CLI::App& command, const timestamps::Settings& settings,
                                      const std::string& formatName)
{
    const auto given = [&](const char* option) { return command.count(option) > 0; };
    const bool only52x = settings.format == Format::F52x;
    const bool noStarts = settings.format == Format::F52 || settings.format == Format::F60b;
    std::vector<std::string> notes;
    const auto note = [&](const char* option, const std::string& why) {
        if (given(option)) notes.push_back(std::string(option) + " has no effect " + why);
    };
    if (only52x || settings.format == Format::F56) note("--markers", "with format " + formatName);
    if (only52x) {
        for (const char* option : {"--offsets", "--divider", "--start-period"})
            note(option, "with format 52x");
    } else if (settings.divider < 2) {
        note("--start-period", "without a --divider from 2 on");
    } else if (settings.startPeriod > 0 && settings.startPeriod < settings.divider) {
        note("--start-period", "below the --divider");
    } else if (settings.startPeriod == 0 && noStarts) {
        note("--divider", "with format " + formatName + " without a --start-period");
    }
    return notes;
}

void tell(const timestamps::Summary& summary, Format format)
{
    const auto line = [](const std::string& title, std::uint64_t count) {
        diagnose(title, std::to_string(count));
    };
    line(format == Format::F60b ? "Bytes" : "Words", summary.words);
    for (std::size_t i = 0; i < summary.channels.size(); ++i)
        if (summary.channels[i] > 0) line("Channel " + std::to_string(i), summary.channels[i]);
    for (std::size_t i = 0; i < summary.markers.size(); ++i)
        if (summary.markers[i] > 0)
            line("Marker " + std::to_string(timestamps::markerCodes[i]), summary.markers[i]);
    line("Words before the first high word", summary.wordsBeforeHigh);
    line("Ordering errors", summary.orderingErrors);
    line("Cut bytes", summary.cutBytes);
    const auto sum = [](const auto& counts) {
        return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
    };
    const std::uint64_t dropped = summary.wordsBeforeHigh + summary.orderingErrors;
    if (summary.words > 0 && sum(summary.channels) + sum(summary.markers) == 0)
        diagnose("Note", "no event was decoded: is the format right?");
    else if (dropped > summary.words / 100)
        diagnose("Note", "more than 1 % of the words were dropped: is the format right?");
}

/// Throws `FormatError` if the input begins as a file of another kind does.
void refuseOtherFiles(const std::vector<char>& piece, std::size_t size, const std::string& name)
{
    constexpr std::pair<std::string_view, const char*> kinds[] = {
        {"\x93NUMPY", "a NumPy file"}, {"time,channel", "CSV of events"}, {"\x89PNG\r\n", "a picture"}};
    for (const auto& [signature, kind] : kinds)
        if (std::string_view(piece.data(), size).substr(0, signature.size()) == signature)
            throw FormatError(std::string("this is ") + kind + ", not packet words", name);
}

/// Decodes all of the input, a batch of events at a time to `sink`.
timestamps::Summary decodeAll(const DecodeArguments& arguments, const timestamps::StreamDecoder::Sink& sink)
{
    InputStream in(arguments.in, arguments.out != "-" || !isTerminal(stdout));
    timestamps::StreamDecoder decoder(arguments.settings);
    std::vector<char> piece(eventsAtOnce * sizeof(std::uint32_t));
    std::size_t count = in.read(piece.data(), piece.size());
    refuseOtherFiles(piece, count, in.name());
    for (; count > 0; count = in.read(piece.data(), piece.size())) decoder.decode(piece.data(), count, sink);
    decoder.finish(sink);
    return decoder.summary();
}

int decode(const DecodeArguments& arguments)
{
    for (const std::string& note : arguments.notes) diagnose("Note", note);
    OutputStream out(arguments.out);
    timestamps::Summary summary;
    if (QString::fromStdString(arguments.out).endsWith(QLatin1String(".npy"), Qt::CaseInsensitive)) {
        if (!out.canRewind())
            throw IOError("cannot write " + arguments.out +
                          ": a .npy file begins with its length, which is not known before its end");
        std::uint64_t events = 0;
        const auto writeHeader = [&] {
            const std::string header = timestamps::npyHeader(events);
            out.write(header.data(), header.size());
        };
        writeHeader();
        summary = decodeAll(arguments, [&](const PpTimest* batch, std::size_t count) {
            out.write(batch, count * sizeof *batch);
            events += count;
        });
        out.rewind();
        writeHeader();
    } else {
        timestamps::EventCsvWriter csv([&](const void* data, std::size_t size) { out.write(data, size); });
        summary =
            decodeAll(arguments, [&](const PpTimest* batch, std::size_t count) { csv.write(batch, count); });
        csv.finish();
    }
    out.finish();
    tell(summary, arguments.settings.format);
    return exitDone;
}

} // namespace

void addTdcDecode(CLI::App& tdc, Work* work)
{
    auto arguments = std::make_shared<DecodeArguments>();
    timestamps::Settings* const settings = &arguments->settings;
    CLI::App* const command = tdc.add_subcommand(
        "decode", "Packet words (little-endian; format 60b: bytes) to events, as CSV or NumPy file.");
    addFormat(*command, {"56", "52", "52x", "60", "60b"}, &settings->format);
    addNumber(*command, "--markers", 0, 0xFFFFFFFF, &arguments->markers,
              "Bits of the markers to deliver: 0 to 4 for 100 to 104, 5 to 8 for 200 to 203 (all)");
    command->add_option_function<std::string>(
        "--offsets", [settings](const std::string& text) { takeOffsets(text, settings); },
        "O0,...,O7: added to the times of the channels 0 to 7, in clock periods; the events are then sorted");
    addNumber(*command, "--divider", 1, 16383, &arguments->divider,
              "Virtual events a start period, or parts that it is folded onto; 1, the default: none");
    addNumber(*command, "--start-period", 0, std::numeric_limits<std::int64_t>::max(), &settings->startPeriod,
              "Clock periods to fold by; 0, the default: virtual events instead");
    addFile(*command, "IN", &arguments->in, "Packet words; - is standard input")->required();
    addFile(*command, "-o", &arguments->out,
            "Events: a NumPy file if the name ends with .npy, else CSV; -, the default, is standard output");
    command->callback([arguments, command, work] {
        refuseSameFile(arguments->in, arguments->out);
        arguments->settings.markerMask = std::uint32_t(arguments->markers);
        arguments->settings.divider = std::int32_t(arguments->divider);
        arguments->notes =
            voidSettings(*command, arguments->settings, command->get_option("--format")->as<std::string>());
        *work = [arguments] { return decode(*arguments); };
    });
}

} // namespace cli
