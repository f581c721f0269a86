#include "options.h"

#include <CLI/CLI.hpp>
#include <cstdio>

namespace bench {

namespace {

constexpr int maxPixels = 4096;
constexpr int exitUsage = 2;

// "96x64".
std::string readPixels(const std::string& text, ScanSettings* scan)
{
    int x = 0;
    int y = 0;
    char behind = 0;
    if (std::sscanf(text.c_str(), "%dx%d%c", &x, &y, &behind) != 2 || x < 1 || y < 1 || x > maxPixels ||
        y > maxPixels)
        return "pixels are given as 96x64, each 1 to 4096";
    scan->xPixels = x;
    scan->yPixels = y;
    return std::string();
}

} // namespace

int parseOptions(int argc, char** argv, Options* options)
{
    CLI::App app("Instrument console. Without --host it runs a simulated controller of its own.",
                 "vorelbench");
    std::string host;
    std::string pixels;
    std::string out;
    std::string settings;
    std::string style;
    bool dark = false;
    bool light = false;
    app.add_option("--host", host, "The controller's host");
    CLI::Option* port =
        app.add_option("--port", options->port, "Its port (with --host, else on this machine)");
    port->check(CLI::Range(1, 65535));
    CLI::Option* headless =
        app.add_flag("--headless", options->headless, "Take every road without a window, leave files, end");
    app.add_option("--seconds", options->seconds, "How long a headless run takes")
        ->check(CLI::Range(0.1, 86400.0))
        ->needs(headless)
        ->capture_default_str();
    CLI::Option* folder =
        app.add_option("--out", out, "Folder for the files of a headless run; made when missing");
    folder->needs(headless);
    app.add_option("--pixels", pixels, "Geometry of a scan, as 96x64 (default 128x96)")
        ->check([options](const std::string& text) { return readPixels(text, &options->scan); }, "XxY");
    app.add_option("--mode", options->scan.mode,
                   "Frame mode: 3 forward, 4 forward and back, 5 backward, 6 back and forward")
        ->check(CLI::Range(3, 6))
        ->capture_default_str();
    app.add_option("--rate", options->scan.rate, "Lines per second; of a stream, samples")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app.add_option("--settings", settings, "File that keeps settings between runs (default: the user's)");
    app.add_option("--confirm", options->confirmMilliseconds,
                   "Simulated controller: milliseconds to an answer")
        ->check(CLI::Range(0, 60000))
        ->capture_default_str();
    app.add_option("--refuse-every", options->refuseEvery,
                   "Simulated controller: refuse every N-th value that is set; 0: none")
        ->check(CLI::Range(0, 1000));
    CLI::Option* ownChanges =
        app.add_option("--own-changes", options->ownChangesSeconds,
                       "Simulated controller: seconds between changes of its own; 0: never "
                       "(default 4, in a headless run 0)");
    ownChanges->check(CLI::Range(0.0, 3600.0));
    app.add_option("--style", style, "Widget style, such as fusion");
    CLI::Option* darkFlag = app.add_flag("--dark", dark, "Dark palette");
    app.add_flag("--light", light, "Light palette")->excludes(darkFlag);
    try {
        app.parse(argc, argv);
        if (options->headless && out.empty()) throw CLI::RequiredError("--out");
        if (!host.empty() && port->count() == 0) throw CLI::RequiredError("--port");
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : exitUsage;
    }
    options->host = QString::fromLocal8Bit(host.c_str());
    if (options->host.isEmpty() && port->count() > 0) options->host = QStringLiteral("127.0.0.1");
    options->outFolder = QString::fromLocal8Bit(out.c_str());
    options->settingsFile = QString::fromLocal8Bit(settings.c_str());
    if (options->headless && ownChanges->count() == 0) options->ownChangesSeconds = 0.0;
    options->style = QString::fromLocal8Bit(style.c_str());
    if (dark) options->theme = Theme::Dark;
    if (light) options->theme = Theme::Light;
    return -1;
}

} // namespace bench
