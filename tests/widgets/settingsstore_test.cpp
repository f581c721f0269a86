#include <csignal>
#include <gtest/gtest.h>
#include <QFile>
#include <QLockFile>
#include <QTemporaryDir>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <unistd.h>
#include <vorelutil/widgets/savable.h>
#include <vorelutil/widgets/settingsstore.h>

// clang-format off

static const std::string start = "; Settings, format 1. Keep this line and the last one: without it the file counts as cut off.\n";
static const std::string end = "\n; End of settings.\n";

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
    const QTemporaryDir m_folder;
    const QString m_path = m_folder.filePath(QString::fromUtf8("M\xC3\xBCller.ini"));
    SettingsStore m_store{m_path};
};

struct Text : Savable
{
    Text(const QString& name, const QString& value, const QString& owner = "Scan") : Savable(nullptr, name, owner)
    {
        setValue(QString("built in")), setValueDefault(), setValue(value);
    }
};

TEST_F(Settings, AnyTextSurvives)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    for (const QString& text : {QString("1.5"), QString(""), QString(" "), QString(" a b "), QString("a\nb\r\n"), QString("\t=x;#[y]="), QString("]"),
             QString(";c"), QString("#"), QString("\\"), QString("\\n\\u0041\\"), QString::fromUtf8("\xC2\xB5m \xF0\x9F\x94\xAC \xC2\xA0"),
             QString(QChar(0xD800)), QString(QChar(0)) + QChar(0xFEFF), QString(QChar(0x2028)) + QChar(0xFFFF), QString(100000, 'x')}) {
        SCOPED_TRACE(text.left(20).toStdString());
        const QString key = text.isEmpty() ? QString("k") : text;
        {
            const Text setting(key, text, key), plain("after", "7", key);
            QFile::remove(m_path);
            ASSERT_TRUE(m_store.save()) << m_store.errorText().toStdString();
        }
        const Text setting(key, "x", key), plain("after", "x", key);
        ASSERT_TRUE(m_store.load());
        m_store.offer();
        EXPECT_TRUE(setting.getValue() == text && !setting.getValue().isNull() && plain.getValue() == "7");
    }
}

TEST_F(Settings, OnlyWhatChangedIsMerged)
{
    Text a("a", "built in"), b("b", "built in"), c("c", "built in"), d("d", "built in"), frozen("f", "x"), fresh("z", "built in", "New]");
    frozen.freeze();
    const std::string mine = "\xEF\xBB\xBF# mine\r\n[Scan]\r\n a = 1\r\nstray\na=2\nb=";
    write(mine + "1\nc=1\nf=1\nlate=1\n\n[Unknown] \nk=v");
    EXPECT_TRUE(m_store.load());
    m_store.offer();
    EXPECT_EQ((a.getValue() + b.getValue() + c.getValue() + frozen.getValue()).toStdString(), "111x");
    // Meanwhile another instance changes b and d, and windows open that are offered nothing.
    write(mine + "other\nc=1\nf=1\nlate=1\nd=other\n\n[Unknown] \nk=v");
    const Text late("late", "built in");
    Text twin("a", "9");
    a.setValue(5);
    c.setValue(QString("built in"));
    b.setValue(QString("built in"));
    b.freeze(); // its key stays
    fresh.setValue(QString("=\n"));
    ASSERT_TRUE(m_store.save()) << m_store.errorText().toStdString();
    const std::string kept = start + "# mine\r\n[Scan]\r\na=9\nstray\nb=other\nf=1\nlate=1\nd=other\n\n[Unknown] \nk=v\n\n[New\\]]\n";
    EXPECT_EQ(read(), kept + "z==\\n\n" + end);
    EXPECT_TRUE(m_store.save() && read() == kept + "z==\\n\n" + end); // the loser of two does not come back
    EXPECT_EQ(read(".bak"), mine + "other\nc=1\nf=1\nlate=1\nd=other\n\n[Unknown] \nk=v");
    twin.setValue(QString("built in")); // `a` still wants to be saved
    fresh.setValue(QString("built in")); // never offered, but written by us
    EXPECT_TRUE(m_store.save() && read() == kept + end) << read();
    a.setValue(QString("built in"));
    EXPECT_TRUE(m_store.save() && read().find("a=") == std::string::npos);
}

TEST_F(Settings, DamagedFileGivesWayToItsBackup)
{
    const std::string good = start + "\n[Scan]\na=1\n" + end;
    std::vector<std::string> damages = {"garbage", "[Scan]\na=\xFF", {"[Scan]\na=\0", 10}, std::string(4096, '\0')};
    for (std::size_t size = 0; size < good.size() - 1; ++size) damages.push_back(good.substr(0, size));
    for (const std::string& damaged : damages) {
        SCOPED_TRACE(damaged);
        Text a("a", "built in");
        write(damaged);
        write(good, ".bak");
        EXPECT_TRUE(m_store.load() && m_store.errorText().contains("its backup"));
        m_store.offer();
        EXPECT_EQ(a.getValue().toStdString(), "1");
        if (damaged.size() % 40 == 9 || damaged[0] == 'g') { // saving takes its time
            a.setValue(2);
            EXPECT_TRUE(m_store.save());
            EXPECT_EQ(read(), start + "\n[Scan]\na=2\n" + end);
            EXPECT_TRUE(read(".bak") == good && read(".damaged") == damaged);
        }
        write(damaged);
        write(damaged, ".bak");
        EXPECT_EQ(m_store.load(), damaged.empty()); // an empty file alone is nothing bad
    }
}

TEST_F(Settings, FailuresSayWhyAndLoseNothing)
{
    Text a("a", "2");
    QLockFile lock(m_path + ".lock");
    const auto protect = [&](bool on) { QFile::setPermissions(m_path, on ? QFile::ReadOwner : QFile::ReadOwner | QFile::WriteOwner); };
    const auto fill = [&](rlim_t size) { // as on a full disk, no file can grow beyond it
        const rlimit limit = {size, RLIM_INFINITY};
        signal(SIGXFSZ, size == RLIM_INFINITY ? SIG_DFL : SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    const struct { const char* why; QString path; std::function<void()> before, after; } rows[] = {
        {"its folder does not exist", m_folder.filePath("no/x.ini"), [] {}, [] {}},
        {"it is not a file", "/dev/zero", [] {}, [] {}},
        {"it is larger than 4194304 bytes", m_path, [&] { QFile::resize(m_path, 5LL << 30); }, [&] { QFile::resize(m_path, 11); }},
        {"it would be larger than 4194304 bytes", m_path, [&] { a.setValue(QString(5 << 20, 'x')); }, [&] { a.setValue(2); }},
        {"it is write-protected", m_path, [&] { protect(true); }, [&] { protect(false); }},
        {"perhaps the disk is full", m_path, [&] { a.setValue(QString(900, 'x')); fill(500); }, [&] { a.setValue(2); fill(RLIM_INFINITY); }},
        {"another process holds its lock", m_path, [&] { lock.tryLock(); }, [&] { lock.unlock(); }}};
    write("[Scan]\na=1\n");
    for (const auto& row : rows) {
        row.before();
        SettingsStore store(row.path);
        EXPECT_FALSE(store.save());
        row.after();
        EXPECT_TRUE(store.errorText().contains(row.why)) << store.errorText().toStdString();
        EXPECT_EQ(read(), "[Scan]\na=1\n");
    }
    EXPECT_TRUE(a.getToBeSaved() && m_store.save());
    EXPECT_EQ(read(), start + "[Scan]\na=2\n" + end);
}

TEST_F(Settings, OffersAllowForSettingsThatComeAndGo)
{
    write("[Scan]\na=1\nb=1\nc=1\n");
    auto store = std::make_unique<SettingsStore>(m_path);
    const Text a("a", ""), c("c", "");
    auto* b = new Text("b", "");
    std::unique_ptr<Text> created;
    QObject::connect(&a, &Savable::notifyChanged, [&] { delete b; store.reset(); created = std::make_unique<Text>("b", ""); });
    ASSERT_TRUE(store->load() && m_store.load());
    store->offer();
    m_store.offer();
    EXPECT_EQ((a.getValue() + created->getValue() + c.getValue()).toStdString(), "111");
}

TEST_F(Settings, KilledSaverLeavesAGoodFile)
{
    Text a("a", "0"), b("b", "0");
    ASSERT_TRUE(m_store.save());
    for (int round = 0; round < 30; ++round) {
        const std::string before = read();
        const pid_t child = fork();
        if (child == 0) for (;;) {
            b.setValue(a);
            if (!m_store.save()) _exit(1);
            a.setValue(QString((a.getValue().size() + 977) % 20000 + 1, QChar('a' + a.getValue().size() % 26)));
        }
        for (int looks = 0; looks < 2 * round || (read() == before && looks < 100000); ++looks) {
            SettingsStore store(m_path);
            const Text first("a", "built in"), second("b", "built in");
            ASSERT_TRUE(store.load() && store.errorText().isEmpty()) << store.errorText().toStdString();
            store.offer();
            ASSERT_TRUE(first.getValue() == second.getValue() && first.getToBeSaved());
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        EXPECT_NE(read(), before);
        write(""); // should the disk lose it now, the backup is whole, too
        EXPECT_TRUE(m_store.load() && m_store.errorText().contains("its backup"));
        EXPECT_TRUE(m_store.save()) << m_store.errorText().toStdString();
    }
}
