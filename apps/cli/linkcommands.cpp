#include "cli.h"

#include "apps/controller/controllerlink.h"
#include "apps/controller/stopsignal.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <vorelutil/trace/tracelog.h>

namespace cli {
namespace {

constexpr int answerMilliseconds = 5000;

struct LinkArguments
{
    std::string host = "127.0.0.1";
    std::int64_t port = 0;
    std::int64_t address = 0;
    std::int64_t index = 0;
    std::int64_t value = 0;
    double seconds = -1.0; ///< below 0: without end
};

/// A word of the wire from a number that may be meant signed or unsigned.
int word(std::int64_t number)
{
    return int(static_cast<std::int32_t>(static_cast<std::uint32_t>(number)));
}

QByteArray valueText(int address, int value)
{
    return controller::isUnsigned(address) ? QByteArray::number(quint32(value)) : QByteArray::number(value);
}

QString hostOf(const LinkArguments& arguments)
{
    return QString::fromLocal8Bit(arguments.host.c_str());
}

/// Connects, sends one request, waits for its answer. Result: exit code; on success `*value` is the answer's.
int request(const LinkArguments& arguments, bool isSet, int* value)
{
    ControllerLink link;
    int sent = 0;
    const auto fail = [](const char* title, const QString& text) {
        diagnose(title, text.toStdString());
        QCoreApplication::exit(exitFailed);
    };
    QObject::connect(&link, &ControllerLink::stateChanged, [&](ControllerLink::State state) {
        if (state != ControllerLink::Connected || sent != 0) return;
        sent = isSet ? link.set(word(arguments.address), word(arguments.value), word(arguments.index))
                     : link.get(word(arguments.address), word(arguments.index));
        if (sent == 0) fail("Link", QStringLiteral("the request could not be sent"));
    });
    QObject::connect(&link, &ControllerLink::acknowledged, [&](int number, int, int, int reason, int answer) {
        if (number != sent) return;
        *value = answer;
        if (reason != controller::reasonOk)
            fail("Refused", QString::fromLatin1(tracePrintReason(reason)));
        else
            QCoreApplication::exit(exitDone);
    });
    QObject::connect(&link, &ControllerLink::problem, [&](const QString& text) { fail("Link", text); });
    QTimer::singleShot(answerMilliseconds, &link, [&] {
        fail("Link", QStringLiteral("no answer from %1:%2").arg(hostOf(arguments)).arg(arguments.port));
    });
    link.connectTo(hostOf(arguments), int(arguments.port));
    const int code = QCoreApplication::exec();
    QObject::disconnect(&link, nullptr, nullptr, nullptr);
    return code;
}

int get(const LinkArguments& arguments)
{
    int value = 0;
    const int code = request(arguments, false, &value);
    if (code == exitDone) std::printf("%s\n", valueText(word(arguments.address), value).constData());
    return code;
}

int set(const LinkArguments& arguments)
{
    int value = 0;
    return request(arguments, true, &value);
}

QByteArray typeText(std::uint32_t type)
{
    static const char* const names[] = {"SET", "GET", "DO", "ACK", "TELL", "STAT", "CHRQ"};
    return type < sizeof names / sizeof *names ? QByteArray(names[type]) : QByteArray::number(type);
}

/// Prints what the controller tells. A link that is lost later comes back; one that never stands is an error.
int monitor(const LinkArguments& arguments)
{
    ControllerLink link;
    StopSignal stop;
    QElapsedTimer clock;
    QTimer flush;
    flush.setSingleShot(true);
    bool stood = false;
    const auto end = [](int code) { QCoreApplication::exit(code); };
    const auto flushNow = [&] {
        if (std::fflush(stdout) != 0) end(exitDone); // the failure is told at the end
    };
    QObject::connect(&flush, &QTimer::timeout, flushNow);
    QObject::connect(&link, &ControllerLink::stateChanged, [&](ControllerLink::State state) {
        stood = stood || state == ControllerLink::Connected;
    });
    QObject::connect(&link, &ControllerLink::problem, [&](const QString& text) {
        diagnose("Link", text.toStdString());
        if (!stood) end(exitFailed);
    });
    QObject::connect(&link, &ControllerLink::told, [&](const controller::TelegramView& telegram) {
        QByteArray line = QByteArray::number(double(clock.nsecsElapsed()) * 1e-9, 'f', 3);
        line += ',' + typeText(telegram.type) + ',' + QByteArray::number(telegram.address) + ',' +
                QByteArray::number(telegram.index) + ',';
        if (telegram.wordCount > 0) line += valueText(telegram.address, telegram.word(0));
        line += '\n';
        std::fwrite(line.constData(), 1, std::size_t(line.size()), stdout);
        if (!flush.isActive()) flush.start(0); // once per batch
    });
    QObject::connect(&stop, &StopSignal::received, [&] { end(exitDone); });
    QTimer::singleShot(answerMilliseconds, &link, [&] {
        if (stood) return;
        diagnose("Link", "no answer from " + arguments.host + ':' + std::to_string(arguments.port));
        end(exitFailed);
    });
    if (arguments.seconds >= 0.0)
        QTimer::singleShot(int(arguments.seconds * 1000.0), Qt::PreciseTimer, &link, [&] { end(exitDone); });

    clock.start();
    std::puts("seconds,type,addr,ind,value");
    flush.start(0);
    link.connectTo(hostOf(arguments), int(arguments.port));
    const int code = QCoreApplication::exec();
    QObject::disconnect(&link, nullptr, nullptr, nullptr);
    return code;
}

constexpr std::int64_t minWord = -2147483648LL;
constexpr std::int64_t maxWord = 4294967295LL;

CLI::App* addCommand(CLI::App& app, const char* name, const char* help, LinkArguments* arguments)
{
    CLI::App* command = app.add_subcommand(name, help);
    command->add_option("--host", arguments->host, "Host of the controller (127.0.0.1)");
    addNumber(*command, "--port", 1, 65535, &arguments->port, "TCP port of the controller")->required();
    return command;
}

} // namespace

void addLinkCommands(CLI::App& app, Work* work)
{
    auto arguments = std::make_shared<LinkArguments>();
    const auto finish = [&](CLI::App* command, int (*function)(const LinkArguments&)) {
        command->callback(
            [arguments, work, function] { *work = [arguments, function] { return function(*arguments); }; });
    };

    CLI::App* command = addCommand(app, "get", "Print a controller's value in decimal.", arguments.get());
    addNumber(*command, "ADDR", minWord, maxWord, &arguments->address, "Address")->required();
    addNumber(*command, "IND", minWord, maxWord, &arguments->index, "Index (0)");
    finish(command, get);

    command = addCommand(app, "set", "Set a controller's value.", arguments.get());
    addNumber(*command, "ADDR", minWord, maxWord, &arguments->address, "Address")->required();
    addNumber(*command, "VALUE", minWord, maxWord, &arguments->value, "New value")->required();
    addNumber(*command, "IND", minWord, maxWord, &arguments->index, "Index (0)");
    finish(command, set);

    command = addCommand(app, "monitor", "Print what a controller tells, as CSV.", arguments.get());
    addSeconds(*command, "--seconds", &arguments->seconds, "End after this time; else at SIGINT or SIGTERM");
    finish(command, monitor);
}

} // namespace cli
