#include "apps/bench/console.h"
#include "apps/bench/firmwarepanel.h"
#include "apps/bench/firmwareroad.h"
#include "apps/controller/controllerlink.h"
#include "apps/simulator/simulator.h"
#include "fakecontroller.h"
#include "tests/support/loopback.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <QAbstractButton>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/stat.h>

using namespace bench;

namespace {

using State = FirmwareRoad::State;

template <class Condition> bool wait(Condition condition)
{
    return QTest::qWaitFor(condition, 20000);
}

/// A console at a simulated controller, and images to download.
struct FirmwareTest : ::testing::Test
{
    FirmwareTest()
    {
        road->setAnswerLimit(20000);
        QObject::connect(&console, &Console::message, [this](const QString& text) { messages += text; });
    }
    void startSimulator(int milliseconds, int port = 0)
    {
        Simulator::Options options;
        options.confirmMilliseconds = milliseconds;
        options.port = port;
        simulator = std::make_unique<Simulator>(options);
        QString error;
        ASSERT_TRUE(simulator->start(&error)) << error.toStdString();
    }
    void connectTo(int port)
    {
        console.connectTo("127.0.0.1", port);
        ASSERT_TRUE(wait([this] { return road->device().hasProduct && road->device().hasVersion; }));
    }
    QString write(const char* name, const QByteArray& bytes) const
    {
        QFile file(folder.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return file.fileName();
    }
    QString image(const QByteArray& version, const QByteArray& product, int size = 4500,
                  const char* name = "image.bin") const
    {
        QByteArray bytes = "DspVersion:" + version + '\0' + "DspProduct:" + product + '\0';
        for (int i = 0; bytes.size() < size; ++i) bytes += char(i * 7 + i / 256);
        return write(name, bytes);
    }
    void expectEnd(State state, const char* text)
    {
        ASSERT_TRUE(wait([this] { return !road->isActive(); })) << text;
        EXPECT_EQ(road->state(), state) << text;
        const QRegularExpression whole(QRegularExpression::anchoredPattern(text));
        EXPECT_TRUE(whole.match(road->endText()).hasMatch()) << road->endText().toStdString();
        const QString told = "Firmware: " + road->endText();
        EXPECT_TRUE(wait([&] { return messages.value(messages.size() - 1) == told; })) << text;
    }
    QMessageBox* question()
    {
        QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // those before
        panel.askForDownload();
        return panel.findChild<QMessageBox*>();
    }

    const QTemporaryDir folder;
    std::unique_ptr<Simulator> simulator;
    Console console;
    FirmwareRoad* road = console.firmware();
    FirmwarePanel panel{&console};
    QStringList messages;
};

TEST_F(FirmwareTest, DownloadsWhatThePageIsAskedFor)
{
    startSimulator(0);
    EXPECT_EQ(panel.downloadButton()->toolTip(), "There is no image to download");
    const QString path = image("$Revision: 1.42 $", "ScanControl");
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(path)});
    QDragEnterEvent enter(QPoint(), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&panel, &enter);
    QDropEvent drop(QPointF(), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&panel, &drop);
    EXPECT_EQ(panel.text(FirmwarePanel::Result), "A download needs a connected controller");
    EXPECT_FALSE(panel.downloadButton()->isEnabled() || road->start());
    connectTo(simulator->port());
    QFile::remove(path); // it is read
    panel.refreshNow();
    // clang-format off
    const QString expected[] = {"image.bin", "DSP image", "ScanControl", "1.42", "\u2013",
        "4500 bytes, 4608 are downloaded", // padded to 256
        "", "", "ScanControl", "141", "",
        "\u25B2 The image counts as newer than the device's (digits 142 against 141)"};
    // clang-format on
    for (int line = 0; line <= FirmwarePanel::Order; ++line)
        EXPECT_EQ(panel.text(FirmwarePanel::Line(line)), expected[line]);
    panel.downloadButton()->click();
    auto* box = panel.findChild<QMessageBox*>();
    ASSERT_TRUE(box != nullptr && road->state() == State::Ready);
    EXPECT_EQ(box->informativeText(), QString());
    EXPECT_EQ(box->text(),
              "Download image.bin (ScanControl, version 1.42)\nto the device (ScanControl, version 141)?");
    QSignalSpy answers(console.link(), &ControllerLink::acknowledged);
    box->defaultButton()->click();
    expectEnd(State::Verified, "verified after [0-9.]+ s, check sum 30CCB2DC");
    EXPECT_EQ(panel.bar()->maximum(), 4608);
    EXPECT_EQ(panel.bar()->value(), 4608);
    EXPECT_TRUE(panel.text(FirmwarePanel::Pace).startsWith("4608 bytes of 4608 bytes, block 5 of 5, "));
    EXPECT_TRUE(panel.text(FirmwarePanel::Result).startsWith("\u2713 The image is verified after "));
    const auto isVersion = [](const QList<QVariant>& answer) { return answer[1] == 0x201; };
    EXPECT_TRUE(wait([&] { return std::any_of(answers.begin(), answers.end(), isVersion); })); // again
}

TEST_F(FirmwareTest, ComparesTheImageWithTheDevice)
{
    startSimulator(0);
    connectTo(simulator->port());
    const auto bytes = [](const char* text, int size) { return QByteArray(text, size); };
    const QByteArray head = QByteArray::fromHex("00090ff00ff00ff00ff0000001") + bytes("a\0\4top\0", 7) +
                            bytes("b\0\3xc\0", 6) +
                            bytes("c\0\x0B"
                                  "2026/11/21\0",
                                  14) +
                            bytes("d\0\x09"
                                  "12:34:56\0",
                                  12) +
                            bytes("e\0\0\0\x40", 5);
    const QString bit = write("top.bit", head + QByteArray(16, '\xFF') + "\xAA\x99\x55\x66" + "0123456789");
    const QString odd = "The header tells of 64 bytes of configuration data, the file holds 30";
    const QString other = "\u26A0 The image is for another product: ";
    const QString older = "\u25BC The image counts as older than the device's ";
    const std::tuple<QString, QString, QString, QString> rows[] = {
        // image, lines of products and versions, odd
        {image("1.42", "ScanControl"), "",
         "\u25B2 The image counts as newer than the device's (digits 142 against 141)", ""},
        {image("1.4 rev 1", "ScanControl", 4500, "1"), "",
         "= The image has the device's version (digits 141 against 141)", ""},
        {image("2.0", "<b>Time", 4500, "2"), other + "<b>Time", older + "(digits 20 against 141)", ""},
        {image("none", "", 4500, "3"), "? The image does not tell its product",
         "? The versions cannot be compared: one is missing", ""},
        {bit, "? design top - the device is ScanControl",
         "\u25B2 The image counts as newer than the device's (digits 20261121123456 against 141), by its "
         "date",
         odd}};
    for (const auto& [path, match, order, remark] : rows) {
        ASSERT_TRUE(road->open(path));
        EXPECT_EQ(panel.text(FirmwarePanel::Match), match);
        EXPECT_EQ(panel.text(FirmwarePanel::Order), order);
        EXPECT_EQ(panel.text(FirmwarePanel::Remark), remark);
        QMessageBox* const box = question();
        ASSERT_NE(box, nullptr);
        QStringList warnings = QStringList{match, order, remark};
        if (order.startsWith("\u25B2") || order.startsWith("=")) warnings.removeAt(1);
        warnings.removeAll("");
        EXPECT_EQ(box->informativeText(), warnings.join('\n'));
        EXPECT_EQ(box->defaultButton() == box->button(QMessageBox::Cancel), !warnings.isEmpty());
        for (const QLabel* label : box->findChildren<QLabel*>())
            EXPECT_EQ(label->textFormat(), Qt::PlainText);
        box->reject();
    }
    EXPECT_EQ(panel.text(FirmwarePanel::Size), "87 bytes, 256 are downloaded");
    ASSERT_TRUE(road->open(image(QByteArray(5000, '\t') + "1\xE2\x80\xAE\n2" + QByteArray(500, 'x'), "")));
    EXPECT_LE(panel.text(FirmwarePanel::Version).size(), 100); // and what came before did not move the page
    console.disconnectFrom();
    ASSERT_TRUE(wait([this] { return console.link()->state() == ControllerLink::Off; }));
    EXPECT_EQ(panel.text(FirmwarePanel::DeviceVersion), "not connected");
    EXPECT_EQ(road->comparison(), FirmwareRoad::Unknown);
}

TEST_F(FirmwareTest, KeepsTheImageWhenAFileIsNone)
{
    ASSERT_TRUE(road->open(image("1.42", "ScanControl")));
    const QString pipe = folder.filePath("pipe");
    ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QFile large(write("large", "x"));
    ASSERT_TRUE(large.resize((256 << 20) + 1)); // without blocks on the disk
    const std::pair<QString, const char*> rows[] = {{folder.filePath("none %1"), "there is no such file"},
                                                    {write("empty", ""), "Firmware file is empty"},
                                                    {write("text", "-"), "File is not a valid firmware file"},
                                                    {large.fileName(), "it has more than 256 MB"},
                                                    {folder.path(), "it is no file"},
                                                    {pipe, "it is no file"}};
    for (const auto& [path, reason] : rows) {
        EXPECT_FALSE(road->open(path));
        const QString text = QFileInfo(path).fileName() + " could not be opened: " + reason;
        EXPECT_EQ(panel.text(FirmwarePanel::OpenError), text + ". The image above stays.");
        EXPECT_EQ(panel.text(FirmwarePanel::Remark), QString());
        EXPECT_EQ(messages.value(messages.size() - 1), "Firmware: " + text);
        EXPECT_EQ(panel.text(FirmwarePanel::Version), "1.42");
    }
    ASSERT_TRUE(road->open(folder.filePath("image.bin")));
    EXPECT_EQ(panel.text(FirmwarePanel::OpenError), QString());
}

TEST_F(FirmwareTest, ClosesTheQuestionWhenItIsAboutSomethingElse)
{
    startSimulator(0);
    const int port = simulator->port();
    connectTo(port);
    FakeController unknown; // its product is number 0
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"the same image again", [this] { road->open(folder.filePath("image.bin")); }},
        {"another device", [&] { connectTo(unknown.serverPort()); }},
        {"no link", [this] { console.disconnectFrom(); }}};
    ASSERT_TRUE(road->open(image("1.42", "ScanControl")));
    for (const auto& [desc, change] : rows) {
        const QPointer<QMessageBox> box = question();
        ASSERT_TRUE(box != nullptr && box->isVisible()) << desc;
        change();
        EXPECT_TRUE(wait([&] { return box == nullptr; })) << desc;
        EXPECT_EQ(messages.count("Firmware: the question was closed, as image or device have changed"), 1)
            << desc;
        messages.clear();
        if (console.link()->state() != ControllerLink::Connected) break;
        EXPECT_EQ(panel.text(FirmwarePanel::Match),
                  road->deviceProduct().isEmpty() ? "\u26A0 The device's product is not known (number 0)"
                                                  : "")
            << desc;
    }
    EXPECT_NE(road->state(), State::Downloading);
}

TEST_F(FirmwareTest, IsNotHeldUpByADeviceThatDoesNotRead)
{
    loopback::Listener device;
    device.setSmallBuffer();
    console.connectTo("127.0.0.1", device.port());
    ASSERT_TRUE(wait([this] { return console.link()->state() == ControllerLink::Connected; }));
    for (int descriptor = 3; descriptor < 1024; ++descriptor) { // this end's buffer
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        const int small = 16384;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            ntohs(peer.sin_port) == device.port())
            setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    }
    ASSERT_TRUE(road->open(image("1.42", "ScanControl", 1000000, "%1 %2.bin")));
    road->setAnswerLimit(300);
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(road->start());
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_EQ(messages.value(messages.size() - 1), "Firmware: the download of %1 %2.bin begins, 977 blocks");
    expectEnd(State::Failed, "no answer for 0.3 s at block 1 of 977");
    EXPECT_LT(clock.elapsed(), 4000); // a send that waits, waits for 5 s
    EXPECT_EQ(panel.text(FirmwarePanel::Result), "\u2717 The download failed: no answer for 0.3 s at block 1 "
                                                 "of 977. The device has no whole image now: "
                                                 "download it again");
}

TEST_F(FirmwareTest, SaysWhyADownloadFailed)
{
    const std::tuple<Simulator::FaultKind, int, const char*> rows[] = {
        {Simulator::FaultKind::Refuse, 20000, "block 1 of 5 was refused: unknown error \\(reason 99\\)"},
        {Simulator::FaultKind::Stall, 300, "no answer for 0.3 s at block 1 of 5"}};
    for (const auto& [fault, limit, text] : rows) {
        Simulator::Options options;
        options.faults = {{fault, 0}};
        simulator = std::make_unique<Simulator>(options);
        QString error;
        ASSERT_TRUE(simulator->start(&error));
        console.connectTo("127.0.0.1", simulator->port());
        ASSERT_TRUE(wait([this] { return console.link()->state() == ControllerLink::Connected; }));
        ASSERT_TRUE(road->open(image("1.42", "ScanControl")));
        road->setAnswerLimit(limit);
        ASSERT_TRUE(road->start());
        expectEnd(State::Failed, text);
    }
    road->setAnswerLimit(20000);
    FakeController wrong; // its check sum is 0
    connectTo(wrong.serverPort());
    ASSERT_TRUE(road->start());
    expectEnd(State::Failed, "the check sum differs: the image has 627C647D, the device 00000000");
}

TEST_F(FirmwareTest, StartsAgainAfterALostLinkAndACancel)
{
    startSimulator(50);
    const int port = simulator->port();
    connectTo(port);
    ASSERT_TRUE(road->open(image("1.42", "ScanControl", 2000000)));
    for (const bool isLost : {true, false}) {
        ASSERT_TRUE(road->start());
        ASSERT_TRUE(wait([this] { return road->progress().confirmedBlocks > 200; }));
        EXPECT_FALSE(road->open(folder.path()) || road->start()); // one at a time
        if (isLost)
            simulator.reset();
        else
            console.disconnectFrom();
        expectEnd(isLost ? State::Failed : State::Cancelled,
                  isLost ? "at block \\d+ of 1954 the link was lost: .+" : "cancelled at block \\d+ of 1954");
        EXPECT_LT(road->progress().confirmedBlocks, 1954);
        if (isLost)
            startSimulator(50, port); // the link comes back by itself
        else
            console.connectTo("127.0.0.1", port);
        ASSERT_TRUE(wait([this] { return road->device().hasVersion; }));
    }
    simulator->setConfirmMilliseconds(0);
    ASSERT_TRUE(road->start());
    ASSERT_TRUE(wait([this] { return road->progress().confirmedBlocks > 200; }));
    panel.cancelButton()->click(); // blocks are under way still
    ASSERT_EQ(road->state(), State::Cancelled);
    ASSERT_TRUE(road->start());
    expectEnd(State::Verified, "verified after [0-9.]+ s, check sum E3769485");
}

} // namespace
