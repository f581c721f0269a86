#include <gtest/gtest.h>
#include <QSignalSpy>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <vorelutil/widgets/savable.h>

// clang-format off

// Made before main: the list has to be there.
static Savable earliest(nullptr, "earliest", "statics");

TEST(Savable, NumbersAreTextInAnyLocale)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    Savable a(nullptr, "n", "o"), b(nullptr, "n", "o"), c(nullptr, "n", "o");
    a.setValue(0.1 + 0.2);
    b.setValue(1234567.0);
    b.setValueDefault();
    EXPECT_EQ((a.getValue() + ' ' + b.getValue()).toStdString(), "0.3 1.23457e+06");
    c.setValue(-2147483647 - 1);
    a.setValue(c);
    EXPECT_EQ(a.getValue().toStdString(), "-2147483648");
    EXPECT_TRUE(a.getToBeSaved() && !b.getToBeSaved());
    a.freeze();
    EXPECT_FALSE(a.getToBeSaved());
}

TEST(Savable, OffersAreTakenOnce)
{
    const struct { const char *desc, *name, *owner, *before, *plugin, *offered, *value; bool takes, emits, hasExt; const char* restored; } rows[] = {
        {"replaced",       "Step", "Scan", "1", "Scan", "2",     "2", true,  true,  true,  "1"},
        {"same",           "Step", "Scan", "1", "Scan", "1",     "1", true,  false, false, ""},
        {"empty replaced", "Step", "Scan", "",  "Scan", "2",     "2", true,  true,  false, ""},
        {"empty offered",  "Step", "Scan", "1", "Scan", "",      "",  true,  true,  true,  "1"},
        {"null offered",   "Step", "Scan", "1", "Scan", nullptr, "1", false, false, false, ""},
        {"other owner",    "Step", "Scan", "1", "scan", "2",     "1", false, false, false, ""},
        {"other name",     "step", "Scan", "1", "Scan", "2",     "1", false, false, false, ""},
        {"without owner",  "Step", "",     "1", "",     "2",     "1", false, false, false, ""},
        {"without name",   "",     "Scan", "1", "Scan", "2",     "1", false, false, false, ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.desc);
        const QString name = row.name[0] == '\0' ? "" : "Step";
        Savable setting(nullptr, row.name, row.owner);
        setting.setValue(QString(row.before));
        QSignalSpy spy(&setting, &Savable::notifyChanged);
        setting.setValueFromExt(row.plugin, name, QString(row.offered));
        EXPECT_TRUE(setting.hasAcceptedExt() == row.takes && setting.hasValueFromExt() == row.hasExt);
        if (row.takes) setting.setValueFromExt(row.plugin, name, "second");
        EXPECT_EQ(setting.getValue(), row.value);
        EXPECT_TRUE(spy.size() == static_cast<int>(row.emits));
        EXPECT_EQ(spy.value(0), row.emits ? QVariantList({name, row.value}) : QVariantList());
        setting.restore();
        EXPECT_EQ(setting.getValue(), row.restored);
        EXPECT_EQ(setting.isFrozen(), row.name[0] == '\0' || row.owner[0] == '\0');
    }
}

TEST(Savable, RegistryAndSlots)
{
    EXPECT_EQ(Savable::_savableList.first(), &earliest);
    Savable receiver(nullptr, "r", "o"), placeholder;
    QObject parent;
    const int before = Savable::_savableList.size();
    auto* a = new Savable(&parent, "a", "o", true, SLOT(setValue(QString)), &receiver);
    auto* b = new Savable(&receiver, "b", "o", false, SLOT(setValue(QString)), nullptr);
    auto* c = new Savable(nullptr, "c", "o", false, "", nullptr);
    EXPECT_EQ(Savable::_savableList.mid(before), (QList<Savable*>{a, b, c}));
    a->setValueFromExt("o", "a", "x");
    EXPECT_EQ(receiver.getValue().toStdString(), "a"); // the first argument, the name
    b->setValueFromExt("o", "b", "x");
    EXPECT_EQ(receiver.getValue().toStdString(), "b"); // of the parent, where there is no receiver
    placeholder = *a;
    EXPECT_TRUE(placeholder.getToBeSaved() && placeholder.getFlag());
    QObject::connect(c, &Savable::notifyChanged, [c] { delete c; });
    c->setValueFromExt("o", "c", "x");
    delete a;
    EXPECT_EQ(Savable::_savableList.mid(before), QList<Savable*>{b});
}
