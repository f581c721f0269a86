#include "apps/controller/controllerlink.h"
#include "apps/controller/stopsignal.h"
#include "apps/simulator/simulator.h"
#include "console.h"
#include "headless.h"
#include "mainwindow.h"
#include "options.h"
#include "tracefiles.h"

#include <cstdio>
#include <memory>
#include <QApplication>
#include <QDir>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QTimer>
#include <vorelutil/widgets/settingsstore.h>

namespace {

constexpr int saveMilliseconds = 5000;     ///< settings that changed are saved after so long at the latest
constexpr int lockMilliseconds = 50;       ///< that a save waits for another process; the window stands still
constexpr int lastLockMilliseconds = 3000; ///< the same at the end, when nobody looks

int complain(const QString& text)
{
    std::fprintf(stderr, "vorelbench: %s\n", text.toLocal8Bit().constData());
    return 1;
}

/// What the store says, as the log and the message line write it: without the point at the end.
QString problemOf(const SettingsStore& store)
{
    QString text = store.errorText();
    if (text.endsWith(QLatin1Char('.'))) text.chop(1);
    return text;
}

// Qt ends the process with a core dump where there is no display.
bool hasDisplay()
{
#if defined(Q_OS_LINUX)
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        if (!qEnvironmentVariableIsEmpty(name)) return true;
    return false;
#else
    return true;
#endif
}

/// Where settings are kept; its folder is made. A headless run uses nothing of the user's.
QString settingsFile(const bench::Options& options)
{
    if (!options.settingsFile.isEmpty()) return options.settingsFile;
    if (options.headless) return QDir(options.outFolder).filePath(QStringLiteral("settings.ini"));
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation));
    folder.mkpath(QStringLiteral("."));
    return folder.filePath(QStringLiteral("settings.ini"));
}

int runHeadless(bench::Console* console, bench::MainWindow* window, const bench::Options& options,
                StopSignal* stop)
{
    QString failure;
    bench::HeadlessRun run(console, window, options.outFolder, options.scan, options.seconds);
    QObject::connect(&run, &bench::HeadlessRun::finished, qApp, [&failure, console](const QString& text) {
        failure = text;
        // A link that is flooded would not let the loop end.
        const auto quitWhenOff = [console] {
            if (console->link()->state() == ControllerLink::Off) qApp->quit();
        };
        QObject::connect(console->link(), &ControllerLink::stateChanged, qApp, quitWhenOff);
        console->disconnectFrom();
        quitWhenOff();
    });
    // Nobody sees the status bar.
    QObject::connect(console->scan(), &bench::Scan::stopFailed, qApp, complain);
    QObject::connect(stop, &StopSignal::received, &run, &bench::HeadlessRun::interrupt);
    console->connectTo(options.host, options.port);
    qApp->exec();
    return failure.isEmpty() ? 0 : complain(failure);
}

} // namespace

int main(int argc, char** argv)
{
    bench::Options options;
    const int exitCode = bench::parseOptions(argc, argv, &options);
    if (exitCode >= 0) return exitCode;
    if (options.headless)
        qputenv("QT_QPA_PLATFORM", "offscreen");
    else if (!hasDisplay())
        return complain(QStringLiteral("there is no display; see --headless"));

    int ownArguments = 1; // the options are read; Qt gets the program's name alone
    QApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(ownArguments, argv);
    Q_INIT_RESOURCE(bench); // it is in a static library
    QApplication::setApplicationName(QStringLiteral("vorelbench"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/bench/vorelbench.svg")));
    // The link's remarks on a slow receiver; QT_LOGGING_RULES brings them back.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    // Numbers in the window look as those in the files.
    QLocale::setDefault(QLocale::c());
    if (!bench::applyTheme(&application, options.style, options.theme))
        return complain(QStringLiteral("there is no style %1").arg(options.style));

    bench::TraceFiles trace;
    if (options.headless) {
        if (!QDir().mkpath(options.outFolder) ||
            !trace.openFile(QDir(options.outFolder).filePath("trace.log")))
            return complain(QStringLiteral("%1 cannot be written to").arg(options.outFolder));
    } else {
        trace.openInFolder(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + "/logs");
    }

    std::unique_ptr<Simulator> simulator;
    if (options.host.isEmpty()) {
        Simulator::Options manner;
        manner.confirmMilliseconds = options.confirmMilliseconds;
        manner.refuseEvery = options.refuseEvery;
        manner.ownChangesSeconds = options.ownChangesSeconds;
        simulator = std::make_unique<Simulator>(manner);
        QString error;
        if (!simulator->start(&error)) return complain(error);
        options.host = QStringLiteral("127.0.0.1");
        options.port = simulator->port();
    }

    bench::Console console;
    bench::MainWindow window(&console, simulator.get());
    window.setAddress(options.host, options.port);
    window.setScanSettings(options.scan);
    window.followLog(trace.currentFile());
    QObject::connect(&trace, &bench::TraceFiles::fileChanged, &window, &bench::MainWindow::followLog);
    SettingsStore store(settingsFile(options), lockMilliseconds);
    if (!store.load() || !store.errorText().isEmpty()) console.tell(problemOf(store), true);
    store.offer();
    window.show();

    StopSignal stop;
    if (options.headless) {
        const int code = runHeadless(&console, &window, options, &stop);
        store.setLockWait(lastLockMilliseconds);
        return store.save() ? code : complain(problemOf(store));
    }
    QString failure; // told once
    const auto save = [&] {
        if (!store.save() && failure != store.errorText()) console.tell(problemOf(store), true);
        failure = store.errorText();
    };
    QTimer saving;
    QObject::connect(&saving, &QTimer::timeout, &window, save);
    saving.start(saveMilliseconds);
    QObject::connect(&stop, &StopSignal::received, &window, &QWidget::close);
    console.connectTo(options.host, options.port);
    const int code = QApplication::exec();
    store.setLockWait(lastLockMilliseconds);
    return store.save() ? code : complain(problemOf(store));
}
