#include "cli.h"

#include "apps/controller/stopsignal.h"
#include "apps/simulator/simulator.h"
#include "streams.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <QCoreApplication>

namespace cli {
namespace {

struct SimArguments
{
    std::int64_t port = 0;
    std::int64_t position = 0;
    std::int64_t confirm = 50;
    std::int64_t refuseEvery = 0;
    double ownChanges = 0.0;
    std::int64_t seed = 1;
    std::string surface;
    QVector<Simulator::Fault> faults;
};

int simulate(const SimArguments& arguments)
{
    StopSignal stop;
    QObject::connect(&stop, &StopSignal::received, QCoreApplication::instance(), &QCoreApplication::quit);

    Simulator::Options options;
    options.port = int(arguments.port);
    options.position = int(arguments.position);
    options.confirmMilliseconds = int(arguments.confirm);
    options.refuseEvery = int(arguments.refuseEvery);
    options.ownChangesSeconds = arguments.ownChanges;
    options.seed = quint32(arguments.seed);
    options.surfaceFile = pathOf(arguments.surface);
    options.faults = arguments.faults;
    Simulator simulator(options);
    QString error;
    if (!simulator.start(&error)) {
        diagnose("Simulator", error.toStdString());
        return exitFailed;
    }
    // Samples on standard output leave no room for a line of text there.
    std::FILE* const out = arguments.surface == "-" ? stderr : stdout;
    std::fprintf(out, "listening on %s:%d\n", qUtf8Printable(options.address), simulator.port());
    if (std::fflush(out) != 0) return exitFailed;
    return QCoreApplication::exec();
}

} // namespace

void addSimCommand(CLI::App& app, Work* work)
{
    auto arguments = std::make_shared<SimArguments>();
    CLI::App* command = app.add_subcommand("sim", "A simulated controller on 127.0.0.1; SIGTERM ends it.");
    addNumber(*command, "--port", 0, 65535, &arguments->port, "TCP port; 0, the default, takes a free one");
    addNumber(*command, "--position", 0, 2147483647, &arguments->position, "Position of the first sample");
    addNumber(*command, "--confirm", 0, 60000, &arguments->confirm, "Milliseconds to an answer (50)");
    addNumber(*command, "--refuse-every", 0, 1000000, &arguments->refuseEvery,
              "Refuse every N-th setting of a value; 0, the default, none");
    addSeconds(*command, "--own-changes", &arguments->ownChanges,
               "Change a value by itself every so many seconds; 0, the default, never");
    addNumber(*command, "--seed", 0, 4294967295, &arguments->seed, "Another number, another surface (1)");
    command->add_option("--surface", arguments->surface,
                        "Write the samples to this file as they are sent (int32, little-endian)");
    const auto takeFaults = [arguments](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            Simulator::Fault fault;
            if (!Simulator::parseFault(QString::fromStdString(text), &fault))
                throw CLI::ValidationError(
                    "--fault", '"' + text + "\" is no fault: KIND or KIND@SECONDS, 0 to 1000000 seconds");
            arguments->faults.append(fault);
        }
    };
    command
        ->add_option_function<std::vector<std::string>>(
            "--fault", takeFaults,
            "refuse, drop, stall, length or flood, at once or @SECONDS after the start; may be repeated")
        ->allow_extra_args(false)
        ->take_all();
    command->callback([arguments, work] { *work = [arguments] { return simulate(*arguments); }; });
}

} // namespace cli
