#include <gmock/gmock.h>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <tests/support/files.h>

namespace {

constexpr int limitMilliseconds = 60000;

class ProgramTest : public ::testing::Test
{
protected:
    int run(const QStringList& arguments)
    {
        process.start(program, arguments);
        return end();
    }
    int end()
    {
        EXPECT_TRUE(process.waitForFinished(limitMilliseconds));
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        errors = process.readAllStandardError();
        return process.exitCode();
    }

    /// Ends the program when its log, the first one of that pattern, has the text.
    void terminateAt(const char* text, const QDir& logs, const QString& pattern)
    {
        for (int i = 0; i < limitMilliseconds / 20 && !process.waitForFinished(20); ++i) {
            const QString log = logs.filePath(logs.entryList({pattern}).value(0));
            if (contents(log.toStdString()).find(text) != std::string::npos) return process.terminate();
        }
        ADD_FAILURE() << "nowhere: " << text;
    }

    const QString program = QStringLiteral(VORELBENCH);
    QTemporaryDir folder;
    QProcess process;
    QByteArray errors;
};

TEST_F(ProgramTest, SaysWhatIsWrongWithItsCallOrItsFolder)
{
    using Row = std::tuple<QStringList, int, const char*>; // arguments, exit, complaint
    // clang-format off
    const Row rows[] = {
        {{"--help"}, 0, ""}, {{"--nonsense"}, 2, "--nonsense"}, {{"--headless"}, 2, "--out"},
        {{"--host", "localhost"}, 2, "--port"}, {{"--seconds", "3"}, 2, "--headless"},
        {{"--headless", "--out", "x", "--seconds", "-1"}, 2, "--seconds"},
        {{"--pixels", "0x5"}, 2, "--pixels"}, {{"--pixels", "4097x5"}, 2, "--pixels"},
        {{"--pixels", "8x8x8"}, 2, "--pixels"}, {{"--mode", "2"}, 2, "--mode"},
        {{"--confirm", "-1"}, 2, "--confirm"}, {{"--own-changes", "x"}, 2, "--own-changes"},
        {{"--rate", "100001"}, 2, "--rate"}, {{"--dark", "--light"}, 2, "--"},
        {{"--headless", "--out", "/dev/null/x"}, 1, "vorelbench: /dev/null/x cannot be written to\n"},
        {{"--headless", "--out", "OUT", "--style", "no"}, 1, "vorelbench: there is no style no\n"},
        {{"--headless", "--out", "OUT", "--refuse-every", "2"}, 1, " is 1000000 (Frequency was refused: "},
        {{"--headless", "--out", "OUT", "--confirm", "550", "--settings", "/dev/null/x"}, 1, " within 500 ms\n"},
        {{"--headless", "--out", "OUT", "--seconds", "0.1"}, 1, " was not done within 0.1 s (link: "},
        {{"--headless", "--out", "OUT", "--seconds", "1", "--port", "1"}, 1, "connecting was not done within 1 "},
    };
    // clang-format on
    for (auto [arguments, exit, complaint] : rows) {
        arguments.replaceInStrings(QStringLiteral("OUT"), folder.path());
        SCOPED_TRACE(arguments.join(' ').toStdString());
        EXPECT_EQ(run(arguments), exit);
        EXPECT_TRUE(errors.contains(complaint)) << errors.toStdString();
    }
}

TEST_F(ProgramTest, HeadlessRunLeavesItsFiles)
{
    const QString out = folder.filePath(QStringLiteral("new/folder"));
    ASSERT_EQ(run({"--headless", "--out", out, "--seconds", "8", "--pixels", "24x16", "--mode", "6"}), 0)
        << errors.toStdString();
    for (const char* name : {"area.asc", "area.bcr", "line.csv", "stream.csv", "log.csv", "trace.log",
                             "bench.png", "values.png", "timestamps.png", "timestamps.csv", "histogram.csv"})
        EXPECT_GT(QFileInfo(out + '/' + name).size(), 100) << name;
    EXPECT_EQ(QDir(out).entryList(QDir::Files).size(), 13);
    EXPECT_THAT(contents(out.toStdString() + "/settings.ini"),
                ::testing::HasSubstr("[OutputVoltage]\nRelStep=20\n"));
    const std::string text = contents(out.toStdString() + "/summary.json");
    const QJsonObject summary = QJsonDocument::fromJson(text.c_str()).object();
    ASSERT_EQ(summary.size(), 6);
    for (const char* none : {"errors", "reconnects"}) EXPECT_EQ(summary[none], 0) << none;
    EXPECT_GE(summary["events"].toInt(), 50000);
    EXPECT_GE(summary["frames"].toInt(), 4);
    EXPECT_GE(summary["samples"].toInt(), 2 * 24 * 16 * 2 + 2 * 24 + 24);
    EXPECT_GE(summary["telegrams"].toInt(), 30);
}

TEST_F(ProgramTest, SignalsEndItCleanly)
{
    const QString out = folder.path();
    process.start(program, {"--headless", "--out", out, "--seconds", "60", "--rate", "1"});
    terminateAt("Scan: area", out, "trace.log");
    EXPECT_EQ(end(), 1);
    EXPECT_TRUE(errors.contains("vorelbench: interrupted during the area scan\n")) << errors.toStdString();

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    environment.insert("XDG_DATA_HOME", out);
    environment.insert("XDG_CONFIG_HOME", out);
    process.setProcessEnvironment(environment);
    process.start(program, {"--dark"});
    terminateAt("Link: connected", out + "/vorelbench/logs", "vorelbench-*.log");
    EXPECT_EQ(end(), 0);
}

} // namespace
