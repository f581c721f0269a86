#include "apps/bench/console.h"
#include "apps/bench/firmwarepanel.h"
#include "apps/bench/firmwareroad.h"
#include "apps/controller/controllerlink.h"
#include "apps/simulator/simulator.h"
#include "fakecontroller.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <QAbstractButton>
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
        QObject::connect(road, &FirmwareRoad::message, [this](const QString& text) { messages += text; });
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
    QString image(const QByteArray& version, const QByteArray& product, int size = 4500) const
    {
        QByteArray bytes = "DspVersion:" + version + '\0' + "DspProduct:" + product + '\0';
        for (int i = 0; bytes.size() < size; ++i) bytes += char(i * 7 + i / 256);
        return write("image.bin", bytes);
    }
    void expectEnd(State state, const char* text)
    {
        ASSERT_TRUE(wait([this] { return !road->isActive(); })) << text;
        EXPECT_EQ(road->state(), state) << text;
        const QRegularExpression whole(QRegularExpression::anchoredPattern(text));
        EXPECT_TRUE(whole.match(road->endText()).hasMatch()) << road->endText().toStdString();
        EXPECT_EQ(messages.value(messages.size() - 1), "Firmware: " + road->endText());
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
    const QString expected[] = {"image.bin",
                                "DSP image",
                                "ScanControl",
                                "1.42",
                                "\u2013",
                                "4500 bytes",
                                "",
                                "ScanControl",
                                "141",
                                "",
                                "\u25B2 The image is newer than the device's (142 against 141)"};
    for (int line = 0; line <= FirmwarePanel::Order; ++line)
        EXPECT_EQ(panel.text(FirmwarePanel::Line(line)), expected[line]);
    panel.downloadButton()->click();
    auto* box = panel.findChild<QMessageBox*>();
    ASSERT_TRUE(box != nullptr && road->state() == State::Ready);
    EXPECT_EQ(box->text(),
              "Download image.bin (ScanControl, version 1.42)\nto the device (ScanControl, version 141)?");
    QSignalSpy answers(console.link(), &ControllerLink::acknowledged);
    box->defaultButton()->click();
    expectEnd(State::Verified, "verified after [0-9.]+ s, check sum 30CCB2DC");
    EXPECT_EQ(panel.bar()->maximum(), 4608); // padded to 256
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
    const std::tuple<const char*, const char*, int, bool, const char*> rows[] = {
        {"1.42", "ScanControl", FirmwareRoad::Newer, false, "\u25B2"},
        {"1.4 rev 1", "ScanControl", FirmwareRoad::Same, false, "="},
        {"2.0", "TimeStamper", FirmwareRoad::Older, true, "\u25BC"}, // 20
        {"none", "", FirmwareRoad::Unknown, false, "?"},
    };
    for (const auto& [version, product, comparison, isOther, sign] : rows) {
        ASSERT_TRUE(road->open(image(version, product)));
        EXPECT_EQ(road->comparison(), comparison) << version;
        EXPECT_EQ(road->isOtherProduct(), isOther) << version;
        EXPECT_EQ(!panel.text(FirmwarePanel::Match).isEmpty(), isOther) << version;
        EXPECT_TRUE(panel.text(FirmwarePanel::Order).startsWith(sign)) << version;
    }
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
    const std::pair<QString, QString> rows[] = {
        {folder.filePath("none"), "Can't open file %1 for reading"},
        {write("empty", ""), "%1: Firmware file is empty"},
        {write("text", "no image"), "%1: File is not a valid firmware file"},
        {folder.path(), "%1: not a file"},
        {pipe, "%1: not a file"}};
    for (const auto& [path, text] : rows) {
        EXPECT_FALSE(road->open(path));
        EXPECT_EQ(panel.text(FirmwarePanel::Remark), text.arg(path));
        EXPECT_EQ(messages.value(messages.size() - 1), "Firmware: " + text.arg(path));
        EXPECT_EQ(panel.text(FirmwarePanel::Version), "1.42");
    }
    ASSERT_TRUE(road->open(folder.filePath("image.bin")));
    EXPECT_EQ(panel.text(FirmwarePanel::Remark), QString());
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
                  isLost ? "the link was lost at block \\d+ of 1954" : "cancelled at block \\d+ of 1954");
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
