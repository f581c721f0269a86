#include "fields.h"

#include <climits>
#include <QAccessible>
#include <QClipboard>
#include <QLabel>
#include <QScrollArea>
#include <QScrollBar>
#include <vorelutil/widgets/inputnormaliser.h>
#include <vorelutil/widgets/ueditspec.h>
#include <vorelutil/widgets/wheelguard.h>

// clang-format off

namespace {

TEST(FieldAccessible, TellsRoleNameValueAndStateInWords)
{
    QWidget window;
    QLabel label("&Exposure", &window);
    UEditSpec field(&window);
    label.setBuddy(&field);
    field.configure("s", 'm', 1, 0, 0, 1000);
    field.setValue(250);
    auto* const told = QAccessible::queryAccessibleInterface(&field);
    auto const tells = [&](QString const& value, QString const& state) {
        EXPECT_EQ(std::pair(told->text(QAccessible::Value), told->text(QAccessible::Description)), std::pair(value, state));
    };
    EXPECT_EQ(told->role(), QAccessible::EditableText);
    EXPECT_EQ(told->text(QAccessible::Name), "Exposure");
    tells("250 ms", "idle");
    told->editableTextInterface()->insertText(9, "x"); // behind the end
    tells("250 msx", "invalid input");
    told->editableTextInterface()->replaceText(0, 7, "300 ms");
    tells("300 ms", "editing");
    QTest::keyClick(&field, Qt::Key_Return);
    field.setToolTip("How long");
    told->editableTextInterface()->insertText(0, "7"); // read-only
    tells("300 ms", "How long, waiting for the controller");
    EXPECT_TRUE(told->state().busy && told->state().readOnly);
    field.setValue(300);
    told->actionInterface()->doAction(QAccessibleActionInterface::increaseAction());
    tells("303 ms", "How long, editing");
    told->actionInterface()->doAction(QAccessibleActionInterface::decreaseAction());
    auto* const text = told->textInterface();
    text->setSelection(0, 1, 3);
    EXPECT_EQ(field.selectedText(), "00");
    text->setSelection(0, INT_MIN, INT_MAX);
    EXPECT_EQ(field.selectedText() + text->text(-1, 2) + text->text(1, INT_MAX) + text->text(3, 1) + text->text(INT_MAX, INT_MIN), "300 ms3000 ms");
    field.setText("5");
    tells("5", "How long, editing, s");

    DblEdit other;
    other.setStatus(DblEdit::EsEditInvalid);
    other.setNumber(5);
    other.setReadOnly(true);
    auto* const toldOther = QAccessible::queryAccessibleInterface(&other);
    toldOther->actionInterface()->doAction(QAccessibleActionInterface::increaseAction());
    EXPECT_EQ(toldOther->text(QAccessible::Value) + toldOther->text(QAccessible::Description), "5 invalid input");
}

TEST(Fields, SelectTheirTextOnFocusWhereTheSwitchSaysSo)
{
    const struct { bool on; Qt::FocusReason reason; char const* selected; } rows[] = {
        {true, Qt::MouseFocusReason, "1 V"}, {false, Qt::MouseFocusReason, ""}, {true, Qt::ActiveWindowFocusReason, ""}};
    for (auto const& row : rows) {
        UnitEdit unitEdit(nullptr, {}, &row.on);
        DblEdit dblEdit(nullptr, &row.on);
        for (QLineEdit* const field : std::initializer_list<QLineEdit*>{&unitEdit, &dblEdit}) {
            field->setText("1 V");
            QFocusEvent event(QEvent::FocusIn, row.reason);
            QApplication::sendEvent(field, &event);
            EXPECT_FALSE(field->hasSelectedText());
            QCoreApplication::processEvents();
            EXPECT_EQ(field->selectedText(), row.selected);
        }
    }
}

TEST(WheelGuard, LetsTheWheelStepOnlyTheFieldWithTheFocus)
{
    auto const wheel = [](QWidget* field) {
        QWheelEvent event({5, 5}, field->mapToGlobal(QPoint(5, 5)), {}, {0, -120}, Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QSpontaneKeyEvent::setSpontaneous(&event); // or it would not reach the widgets below
        qApp->notify(field, &event);
    };
    for (bool const guarded : {false, true}) {
        QScrollArea area;
        auto* const page = new QWidget;
        page->setMinimumHeight(2000);
        UnitEdit field(page);
        DblEdit other(page), elsewhere;
        elsewhere.setNumber(5);
        field.configure({}, ' ', 1, 0, 0, 0); // no limits
        field.setValue(1000);
        if (guarded) new WheelGuard(page);
        area.setWidget(page);
        area.show();
        QApplication::setActiveWindow(&area);
        for (QWidget* const focused : {static_cast<QWidget*>(&other), static_cast<QWidget*>(&field)}) {
            bool const steps = !guarded || focused == &field;
            focused->setFocus();
            area.verticalScrollBar()->setValue(0);
            field.restore();
            wheel(&field);
            EXPECT_TRUE(field.isTextDirty() == steps && (area.verticalScrollBar()->value() == 0) == steps) << guarded;
        }
        wheel(&elsewhere);
        EXPECT_TRUE(elsewhere.isTextDirty()); // not in the guard's scope
    }
}

TEST(InputNormaliser, MakesANumberOrLeavesAnInvalidText)
{
    struct Row { char const* entered; char const* text; double number; } const rows[] = { // text null: whatever; number 0: none
        {"1,5 ms", "1.5 ms", 1.5e-3},              {"-,5", "-.5", -0.5e-3},           {"\u22121,25\u00A0\u03BCs", "-1.25 \u00B5s", -1.25e-6},
        {"1\u202F000,5\u2009ms", "1 000.5 ms", 1.0005}, {"1\u2007000 s", "1 000 s", 1000.0}, {"1,5e3 ms", "1.5e3 ms", 1.5},
        {"1,5 a.u.", "1.5 a.u.", 0},               {"1,000", "1.000", 1e-3},          {"1.000,5", "1.000,5", 0},
        {"1,000.5", nullptr, 0},                   {"1,000,000", nullptr, 0}};
    for (auto const& row : rows) {
        QString const entered = QString::fromUtf8(row.entered);
        QApplication::clipboard()->setText(entered);
        for (int way = 0; way < 3; ++way) { // pasted by key, pasted by menu, typed
            SCOPED_TRACE(std::string(row.entered) + " " + std::to_string(way));
            UnitEdit field;
            field.configure("s", 'm', 1e-3, 0, 0, 0);
            new InputNormaliser(&field);
            if (way == 0) QTest::keyClick(&field, Qt::Key_V, Qt::ControlModifier);
            if (way == 1) field.paste();
            for (int i = 0; way == 2 && i < entered.size(); ++i) {
                QKeyEvent key(QEvent::KeyPress, 0, Qt::NoModifier, entered.mid(i, 1));
                QApplication::sendEvent(&field, &key);
            }
            EXPECT_TRUE(!row.text || field.text() == QString::fromUtf8(row.text));
            bool valid = false;
            double const number = field.getNumber(&valid);
            EXPECT_DOUBLE_EQ(valid ? number : 0, row.number);
        }
    }
}

TEST(InputNormaliser, KeepsCursorUndoAndWhatTheProgramSets)
{
    DblEdit field;
    field.setBaseUnit(QString::fromUtf8("\u03BCx"));
    auto* const normaliser = new InputNormaliser(&field);
    field.setNumber(15);
    EXPECT_EQ(field.text(), QString::fromUtf8("15 \u03BCx"));
    field.setText("15");
    field.setCursorPosition(1);
    QTest::keyClicks(&field, ",");
    EXPECT_TRUE(field.text() == "1.5" && field.cursorPosition() == 2);
    field.undo();
    field.setReadOnly(true);
    QApplication::clipboard()->setText(",");
    QTest::keyClick(&field, Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(field.text(), "15");
    delete normaliser;
    QIntValidator former;
    field.setValidator(&former);
    delete new InputNormaliser(&field);
    EXPECT_EQ(field.validator(), &former);
}

} // namespace
