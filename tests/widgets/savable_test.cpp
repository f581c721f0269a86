#include <gtest/gtest.h>
#include <QSignalSpy>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <vorelutil/widgets/savable.h>

// clang-format off

static void PrintTo(const QString& text, std::ostream* out) { *out << text.toStdString(); }

// Made before main, wherever the linker puts this file: the list has to be there.
static Savable earliest(nullptr, "earliest", "statics");

TEST(Savable, NumbersAreTextInAnyLocale)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    Savable setting(nullptr, "n", "o"), other(nullptr, "n", "o");
    setting.setValue(0.1 + 0.2);
    EXPECT_EQ(setting.getValue(), "0.3");
    setting.setValue(1234567.0);
    EXPECT_EQ(setting.getValue(), "1.23457e+06");
    setting.setValue(-2147483647 - 1);
    other.setValueDefault();
    other.setValue(setting);
    EXPECT_EQ(other.getValue(), "-2147483648");
    EXPECT_TRUE(other.getToBeSaved());
    other.freeze();
    EXPECT_FALSE(other.getToBeSaved());
}

TEST(Savable, OffersAreTakenOnce)
{
    const struct { const char* desc; const char* name; const char* owner; const char* before; const char* plugin;
                   const char* offered; const char* value; bool takes, emits, hasExt; const char* restored; } rows[] = {
        {"replaced",        "Step", "Scan", "1", "Scan", "2",     "2", true,  true,  true,  "1"},
        {"same",            "Step", "Scan", "1", "Scan", "1",     "1", true,  false, false, ""},
        {"empty replaced",  "Step", "Scan", "",  "Scan", "2",     "2", true,  true,  false, ""},
        {"empty offered",   "Step", "Scan", "1", "Scan", "",      "",  true,  true,  true,  "1"},
        {"null offered",    "Step", "Scan", "1", "Scan", nullptr, "1", false, false, false, ""},
        {"other owner",     "Step", "Scan", "1", "scan", "2",     "1", false, false, false, ""},
        {"other name",      "step", "Scan", "1", "Scan", "2",     "1", false, false, false, ""},
        {"without owner",   "Step", "",     "1", "",     "2",     "1", false, false, false, ""},
        {"without name",    "",     "Scan", "1", "Scan", "2",     "1", false, false, false, ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.desc);
        Savable setting(nullptr, row.name, row.owner);
        setting.setValue(QString(row.before));
        QSignalSpy spy(&setting, &Savable::notifyChanged);
        const QString name = row.name[0] == '\0' ? "" : "Step";
        setting.setValueFromExt(row.plugin, name, QString(row.offered));
        EXPECT_EQ(setting.getValue(), row.value);
        EXPECT_EQ(setting.hasAcceptedExt(), row.takes);
        EXPECT_EQ(setting.hasValueFromExt(), row.hasExt);
        if (row.takes) setting.setValueFromExt(row.plugin, name, "second");
        EXPECT_EQ(setting.getValue(), row.value);
        const QList<QVariantList> once = {{name, row.value}};
        EXPECT_EQ(QList<QVariantList>(spy), row.emits ? once : QList<QVariantList>());
        setting.restore();
        EXPECT_EQ(setting.getValue(), row.restored);
    }
}

TEST(Savable, RegistryKeepsTheOrder)
{
    EXPECT_EQ(Savable::_savableList.first(), &earliest);
    const int before = Savable::_savableList.size();
    QObject owner;
    auto* a = new Savable(&owner, "Name", "o", true, SLOT(deleteLater()), nullptr);
    auto* b = new Savable(&owner, "Name", "", false, "", nullptr);
    auto* c = new Savable(nullptr, "Name", "o", false, SLOT(restore()), b);
    Savable placeholder;
    EXPECT_EQ(Savable::_savableList.mid(before), (QList<Savable*>{a, b, c}));
    delete b;
    EXPECT_EQ(Savable::_savableList.mid(before), (QList<Savable*>{a, c}));
    EXPECT_TRUE(placeholder.isFrozen());
    a->setValue(5);
    placeholder = *a;
    EXPECT_TRUE(placeholder.getToBeSaved() && placeholder.getFlag() && !a->isFrozen());
    EXPECT_EQ(Savable::_savableList.size(), before + 2);
    delete c;
}

// The slot of the receiver is called, and may delete the setting; without a receiver it is the parent's.
TEST(Savable, SlotIsConnected)
{
    QObject parent;
    Savable receiver(nullptr, "r", "o");
    QPointer<Savable> direct = new Savable(&parent, "a", "o", false, "1setValueFromExt(QString,QString)", &receiver);
    direct->setValueFromExt("o", "a", "x"); // no such slot: the toolkit warns, nothing else
    EXPECT_EQ(direct->getValue(), "x");
    Savable child(&receiver, "b", "o", false, SLOT(setValue(QString)));
    child.setValueFromExt("o", "b", "y");
    EXPECT_EQ(receiver.getValue(), "b");
    auto* doomed = new Savable(nullptr, "c", "o");
    QObject::connect(doomed, &Savable::notifyChanged, [doomed](const QString&, const QString&) { delete doomed; });
    const int before = Savable::_savableList.size();
    doomed->setValueFromExt("o", "c", "z");
    EXPECT_EQ(Savable::_savableList.size(), before - 1);
}
