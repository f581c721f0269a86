#include "vorel.h"

#include <QDir>
#include <QImage>
#include <sys/resource.h>
#include <tests/support/require.h>

namespace {

const QByteArray events = "time,channel\n5000,0\n5000,1\n5000,203\n300000000000,5\n";

/// The summary after decoding, between its first and its last three lines.
QByteArray summary(const QByteArray& words, const QByteArray& codes, const QByteArray& beforeHigh = "0",
                   const QByteArray& ordering = "0", const QByteArray& cut = "0")
{
    return "vorel: " + words + '\n' + codes + "vorel: Words before the first high word: " + beforeHigh +
           "\nvorel: Ordering errors: " + ordering + "\nvorel: Cut bytes: " + cut + '\n';
}

class TimeStamps : public InFolder
{
};

} // namespace

TEST_F(TimeStamps, ReadBackAsTheyWere)
{
    const QByteArray codes = "vorel: Channel 0: 1\nvorel: Channel 1: 1\nvorel: Channel 5: 1\n";
    const QByteArray marker = "vorel: Marker 203: 1\n";
    const std::pair<QByteArray, QByteArray> rows[] = {{"52", "Words: 6"}, {"60", "Words: 10"}};
    for (const auto& [format, words] : rows) {
        const Result encoded = run("tdc encode --format " + format + " -", events);
        EXPECT_EQ(std::pair(encoded.code, encoded.err), std::pair(0, QByteArray()));
        expectRows({{"tdc decode -o - --format " + format, 0, events, summary(words, codes + marker)}}, " -",
                   encoded.out);
    }
    const Result encoded = run("tdc encode --format 56 -", "time,channel\n1,7\n2,0\n");
    EXPECT_EQ(encoded.out, QByteArray("\0\0\0\x10\1\0\0\xE0\2\0\0\0", 12));
    const QByteArray doubt = "vorel: Note: more than 1 % of the words were dropped: is the format right?\n";
    const QByteArray two = "vorel: Channel 0: 1\nvorel: Channel 7: 1\n";
    // clang-format off
    expectRows({
        {"tdc decode --format 56 -", 0, "time,channel\n1,7\n2,0\n", summary("Words: 4", two, "1", "0", "3") + doubt},
        {"tdc decode --format 56 --offsets 0,0,0,0,0,0,0,-0x2 -", 0, "time,channel\n-1,7\n2,0\n", summary("Words: 4", two, "1", "0", "3") + doubt},
        {"tdc decode --format 60 -", 0, "time,channel\n", summary("Words: 4", "", "0", "1", "7") + "vorel: Note: no event was decoded: is the format right?\n"},
    }, {}, QByteArray(4, '\1').replace(3, 1, "\0", 1) + encoded.out + "abc");
    // clang-format on
}

TEST_F(TimeStamps, TellWhatHasNoEffectAndWhatIsWrong)
{
    const QByteArray usage = "vorel: Usage: ", help = " (try --help)\n", note = "vorel: Note: ";
    const QByteArray none = summary("Words: 0", ""), noBytes = summary("Bytes: 0", ""),
                     header = "time,channel\n";
    write("in.csv", header + "1,0\n7,1\n6,0\n");
    // clang-format off
    expectRows({
        {"tdc decode --format 52x --markers 1 --offsets 0,0,0,0,0,0,0,0 --divider 2 --start-period 9 -", 0, header,
         note + "--markers has no effect with format 52x\n" + note + "--offsets has no effect with format 52x\n" +
         note + "--divider has no effect with format 52x\n" + note + "--start-period has no effect with format 52x\n" + none},
        {"tdc decode --format 56 --markers 1 --start-period 9 -", 0, header, note + "--markers has no effect with format 56\n" +
         note + "--start-period has no effect without a --divider from 2 on\n" + none},
        {"tdc decode --format 60b --divider 2 -", 0, header,
         note + "--divider has no effect with format 60b without a --start-period\n" + noBytes},
        {"tdc decode --format 60 --divider 16383 --start-period 9 -", 0, header, note + "--start-period has no effect below the --divider\n" + none},
        {"tdc", 2, "", usage + "A subcommand is required" + help},
        {"tdc decode -", 2, "", usage + "--format is required" + help},
        {"tdc encode --format 52x -", 2, "", usage + "--format: 52x not in {56,52,60,60b}" + help},
        {"tdc decode --format 56 --divider 16384 -", 2, "", usage + "--divider: \"16384\" is no number from 1 to 16383" + help},
        {"tdc decode --format 56 --offsets 1,2,3,4,5,6,7 -", 2, "", usage + "--offsets: \"1,2,3,4,5,6,7\" is no list of eight 32-bit numbers O0,...,O7" + help},
        {"tdc decode --format 56 --offsets 1,2,3,4,5,6,7,2147483648 -", 2, "", usage + "--offsets: \"1,2,3,4,5,6,7,2147483648\" is no list of eight 32-bit numbers O0,...,O7" + help},
        {"tdc histogram --start 0 --stop 1 --bin 1 --bins 2 --png - -", 2, "", usage + "--png: standard output takes the CSV; name a file for one of them" + help},
        {"tdc decode --format 56 " + path("missing"), 1, "", "vorel: I/O error: Can't open file " + path("missing") + " for reading: No such file or directory\n"},
        {"tdc decode --format 56 " + path("."), 1, "", "vorel: I/O error: Can't open file " + path(".") + " for reading: file to open is a directory\n"},
        {"tdc encode --format 56 -o " + path("in.csv") + ' ' + path("in.csv"), 2, "", usage + "-o: IN and OUT are the same file, " + path("in.csv") + help},
        {"tdc decode --format 56 " + path("in.csv"), 1, "", "vorel: Format Error: " + path("in.csv") + ": this is CSV of events, not packet words\n"},
        {"tdc histogram --start 0 --stop 1 --bin 1 --bins 2 -o x --png ./x -", 2, "", usage + "--png: that file takes the CSV; name another one" + help},
        {"tdc decode --format 56 -o /dev/full -", 1, "", "vorel: I/O error: cannot write /dev/full: No space left on device\n"},
        {"tdc decode --format 56 -o /nonexistent/x.npy -", 1, "", "vorel: I/O error: cannot write /nonexistent/x.npy: No such file or directory\n"},
        {"tdc encode --format 60b -", 1, "", note + "format 60b, in the form in which it is written, does not read back\n"
         "vorel: Format Error: standard input:1: \"\" is not the header \"time,channel\"\n"},
    });
    ASSERT_EQ(::system(("mkfifo " + path("pipe.npy")).constData()), 0);
    QProcess reader; // so that the pipe opens
    reader.start(QStringLiteral("cat"), {dir.filePath(QStringLiteral("pipe.npy"))});
    expectRows({{"tdc decode --format 56 -o " + path("pipe.npy") + " -", 1, "", "vorel: I/O error: cannot write " + path("pipe.npy") +
                 ": a .npy file begins with its length, which is not known before its end\n"}});
    reader.waitForFinished();
    // What was there stays, and nothing is left beside it.
    write("out", "before");
    expectRows({{"tdc encode --format 56 " + path("in.csv") + " -o " + path("out"), 1, "", "vorel: Format Error: " + path("in.csv") +
                 ":4: time 6 comes after 7, and the format knows no way back\n"}});
    // clang-format on
    const QByteArray full = "vorel: I/O error: cannot write " + path("out") + ": File too large\n";
    const std::pair<QByteArray, QByteArray> limits[] = {{"trap '' XFSZ", full}, {"true", ""}};
    for (const auto& [trap, told] : limits) { // a disk that fills; a signal that ends the process
        const QByteArray shell = trap + "; ulimit -f 1; exec '" + QFile::encodeName(vorel) +
                                 "' tdc histogram --start 0 --stop 1 --bin 1 --bins 999 -o '" + path("out") +
                                 "' '" + path("in.csv") + "' 2>'" + path("told") + "'";
        EXPECT_NE(::system(shell.constData()), 0);
        EXPECT_EQ(read("told"), told);
    }
    QFile::remove(dir.filePath(QStringLiteral("told")));
    EXPECT_EQ(read("out"), "before");
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList({"in.csv", "out"}));
}

TEST_F(TimeStamps, BecomeNumpyArrays)
{
    write("in.csv", events);
    ASSERT_EQ(run("tdc encode --format 52 " + path("in.csv") + " -o " + path("in.52")).code, 0);
    ASSERT_EQ(run("tdc decode --format 52 " + path("in.52") + " -o " + path("out.npy")).code, 0);
    QProcess python;
    python.start(QStringLiteral(PYTHON_PATH), {"-c",
                                               "import sys, numpy as n\n"
                                               "a = n.load(sys.argv[1])\n"
                                               "print(a.dtype.itemsize, a.dtype.fields['time'], "
                                               "a.dtype.fields['channel'], a.tolist())",
                                               dir.filePath(QStringLiteral("out.npy"))});
    ASSERT_TRUE(python.waitForFinished());
    const QByteArray error = python.readAllStandardError();
    REQUIRE_OR_SKIP(!error.contains("No module named"), "numpy");
    EXPECT_EQ(python.readAllStandardOutput(), "16 (dtype('int64'), 0) (dtype('uint8'), 8) "
                                              "[(5000, 0), (5000, 1), (5000, 203), (300000000000, 5)]\n")
        << error.constData();
}

TEST_F(TimeStamps, BecomeHistogramAndPicture)
{
    write("in.csv", "time,channel\n7,1\n10,0\n12,1\n14,1\n19,1\n40,0\n41,1\n99,1\n");
    expectRows(
        {{"tdc histogram --start 0 --stop 1 --bin 5 --bins 2 " + path("in.csv") + " --png " + path("h.png"),
          0, "bin,count\n0,3\n1,1\n",
          "vorel: Starts: 2\nvorel: Starts too far out of order: 0\nvorel: Stops: 6\nvorel: Stops beyond the "
          "last bin: 1\n"
          "vorel: Stops before the first start: 1\nvorel: Stops too far out of order: 0\n"}});
    const QImage image(dir.filePath(QStringLiteral("h.png")));
    ASSERT_EQ(image.size(), QSize(1000, 600));
    EXPECT_EQ(image.pixel(2, 2), 0xFFFFFFFF);
    EXPECT_EQ(image.pixel(300, 100), 0xFFC9DDF0); // the first bar, higher than the second
    EXPECT_EQ(image.pixel(750, 450), 0xFFC9DDF0);
    EXPECT_EQ(image.pixel(750, 300), 0xFFFFFFFF);
}

TEST_F(TimeStamps, OfALargeFileTakeLittleMemory)
{
    constexpr std::uint32_t wordCount = 16 << 20, eventCount = wordCount / 256 * 255;
    {
        QFile file(dir.filePath(QStringLiteral("large.56")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        for (std::uint32_t i = 0; i < wordCount; ++i) {
            const std::uint32_t word = i % 256 == 0 ? i / 256 | 1U << 28 : i % 256 << 20 | i % 8 << 29;
            file.write(reinterpret_cast<const char*>(&word), sizeof word);
        }
    }
    const Result result = run("tdc decode --format 56 --offsets 0,-9000000,0,0,0,0,0,9000000 " +
                              path("large.56") + " -o " + path("large.npy"));
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(QFile(dir.filePath(QStringLiteral("large.npy"))).size(), 192 + 16LL * eventCount);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // they take memory of their own
    rusage used{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &used), 0);
    EXPECT_LT(used.ru_maxrss, 64 * 1024);
#endif
}
