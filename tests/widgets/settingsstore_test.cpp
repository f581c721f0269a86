#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <QDir>
#include <QLockFile>
#include <QTemporaryDir>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tests/support/files.h>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <unistd.h>
#include <vorelutil/widgets/savable.h>
#include <vorelutil/widgets/settingsstore.h>

namespace {

// clang-format off
const std::string start = "; Settings, format 1. Keep this line and the last one: without it the file counts as cut off.\n";
// clang-format on
const std::string end = "\n; End of settings.\n";

class Settings : public ::testing::Test
{
protected:
    std::string read(const char* ending = "") const { return contents((m_path + ending).toStdString()); }
    bool loads(SettingsStore* store) const
    {
        const bool result = store->load();
        store->offer();
        return result;
    }
    void write(const std::string& bytes) const { std::ofstream(m_path.toStdString()) << bytes; }
    // In memory where that can be had: a save waits for the disk.
    const QTemporaryDir m_folder{QDir("/dev/shm").exists() ? "/dev/shm/vorel-XXXXXX" : ""};
    const QString m_path = m_folder.filePath(QString::fromUtf8("M\xC3\xBCller.ini"));
    SettingsStore m_store{m_path};
};

// The default is 0; what is offered with a ".0" loses that.
struct Text : Savable
{
    Text(const QString& name, const QString& value, const QString& owner = "Scan")
        : Savable(nullptr, name, owner)
    {
        setValue(0), setValueDefault(), setValue(value);
        connect(this, &Savable::notifyChanged, [this] { setValue(getValue().remove(".0")); });
    }
};

} // namespace

TEST_F(Settings, AnyTextSurvives)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    // clang-format off
    const QStringList texts = {
        "1.5", "", " ", " a b ", "a\nb\r\n", "\t=x;#[y]=", "]", ";c", "#", "\\", "\\n\\u0041\\", QString(100000, 'x'),
        QString::fromUtf8("\xC2\xB5m \xF0\x9F\x94\xAC \xC2\xA0"), QChar(0xD800), QString(QChar(0)) + QChar(0xFEFF), QString(QChar(0x2028)) + QChar(0xFFFF)};
    // clang-format on
    std::map<QString, Text> settings;
    for (const QString& text : texts) settings.try_emplace(text, text + 'k', text, 'k' + text);
    ASSERT_TRUE(m_store.save()) << qPrintable(m_store.errorText());
    settings.clear();
    for (const QString& text : texts) settings.try_emplace(text, text + 'k', "x", 'k' + text);
    ASSERT_TRUE(loads(&m_store));
    for (const auto& [text, setting] : settings) EXPECT_TRUE(setting.getValue() == text) << qPrintable(text);
    EXPECT_FALSE(settings.at("").getValue().isNull());
}

// "<" is what another instance writes, "+" makes a setting (capitals the second of a key), "!" freezes one.
TEST_F(Settings, OnlyWhatChangedIsMerged)
{
    // clang-format off
    const struct { const char *desc, *steps, *left; } rows[] = {
        {"others' changes stay",    "+a +b +c <a=1,b=0,c=1 load offer <a=7,b=4 save", "a=7,b=4"},
        {"so when loaded again",    "+a +b +c <a=1,b=0,c=1 load offer <a=7,b=4 load offer save", "a=7,b=4"},
        {"so in a second store",    "+a +c <a=1,c=1 load offer <a=7 second load offer save", "a=7"}, {"made unloaded", "+a a=5 <a=7 load save", "a=5"},
        {"but not over one's own",  "+a +b <a=1,b=1 load offer a=5 b=0 <a=7,b=4 load save", "a=5"}, {"back to what was", "+a <a=1 load offer a=7 <a=7 load a=1 save", "a=1"},
        {"after others' removal",   "+a <a=5 load offer <b=1 load a=0 save a=5 save", "b=1,a=5"}, {"normalised", "+a +b <a=1.0,b=0.0 load offer <a=2.0,b=0.0 save", "a=2.0,b=0.0"},
        {"made late, not offered",  "+a <a=1,l=1 load offer +l a=2 save save", "a=2,l=1"}, {"made late, saved, left", "<b=1 load +l l=3 save l=0 save", "b=1"},
        {"frozen",                  "+a +b !b b=9 <a=1,b=1 load offer a=0 !a save", "a=1,b=1"}, {"last of two", "+a +A <a=1 load offer a=5 A=9 save save", "a=9"},
        {"of two the loser is gone", "+a +A <a=1 load offer a=5 save a=0 save", "a=1"}, {"two leave", "+a +A <a=1 load offer a=5 save a=0 A=0 save", ""},
        {"absent",                  "+a +b load offer a=5 save", "a=5"}, {"absent, nothing to save", "+a load offer save", "(none)"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.desc);
        QFile::remove(m_path);
        SettingsStore first(m_path), second(m_path), *store = &first;
        std::map<QString, Text> settings;
        for (const QString& step : QString(row.steps).split(' ')) {
            bool isDone = step != "load" || store->load();
            if (step == "offer") store->offer();
            if (step == "save") isDone = store->save();
            if (step == "second") store = &second;
            if (step[0] == '<') write("[Scan]\n" + step.mid(1).replace(',', '\n').toStdString());
            if (step[0] == '+') settings.try_emplace(step.mid(1), step.mid(1).toLower(), "0");
            if (step[0] == '!') settings.at(step.mid(1)).freeze();
            if (step[1] == '=') settings.at(step.left(1)).setValue(step.mid(2));
            EXPECT_TRUE(isDone) << qPrintable(store->errorText());
        }
        const QString left = QString::fromStdString(read()).split('\n').filter("=").join(',');
        EXPECT_EQ(QFile::exists(m_path) ? left : "(none)", row.left);
    }
}

TEST_F(Settings, DamagedFileGivesWayToItsBackup)
{
    const std::string good = start + "\n[Scan]\na=1\n" + end;
    std::vector<std::string> damages = {"garbage", "[Scan]\na=\xFF", {"[Scan]\na=\0", 10}};
    for (std::size_t size = 0; size < good.size() - 1; ++size) damages.push_back(good.substr(0, size));
    for (const std::string& damaged : damages) {
        SCOPED_TRACE(damaged);
        Text a("a", "0");
        write(damaged);
        QFile::remove(m_path + ".bak");
        ASSERT_TRUE(QFile::copy(m_path, m_path + ".bak"));
        EXPECT_EQ(m_store.load(), damaged.empty()); // an empty file alone is nothing bad
        std::ofstream((m_path + ".bak").toStdString()) << good;
        EXPECT_TRUE(loads(&m_store) && m_store.errorText().contains("its backup"));
        EXPECT_EQ(a.getValue().toStdString(), "1");
        a.setValue(2);
        EXPECT_TRUE(m_store.save() && (damaged.empty() || read(".damaged") == damaged));
        EXPECT_EQ(read() + read(".bak"), start + "\n[Scan]\na=2\n" + end + good);
    }
    write("#\n" + start + "[Scan]\na=1\n"); // made by hand from such a file
    EXPECT_TRUE(m_store.load() && m_store.errorText().isEmpty());
}

TEST_F(Settings, FailuresSayWhyAndLoseNothing)
{
    Text a("a", "2"), c("c", "0"), fresh("z", "=\n", "New]");
    QLockFile lock(m_path + ".lock");
    const std::string mine =
        "\xEF\xBB\xBF# mine\r\n[Scan]\r\n a = 1\r\nstray\na=2\nb=1\nc=1\n[Unknown] \nk=v";
    const auto limit = [](rlim_t size) { // as on a full disk, no file can grow beyond it
        const rlimit most = {size, RLIM_INFINITY};
        signal(SIGXFSZ, size == RLIM_INFINITY ? SIG_DFL : SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &most);
    };
    // clang-format off
    const struct { const char* why; bool loads; QString path; std::function<void()> before, after; } rows[] = {
        {"its folder does not exist", true,  m_folder.filePath("no/x.ini"), [] {}, [] {}}, {"it is not a file", false, "/dev/zero", [] {}, [] {}},
        {"cannot be read",            false, m_path + "/x.ini", [] {}, [] {}}, {"it is not a file", false, m_folder.path(), [] {}, [] {}},
        {"it is larger than 4194304 bytes",       false, m_path, [&] { QFile::resize(m_path, 4194305); }, [&] { write(mine); }},
        {"it would be larger than 4194304 bytes", true,  m_path, [&] { a.setValue(QString(4194200, 'x')); }, [&] { a.setValue(2); }},
        {"it is write-protected",                 true,  m_path, [&] { QFile(m_path).setPermissions(QFile::ReadOwner); }, [&] { QFile(m_path).setPermissions(QFile::ReadOwner | QFile::WriteOwner); }},
        {"whole, perhaps the disk is full",       true,  m_path, [&] { limit(100); }, [&] { limit(RLIM_INFINITY); }},
        {"lock file could not be written, perhaps the disk is full", true, m_path, [&] { limit(0); }, [&] { limit(RLIM_INFINITY); }},
        {"another process holds its lock",        true,  m_path, [&] { lock.tryLock(); }, [&] { lock.unlock(); }},
        {".lock is not a file",                   true,  m_path, [&] { QDir().mkdir(m_path + ".lock"); }, [&] { QDir().rmdir(m_path + ".lock"); }}};
    // clang-format on
    write(mine);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        SettingsStore store(row.path, 10);
        row.before();
        const bool isLoaded = store.load(), isSaved = store.save();
        row.after();
        EXPECT_TRUE(store.errorText().contains(row.why)) << qPrintable(store.errorText());
        EXPECT_EQ(std::tuple(isLoaded, isSaved, read()), std::tuple(row.loads, false, mine));
    }
    EXPECT_TRUE(loads(&m_store) && c.getValue() == "1");
    a.setValue(9), c.setValue(0);
    EXPECT_TRUE(m_store.save()) << qPrintable(m_store.errorText());
    // Lines that did not change stay as they are.
    const std::string kept = "# mine\r\n[Scan]\r\na=9\nstray\nb=1\n[Unknown] \nk=v\n\n[New\\]]\nz==\\n\n";
    EXPECT_EQ(std::pair(read(), read(".bak")), std::pair(start + kept + end, mine));
}

TEST_F(Settings, OffersAllowForSettingsThatComeAndGo)
{
    write("[Scan]\na=1\nb=1\nc=1\n");
    auto store = std::make_unique<SettingsStore>(m_path);
    auto a = std::make_unique<Text>("a", ""), b = std::make_unique<Text>("b", "");
    const Text c("c", "");
    const auto goAndCome = [&] { store.reset(), a.reset(), b = std::make_unique<Text>("b", ""); };
    QObject::connect(a.get(), &Savable::notifyChanged, goAndCome);
    EXPECT_TRUE(loads(store.get()) && b->getValue().isEmpty() && c.getValue() == "1");
    EXPECT_TRUE(loads(&m_store) && b->getValue() == "1");
}

TEST_F(Settings, KilledSaverLeavesAGoodFile)
{
    Text a("a", "1"), b("b", "1");
    ASSERT_TRUE(m_store.save());
    for (int round = 0; round < 6; ++round) {
        const std::string before = read();
        const pid_t child = fork();
        while (child == 0) {
            const int size = (a.getValue().size() + 977) % 20000;
            a.setValue(QString(size + 1, QChar('a' + size % 26)));
            b.setValue(a);
            if (!m_store.save()) _exit(1);
        }
        for (int looks = 0; looks < round || (read() == before && looks < 100000); ++looks) {
            SettingsStore store(m_path);
            const Text first("a", "0"), second("b", "0");
            ASSERT_TRUE(loads(&store) && store.errorText().isEmpty()) << qPrintable(store.errorText());
            ASSERT_TRUE(first.getValue() == second.getValue() && first.getToBeSaved());
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        EXPECT_NE(read(), before);
        write(""); // should the disk lose it now, the backup is whole, too
        EXPECT_TRUE(m_store.load() && m_store.errorText().contains("its backup") && m_store.save());
    }
}
