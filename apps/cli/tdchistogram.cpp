#include "apps/timestamps/eventcsv.h"
#include "apps/timestamps/histogram.h"
#include "histogrampicture.h"
#include "streams.h"
#include "tdccommands.h"
#include "terminal.h"

#include <array>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace cli {
namespace {

struct HistogramArguments
{
    std::int64_t start = 0;
    std::int64_t stop = 0;
    std::int64_t binWidth = 1;
    std::int64_t bins = 1;
    std::string in;
    std::string out = "-";
    std::string png;
};

void writeCsv(const std::vector<std::uint64_t>& counts, OutputStream& out)
{
    constexpr std::size_t pieceSize = 65536;
    std::string text = "bin,count\n";
    for (std::size_t bin = 0; bin < counts.size(); ++bin) {
        text += std::to_string(bin) + ',' + std::to_string(counts[bin]) + '\n';
        if (text.size() < pieceSize) continue;
        out.write(text.data(), text.size());
        text.clear();
    }
    out.write(text.data(), text.size());
}

void writePicture(const std::vector<std::uint64_t>& counts, const HistogramArguments& arguments,
                  OutputStream& out)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    histogramPicture(counts, arguments.binWidth,
                     QStringLiteral("Stops on channel %1 after starts on channel %2")
                         .arg(arguments.stop)
                         .arg(arguments.start))
        .save(&buffer, "PNG");
    out.write(bytes.constData(), std::size_t(bytes.size()));
}

/// "channels 1 to 5, 100"
std::string channelsOf(const std::array<bool, 256>& present)
{
    std::string text;
    for (std::size_t first = 0; first < present.size(); ++first) {
        if (!present[first]) continue;
        std::size_t last = first;
        while (last + 1 < present.size() && present[last + 1]) ++last;
        text += (text.empty() ? "channels " : ", ") + std::to_string(first);
        if (last > first) text += " to " + std::to_string(last);
        first = last;
    }
    return text.empty() ? "no events" : text;
}

int histogram(const HistogramArguments& arguments)
{
    timestamps::StartStopHistogram histogram(std::uint8_t(arguments.start), std::uint8_t(arguments.stop),
                                             arguments.binWidth, std::size_t(arguments.bins));
    OutputStream out(arguments.out); // both before the reading, which may take long
    std::optional<OutputStream> picture;
    std::array<bool, 256> present = {}; // channels
    if (!arguments.png.empty()) picture.emplace(arguments.png);
    {
        InputStream in(arguments.in, true);
        timestamps::EventCsvReader reader([&](void* data, std::size_t size) { return in.read(data, size); },
                                          in.name());
        std::vector<PpTimest> events(eventsAtOnce);
        while (const std::size_t count = reader.read(events.data(), events.size())) {
            histogram.add(events.data(), count);
            for (std::size_t i = 0; i < count; ++i) present[events[i].channel] = true;
        }
    }
    histogram.settle();
    writeCsv(histogram.counts(), out);
    if (picture) writePicture(histogram.counts(), arguments, *picture);
    out.finish();
    if (picture) picture->finish();
    diagnose("Starts", std::to_string(histogram.starts()));
    diagnose("Starts too far out of order", std::to_string(histogram.lateStarts()));
    diagnose("Stops", std::to_string(histogram.stops()));
    diagnose("Stops beyond the last bin", std::to_string(histogram.beyond()));
    diagnose("Stops before the first start", std::to_string(histogram.withoutStart()));
    diagnose("Stops too far out of order", std::to_string(histogram.late()));
    if (histogram.starts() == 0)
        diagnose("Note", "no start on channel " + std::to_string(arguments.start) + "; the input has " +
                             channelsOf(present));
    return exitDone;
}

} // namespace

void addTdcHistogram(CLI::App& tdc, Work* work)
{
    constexpr std::int64_t mostBins = 10000000;
    auto arguments = std::make_shared<HistogramArguments>();
    CLI::App* const command =
        tdc.add_subcommand("histogram", "How many stops came how long after the latest start.");
    addNumber(*command, "--start", 0, 255, &arguments->start,
              "Channel, or marker code, of the starts (the converter's own: 0; format 60: 5)")
        ->required();
    addNumber(*command, "--stop", 0, 255, &arguments->stop, "Channel, or marker code, of the stops")
        ->required();
    addNumber(*command, "--bin", 1, std::numeric_limits<std::int64_t>::max(), &arguments->binWidth,
              "Width of a bin in clock periods")
        ->required();
    addNumber(*command, "--bins", 1, mostBins, &arguments->bins, "Number of bins")->required();
    addFile(*command, "IN", &arguments->in, "CSV with the header time,channel; - is standard input")
        ->required();
    addFile(*command, "-o", &arguments->out, "CSV bin,count; -, the default, is standard output");
    addFile(*command, "--png", &arguments->png, "A picture, too; - is standard output");
    command->callback([arguments, work] {
        if (arguments->png == "-" && arguments->out == "-")
            throw CLI::ValidationError("--png", "standard output takes the CSV; name a file for one of them");
        refuseSameFile(arguments->in, arguments->out);
        refuseSameFile(arguments->in, arguments->png, "--png");
        const auto place = [](const std::string& name) {
            return QDir::cleanPath(QFileInfo(QFile::decodeName(name.c_str())).absoluteFilePath());
        };
        if (!arguments->png.empty() && place(arguments->png) == place(arguments->out))
            throw CLI::ValidationError("--png", "that file takes the CSV; name another one");
        *work = [arguments] { return histogram(*arguments); };
    });
}

} // namespace cli
