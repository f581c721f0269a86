#include "vorel.h"

#include <csignal>
#include <filesystem>
#include <QDir>
#include <sys/wait.h>

namespace {

const QByteArray declaration = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n";
const QByteArray help = " (try --help)\n";

class Descriptions : public InFolder
{
};

class FirmwareImages : public InFolder
{
protected:
    void make(const QByteArray& kind, const char* name, const QByteArray& more) const
    {
        QProcess python;
        const QByteArray words =
            EXAMPLES_PATH "/firmware/make_image.py " + kind + ' ' + path(name) + ' ' + more;
        python.start(QStringLiteral(PYTHON_PATH), QString::fromUtf8(words).split(QLatin1Char(' ')));
        EXPECT_TRUE(python.waitForFinished());
        EXPECT_EQ(python.readAllStandardError(), "");
    }
};

} // namespace

TEST_F(Descriptions, DocumentsArePrintedAndAsked)
{
    const QByteArray document = "<?x?><r:oot z=1 a=\"&lt;\xB5&foo;\"><!-- c -->\n<b.1/><b.1 n=\"2\">\n"
                                "<c>x &amp; </c></b.1></r:oot>behind";
    const QByteArray root = "<r:oot a=\"&lt;\xB5&amp;foo;\" z=\"1\">";
    const QByteArray usage = "vorel: Usage: PATH: ", form = " is no ELEMENT/...@ATTR" + help;
    const QByteArray none = "vorel: Not found: standard input line ";
    // clang-format off
    expectRows({
        {"xml format -", 0, declaration + root + "\n  <b.1/>\n  <b.1 n=\"2\">\n    <c>x &amp; \n    </c>\n"
         "  </b.1>\n</r:oot>", ""},
        {"xml format --compact -", 0, declaration + root +
         "<b.1/><b.1 n=\"2\"><c>x &amp; </c></b.1></r:oot>", ""},
        {"xml get - r:oot@a", 0, "<\xB5&foo;\n", ""},
        {"xml get - r:oot/b.1@n", 1, "", none + "2: no attribute \"n\" in r:oot/b.1\n"}, // of the first b.1
        {"xml get - r:oot/b.1/c@n", 1, "", none + "3: no attribute \"n\" in r:oot/b.1/c\n"}, // below the second
        {"xml get - r:oot/b.1/c/d@n", 1, "", none + "3: no element \"d\" in r:oot/b.1/c\n"},
        {"xml get - root/b.1@n", 1, "", none + "2: the root is \"r:oot\", not \"root\"\n"},
        {"xml get - r:oot@\x1B[2J\x7F", 1, "", none + "2: no attribute \" [2J \" in r:oot\n"},
        {"xml get - r:oot", 2, "", usage + "\"r:oot\"" + form},
        {"xml get - r:oot/@a", 2, "", usage + "\"r:oot/@a\"" + form},
        {"xml get - r:oot@", 2, "", usage + "\"r:oot@\"" + form},
        {"xml get - a@b@c", 2, "", usage + "\"a@b@c\"" + form},
    }, {}, document);
    // clang-format on
}

TEST_F(Descriptions, AreRefusedWithFileAndLine)
{
    const QByteArray error = "vorel: XML Error: ", open = "vorel: I/O error: Can't open file ";
    const QByteArray cut = path("cut.xml"), missing = path("missing");
    write("cut.xml", "<a>\r\n<b>\r\n");
    // clang-format off
    expectRows({
        {"xml format " + cut, 1, "", error + cut + " line 3: Missing closing tag for b\n"},
        {"xml get - a@b", 1, "", error + "standard input line 2: \"=\" expected\n"},
        {"xml format /dev/null", 1, "", error + "/dev/null: Empty document\n"},
        {"xml format " + path("."), 1, "", open + path(".") + " for reading: file to open is a directory\n"},
        {"groups " + missing, 1, "", open + missing + " for reading: No such file or directory\n"},
    }, {}, "\n<a b\n/>");
    // clang-format on
}

TEST_F(Descriptions, OfAnyDepthArePrinted)
{
    const QByteArray deep =
        QByteArray("<a>").repeated(99999) + "<a k=\"7\"/>" + QByteArray("</a>").repeated(99999);
    const QByteArray why = "vorel: Format Error: standard input: too deep for indentation: use --compact\n";
    expectRows({{"xml format --compact -", 0, declaration + deep, ""}, {"xml format -", 1, "", why}}, {},
               deep);
}

TEST_F(Descriptions, ListTheirDataGroups)
{
    // clang-format off
    const QByteArray unset = R"("storeLocal":false,"storeRetrigger":false,"storeGroup":false,)"
                             R"("showChannels":false,"showSource":false,)";
    const QByteArray page = R"("showSampleTime":false,"showStream":false,"hidePage":false,)"
                            R"("channelNumber":false,"channelName":false,)";
    const QByteArray list = R"([
{"displayName":"Z","displayAbbrev":"h","name":"Z","abbrev":"h","id":16,"trigger":0,"algorithm":5,"sequence":0,)"
        R"("ascii":false,"bin":true,"storeFrame":true,"storeContinous":true,)" + unset +
        R"("showAverage":true,)" + page + R"("channelSignal":true,"channelGroup":true,"modified":false,)"
        R"("condition":"a<b"},
{"displayName":"?","displayAbbrev":"","name":"?","abbrev":"","id":3,"trigger":1,"algorithm":-1,"sequence":4,)"
        R"("ascii":false,"bin":false,"storeFrame":false,"storeContinous":false,)" + unset +
        R"("showAverage":false,)" + page + R"("channelSignal":false,"channelGroup":false,"modified":false,)"
        R"("condition":""}
]
)";
    const QByteArray line = "vorel: Note: standard input line ";
    const QByteArray notes = line + "6: Not in UTF-8, from this line on; such characters are replaced\n" +
                             line + "1: <q Z>: \"Binary\" in its Formats counts as Bin\n" +
                             line + "1: <q Z>: \"storelocal\" in its Properties is no keyword\n" +
                             line + "1: <q Z>: \"SignalGroup\" in its ChannelDescr counts as Signal, Group\n" +
                             line + "3: <q 100 %1> is replaced by <q ?> of line 6, which has the same Id 3\n" +
                             line + "3: <x> is left out: no Name, no Trigger\n" +
                             line + "4: <q lost> is left out: its Id \"x\" is no number\n" +
                             line + "6: <q ?>: its Trigger \"1 ms\" is read as 1\n" +
                             line + "6: <q idle> is left out: no Trigger\n";
    const auto withBadByte = [](QByteArray text) { return text.replace('?', "\xEF\xBF\xBD"); };
    expectRows({{"groups -", 0, withBadByte(list), withBadByte(notes)}}, {},
               "<g><q Name=\"Z\" Abbrev=\"h\" Id=\"0x10\" Trigger=\"0\" Algorithm=\"0b101\" Formats=\"Binary\"\n"
               "Condition=\"a&lt;b\" Properties=\"StoreFrame,ShowAverage StoreContinous storelocal\"\n"
               "ChannelDescr=\"SignalGroup\"/><q Name=\"100 %1\" Id=\"3\" Trigger=\"1\"/><x Id=\"9\"/>\n"
               "<q Name=\"lost\" Id=\"x\" Trigger=\"1\"/>\n\n"
               "<q Name=\"\xB5\" Id=\"3\" Trigger=\"1 ms\"/><q Name=\"idle\" Id=\"4\"/>\n</g>");
    // clang-format on
    expectRows({{"groups -", 0, "[]\n", "vorel: Note: standard input: No data groups\n"}}, {}, "<none/>");
}

TEST_F(FirmwareImages, AreDescribedAsJson)
{
    make("fpga", "a.bit", "--product scan;v=2 --part 7a35t --date 2026/02/03 --time 04:05:06 --size 300");
    make("dsp", "a.dsp", "--product pump --version 1.42\xC2\xB5$x --size 1000");
    make("sam", "a.sam", "--size 1");
    write("short.bit", read("a.bit").chopped(4));
    write("bad.bit", read("a.bit").left(40));
    const QByteArray open = "vorel: I/O error: Can't open file ", format = "vorel: Format Error: ";
    const auto json = [](const char* texts, const char* part, const char* numbers) {
        const QByteArray keys = QByteArray("{|\"kind\": \"") + texts + "\",|\"part\": \"" + part +
                                "\",|\"size\": " + numbers + "\n}\n";
        return QByteArray(keys).replace("|", "\n  ");
    };
    const char* const scan = "fpga\",|\"product\": \"scan\",|\"version\": \"2026/02/03,04:05:06";
    const char* const pump = "dsp\",|\"product\": \"pump\",|\"version\": \"1.42\xC2\xB5";
    const char* const example = "sam\",|\"product\": \"example\",|\"version\": \"1.0";
    // clang-format off
    expectRows({
        {"firmware info " + path("a.bit"), 0, json(scan, "7a35t", "300,|\"configLength\": 235"), ""},
        {"firmware info " + path("short.bit"), 0, json(scan, "7a35t", "296,|\"configLength\": 235"),
         "vorel: Note: " + path("short.bit") + ": The header tells of 235 bytes of configuration data, "
         "the file holds 231\n"},
        {"firmware info -", 0, json(pump, "", "1000,|\"configLength\": null"), ""},
        {"firmware info " + path("a.sam"), 0, json(example, "", "34,|\"configLength\": null"), ""},
        {"firmware info " + path("bad.bit"), 1, "", format + path("bad.bit") + ": Not a valid bitfile\n"},
        {"firmware info /dev/null", 1, "", format + "/dev/null: Firmware file is empty\n"},
        {"firmware info " + path("missing"), 1, "", open + path("missing") + " for reading: No such file or directory\n"},
    }, {}, read("a.dsp"));
    // clang-format on
    expectRows({{"firmware info -", 1, "", format + "standard input: File is not a valid firmware file\n"}},
               {}, "x");
}

TEST_F(FirmwareImages, AreCutIntoTelegrams)
{
    const QByteArray usage = "vorel: Usage: ", denied = "vorel: I/O error: cannot write ";
    const QByteArray other = " is no 32-bit number other than 0" + help;
    const QByteArray multiple = " is no multiple of 4 from 4 to 65536" + help;
    const QByteArray out = path("out"), used = path("used"), large = path("large.dsp");
    const QByteArray cut = "firmware cut --addr 1 --block 4 --out ";
    make("dsp", "a.dsp", "--product p --version 1 --size 26");
    make("fpga", "a.bit", "--size 3000");
    make("dsp", "large.dsp", "--size 4000004");
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("used")));
    write("used/12.tel", "before");
    // clang-format off
    expectRows({
        {"firmware cut --addr -2 --block 16 --out " + out + " -", 0, "", ""},
        {"firmware cut --addr 2 --block 65536 --out " + path("bit") + ' ' + path("a.bit"), 0, "", ""},
        {"firmware cut --addr 0 --block 4 --out x -", 2, "", usage + "--addr: \"0\"" + other},
        {"firmware cut --addr 1 --block 6 --out x -", 2, "", usage + "--block: \"6\"" + multiple},
        {"firmware cut --addr 1 --block 65540 --out x -", 2, "", usage + "--block: \"65540\"" + multiple},
        {cut + "- -", 2, "", usage + "--out: the name of a folder is needed" + help},
        {cut + used + " -", 1, "", denied + used + ": a .tel file is there already (12.tel)\n"},
        {cut + large + " -", 1, "", denied + large + ": File exists\n"},
        {cut + path("no/out") + " -", 1, "", denied + path("no/out") + ": No such file or directory\n"},
        {cut + path("x") + ' ' + large, 1, "", "vorel: Format Error: " + large +
         ": these are 1000001 blocks, and 1000000 at most can be numbered: enlarge --block\n"},
    }, {}, read("a.dsp"));
    // clang-format on
    EXPECT_EQ(QDir(dir.filePath("out")).entryList(QDir::Files), QStringList({"000000.tel", "000001.tel"}));
    EXPECT_EQ(read("out/000000.tel"),
              QByteArray("\x20\0\0\0\0\0\0\0\xFE\xFF\xFF\xFF\0\0\0\0\0\0\0\0DspVersion:1\0Dsp", 36));
    EXPECT_EQ(read("out/000001.tel"),
              QByteArray("\x1C\0\0\0\0\0\0\0\xFE\xFF\xFF\xFF\1\0\0\0\0\0\0\0Product:p\0\0\0", 32));
    EXPECT_EQ(read("bit/000000.tel").mid(20), read("a.bit").mid(70) + QByteArray(2, '\0'));
    EXPECT_EQ(read("used/12.tel"), "before");
    EXPECT_FALSE(QFile::exists(dir.filePath("x"))); // nor a folder without telegrams
}

TEST_F(FirmwareImages, AreCutWholeOrNotAtAll)
{
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGXFSZ}) std::signal(signal, SIG_DFL);
    make("dsp", "a.dsp", "--size 4000000");
    // clang-format off
    const QByteArray prepare = "cd " + path(".") + "; export LC_ALL=C.UTF-8; mkdir -p mine d\xEF\xBF\xBD; touch mine/note; cp a.dsp \xE4.dsp;"
        "stop() { for i in $(seq 3000); do sleep 0.01; test -e new/000100.tel && kill $1 $$ && break; done; };";
    const QByteArray failed = "vorel: I/O error: cannot ", unwritten = failed + "write to standard output\n";
    const QByteArray cut = "firmware cut --addr 1 --block 65536 a.dsp --out ";
    const QByteArray many = "firmware cut --addr 1 --block 4 a.dsp --out new"; // takes a while
    const std::tuple<QByteArray, QByteArray, int, QByteArray> rows[] = {
        {"trap '' XFSZ; ulimit -f 1", cut + "mine", 1, failed + "write mine/000000.tel: File too large\n"},
        {"ulimit -f 1", cut + "new", -SIGXFSZ, ""},
        {"stop -HUP & :", many, -SIGHUP, ""},
        {"stop -INT & :", many, -SIGINT, ""},
        {"stop -TERM & :", many, -SIGTERM, ""},
        {":", cut + "d\xE4", 0, ""}, // not the folder whose name this becomes as text
        {":", "firmware info \xE4.dsp", 1, failed + "use the file name \xE4.dsp: its bytes are no text in the locale (LC_ALL, LANG)\n"},
        {":", "firmware info ''", 2, "vorel: Usage: FILE: a file name, or -, is needed" + help},
        {"printf '\\357\\273\\277<a/>' >mark", "xml get mark a@b", 1, "vorel: XML Error: mark: "
         "Empty document: the file begins with a byte-order mark, which is not read\n"},
        {"exec <&-", "xml format -", 1, failed + "read standard input: Bad file descriptor\n"},
        {"exec >/dev/full", "firmware info a.dsp", 1, unwritten},
        {"trap '' PIPE; mkfifo pipe; exec 3<>pipe >pipe 3>&-", "firmware info a.dsp", 1, unwritten},
    };
    // clang-format on
    for (const auto& [before, line, ending, told] : rows) {
        const QByteArray script = before + "; exec " + QFile::encodeName(vorel) + ' ' + line + " 2>told";
        const int status = ::system((prepare + script).constData());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), ending) << script.constData();
        EXPECT_EQ(read("told"), told) << script.constData();
    }
    const std::filesystem::path folder(dir.path().toStdString());
    EXPECT_EQ(QDir(dir.filePath("mine")).entryList(QDir::Files), QStringList({"note"}));
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
    EXPECT_TRUE(std::filesystem::exists(folder / "d\xE4/000061.tel"));
    std::filesystem::remove_all(folder); // what is no text, `dir` does not find
}
