#include <gtest/gtest.h>
#include <QSignalSpy>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <vorelutil/widgets/savable.h>

// Made before main: the list has to be there.
static Savable earliest(nullptr, "earliest", "statics");

TEST(Savable, NumbersAreTextInAnyLocale)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "locale de_DE.UTF-8");
    Savable a(nullptr, "n", "o"), b(nullptr, "n", "o");
    b.setValue(0.1 + 0.2);
    a.setValue(b);
    b.setValue(-2147483647 - 1);
    EXPECT_EQ((a.getValue() + b.getValue()).toStdString(), "0.3-2147483648");
    b.setValue(1234567.0);
    b.setValueDefault();
    EXPECT_EQ(b.getValue().toStdString(), "1.23457e+06");
    EXPECT_TRUE(a.getToBeSaved() && !b.getToBeSaved());
}

TEST(Savable, OffersAreTakenOnce)
{
    // clang-format off
    const struct { const char *name, *owner, *before, *plugin, *offered, *value; bool takes, emits, hasExt; const char* restored; } rows[] = {
        {"Step", "Scan", "1", "Scan", "2",     "2", true,  true,  true,  "1"}, {"Step", "Scan", "1", "Scan", "1", "1", true,  false, false, ""},
        {"Step", "Scan", "",  "Scan", "2",     "2", true,  true,  false, ""},  {"Step", "Scan", "1", "Scan", "",  "",  true,  true,  true,  "1"},
        {"Step", "Scan", "1", "Scan", nullptr, "1", false, false, false, ""},  {"Step", "Scan", "1", "scan", "2", "1", false, false, false, ""},
        {"step", "Scan", "1", "Scan", "2",     "1", false, false, false, ""},  {"Step", "",     "1", "",     "2", "1", false, false, false, ""},
        {"",     "Scan", "1", "Scan", "2",     "1", false, false, false, ""}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const QString name = row.name[0] == '\0' ? "" : "Step";
        Savable setting(nullptr, row.name, row.owner);
        setting.setValue(QString(row.before));
        QSignalSpy spy(&setting, &Savable::notifyChanged);
        setting.setValueFromExt(row.plugin, name, QString(row.offered));
        EXPECT_TRUE(setting.hasAcceptedExt() == row.takes && setting.hasValueFromExt() == row.hasExt);
        if (row.takes) setting.setValueFromExt(row.plugin, name, "second");
        EXPECT_TRUE(setting.getValue() == row.value && spy.size() == int(row.emits));
        EXPECT_EQ(spy.value(0), row.emits ? QVariantList({name, row.value}) : QVariantList());
        setting.restore();
        EXPECT_EQ(setting.getValue(), row.restored);
    }
}

TEST(Savable, RegistryAndSlots)
{
    EXPECT_EQ(Savable::_savableList.first(), &earliest);
    const int before = Savable::_savableList.size();
    QObject parent;
    Savable receiver(nullptr, "r", "o"), placeholder;
    auto* a = new Savable(&parent, "a", "o", true, SLOT(setValue(QString)), &receiver);
    auto* b = new Savable(&receiver, "b", "o", false, SLOT(setValue(QString)));
    auto* c = new Savable(nullptr, "c", "o", false, "");
    EXPECT_EQ(Savable::_savableList.mid(before), (QList<Savable*>{&receiver, a, b, c}));
    a->setValueFromExt("o", "a", "x");
    EXPECT_EQ(receiver.getValue(), "a"); // the first argument, the name
    b->setValueFromExt("o", "b", "x");
    EXPECT_EQ(receiver.getValue(), "b"); // of the parent, where there is no receiver
    placeholder = *b;
    EXPECT_TRUE(placeholder.getToBeSaved() && !placeholder.getFlag() && a->getFlag());
    QObject::connect(c, &Savable::notifyChanged, [&] { delete c, delete a; });
    c->setValueFromExt("o", "c", "x");
    EXPECT_EQ(Savable::_savableList.mid(before), (QList<Savable*>{&receiver, b}));
}
