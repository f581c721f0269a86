#include "cli.h"
#include "terminal.h"

#include <clocale>
#include <memory>
#include <QCoreApplication>
#include <QGuiApplication>

namespace {

void ignore(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

int main(int argc, char** argv)
{
    cli::occupyStandardStreams();
    std::unique_ptr<QCoreApplication> application;
    if (cli::drawsText(argc, argv)) {
        qputenv("QT_QPA_PLATFORM", "offscreen"); // fonts are all that is needed
        qInstallMessageHandler(ignore);          // a home or a runtime folder may be missing
        application = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        application = std::make_unique<QCoreApplication>(argc, argv);
    }
    std::setlocale(LC_MESSAGES, "C"); // the system's reasons, in the language of the text around them
    QCoreApplication::setApplicationName(QStringLiteral("vorel"));
    return cli::run(argc, argv);
}
