#include "apps/bench/safesave.h"
#include "apps/bench/scansettings.h"
#include "vorelutil/frames/framebuffer.h"

#include <csignal>
#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <sys/resource.h>

using namespace bench;

namespace {

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

void write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

// As on a full disk: a file of this process can grow to `bytes` and no further.
class FullDisk
{
public:
    explicit FullDisk(rlim_t bytes)
        : m_handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit limit{bytes, m_limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk()
    {
        setrlimit(RLIMIT_FSIZE, &m_limit);
        std::signal(SIGXFSZ, m_handler);
    }

private:
    void (*m_handler)(int);
    rlimit m_limit{};
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
        write(target, "old");
        auto disk = std::make_unique<FullDisk>(room);
        const SaveResult result = save(kind, target);
        disk.reset();
        EXPECT_FALSE(result.ok);
        EXPECT_TRUE(result.text.startsWith(target + " was not saved: ")) << result.text.toStdString();
        EXPECT_EQ(contents(target), "old");
        EXPECT_EQ(entries(), QStringList{"target"});
        EXPECT_EQ(save(kind, target).text, "saved " + target);
        EXPECT_GT(contents(target).size(), 600);
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
    write(target, "old");
    ASSERT_TRUE(QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner));
    const QString link = folder.filePath(QStringLiteral("link"));
    ASSERT_TRUE(QFile::link(target, link));
    EXPECT_TRUE(save(Snapshot::Binary, link).ok);
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_TRUE(contents(target).startsWith("fileformat = bcrf"));
    EXPECT_EQ(QFileInfo(target).permissions() & (QFile::ReadGroup | QFile::ReadOther), 0);
}

TEST_F(SafeSaveTest, LogIsSavedWholeOrNotAtAll)
{
    write(target, "old");
    const QVector<int> samples(5000, -1999999999);
    RunningLog log;
    ASSERT_TRUE(log.start(frame, target, QStringLiteral("signal")).ok);
    {
        const FullDisk disk(20000); // beyond what the stream buffers
        log.add(samples.constData(), samples.size());
        EXPECT_EQ(contents(target), "old");
        const SaveResult result = log.stop();
        EXPECT_TRUE(!result.ok && result.text.contains("whole values of 5000")) << result.text.toStdString();
    }
    EXPECT_EQ(contents(target), "old");
    EXPECT_FALSE(log.stop().ok);

    ASSERT_TRUE(log.start(frame, target, QStringLiteral("signal")).ok);
    log.add(samples.constData(), 2);
    EXPECT_EQ(log.stop().text, "saved " + target + ", 2 values");
    EXPECT_TRUE(contents(target).endsWith("# unit:    m\n# Start of Data:\n-0.002\n-0.002\n"));
    EXPECT_EQ(entries(), QStringList{"target"});
}

} // namespace
