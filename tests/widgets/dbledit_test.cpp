#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <vorelutil/widgets/dbledit.h>

// clang-format off

namespace {

constexpr int patience = 10000; // ms

/// A field of volts that shows `number`, and what it announces.
struct Field
{
    explicit Field(double number = 0, double minimum = 0, double maximum = 0, const char* unit = "V")
    {
        edit->configure(unit, minimum, maximum);
        edit->setNumber(number);
    }
    Field& type(const QString& text)
    {
        edit->selectAll();
        QTest::keyClicks(edit.get(), text);
        return *this;
    }
    Field& key(Qt::Key key) { QTest::keyClick(edit.get(), key); return *this; }
    void wheel(int delta, Qt::KeyboardModifiers modifiers, Qt::ScrollPhase phase = Qt::NoScrollPhase)
    {
        QWheelEvent event({1, 1}, {1, 1}, {}, {0, delta}, Qt::NoButton, modifiers, phase, false);
        QApplication::sendEvent(edit.get(), &event);
        EXPECT_TRUE(event.isAccepted());
    }
    std::string text() const { return edit->text().toStdString(); }
    std::string color() const { return edit->palette().color(edit->backgroundRole()).name().toStdString(); }

    std::unique_ptr<DblEdit> edit = std::make_unique<DblEdit>();
    QSignalSpy changed{edit.get(), &DblEdit::changed};
};

constexpr auto white = "#ffffff", lightgreen = "#90ee90", red = "#ff0000";

} // namespace

TEST(DblEdit, JudgesWhatIsTypedAndCommitsOnlyWhatCounts)
{
    const struct { const char* typed; DblEdit::EditStatus status; double number; const char* shown; int changes; } rows[] = {
        {"5", DblEdit::EsEditValid, 5, "5 V", 1},          {"12.5m", DblEdit::EsEditValid, 0.0125, "12.5 mV", 1},
        {"1500 mV", DblEdit::EsEditValid, 1.5, "1.5 V", 1}, {"3.0", DblEdit::EsEditValid, 3, "3.0", 0}, // not another number
        {"10.001", DblEdit::EsEditInvalid, 3, "10.001", 0}, {"-1 mV", DblEdit::EsEditInvalid, 3, "-1 mV", 0},
        {"1,5", DblEdit::EsEditInvalid, 3, "1,5", 0},       {"1e999", DblEdit::EsEditInvalid, 3, "1e999", 0},
        {"nan V", DblEdit::EsEditInvalid, 3, "nan V", 0},   {"k", DblEdit::EsEditInvalid, 3, "k", 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.typed);
        const bool valid = row.status == DblEdit::EsEditValid;
        Field field(3, 0, 10);
        field.type(row.typed);
        EXPECT_EQ(std::tuple(field.edit->status(), field.edit->isValid(), field.color()), std::tuple(row.status, valid, valid ? lightgreen : red));
        EXPECT_EQ(std::tuple(field.edit->getNumber(), field.edit->isTextDirty()), std::tuple(3, true));
        field.key(Qt::Key_Return);
        EXPECT_EQ(std::tuple(field.edit->getNumber(), field.text(), field.changed.count()), std::tuple(row.number, row.shown, row.changes));
        EXPECT_EQ(std::tuple(field.edit->status(), field.color()), valid ? std::tuple(DblEdit::EsIdle, white) : std::tuple(row.status, red));
        EXPECT_EQ(field.changed.value(0).value(0, 3).toDouble(), row.number);
        field.edit->setNumber(4);
        EXPECT_EQ(field.type(row.typed).key(valid ? Qt::Key_Escape : Qt::Key_F5).text(), "4 V"); // thrown away
        EXPECT_EQ(std::tuple(field.edit->status(), field.color(), field.edit->isTextDirty()), std::tuple(DblEdit::EsIdle, white, false));
    }
}

TEST(DblEdit, ReadsANumberAloneWithoutPrefixWhenItIsCommitted)
{
    Field field(1, 0, 0, "s");
    EXPECT_EQ(field.type("5m").key(Qt::Key_Return).edit->prefix(), 'm');
    EXPECT_EQ(field.type("7").edit->parseNumber(), 0.007);
    EXPECT_EQ(field.edit->status(), DblEdit::EsEditValid);
    field.key(Qt::Key_Return);
    EXPECT_EQ(std::tuple(field.edit->getNumber(), field.edit->prefix(), field.text()), std::tuple(7, ' ', "7 s"));
    // What is within the limits with the prefix only is not taken over.
    field.type("5m").key(Qt::Key_Return).edit->setMaximum(1);
    field.type("7").key(Qt::Key_Return);
    EXPECT_EQ(std::tuple(field.edit->getNumber(), field.text(), field.color(), field.changed.count()), std::tuple(0.005, "5 ms", white, 3));
    field.type("2000X").key(Qt::Key_Return).edit->setMaximum(0);
    EXPECT_EQ(field.type("2000Xs").key(Qt::Key_Return).text(), "00:33:20 h");
    field.edit->setNumber(0.002);
    EXPECT_EQ(field.text(), "0.002 s"); // X: never normalised
}

TEST(DblEdit, StepsByFivePercent)
{
    const Qt::KeyboardModifiers none = Qt::NoModifier, both = Qt::ControlModifier | Qt::ShiftModifier;
    Field field(100);
    EXPECT_EQ(field.key(Qt::Key_Up).text(), "105 V");
    EXPECT_EQ(field.key(Qt::Key_Down).text(), "100 V");
    const struct { int delta; Qt::KeyboardModifiers modifiers; const char* text; } notches[] = {
        {120, none, "105 V"}, {-120, Qt::ControlModifier, "100 V"}, {1, both, "105 V"}, {0, Qt::ShiftModifier, "100 V"}, {120, none, "105 V"}};
    for (const auto& notch : notches) {
        field.wheel(notch.delta, notch.modifiers);
        EXPECT_EQ(field.text(), notch.text);
    }
    field.wheel(0, none, Qt::ScrollEnd);
    EXPECT_EQ(std::tuple(field.edit->getNumber(), field.color()), std::tuple(100, lightgreen));
    ASSERT_TRUE(field.changed.wait(patience)); // one commit for all of them
    EXPECT_EQ(std::tuple(field.changed.count(), field.edit->getNumber(), field.color()), std::tuple(1, 105, white));

    EXPECT_EQ(Field(9.8, 0, 10).key(Qt::Key_Up).text(), "9.8 V");
    EXPECT_EQ(Field(1).type("x").key(Qt::Key_Up).text(), "x");
}

TEST(DblEdit, TakesNumbersOverAtOnce)
{
    constexpr double inf = std::numeric_limits<double>::infinity();
    const struct { double number; bool limit; double stored; bool limited; const char* text; } rows[] = {
        {5, true, 5, false, "5 V"}, {-7, true, 0, true, "0 V"}, {inf, true, 10, true, "10 V"}, {0, true, 0, false, "0 V"},
        {1500, false, 1500, false, "1.5 kV"}, {inf, false, inf, false, "inf YV"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.number);
        Field field(1, 0, 10);
        field.type("3.4567").edit->setCursorPosition(2);
        EXPECT_EQ(field.edit->setNumber(row.number, row.limit), row.limited);
        EXPECT_EQ(std::tuple(field.edit->getNumber(), field.text(), field.edit->isTextDirty(), field.edit->isValid()), std::tuple(row.stored, row.text, false, true));
        EXPECT_EQ(std::tuple(field.edit->cursorPosition(), field.changed.count()), std::tuple(2, 0));
    }
    Field field(1, 10, 0); // the wrong way round: no limits
    EXPECT_FALSE(field.edit->setNumber(-5, true));
    EXPECT_FALSE(field.edit->setNumber(std::numeric_limits<double>::quiet_NaN(), true));
    EXPECT_EQ(field.text(), "nan V");
}

TEST(DblEdit, LeavesTheTextWithinTheTolerance)
{
    Field field(100);
    field.edit->setTolerance(1);
    field.edit->setResolution(-1);
    EXPECT_EQ(std::tuple(field.edit->tolerance(), field.edit->resolution()), std::tuple(0, 4));
    field.edit->setTolerance(0.01);
    const struct { double number; const char* text; } rows[] = {{100.9, "100 V"}, {101.1, "101.1 V"}, {0, "0 V"}, {1e-9, "1 nV"}};
    for (const auto& row : rows) {
        field.edit->setNumber(row.number);
        EXPECT_EQ(std::tuple(field.text(), field.edit->getNumber()), std::tuple(row.text, row.number));
    }
}

TEST(DblEdit, SelectsOnFocusWhereTheSwitchSaysSo)
{
    const struct { bool on; Qt::FocusReason reason; bool selected; } rows[] = {
        {true, Qt::MouseFocusReason, true}, {false, Qt::MouseFocusReason, false}, {true, Qt::ActiveWindowFocusReason, false}};
    for (const auto& row : rows) {
        DblEdit edit(nullptr, &row.on);
        edit.setNumber(5);
        QFocusEvent event(QEvent::FocusIn, row.reason);
        QApplication::sendEvent(&edit, &event);
        EXPECT_FALSE(edit.hasSelectedText());
        QCoreApplication::processEvents();
        EXPECT_EQ(edit.hasSelectedText(), row.selected);
    }
}

TEST(DblEdit, MayGoWhileACommitIsDueOrAnnounced)
{
    Field field(1);
    bool announced = false;
    QObject::connect(field.edit.get(), &DblEdit::changed, [&] { announced = true; field.edit.reset(); });
    field.key(Qt::Key_Up);
    EXPECT_TRUE(QTest::qWaitFor([&] { return announced; }, patience));
    Field(1).key(Qt::Key_Up); // and the next one waits for longer than its commit would take
    Field later(2);
    later.key(Qt::Key_Up);
    EXPECT_TRUE(later.changed.wait(patience));
}
