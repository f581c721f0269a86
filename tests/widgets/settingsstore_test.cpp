#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <QElapsedTimer>
#include <QFile>
#include <QLockFile>
#include <QTemporaryDir>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <unistd.h>
#include <vector>
#include <vorelutil/widgets/savable.h>
#include <vorelutil/widgets/settingsstore.h>

// clang-format off

namespace {

const std::string start = "; Settings, format 1. Keep this line and the last one: without it the file counts as cut off.\n";
const std::string end = "\n; End of settings.\n";

class Settings : public ::testing::Test
{
protected:
    std::string read(const QString& ending = "") const
    {
        QFile file(m_path + ending);
        return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : "(none)";
    }
    void write(const std::string& bytes, const QString& ending = "") const
    {
        QFile file(m_path + ending);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(QByteArray::fromStdString(bytes)) >= 0);
    }
    void expectError(const char* text, const SettingsStore& store) const
    {
        EXPECT_NE(store.errorText().toStdString().find(text), std::string::npos) << store.errorText().toStdString();
    }

    const QTemporaryDir m_folder;
    const QString m_path = m_folder.filePath(QString::fromUtf8("M\xC3\xBCller.ini"));
    SettingsStore m_store{m_path};
};

struct Text : Savable
{
    Text(const char* name, const char* value, const char* owner = "Scan") : Savable(nullptr, name, owner)
    {
        setValue(QString("built in"));
        setValueDefault();
        setValue(QString::fromUtf8(value));
    }
};

} // namespace

TEST_F(Settings, AnyTextSurvives)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    const QString texts[] = {"1.5", "", " ", " a b ", "a\nb\r\n", "\t=x;#[y]=", "[", "]", ";c", "#", "\\", "\\n\\u0041\\", "\\uD800",
        "\"q\"", QString::fromUtf8("\xC2\xB5m \xE2\x82\xAC \xF0\x9F\x94\xAC \xC2\xA0"), QString(QChar(0xD800)), QString(QChar(0)) + QChar(0xFEFF),
        QString(QChar(0x2028)) + QChar(0xFFFF), QString(100000, 'x')};
    for (const QString& text : texts) {
        SCOPED_TRACE(text.left(20).toStdString());
        const QString key = text.isEmpty() ? QString("k") : text;
        QFile::remove(m_path);
        {
            Savable setting(nullptr, key, key), plain(nullptr, "after", key);
            setting.setValue(text + "*");
            setting.setValueDefault();
            setting.setValue(text);
            plain.setValue(7);
            ASSERT_TRUE(m_store.save()) << m_store.errorText().toStdString();
        }
        Savable setting(nullptr, key, key), plain(nullptr, "after", key);
        setting.setValue("x*x");
        ASSERT_TRUE(m_store.load() && m_store.errorText().isEmpty());
        m_store.offer();
        EXPECT_TRUE(setting.getValue() == text && !setting.getValue().isNull() && plain.getValue() == "7");
    }
}

TEST_F(Settings, OnlyWhatChangedIsMerged)
{
    Text a("a", "built in"), b("b", "built in"), c("c", "built in"), d("d", "built in"), frozen("f", "x"), other("z", "built in", "New]");
    frozen.freeze();
    EXPECT_TRUE(m_store.load()); // absent
    write("\xEF\xBB\xBF# mine \xFF\r\n[Scan]\r\n a = 1\r\nstray\na=2\nb=1\nc=1\nf=1\nlate=1\n\n[Unknown] \nk=v");
    EXPECT_FALSE(m_store.load()); // no UTF-8
    write("\xEF\xBB\xBF# mine\r\n[Scan]\r\n a = 1\r\nstray\na=2\nb=1\nc=1\nf=1\nlate=1\n\n[Unknown] \nk=v");
    EXPECT_TRUE(m_store.load());
    m_store.offer();
    EXPECT_EQ(a.getValue() + b.getValue() + c.getValue() + frozen.getValue(), "111x");
    // Meanwhile another instance changes b and d, and windows open: one knows a key, one is not offered anything.
    write("# mine\r\n[Scan]\r\n a = 1\r\nstray\na=2\nb=other\nc=1\nf=1\nlate=1\nd=other\n\n[Unknown] \nk=v");
    Text late("late", "built in"), twin("a", "9");
    a.setValue(QString("5"));
    c.setValue(QString("built in"));
    other.setValue(QString("=\n"));
    ASSERT_TRUE(m_store.save()) << m_store.errorText().toStdString();
    const std::string merged = start + "# mine\r\n[Scan]\r\na=9\nstray\nb=other\nf=1\nlate=1\nd=other\n\n[Unknown] \nk=v\n\n[New\\]]\nz==\\n\n" + end;
    EXPECT_EQ(read(), merged);
    EXPECT_TRUE(m_store.save()); // nothing new, and the loser of two does not come back
    EXPECT_EQ(read(), merged);
    EXPECT_EQ(read(".bak").substr(0, 22), "# mine\r\n[Scan]\r\n a = 1");
    twin.setValue(QString("built in")); // `a` still wants to be saved
    other.setValue(QString("built in")); // never offered, but written by us
    ASSERT_TRUE(m_store.save());
    EXPECT_EQ(read(), start + "# mine\r\n[Scan]\r\na=9\nstray\nb=other\nf=1\nlate=1\nd=other\n\n[Unknown] \nk=v\n\n[New\\]]\n" + end);
    EXPECT_EQ(read(".bak"), merged);
    a.setValue(QString("built in"));
    ASSERT_TRUE(m_store.save());
    EXPECT_EQ(read().find("a="), std::string::npos);
}

TEST_F(Settings, DamagedFileGivesWayToItsBackup)
{
    const std::string good = start + "\n[Scan]\na=1\n" + end, changed = start + "\n[Scan]\na=2\n" + end;
    std::vector<std::string> damages = {"garbage", "[Scan]\na=\xFF", {"[Scan]\na=\0", 10}, std::string(4096, '\0')};
    for (std::size_t size = 0; size < good.size() - 1; ++size) damages.push_back(good.substr(0, size));
    for (const std::string& damaged : damages) {
        SCOPED_TRACE(damaged);
        write(damaged);
        write(good, ".bak");
        EXPECT_TRUE(m_store.load());
        expectError("its backup", m_store);
        {
            Text a("a", "built in");
            m_store.offer();
            EXPECT_EQ(a.getValue(), "1");
        }
        if (damaged.empty()) continue;
        if (damaged.size() % 40 == 0 || damaged[0] != ';') {
            const Text a("a", "2");
            EXPECT_TRUE(m_store.save());
            EXPECT_EQ(read(), changed);
            EXPECT_EQ(read(".bak"), good);
            EXPECT_EQ(read(".damaged"), damaged);
        }
        write(damaged);
        write(damaged, ".bak");
        EXPECT_FALSE(m_store.load());
        expectError("no good backup", m_store);
    }
}

TEST_F(Settings, FailuresSayWhyAndLoseNothing)
{
    Text a("a", "2");
    const std::string old = "[Scan]\na=1\n";
    write(old);
    std::unique_ptr<QLockFile> lock;
    const struct { const char* why; QString path; std::function<void()> before, after; } rows[] = {
        {"its folder does not exist", m_folder.filePath("no/x.ini"), [] {}, [] {}},
        {"it is not a file", m_folder.path(), [] {}, [] {}},
        {"it is not a file", "/dev/zero", [] {}, [] {}},
        {"it is larger than 4194304 bytes", m_path, [&] { QFile::resize(m_path, 5LL << 30); }, [&] { QFile::resize(m_path, 11); }},
        {"it would be larger than 4194304 bytes", m_path, [&] { a.setValue(QString(5 << 20, 'x')); }, [&] { a.setValue(QString("2")); }},
        {"it is write-protected", m_path, [&] { QFile::setPermissions(m_path, QFile::ReadOwner); },
            [&] { QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner); }},
        {"another process holds its lock", m_path, [&] { lock = std::make_unique<QLockFile>(m_path + ".lock"); lock->tryLock(); }, [&] { lock.reset(); }}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        row.before();
        SettingsStore store(row.path);
        EXPECT_FALSE(store.save());
        expectError(row.why, store);
        row.after();
        EXPECT_EQ(read(), old);
    }
    const pid_t child = fork();
    if (child == 0) { // as on a full disk, no file can grow beyond 200 bytes
        const rlimit limit = {200, 200};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        a.setValue(QString(300, 'x'));
        const bool isSaved = m_store.save();
        expectError("perhaps the disk is full", m_store);
        _exit(isSaved || HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read(), old);
    EXPECT_TRUE(a.getToBeSaved() && m_store.save());
    EXPECT_EQ(read(), start + "[Scan]\na=2\n" + end);
}

TEST_F(Settings, OffersAllowForSettingsThatComeAndGo)
{
    write("[Scan]\na=1\nb=1\nc=1\n");
    auto store = std::make_unique<SettingsStore>(m_path);
    Text a("a", ""), c("c", "");
    auto* b = new Text("b", "");
    std::unique_ptr<Text> created;
    QObject::connect(&a, &Savable::notifyChanged, [&] { delete b; store.reset(); created = std::make_unique<Text>("b", ""); });
    ASSERT_TRUE(store->load());
    store->offer();
    EXPECT_EQ(a.getValue() + c.getValue(), "11");
    ASSERT_TRUE(m_store.load());
    m_store.offer();
    EXPECT_EQ(created->getValue(), "1");
}

TEST_F(Settings, KilledSaverLeavesAGoodFile)
{
    Text a("a", "0"), b("b", "0");
    ASSERT_TRUE(m_store.save());
    for (int round = 0; round < 30; ++round) {
        const std::string before = read();
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0;; ++i) {
                a.setValue(QString(1 + (i * 977) % 20000, QChar('a' + i % 26)));
                b.setValue(a);
                m_store.save();
            }
        }
        QElapsedTimer time;
        time.start();
        for (int looks = 0; looks < 2 * round || (read() == before && time.elapsed() < 30000); ++looks) {
            SettingsStore store(m_path);
            Text first("a", "built in"), second("b", "built in");
            ASSERT_TRUE(store.load() && store.errorText().isEmpty()) << store.errorText().toStdString();
            store.offer();
            EXPECT_TRUE(first.getValue() == second.getValue() && first.getToBeSaved());
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        EXPECT_NE(read(), before);
        write(""); // what if the disk loses it now: the backup is whole, too
        SettingsStore store(m_path);
        EXPECT_TRUE(store.load());
        expectError("its backup", store);
        EXPECT_TRUE(m_store.save()) << m_store.errorText().toStdString();
    }
}
