// A telegram application in 60 lines: asks a controller for one value and prints it.
//
//     telegram_client HOST PORT ADDRESS        (try it against `vorel sim`)
#include <vorelutil/tcp/iqtcp.h>
#include <vorelutil/trace/telegram.h>
#include <vorelutil/trace/tracelog.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <QCoreApplication>
#include <QTimer>

namespace {

constexpr int categories = 0x1FC; // every kind of telegram

/// Looks for the answer in a block of whole telegrams; prints it and ends the application.
void receive(const char* block, int length)
{
    for (int at = 0; at + int(sizeof(UcTelegram)) <= length;) {
        UcTelegram header;
        std::memcpy(&header, block + at, sizeof header);
        if (header.Len < 16) return qApp->exit(1);
        const bool answer = header.Type == 3 && header.CNo == 1 && header.Len >= 24;
        if (answer) {
            int words[2]; // reason, value
            std::memcpy(words, block + at + sizeof header, sizeof words);
            if (words[0] == 0) std::printf("%d\n", words[1]);
            traceError(words[0] == 0, "Refused: %s", tracePrintReason(words[0]));
            return qApp->exit(words[0] == 0 ? 0 : 1);
        }
        at += 4 + header.Len;
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    traceInit("", "client", TRACE_FLUSH); // errors only; add TRACE_ON to see the traffic
    if (argc != 4) {
        traceError(false, "Usage: telegram_client HOST PORT ADDRESS");
        return 2;
    }
    const UcTelegram request{16, 1, int(std::strtol(argv[3], nullptr, 0)), 0, 1}; // "GET", number 1

    IQTcp link(1 << 20, nullptr, "client"); // room for twice the largest frame
    QObject::connect(&link, &IQTcp::connected, [&](bool on) {
        traceTelegram("tx", &request, categories);
        if (!on || !link.writeBlock(reinterpret_cast<const char*>(&request), sizeof request)) qApp->exit(1);
    });
    QObject::connect(&link, &IQTcp::dataReceived, [](char* block, int length) { receive(block, length); });
    QObject::connect(&link, &IQTcp::error, [&] {
        traceError(false, "No connection to %s:%s %s", argv[1], argv[2], qPrintable(link.getErrorMsg()));
        qApp->exit(1);
    });
    QTimer::singleShot(5000, [&] {
        traceError(false, "No answer");
        qApp->exit(1);
    });
    link.connectToHost(QString::fromLocal8Bit(argv[1]), std::atoi(argv[2]));
    return application.exec();
}
