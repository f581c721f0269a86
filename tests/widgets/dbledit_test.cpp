#include "fields.h"

#include <memory>
#include <tests/support/germanlocale.h>

// clang-format off

namespace {

constexpr auto white = "#ffffff", lightgreen = "#90ee90", red = "#ff0000";
constexpr auto typing = DblEdit::EsEditValid, wrong = DblEdit::EsEditInvalid, idle = DblEdit::EsIdle;

/// A field that shows `number`, and what it announces.
struct Field
{
    explicit Field(double number = 0, double minimum = 0, double maximum = 0, const char* unit = "V")
    {
        edit->configure(unit, minimum, maximum);
        edit->setNumber(number);
    }
    Field& key(Qt::Key key) { edit->key(key); return *this; }
    Field& type(const char* text) { edit->type(text); return *this; }
    Field& enter(const char* text) { return type(text).key(Qt::Key_Return); }
    std::string text() const { return edit->shown(); }
    auto state() const { return std::tuple(edit->status(), edit->background().name().toStdString(), edit->isValid(), edit->isTextDirty()); }
    auto number() const { return std::tuple(edit->getNumber(), text(), changed.count()); }

    std::unique_ptr<Driven<DblEdit>> edit = std::make_unique<Driven<DblEdit>>();
    QSignalSpy changed{edit.get(), &DblEdit::changed};
};

TEST(DblEdit, JudgesWhatIsTypedAndCommitsOnlyWhatCounts)
{
    const GermanLocale german; // the point stays
    const struct { const char* typed; bool valid; double number; const char* shown; int changes; } rows[] = {
        {"10", true, 10, "10 V", 1},       {"12.5m", true, 0.0125, "12.5 mV", 1}, {"1500 mV", true, 1.5, "1.5 V", 1},
        {"3.0", true, 3, "3.0", 0},       {"10.001", false, 3, "10.001", 0},     {"-1 mV", false, 3, "-1 mV", 0},
        {"1,5", false, 3, "1,5", 0},      {"1e999", false, 3, "1e999", 0},       {"nan V", false, 3, "nan V", 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.typed);
        Field field(3, 0, 10);
        const auto judged = std::tuple(row.valid ? typing : wrong, row.valid ? lightgreen : red, row.valid, true);
        EXPECT_EQ(field.type(row.typed).state(), judged);
        EXPECT_EQ(field.edit->getNumber(), 3);
        EXPECT_EQ(field.key(Qt::Key_Return).number(), std::tuple(row.number, row.shown, row.changes));
        EXPECT_EQ(field.state(), row.valid ? std::tuple(idle, white, true, false) : judged);
        EXPECT_EQ(field.changed.value(0).value(0, 3).toDouble(), row.number);
        field.edit->setNumber(4);
        EXPECT_EQ(field.type(row.typed).key(row.valid ? Qt::Key_Escape : Qt::Key_F5).number(), std::tuple(4, "4 V", row.changes)); // thrown away
        EXPECT_EQ(field.state(), std::tuple(idle, white, true, false));
    }
    EXPECT_EQ(Field(3).enter("nan V").number(), std::tuple(3, "nan V", 0)); // not without limits, either
}

TEST(DblEdit, CommitsANumberAloneWithoutPrefix)
{
    Field field(1, 0, 0, " s ");
    EXPECT_EQ(field.enter("5m").edit->prefix(), 'm');
    EXPECT_EQ(field.type("7").key(Qt::Key_Up).text(), "7.35 ms"); // as it was judged
    field.edit->setNumber(0);
    EXPECT_EQ(field.text(), "0 s");
    EXPECT_EQ(field.type("7").edit->parseNumber(), 0.007);
    EXPECT_EQ(field.key(Qt::Key_Return).number(), std::tuple(7, "7 s", 2));
    EXPECT_EQ(field.edit->prefix(), ' ');
    field.enter("5m").edit->setMaximum(1);
    EXPECT_EQ(field.enter("7").number(), std::tuple(0.005, "5 ms", 3)); // inside the limits with the prefix only
    EXPECT_EQ(field.state(), std::tuple(idle, white, true, false));
}

TEST(DblEdit, StepsByFivePercent)
{
    Field field(100);
    EXPECT_EQ(field.key(Qt::Key_Up).text(), "105 V");
    EXPECT_EQ(field.key(Qt::Key_Down).text(), "100 V");
    field.edit->wheel({0, 1}, Qt::ControlModifier | Qt::ShiftModifier);
    field.edit->wheel({}, {}, Qt::ScrollUpdate, {0, 9});
    field.edit->wheel({}, {}, Qt::ScrollEnd); // no notch
    EXPECT_EQ(field.text(), "110.3 V");
    field.edit->wheel({});
    EXPECT_EQ(field.text(), "105 V");
    EXPECT_EQ(field.state(), std::tuple(typing, lightgreen, true, true));
    ASSERT_TRUE(field.changed.wait(patience)); // one commit for all of them
    EXPECT_EQ(field.number(), std::tuple(105, "105 V", 1));
    for (const auto key : {Qt::Key_Escape, Qt::Key_9}) { // what the user does then is not committed by the step
        field.key(Qt::Key_Up);
        EXPECT_TRUE(field.edit->timer().isActive() && field.edit->timer().interval() == 100);
        field.key(key);
        EXPECT_FALSE(field.edit->timer().isActive());
    }
    field.edit->setNumber(7);
    field.edit->setReadOnly(true);
    field.edit->wheel({0, 120});
    EXPECT_EQ(field.key(Qt::Key_Up).text(), "7 V");
    EXPECT_EQ(Field(9.8, 0, 10).key(Qt::Key_Up).text() + Field(1).type("x").key(Qt::Key_Up).text(), "9.8 Vx");
}

TEST(DblEdit, TakesNumbersOverAtOnce)
{
    const struct { double number; bool limit; double stored; bool limited; const char* text; } rows[] = {
        {5, true, 5, false, "5 V"}, {-7, true, 0, true, "0 V"}, {inf, true, 10, true, "10 V"}, {0, true, 0, false, "0 V"}, {inf, false, inf, false, "inf YV"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.number);
        Field field(1, 0, 10);
        field.type("34.567").edit->setCursorPosition(2);
        EXPECT_EQ(field.edit->setNumber(row.number, row.limit), row.limited);
        EXPECT_EQ(field.number(), std::tuple(row.stored, row.text, 0));
        EXPECT_EQ(field.state(), std::tuple(wrong, red, true, false)); // the state stays
        EXPECT_EQ(field.edit->cursorPosition(), 2);
    }
    Field field(1, 10, 0); // the wrong way round: no limits
    EXPECT_FALSE(field.edit->setNumber(-5, true) || field.edit->setNumber(noNumber, true));
    EXPECT_EQ(field.text(), "nan V");
}

TEST(DblEdit, LeavesTheTextWithinTheTolerance)
{
    Field field(100);
    field.edit->setTolerance(0.01);
    field.edit->setTolerance(1); // ignored
    const struct { double number; const char* text; } rows[] = {{100.9, "100 V"}, {101.1, "101.1 V"}, {0, "0 V"}, {1e-9, "1 nV"}};
    for (const auto& row : rows) {
        field.edit->setNumber(row.number);
        EXPECT_EQ(field.number(), std::tuple(row.number, row.text, 0));
    }
    EXPECT_EQ(field.enter("2").text(), "2 V"); // the unit is completed all the same
    field.type("2.01").edit->setNumber(2);
    EXPECT_EQ(field.text(), "2 V"); // and what was typed goes
}

TEST(DblEdit, MayGoWhileACommitIsDueOrAnnounced)
{
    Field(1).key(Qt::Key_Up);
    Field field(1);
    QObject::connect(field.edit.get(), &DblEdit::changed, [&] { field.edit.reset(); });
    field.key(Qt::Key_Up);
    EXPECT_TRUE(QTest::qWaitFor([&] { return field.edit == nullptr; }, patience));
}

} // namespace
