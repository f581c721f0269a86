#include "fields.h"

#include <climits>
#include <functional>
#include <QAbstractButton>
#include <QAccessible>
#include <QContextMenuEvent>
#include <QLabel>
#include <QLibraryInfo>
#include <QMenu>
#include <QMetaProperty>
#include <QSpinBox>
#include <QTranslator>
#include <tests/support/germanlocale.h>
#include <tests/support/require.h>
#include <vorelutil/widgets/stepdialog.h>

#define DO(...) []([[maybe_unused]] Volts& e) { __VA_ARGS__; }

namespace {

constexpr auto idle = UnitEdit::EsIdle, waits = UnitEdit::EsCommitted;
constexpr auto good = UnitEdit::EsEditValid, bad = UnitEdit::EsEditInvalid;

/// A field of volts in steps of 1 mV, up to 10 V, that shows "1 V".
struct Volts : Driven<UnitEdit>
{
    explicit Volts(bool direct = false, DfltInputPf pf = DfltPfConfigured, const char* group = "volts")
        : Driven(nullptr, pf, nullptr, direct, group)
    {
        connect(this, &UnitEdit::changed, [this](int v) { announced.append(v); });
        configure(" V ", 'm', 1, 0, 0, 10000);
        setValue(1000, false);
    }
    bool stepped(bool relative, int relStep, double absStep, std::initializer_list<int> steps)
    {
        changeStepInt(false, relative, relStep, absStep);
        bool possible = false;
        for (const int s : steps) possible = step(s);
        return possible;
    }
    QVector<int> announced;
};

struct Row
{
    const char* desc;
    std::function<void(Volts&)> act;
    UnitEdit::EditStatus status;
    const char* text;
    int value;
    QVector<int> announced = {};
};

template <std::size_t n>
void check(const Row (&rows)[n], bool direct = false, UnitEdit::DfltInputPf pf = UnitEdit::DfltPfConfigured)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.desc);
        Volts edit(direct, pf);
        row.act(edit);
        const char* const colors[] = {"", "lightgreen", "red", "greenyellow", "white"};
        EXPECT_EQ(edit.status(), row.status);
        EXPECT_EQ(edit.background(), QColor(colors[row.status]));
        EXPECT_EQ(edit.isReadOnly(), row.status == waits);
        EXPECT_EQ(edit.shown(), row.text);
        EXPECT_EQ(edit.getValue(), row.value);
        EXPECT_EQ(edit.announced, row.announced);
    }
}

QStringList texts(const QMenu& menu)
{
    QStringList all;
    for (const QAction* a : menu.actions())
        if (!a->isSeparator()) all.append(a->text().section('\t', 0, 0));
    return all;
}

} // namespace

// clang-format off
static int toBeSaved() { int n = 0; for (const Savable* s : Savable::_savableList) n += s->getToBeSaved(); return n; }

TEST(UnitEdit, TakesOverValuesAndSettings)
{
    check({
        {"new field's limits",   DO(UnitEdit n; EXPECT_EQ(n.text(), ""); EXPECT_TRUE(n.setValue(5, true)); EXPECT_EQ(n.text(), "1 "); EXPECT_EQ(n.minimumWidth(), n.fontMetrics().horizontalAdvance("1234.567 mm"))), idle, "1 V", 1000},
        {"both limits",          DO(EXPECT_FALSE(e.setValue(0, true)); EXPECT_TRUE(e.setValue(-7, true)); EXPECT_EQ(e.text(), "0 mV"); EXPECT_FALSE(e.setValue(10000, true)); EXPECT_TRUE(e.setValue(INT_MAX, true))), idle, "10 V", 10000},
        {"limits are off",       DO(e.setMinimum(10000); EXPECT_FALSE(e.setValue(-1, true)); e.setMinimum(INT_MAX); EXPECT_FALSE(e.setValue(500, true))), idle, "500 mV", 500},
        {"another unit",         DO(e.setTolerance(0.01); e.getNumber(); e.setBaseUnit(" A ")), idle, "1 A", 1000},
        {"factor and offset",    DO(e.setInputFactor(2); e.setInputOffset(990)),         idle, "20 mV", 1000},
        {"all of it kept",       DO(e.configure("V", 'u', 10, 5, 0, 0, true)),               idle, "1 V", 100005},
        {"number set, not text", DO(e.setNumber(1.23456); e.setInputPrefix('u', true)),      idle, "1.235 V", 1234560},
        {"text after an edit",   DO(e.setNumber(1.23456); e.type("2 V"); e.commit(); e.setValue(2000, false); e.setInputPrefix('u', true)), idle, "2 V", 2000000, {2000}},
        {"text of no number",    DO(e.type("x"); e.setInputPrefix('u', true)),               bad,  "1 mV", 1000},
        {"the prefix asked for", DO(char pf = 'k'; e.type("5"); EXPECT_EQ(e.getNumber(nullptr, &pf), 5000); EXPECT_EQ(e.getNumber(), 0.005)), good, "5", 1000},
        {"invalid: no tolerance", DO(e.setTolerance(0.01); e.setInvalid(true); e.setStatus(idle); e.setValue(1001, false)), idle, "1.001 V", 1001},
        {"within tolerance",     DO(e.setTolerance(0.01); e.setTolerance(1); e.setTolerance(noNumber); e.setValue(1009, false)), idle, "1 V", 1009},
        {"beyond it, or forced", DO(e.setTolerance(0.01); e.setValue(1011, false); EXPECT_EQ(e.text(), "1.011 V"); e.setValue(1012, false); e.updateDisplay(true)), idle, "1.012 V", 1012},
        {"NaN is beyond it",     DO(e.setTolerance(0.01); e.setFormulas("(", "")),           idle, "nan V", 1000},
        {"mean of every four",   DO(e.setAverageLength(4); e.setValue(5, false); EXPECT_EQ(e.text(), "5 mV"); e.setDisabled(true); for (int v : {9, 9, 9, 9, -1, -2, -2, -2, 9}) e.setValue(v, false)), idle, "-1 mV", -1},
        {"mean, unsigned on and off", DO(e.setAverageLength(2); e.setDisabled(true); e.setInputUnsigned(true); e.setValue(-1, false); e.setInputUnsigned(false); e.setValue(INT_MAX, false); EXPECT_EQ(e.getValue(), -1073741825); e.setValue(-3, false); e.setInputUnsigned(true); e.setValue(1, false)), idle, "4.295 MV", -1},
        {"no such setting",      DO(e.setResolution(-1); e.setOutputPrefixSelection(static_cast<UnitEdit::OutputPfSelect>(3)); EXPECT_TRUE(e.resolution() == 4 && e.outputPrefixSelection() == UnitEdit::PfDynamic)), idle, "1 V", 1000},
        {"unsigned mean",        DO(e.setInputUnsigned(true); e.setAverageLength(2); e.setDisabled(true); for (int v : {INT_MAX, INT_MIN + 2}) e.setValue(v, false)), idle, "2.147 MV", INT_MIN},
        {"cursor stays",         DO(e.setCursorPosition(1); e.setValue(2500, false); EXPECT_EQ(e.cursorPosition(), 1)), idle, "2.5 V", 2500},
        {"configured prefix",    DO(e.type("5 V"); e.commit(); e.setValue(0, false)),        idle, "0 mV", 0, {5000}},
    });
    check({{"as typed",          DO(e.type("5 V"); e.commit(); e.setValue(5000, false); EXPECT_EQ(e.absoluteStep(), 1); e.setValue(0, false)),        idle, "0 V", 0, {5000}}}, false, UnitEdit::DfltPfLastInput);
    check({{"as shown",          DO(e.type("5000m"); e.commit(); e.setValue(5000, false); e.setValue(0, false)), idle, "0 V", 0, {5000}}}, false, UnitEdit::DfltPfLastShown);
}

TEST(UnitEdit, FollowsTheTableOfStates)
{
    check({
        {"typed, beyond the limits",   DO(e.type("11 V")),                                 bad,   "11 V",  1000},
        {"invalid to valid",           DO(e.type("x"); e.type("2 V")),                     good,  "2 V",   1000},
        {"commit of the same value",   DO(e.type("1.000 V"); e.key(Qt::Key_Enter)),        idle,  "1 V",   1000},
        {"unit completed",             DO(e.type("2000"); e.key(Qt::Key_Return)),          waits, "2 V",   2000, {2000}},
        {"invalid is not committed",   DO(e.type("2 x"); e.key(Qt::Key_Return)),           bad,   "2 x",   1000},
        {"no step from no number",     DO(e.type("5,0 V"); e.key(Qt::Key_Up)),             bad,   "5,0 V", 1000},
        {"focus lost",                 DO(e.type("2 V"); e.send(QFocusEvent(QEvent::FocusOut))), waits, "2 V", 2000, {2000}},
        {"F5, values came meanwhile",  DO(e.type("2 V"); e.setValue(5, false); EXPECT_TRUE(e.setValue(90000, true)); EXPECT_EQ(e.text(), "2 V"); e.type("3 V"); e.key(Qt::Key_F5)), idle, "90 V", 90000},
        {"Escape always renders",      DO(e.setInvalid(true); e.restore(); EXPECT_TRUE(e.isValid()); e.type("2 V"); e.type("1 V"); e.restore(); EXPECT_FALSE(e.isTextDirty()); e.setTolerance(0.5); e.type("1.2 V"); e.key(Qt::Key_Escape)), idle, "1 V", 1000},
        {"Escape while it waits",      DO(e.type("2 V"); e.commit(); EXPECT_FALSE(e.isTextDirty()); e.key(Qt::Key_Escape)), idle, "2 V",  2000, {2000}},
        {"confirmed, a little off",    DO(e.type("2 V"); e.commit(); e.setValue(1999, false)), idle, "1.999 V", 1999, {2000}},
        {"confirmed in the slot",      DO(QObject::connect(&e, &UnitEdit::changed, [&](int v) { e.setValue(v + 1, false); }); e.type("2 V"); e.commit()), idle, "2.001 V", 2001, {2000}},
        {"typing while it waits",      DO(e.type("2 V"); e.commit(); e.type("3 V"); e.commit()), waits, "2 V", 2000, {2000}},
        {"set invalid",                DO(e.type("2 V"); e.commit(); e.setInvalid(true)),  bad,   "2 V",   2000, {2000}},
        {"set valid, but is not",      DO(e.type("2 x"); e.setInvalid(false); EXPECT_TRUE(e.isValid() && e.status() == idle); e.commit(); EXPECT_FALSE(e.isValid())), bad, "2 x", 1000},
        {"set valid over the limit",   DO(e.type("11 V"); e.setInvalid(false); e.commit()), waits, "11 V", 11000, {11000}},
        {"stepped while it waits",     DO(e.type("2 V"); e.commit(); QAccessible::queryAccessibleInterface(&e)->actionInterface()->doAction(QAccessibleActionInterface::increaseAction())), good, "2.02 V", 2000, {2000}},
        {"first value typed",          DO(UnitEdit n; n.setText("1"); n.commit(); EXPECT_TRUE(n.isValueShown() && !n.isTextDirty() && n.getValue() == 1)), idle, "1 V", 1000},
        {"cleared",                    DO(e.type("2 V"); e.commit(); e.clear()),           idle,  "",      2000, {2000}},
        {"set and committed",          DO(EXPECT_TRUE(e.setValueAndCommit(10001, true))),  waits, "10 V",  10000, {10000}},
        {"the present value, too",     DO(EXPECT_FALSE(e.setValueAndCommit(1000))),        idle,  "1 V",   1000},
        {"rounded when committed",     DO(e.setValueAndCommit(1234567)),                   waits, "1.235 kV", 1235000, {1235000}},
        {"rounded out of the range",   DO(e.setResolution(3); e.setValueAndCommit(INT_MIN); EXPECT_EQ(e.status(), bad); e.restore(); e.setValueAndCommit(INT_MAX); EXPECT_FALSE(e.isValid()); EXPECT_EQ(e.pendingValue(), 1000)), bad, "2.15 MV", 1000},
        {"no raw value",               DO(e.setInputUnsigned(true); e.setValueAndCommit(-1); EXPECT_TRUE(e.text() == "4.295 MV" && e.status() == bad); e.restore(); e.setInputUnsigned(false); e.setInputFactor(0); e.setValueAndCommit(5)), bad, "0 mV", 1000},
        {"formula one way",            DO(e.setFormulas("*(x,x)", ""); e.setValueAndCommit(5)), waits, "25 mV", 25, {25}},
        {"set while the user types",   DO(e.type("2 V"); e.setValueAndCommit(3000)),       waits, "2 V",   2000, {2000}},
        {"formula that fails",         DO(e.setFormulas("+(x", "x"); e.setValueAndCommit(5); e.setValue(1000, false); EXPECT_FALSE(e.isValid())), idle, "nan V", 1000},
        {"formula of infinity",        DO(e.setFormulas("/(x,0)", "0"); EXPECT_TRUE(e.isValid()); e.setValueAndCommit(5); EXPECT_FALSE(e.isValid())), bad, "inf YV", 1000},
        {"formula back that fails",    DO(e.setFormulas("x", "nope(x)"); e.setValueAndCommit(5); e.step(1)), bad, "5 mV", 1000},
        {"typed into a failing one",   DO(e.setFormulas("(", "("); e.type("7"); e.key(Qt::Key_Return)), bad, "7", 1000},
    });
    check({
        {"directly committed",         DO(e.type("2 V"); e.key(Qt::Key_Return)),           idle,  "2 V",   2000, {2000}},
    }, true);
}

TEST(UnitEdit, StepsByKeysAndWheelAndSettings)
{
    check({
        {"one percent up and down",    DO(e.setValue(100, false); EXPECT_TRUE(e.stepped(true, 10, 0, {1})); EXPECT_EQ(e.text(), "101 mV"); e.step(-1)), good, "100 mV", 100},
        {"at least the last digit",    DO(e.setResolution(2); e.setValue(9000, false); e.stepped(true, 0, 0, {1}); EXPECT_EQ(e.text(), "9.1 V"); e.type("900m"); e.step(1)), good, "1 V", 9000},
        {"at least a raw step",        DO(e.setValue(1, false); e.stepped(true, 10, 0, {1})), good, "2 mV",  1},
        {"absolute, without sign",     DO(e.stepped(false, 10, -0.25, {1, 1})),            good,  "1.5 V",   1000},
        {"lands on zero",              DO(e.stepped(false, 10, 0.9995, {-1})),             good,  "0 mV",    1000},
        {"beyond the limits",          DO(EXPECT_FALSE(e.stepped(false, 10, 9.1, {INT_MIN})); EXPECT_EQ(e.lastStepDirection(), -1); EXPECT_FALSE(e.step(1)); EXPECT_EQ(e.lastStepDirection(), 1)), idle, "1 V", 1000},
        {"last raw value",             DO(e.setMaximum(0); e.setValue(INT_MAX, false); e.setResolution(10); EXPECT_FALSE(e.step(1)); e.stepped(true, 0, 0, {-1})), good, "2.147483646 MV", INT_MAX},
        {"Up and Down",                DO(e.stepped(false, 0, 0.01, {}); e.key(Qt::Key_Up); EXPECT_EQ(e.text(), "1.01 V"); e.key(Qt::Key_Down); e.key(Qt::Key_Down)), good, "990 mV", 1000},
        {"wheel, Alt, zero is down",   DO(e.stepped(false, 0, 0.01, {}); e.wheel({0, 1}); e.wheel({120, 0}, Qt::AltModifier); EXPECT_EQ(e.text(), "1.02 V"); e.wheel({}, {}, Qt::ScrollUpdate, {0, 2}); EXPECT_EQ(e.text(), "1.03 V"); e.wheel({0, 0})), good, "1.02 V", 1000},
        {"no notch in a gesture",      DO(for (auto phase : {Qt::ScrollBegin, Qt::ScrollMomentum, Qt::ScrollEnd}) e.wheel({0, 0}, {}, phase)), idle, "1 V", 1000},
        {"direction of the last",      DO(EXPECT_TRUE(e.step(0)); EXPECT_EQ(e.lastStepDirection(), -1); e.step(1); e.commit(); e.setValue(1010, false); EXPECT_EQ(e.lastStepDirection(), 0)), idle, "1.01 V", 1010, {1010}},
        {"only steps commit late",     DO(e.step(1); EXPECT_TRUE(e.timer().isActive()); e.type("12"); EXPECT_FALSE(e.timer().isActive()); e.step(1); e.restore(); EXPECT_FALSE(e.timer().isActive()); e.type("5")), good, "5", 1000},
        {"Control, Shift and both",    DO(e.stepped(false, 0, 0.01, {}); e.wheel({0, 120}, Qt::ControlModifier); e.wheel({0, 120}, Qt::ShiftModifier); e.wheel({0, 120}, Qt::ControlModifier | Qt::ShiftModifier)), good, "2.2 V", 1000},
        {"three notches, one commit",  DO(QSignalSpy spy(&e, &UnitEdit::changed); e.stepped(false, 0, 0.01, {}); for (int i = 0; i < 3; ++i) e.wheel({0, 9}); EXPECT_TRUE(e.timer().isSingleShot() && e.timer().interval() == 100 && spy.wait())), waits, "1.03 V", 1030, {1030}},
        {"the step follows the prefix", DO(EXPECT_EQ(e.absoluteStep(), 0.001); e.step(1); e.restore(); e.setInputPrefix('u'); e.setValue(5, false); EXPECT_EQ(e.absoluteStep(), 1e-6)), idle, "5 \u00b5V", 5},
        {"until the dialog opened",    DO(UnitEdit n(nullptr, {}, nullptr, false, "n"); EXPECT_EQ(toBeSaved(), 0); e.setAbsoluteStepsize("2 V"); EXPECT_EQ(toBeSaved(), 0); EXPECT_EQ(e.absoluteStep(), 2); e.setValue(5, false); EXPECT_EQ(e.absoluteStep(), 0.001); e.configureStep(); e.setInputPrefix('u'); e.setValue(5, false); EXPECT_EQ(e.absoluteStep(), 0.001)), idle, "5 \u00b5V", 5},
        {"until one was made",         DO(e.stepped(false, 0, 0.25, {1}); e.restore(); e.setValue(5, false); EXPECT_EQ(e.absoluteStep(), 0.25)), idle, "5 mV", 5},
        {"or a stored one came",       DO(for (Savable* s : Savable::_savableList) s->setValueFromExt("volts", "AbsStep", "0.5"); e.setValue(5, false); EXPECT_EQ(e.absoluteStep(), 0.5)), idle, "5 mV", 5},
    });
}
// clang-format on

TEST(UnitEdit, CanBeUsedThroughItsMetaObject)
{
    Volts volts;
    UnitEdit* const field = &volts;
    EXPECT_STREQ(field->metaObject()->userProperty().name(), "value");
    EXPECT_TRUE(field->setProperty("value", 1500));
    EXPECT_EQ(field->property("number").toDouble(), 1.5);
}

TEST(UnitEdit, HasAMenuWithOneUndoInEveryLanguage)
{
    for (const bool german : {false, true}) {
        QTranslator translator;
        const QString folder = QLibraryInfo::location(QLibraryInfo::TranslationsPath);
        const std::unique_ptr<GermanLocale> locale(german ? new GermanLocale : nullptr);
        REQUIRE_OR_SKIP(!german || (translator.load("qtbase_de", folder) && locale->works()),
                        "the locale de_DE.UTF-8 and the toolkit's German texts");
        QCoreApplication::installTranslator(&translator);
        Volts edit;
        edit.type("1.5 V");
        edit.key(Qt::Key_Return);
        edit.setValue(1000, false);
        EXPECT_EQ(edit.announced, QVector<int>{1500});
        QObject::connect(&edit, &UnitEdit::contextMenuCreated, [](QMenu* m) { m->addAction("Owner's"); });
        std::unique_ptr<QMenu> menu(edit.createContextMenu());
        const QStringList own = {"Undo", "Step Width...", "Unit Prefix", "Owner's"};
        EXPECT_EQ(texts(*menu).mid(5), own); // after cut, copy, paste, delete, select all
        EXPECT_EQ(texts(*menu).at(4), german ? "Alles ausw\u00e4hlen" : "Select All");
        const int undo = menu->actions().size() - 4;
        EXPECT_FALSE(menu->actions().at(undo)->isEnabled());
        QMenu* const prefixes = menu->actions().at(undo + 2)->menu();
        EXPECT_EQ(texts(*prefixes), (QStringList{"Dynamic", "Static", "Use Input"}));
        EXPECT_TRUE(prefixes->actions().at(0)->isChecked());
        prefixes->actions().at(1)->trigger();
        EXPECT_FALSE(prefixes->actions().at(0)->isChecked());
        edit.configurePf(std::make_unique<QAction>("dynamic").get()); // no such caption
        EXPECT_EQ(edit.text(), "1000 mV");

        edit.setInputPrefix('X');
        edit.type("5");
        menu.reset(edit.createContextMenu());
        EXPECT_FALSE(menu->actions().at(undo + 2)->menu()->isEnabled());
        menu->actions().at(undo)->trigger();
        EXPECT_EQ(edit.text(), "1000 V");
    }
}

TEST(UnitEdit, SharesItsStepSettingsWithItsGroup)
{
    Volts first, second, other(false, UnitEdit::DfltPfConfigured, "others"), alone(false, {}, "");
    for (Volts* to : {&first, &second, &other})
        QObject::connect(&first, &UnitEdit::stepChanged, to, &UnitEdit::changeStep);
    QObject::connect(&second, &UnitEdit::stepChanged, &first, &UnitEdit::changeStep);
    QSignalSpy told(&first, &UnitEdit::stepChanged), echoed(&second, &UnitEdit::stepChanged);
    first.changeStepInt(true, false, 20, 0.5);
    EXPECT_TRUE(told == (QList<QVariantList>{{"volts", false, 20, 0.5}}));
    EXPECT_TRUE(echoed.isEmpty() && other.isStepRelative());
    EXPECT_TRUE(second.absoluteStep() == 0.5 && second.relativeStep() == 20 && !second.isStepRelative());

    QSignalSpy aloneTold(&alone, &UnitEdit::stepChanged);
    alone.setAbsoluteStepsize("20 m");
    alone.changeStep("", false, 9, 9); // no group is none to share with
    EXPECT_TRUE(alone.absoluteStep() == 0.02 && alone.isStepRelative() && aloneTold.isEmpty());
    alone.configureStep();
    alone.setAbsoluteStepsize("30 mV"); // now its dialog tells, even without a group
    EXPECT_TRUE(aloneTold == (QList<QVariantList>{{"", true, 10, 0.03}}));
}

TEST(StepDialog, SetsTheStepByKeysAlone)
{
    Volts edit;
    QSignalSpy told(&edit, &UnitEdit::stepChanged);
    edit.configureStep();
    auto* const dialog = edit.findChild<StepDialog*>();
    ASSERT_TRUE(dialog != nullptr && QTest::qWaitForWindowActive(dialog));
    auto* const spin = dialog->findChild<QSpinBox*>();
    auto* const text = dialog->findChild<QLineEdit*>(QString(), Qt::FindDirectChildrenOnly);
    const auto buttons = dialog->findChildren<QAbstractButton*>(); // absolute, relative, Ok, Cancel
    const auto enter = [&](const char* typed) {
        text->selectAll();
        QTest::keyClicks(text, typed);
        QTest::keyClick(text, Qt::Key_Return);
        return dialog->isVisible();
    };
    EXPECT_EQ(dialog->windowTitle(), "Step Width Up/Down/Wheel");
    EXPECT_EQ(buttons.at(0)->toolTip(), "Step width absolute.");
    EXPECT_EQ(buttons.at(1)->toolTip(), "Step width proportional to current value.");
    EXPECT_TRUE(spin->toolTip() == "Value of absolute step width." && text->toolTip().isEmpty());
    EXPECT_TRUE(spin->text() == "10  [0.1%]" && spin->maximum() == 1000 && text->text() == "1 mV");
    for (auto* label : dialog->findChildren<QLabel*>()) EXPECT_NE(label->buddy(), nullptr);

    EXPECT_TRUE(buttons.at(1)->isChecked() && spin->isEnabled() && !text->isEnabled());
    QTest::keyClick(buttons.at(1), Qt::Key_Down);
    EXPECT_TRUE(buttons.at(0)->isChecked() && !spin->isEnabled() && text->isEnabled());
    EXPECT_TRUE(enter("2 x") && !buttons.at(2)->isEnabled());
    edit.changeStep("volts", false, 10, 2);
    EXPECT_FALSE(enter("3")); // volts, as it was shown, not milli, as in the field
    EXPECT_TRUE(dialog->result() == QDialog::Accepted && text->text() == "3 V");
    dialog->show();
    QTest::keyClick(buttons.at(3), Qt::Key_Space);
    EXPECT_TRUE(!dialog->isVisible() && dialog->result() == QDialog::Rejected);
    EXPECT_TRUE(told == (QList<QVariantList>{{"volts", false, 10, 3.0}}));

    edit.changeStep("volts", true, 7, 0.004);
    EXPECT_TRUE(spin->value() == 7 && text->text() == "4 mV" && buttons.at(1)->isChecked());
    UnitEdit empty; // no number to show an absolute width in
    StepDialog emptys(&empty);
    for (auto* b : emptys.findChildren<QAbstractButton*>())
        EXPECT_EQ(b->isEnabled(), !b->toolTip().contains("absolute"));
}

TEST(UnitEditFaults, SurvivesWhatIsPasted)
{
    for (const QString& pasted :
         {QString(1 << 20, '1'), QString(1 << 20, ' ') + "1 V", QString::fromLatin1("1\0 V", 4),
          QString("1\n2\t3 V"), QString::fromUtf8("\u202e1 V"), QString("1e999"), QString("0x10"),
          QString("1:2:3:4 h")}) {
        Volts edit;
        edit.setSelection(0, 3);
        edit.insert(pasted);
        edit.key(Qt::Key_Return);
        EXPECT_TRUE(edit.status() == bad && edit.text() == pasted.left(edit.maxLength()));
        edit.step(1);
        edit.key(Qt::Key_Escape);
        EXPECT_EQ(edit.text(), "1 V") << pasted.left(20).toStdString();
        EXPECT_TRUE(edit.announced.isEmpty());
    }
}

TEST(UnitEditFaults, SurvivesItsOwnEnd)
{
    const auto dies = [](Volts* e, auto signal) { QObject::connect(e, signal, [e] { delete e; }); };
    // clang-format off
    const std::function<void(Volts*)> ends[] = {
        [&](Volts* e) { dies(e, &UnitEdit::changed); e->setText("2 V"); e->commit(); },
        [&](Volts* e) { dies(e, &UnitEdit::changed); e->setValueAndCommit(2); },
        [&](Volts* e) { dies(e, &UnitEdit::changed); e->step(1); },
        [&](Volts* e) { e->step(1); QTimer::singleShot(0, e, &UnitEdit::selectContents); delete e; },
        [&](Volts* e) { dies(e, &UnitEdit::stepChanged); e->changeStepInt(true, true, 1, 1); },
        [&](Volts* e) { dies(e, &UnitEdit::stepChanged); e->configureStep(); e->setAbsoluteStepsize("1 V"); },
        [&](Volts* e) { dies(e, &UnitEdit::contextMenuCreated); e->send(QContextMenuEvent(QContextMenuEvent::Keyboard, {})); },
        [&](Volts* e) { QTimer::singleShot(0, e, [=] { delete e; }); e->send(QContextMenuEvent(QContextMenuEvent::Keyboard, {})); },
        [&](Volts* e) { QObject::connect(e, &UnitEdit::contextMenuCreated, [=](QMenu* menu) {
                            menu->setActiveAction(menu->addAction("Close", [=] { delete e; }));
                            QTimer::singleShot(0, menu, [=] { QTest::keyClick(menu, Qt::Key_Return); }); });
                        e->send(QContextMenuEvent(QContextMenuEvent::Keyboard, {})); },
        [&](Volts* e) { e->configureStep(); delete e->findChild<StepDialog*>(); e->configureStep(); delete e; },
    };
    // clang-format on
    const int before = Savable::_savableList.size();
    for (const auto& end : ends) {
        QPointer<Volts> edit = new Volts;
        edit->show();
        end(edit);
        EXPECT_TRUE(QTest::qWaitFor([&] { return edit.isNull(); }));
        EXPECT_EQ(Savable::_savableList.size(), before);
    }
}
