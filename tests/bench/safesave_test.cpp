#include "apps/bench/safesave.h"
#include "apps/bench/scansettings.h"
#include "vorelutil/frames/framebuffer.h"

#include <csignal>
#include <gmock/gmock.h>
#include <QDir>
#include <QTemporaryDir>
#include <sys/resource.h>

#include "tests/support/files.h"

using namespace bench;
using testing::EndsWith;
using testing::StartsWith;

namespace {

// As on a full disk: a file of this process can grow to `bytes` and no further.
struct FullDisk
{
    explicit FullDisk(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        limit(bytes);
    }
    ~FullDisk() { limit(RLIM_INFINITY); }
    static void limit(rlim_t bytes)
    {
        rlimit limits{};
        getrlimit(RLIMIT_FSIZE, &limits);
        limits.rlim_cur = std::min(bytes, limits.rlim_max);
        setrlimit(RLIMIT_FSIZE, &limits);
    }
};

class SafeSaveTest : public ::testing::Test
{
protected:
    SafeSaveTest()
    {
        describeFrame({ScanKind::Area, 30, 20, 4, 1000}, &frame);
        frame.setActive(true);
        QVector<int> samples(1000); // 200 short of a frame: void pixels
        for (int i = 0; i < samples.size(); ++i) samples[i] = 1234567 * i;
        frame.addData(samples.constData(), samples.size(), 0);
        target = folder.filePath(QStringLiteral("target"));
    }

    void writeOld() const { std::ofstream(target.toStdString()) << "old"; }
    std::string saved() const { return contents(target.toStdString()); }
    SaveResult save(Snapshot kind, const QString& path) const
    {
        return saveSnapshot(frame, kind, path, QStringLiteral("height"), true);
    }
    QStringList entries() const
    {
        return QDir(folder.path()).entryList(QDir::Files | QDir::Hidden | QDir::System);
    }

    QTemporaryDir folder;
    FrameBuffer frame;
    QString target;
};

TEST_F(SafeSaveTest, ReplacesTheOldFileOrLeavesItAlone)
{
    // clang-format off
    const std::pair<Snapshot, rlim_t> rows[] = { // and the room for the file: a byte short, none, a part
        {Snapshot::Binary, 2048 + 4 * 600 - 1}, {Snapshot::Binary, 2048}, {Snapshot::Text, 0},
        {Snapshot::Text, 4096}, {Snapshot::Line, 0}, {Snapshot::Line, 512}};
    // clang-format on
    for (const auto& [kind, room] : rows) {
        SCOPED_TRACE(::testing::Message() << int(kind) << ", room for " << room);
        writeOld();
        auto disk = std::make_unique<FullDisk>(room);
        const SaveResult result = save(kind, target);
        disk.reset();
        EXPECT_FALSE(result.ok);
        EXPECT_TRUE(result.text.startsWith(target + " was not saved: ")) << result.text.toStdString();
        EXPECT_EQ(saved(), "old");
        EXPECT_EQ(entries(), QStringList{"target"});
        EXPECT_EQ(save(kind, target).text, "saved " + target);
        EXPECT_GT(saved().size(), 600U);
        EXPECT_EQ(entries(), QStringList{"target"});
    }
}

TEST_F(SafeSaveTest, RefusesWhatCannotBeReplaced)
{
    for (const auto& [path, complaint] :
         {std::pair(QString("/dev/full"), "/dev/full is not a regular file"),
          {folder.path(), " is not a regular file"},
          {QString(), "no file is named"},
          {folder.filePath("missing/area.asc"), "No such file or directory"}}) {
        const SaveResult result = save(Snapshot::Text, path);
        EXPECT_TRUE(!result.ok && result.text.startsWith(path + " was not saved: ")) << complaint;
        EXPECT_TRUE(result.text.endsWith(complaint)) << result.text.toStdString();
    }
    EXPECT_FALSE(QFileInfo(QStringLiteral("/dev/full")).isFile());
    EXPECT_EQ(saveSnapshot(FrameBuffer(), Snapshot::Line, target, QString(), true).text,
              target + " was not saved: there is nothing to save");
    EXPECT_EQ(entries(), QStringList());
}

TEST_F(SafeSaveTest, KeepsALinkAndTheTargetsPermissions)
{
    writeOld();
    ASSERT_TRUE(QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner));
    const QString link = folder.filePath(QStringLiteral("link"));
    ASSERT_TRUE(QFile::link(target, link));
    EXPECT_TRUE(save(Snapshot::Binary, link).ok);
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_THAT(saved(), StartsWith("fileformat = bcrf"));
    EXPECT_EQ(QFileInfo(target).permissions() & (QFile::ReadGroup | QFile::ReadOther), 0);
}

TEST_F(SafeSaveTest, LogIsSavedWholeOrNotAtAll)
{
    writeOld();
    const QVector<int> samples(5000, -1999999999);
    RunningLog log;
    ASSERT_TRUE(log.start(frame, target, QStringLiteral("signal")).ok);
    {
        const FullDisk disk(20000); // beyond what the stream buffers
        log.add(samples.constData(), samples.size());
        EXPECT_EQ(saved(), "old");
        const SaveResult result = log.stop();
        EXPECT_TRUE(!result.ok && result.text.contains("whole values of 5000")) << result.text.toStdString();
    }
    EXPECT_EQ(saved(), "old");
    EXPECT_FALSE(log.stop().ok);

    ASSERT_TRUE(log.start(frame, target, QStringLiteral("signal")).ok);
    log.add(samples.constData(), 2);
    EXPECT_EQ(log.stop().text, "saved " + target + ", 2 values");
    EXPECT_THAT(saved(), EndsWith("# unit:    m\n# Start of Data:\n-0.002\n-0.002\n"));
    EXPECT_EQ(entries(), QStringList{"target"});
}

} // namespace
