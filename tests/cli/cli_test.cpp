#include "vorel.h"

#include <gmock/gmock.h>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <tests/frames/buffers.h>
#include <tests/support/files.h>

using testing::MatchesRegex;

namespace {

/// A running `vorel sim`.
class Sim
{
public:
    explicit Sim(const QStringList& options = {})
    {
        process.start(vorel, QStringList{QStringLiteral("sim")} + options);
        process.waitForReadyRead(20000);
        const QByteArray line = process.readLine();
        EXPECT_TRUE(line.startsWith("listening on 127.0.0.1:")) << line.toStdString();
        port = line.mid(23).trimmed();
        option = " --port " + port;
    }
    ~Sim() { stop(); }
    int stop()
    {
        process.terminate();
        process.waitForFinished(20000);
        return process.state() == QProcess::NotRunning ? process.exitCode() : -1;
    }

    QProcess process;
    QByteArray port, option;
};

/// Two rows of three pixels; the last row's last pixel without a sample in the binary snapshot.
class FrameFiles : public ::testing::Test
{
protected:
    void SetUp() override
    {
        FrameBuffer whole, part;
        for (FrameBuffer* frame : {&whole, &part}) {
            set(frame, {{0x2004, 100000}, {0x2005, 75000}, {0x2006, 50000}, {0x2007, 37500}});
            set(frame, {{0x2012, 0x17C}, {0x2013, 0x17C}, {0x2016, 1500}});
        }
        // The first frame runs from the last row up: the picture is 400 500 (void) over 100 200 300.
        activate(&whole, 3, 3, 2, {100, 200, 300, 400, 500, 600});
        activate(&part, 3, 3, 2, {100, 200, 300, 400});
        ASSERT_EQ(whole.saveFrameAsc(path("a.asc"), "height", true, false), 0);
        ASSERT_EQ(part.saveFrameBcr(path("a.bcr"), "height", true), 0);
        ASSERT_EQ(whole.saveLineCsv(path("a.csv"), "height"), 0);
        ASSERT_EQ(whole.saveSimpleCsv(path("log.csv"), "height"), 0);
    }
    QByteArray path(const char* name) const { return QFile::encodeName(dir.filePath(QLatin1String(name))); }
    QByteArray contents(const char* name) const
    {
        return QByteArray::fromStdString(::contents(path(name).toStdString()));
    }

    QTemporaryDir dir;
};

} // namespace

TEST(Vorel, TellsWrongUsage)
{
    const QByteArray usage = "vorel: Usage: ", help = " (try --help)\n";
    const QByteArray wordRange = " is no number from -2147483648 to 4294967295" + help;
    // clang-format off
    expectRows({
        {"frame", 2, "", usage + "A subcommand is required" + help},
        {"foo --port 1", 2, "", usage + "\"foo\" is no command" + help},
        {"frame foo x", 2, "", usage + "\"foo\" is no command" + help},
        {"get 0x21", 2, "", usage + "--port is required" + help},
        {"set 1 0x1G --port 1", 2, "", usage + "VALUE: \"0x1G\"" + wordRange},
        {"set 1 4294967296 --port 1", 2, "", usage + "VALUE: \"4294967296\"" + wordRange},
        {"sim --port 65536", 2, "", usage + "--port: \"65536\" is no number from 0 to 65535" + help},
        {"sim --fault fire", 2, "", usage + "--fault: \"fire\" is no fault: KIND or KIND@SECONDS, 0 to 1000000 seconds" + help},
        {"sim --refuse-every -1", 2, "", usage + "--refuse-every: \"-1\" is no number from 0 to 1000000" + help},
        {"sim --own-changes nan", 2, "", usage + "--own-changes: \"nan\" is no number of seconds" + help},
        {"monitor --port 1 --seconds 1,5", 2, "", usage + "--seconds: \"1,5\" is no number of seconds" + help},
        {"sim --surface /nonexistent/x", 1, "",
         "vorel: Simulator: cannot write /nonexistent/x: No such file or directory\n"},
    });
    // clang-format on
    EXPECT_EQ(run("--help").code, 0);
}

TEST(Vorel, EvaluatesFormulas)
{
    const QByteArray unexpected = "vorel: Usage: The following argument was not expected: ";
    const QByteArray variable = " is no NAME=VALUE with a number for VALUE (try --help)\n";
    // clang-format off
    expectRows({
        {"eval --var x=5 --var scale=0x1F +(*(x,scale),offset) --var offset=-0.5", 0, "154.5\n", ""},
        {"eval -(1,3)", 0, "-2\n", ""}, {"eval -- -(1,3)", 0, "-2\n", ""}, {"eval -7", 0, "-7\n", ""},
        {"eval -(x,0.5) --var x=+2.5", 0, "2\n", ""}, {"eval x --var x=1e-400", 0, "0\n", ""},
        {"eval -(", 1, "", "vorel: XML Error: Can't evaluate \"-(\"\n"},
        {"eval ++", 1, "", "vorel: XML Error: Can't evaluate \"++\"\n"},
        {"eval --var -gain=4 -- -gain", 0, "4\n", ""}, {"eval *(0.1,3)", 0, "0.30000000000000004\n", ""}, {"eval /(-1,0)", 0, "-inf\n", ""},
        {"eval --var x=-0x10 +(1)", 1, "", "vorel: XML Error: Parameter count doesn't match in \"+(1)\"\n"},
        {"eval", 2, "", "vorel: Usage: EXPR is required (try --help)\n"},
        {"eval -(1,3) -(3,4)", 2, "", unexpected + "-(3,4) (try --help)\n"},
        {"eval -gain", 2, "", unexpected + "-gain (try --help)\n"},
        {"eval -( foo", 2, "", unexpected + "-( (try --help)\n"},
        {"eval x --var x=+(1,2)", 2, "", "vorel: Usage: --var: \"x=+(1,2)\"" + variable},
        {"eval x --var x=1,5", 2, "", "vorel: Usage: --var: \"x=1,5\"" + variable},
        {"eval x --var =1", 2, "", "vorel: Usage: --var: \"=1\"" + variable},
    });
    // clang-format on
}

TEST(Vorel, GetsAndSets)
{
    Sim sim({"--fault", "stall", "--refuse-every", "4"});
    // clang-format off
    expectRows({ // the first connection meets silence, later ones work
        {"get 0x22", 1, "", "vorel: Link: no answer from 127.0.0.1:" + sim.port + '\n'},
        {"get 34 7", 0, "1000000\n", ""},
        {"set 0x21 -0x10", 0, "", ""}, {"get 0x21", 0, "-16\n", ""},
        {"set 0x24 0xFFFFFFFE 3", 0, "", ""}, {"get 0x24", 0, "-2\n", ""},
        {"set 0x25 010", 0, "", ""}, {"get 0x25", 0, "10\n", ""},
        {"set 0x25 11", 1, "", "vorel: Refused: unknown error\n"}, // the fourth
        {"set 0x21 10001", 1, "", "vorel: Refused: out of range\n"},
        {"get -1", 1, "", "vorel: Refused: invalid address\n"},
        {"set 0x26 1", 1, "", "vorel: Refused: unknown error\n"}}, sim.option);
    // clang-format on
    EXPECT_GT(run("get 0x26" + sim.option).out.toLongLong(), 2147483647); // unsigned
    EXPECT_EQ(sim.stop(), 0);
    const QByteArray nobody = "vorel: Link: 127.0.0.1:" + sim.port + ": no controller answers there\n";
    expectRows({{"get 0x22", 1, "", nobody}}, sim.option);
}

TEST(Vorel, MonitorsUntilTimeOrSignal)
{
    Sim sim;
    const Result result = run("monitor --seconds 0.5" + sim.option);
    EXPECT_EQ(std::pair(result.code, result.err), std::pair(0, QByteArray()));
    EXPECT_THAT(result.out.toStdString(),
                MatchesRegex("seconds,type,addr,ind,value\n([0-9]\\.[0-9]+,TELL,39,0,-?[0-5]\n){2,}"));
    QProcess endless;
    endless.start(vorel, {"monitor", "--port", sim.port});
    while (!endless.canReadLine()) ASSERT_TRUE(endless.waitForReadyRead(20000)); // flushed as it comes
    endless.terminate();
    ASSERT_TRUE(endless.waitForFinished(20000));
    EXPECT_TRUE(endless.exitStatus() == QProcess::NormalExit && endless.exitCode() == 0);
}

TEST_F(FrameFiles, AreDescribedAsJson)
{
    const QByteArray area =
        R"("xPixels": 3, "yPixels": 2, "xLength": 1e-07, "yLength": 7.5e-08, "xOffset": 5e-08, )"
        R"("yOffset": 3.75e-08, "xyUnit": "m", "zUnit": "m", "scanSpeed": 2, "voidPixels": )";
    const QByteArray nulls =
        R"("yPixels": null, "xLength": null, "yLength": null, "xOffset": null, "yOffset": null, )";
    const QByteArray end = R"("zUnit": "m", "scanSpeed": null, "voidPixels": null})";
    const std::pair<const char*, QByteArray> expected[] = {
        {"a.asc", R"({"format": "asc", )" + area + "null}"},
        {"a.bcr", R"({"format": "bcr", )" + area + "2}"},
        {"a.csv", R"({"format": "line", "xPixels": 3, )" + nulls + R"("xyUnit": "m", )" + end},
        {"log.csv", R"({"format": "log", "xPixels": null, )" + nulls + R"("xyUnit": null, )" + end}};
    for (const auto& [name, json] : expected) {
        const QByteArray lines =
            QByteArray(json).replace(", ", ",\n  ").replace("{", "{\n  ").replace("}", "\n}\n");
        expectRows({{"frame info " + path(name), 0, lines, ""}, {"frame info -", 0, lines, ""}}, {},
                   contents(name));
    }
}

TEST_F(FrameFiles, BecomePictures)
{
    expectRows({{"frame png --map grey " + path("a.bcr") + ' ' + path("a.png"), 0, "", ""}});
    EXPECT_EQ(run("frame png --map grey - -", contents("a.bcr")).out, contents("a.png"));
    const QImage image = QImage::fromData(contents("a.png"), "PNG");
    ASSERT_EQ(image.size(), QSize(3, 2));
    // 400, void, void, 100, 200, 300
    const QRgb expected[] = {0xFFFFFFFF, 0, 0, 0xFF000000, 0xFF555555, 0xFFAAAAAA};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(image.pixel(i % 3, i / 3), expected[i]) << i;
    EXPECT_EQ(QImage::fromData(run("frame png - -", contents("a.asc")).out).pixel(0, 1), 0xFF440154u);
}

TEST_F(FrameFiles, AreRefusedWithTheReason)
{
    const QByteArray missing = path("missing"), line = path("a.csv"), area = path("a.bcr");
    // clang-format off
    expectRows({
        {"frame info " + missing, 1, "", "vorel: I/O error: Can't open file " + missing + " for reading\n"},
        {"frame png " + line + " x.png", 1, "", "vorel: Format Error: " + line + ": no area snapshot\n"},
        {"frame info -", 1, "", "vorel: Format Error: standard input: not a frame file\n"},
        {"frame png " + area + " /dev/full", 1, "",
         "vorel: I/O error: cannot write /dev/full: No space left on device\n"},
        {"frame png " + area + " /nonexistent/x.png", 1, "",
         "vorel: I/O error: cannot write /nonexistent/x.png: No such file or directory\n"}}, {}, "hello\n");
    // clang-format on
    EXPECT_EQ(run("frame png --map pink " + area + " x.png").code, 2);
}
