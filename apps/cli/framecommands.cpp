#include "cli.h"
#include "colourmap.h"
#include "inputfile.h"
#include "streams.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <QBuffer>
#include <QImage>
#include <vorelutil/frames/framereader.h>
#include <vorelutil/trace/error.h>

namespace cli {
namespace {

struct FrameArguments
{
    std::string in;
    std::string out;
    std::string map = colourMapNames().front();
};

FrameImage readImage(const std::string& path, FrameFileFormat format)
{
    if (format == FrameFileFormat::Asc) return readFrameAsc(path);
    if (format == FrameFileFormat::Bcr) return readFrameBcr(path);
    throw FormatError("no area snapshot", path);
}

int info(const InputFile& input, const FrameArguments&)
{
    // The keys in the order of printing; null where a file does not say.
    nlohmann::ordered_json json;
    for (const char* key : {"format", "xPixels", "yPixels", "xLength", "yLength", "xOffset", "yOffset",
                            "xyUnit", "zUnit", "scanSpeed", "voidPixels"})
        json[key] = nullptr;
    const FrameFileFormat format = detectFrameFile(input.path());
    switch (format) {
    case FrameFileFormat::Asc:
    case FrameFileFormat::Bcr: {
        const FrameImage image = readImage(input.path(), format);
        json["format"] = format == FrameFileFormat::Asc ? "asc" : "bcr";
        json["xPixels"] = image.xPixels;
        json["yPixels"] = image.yPixels;
        json["xLength"] = image.xLength;
        json["yLength"] = image.yLength;
        json["xOffset"] = image.xOffset;
        json["yOffset"] = image.yOffset;
        json["xyUnit"] = image.xUnit;
        json["zUnit"] = image.zUnit;
        json["scanSpeed"] = image.scanSpeed;
        if (image.voidPixels >= 0) json["voidPixels"] = image.voidPixels;
        break;
    }
    case FrameFileFormat::LineCsv: {
        const FrameLine line = readLineCsv(input.path());
        json["format"] = "line";
        json["xPixels"] = line.xPixels;
        json["xyUnit"] = line.xUnit;
        json["zUnit"] = line.yUnit;
        break;
    }
    case FrameFileFormat::PermCsv:
        json["format"] = "log";
        json["zUnit"] = readPermCsv(input.path()).unit;
        break;
    }
    std::printf("%s\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    return exitDone;
}

/// The picture: lowest to highest value over the whole map; what is no number is transparent.
QImage picture(const FrameImage& frame, const ColourMap& colours)
{
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const double value : frame.values) {
        if (!std::isfinite(value)) continue;
        low = std::min(low, value);
        high = std::max(high, value);
    }
    const double range = high / 2.0 - low / 2.0; // halves, so that no difference overflows
    QImage image(frame.xPixels, frame.yPixels, QImage::Format_ARGB32);
    if (image.isNull()) return image;
    const double* value = frame.values.data();
    for (int row = 0; row < frame.yPixels; ++row) {
        auto* pixel = reinterpret_cast<QRgb*>(image.scanLine(row));
        for (int column = 0; column < frame.xPixels; ++column, ++value) {
            if (!std::isfinite(*value)) {
                *pixel++ = 0;
                continue;
            }
            const double t = range > 0.0 ? (*value / 2.0 - low / 2.0) / range : 0.5;
            *pixel++ = colours[std::size_t(std::clamp(std::lround(t * 255.0), 0L, 255L))];
        }
    }
    return image;
}

int png(const InputFile& input, const FrameArguments& arguments)
{
    const FrameImage frame = readImage(input.path(), detectFrameFile(input.path()));
    const QImage image = picture(frame, colourMap(arguments.map));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (image.isNull() || !image.save(&buffer, "PNG"))
        throw FormatError("too large for a picture", input.path());
    OutputStream out(arguments.out);
    out.write(bytes.constData(), std::size_t(bytes.size()));
    out.finish();
    return exitDone;
}

} // namespace

void addFrameCommands(CLI::App& app, Work* work)
{
    auto arguments = std::make_shared<FrameArguments>();
    CLI::App* frame = app.add_subcommand("frame", "Files of measurement frames.");
    frame->require_subcommand(1);
    const auto finish = [&](CLI::App* command, int (*function)(const InputFile&, const FrameArguments&),
                            const std::string& files) {
        addFile(*command, "FILE", &arguments->in, files + "; - is standard input")->required();
        command->callback([arguments, work, function] {
            *work = [arguments, function] {
                const InputFile input(arguments->in);
                try {
                    return function(input, *arguments);
                } catch (const Error& error) {
                    diagnose(error.title, input.named(error.message));
                    return int(exitFailed);
                }
            };
        });
    };
    finish(frame->add_subcommand("info", "Print what a frame file states, as JSON."), info,
           "Snapshot, line export or log");
    CLI::App* command = frame->add_subcommand("png", "Make a picture of an area snapshot; void pixels are "
                                                     "transparent.");
    finish(command, png, "Text or binary snapshot");
    addFile(*command, "OUT", &arguments->out, "Picture file; - is standard output")->required();
    command->add_option("--map", arguments->map, "Colour map (" + arguments->map + ")")
        ->check(CLI::IsMember(colourMapNames()));
}

} // namespace cli
