#include <vorelutil/widgets/ueditspec.h>

#include <gtest/gtest.h>
#include <QApplication>
#include <QCheckBox>
#include <QContextMenuEvent>
#include <QElapsedTimer>
#include <QLabel>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <functional>

namespace {

using Answer = std::function<void(int)>; // what the program does on `changed`

/// A field of 1 mV a raw step that shows 7 mV, and what it emits: a point as "25", a telegram as "1070=1".
class Sweep : public testing::Test
{
public:
    ~Sweep() override { delete field; }

protected:
    Sweep()
    {
        field->configure("V", 'm', 1, 0, -10000, 10000);
        field->setValue(7);
        QObject::connect(field, &UnitEdit::changed, [this](int v) {
            log << QString::number(v);
            answer(v);
        });
        QObject::connect(field, &UEditSpec::sendTel, [this](bool set, int addr, int index, int val) {
            EXPECT_TRUE(set && index == 0);
            log << QString::number(addr, 16) + "=" + QString::number(val);
        });
    }

    std::string untilItEnds()
    {
        EXPECT_TRUE(QTest::qWaitFor([this] { return !field || !field->isRunning(); }, 10000));
        return std::exchange(log, {}).join(' ').toStdString();
    }

    std::string run(int start, int end, int steps, bool forwardBackward)
    {
        EXPECT_TRUE(field->setSpecParams(start, end, steps, 10, forwardBackward));
        field->run();
        return untilItEnds();
    }

    template <typename Widget> Widget* find(char const* text)
    {
        for (auto* const widget : field->dialog()->findChildren<Widget*>()) {
            if (widget->property("text") == text || widget->toolTip() == text) return widget;
        }
        throw std::runtime_error(text);
    }

    void type(QStringList const& texts)
    {
        char const* const tips[] = {"Spectroscopy start value.", "Spectroscopy end value.",
                                    "Spectroscopy step count.", "Time delay between two points."};
        for (int i = 0; i < 4; ++i) find<QLineEdit>(tips[i])->setText(texts[i]);
    }

    QPointer<UEditSpec> field = new UEditSpec;
    Answer const confirm = [this](int v) { field->setValue(v); };
    Answer answer = confirm;
    QStringList log;
};

TEST_F(Sweep, SendsThePointsAndThenTheValueBefore)
{
    Answer const later = [this](int v) { QTimer::singleShot(1, field, [this, v] { confirm(v); }); };
    for (auto const& how : {confirm, later}) {
        answer = how;
        EXPECT_EQ(run(0, 100, 5, false), "1071=0 1072=100000000 1073=5 1074=637 1075=0 "
                                         "0 1070=0 25 1070=1 50 1070=2 75 1070=3 100 1070=4 7");
        EXPECT_TRUE(QTest::qWaitFor([this] { return field->getValue() == 7; }, 10000));
        EXPECT_EQ(run(2000, -3, 3, true),
                  "1071=2000000 1072=-3000 1073=3 1074=638 1075=1 "
                  "2000 1070=0 999 1070=1 -3 1070=2 -3 1070=3 999 1070=4 2000 1070=5 7");
        EXPECT_TRUE(QTest::qWaitFor([this] { return field->getValue() == 7; }, 10000));
    }
    answer = confirm;
    field->setInputUnsigned(true); // up, from 2147000000 to 2147967296
    EXPECT_EQ(run(2147000000, -2147000000, 3, false),
              "1071=2147000 1072=2147967 1073=3 1074=640 1075=0 2147000000 "
              "1070=0 -2147483648 1070=1 -2147000000 1070=2 7");
}

TEST_F(Sweep, EndsWithoutTheRightConfirmation)
{
    for (auto const& how : {Answer([](int) {}), Answer([this](int v) { field->setValue(v + 1); })}) {
        answer = how;
        field->setValue(7);
        QElapsedTimer timer;
        timer.start();
        EXPECT_EQ(run(50, 150, 5, false), "1071=50000000 1072=150000000 1073=5 1074=637 1075=0 50 1070=0 7");
        EXPECT_GE(timer.elapsed(), 490);
    }
}

TEST_F(Sweep, IsStoppedStartedAnewAndDestroyedByItsSlots)
{
    answer = [this](int) { field->stop(); };
    EXPECT_EQ(run(0, 100, 5, false), "1071=0 1072=100000000 1073=5 1074=637 1075=0 0 7");
    int points = 0;
    answer = [&](int v) { ++points == 2 ? field->run() : confirm(v); };
    field->setSpecParams(0, 1, 2, 510, false); // a pause that is longer than the wait for a confirmation
    field->run();
    EXPECT_EQ(untilItEnds(), "1071=0 1072=1000000000 1073=2 1074=636 1075=0 0 1070=0 1 "
                             "1071=0 1072=1000000000 1073=2 1074=636 1075=0 0 1070=0 1 1070=1 7");
    field->openSpectroscopy();
    answer = [this](int) { delete field; };
    QTest::keyClick(find<QLineEdit>("Spectroscopy end value."), Qt::Key_Return); // "Start"
    EXPECT_EQ(untilItEnds(), "1071=0 1072=1000000000 1073=2 1074=636 1075=0 0");
    EXPECT_EQ(UEditSpecDlg::_instance, nullptr);
}

TEST_F(Sweep, ChecksItsSettings)
{
    struct Row
    {
        char const* desc;
        char const* unit;
        QStringList typed; // start, end, steps, delay
        bool runs;
    };
    // clang-format off
    Row const rows[] = {
        {"as it should be",         "V",    {"0", "100", "5", "1"},       true},
        {"one point",               "V",    {"0", "100", "1", "1"},       false},
        {"as many steps as values", "V",    {"0", "4", "5", "1"},         true},
        {"fewer values",            "V",    {"0", "3", "5", "1"},         false},
        {"no delay",                "V",    {"0", "100", "5", "0"},       false},
        {"delay too long",          "V",    {"0", "100", "5", "1001"},    false},
        {"delay beyond all bounds", "V",    {"0", "100", "5", "429496731"}, false},
        {"start empty",             "V",    {"", "100", "5", "1"},        false},
        {"end is no number",        "V",    {"0", "x", "5", "1"},         false},
        {"steps are no integer",    "V",    {"0", "100", "5.5", "1"},     false},
        {"unknown unit",            "v",    {"0", "100", "5", "1"},       false},
        {"unit without prefixes",   "[dB]", {"0", "100", "5", "1"},       false},
        {"span of 100",             "V",    {"1000000 V", "1000100 V", "5", "1"}, false},
        {"span of more",            "V",    {"1000000 V", "1000101 V", "5", "1000"}, true},
        {"prefix last used",        "V",    {"0", "3", "5", "1"},         true}, // 3 V
    };
    // clang-format on
    field->openSpectroscopy();
    for (auto const& row : rows) {
        field->setBaseUnit(row.unit);
        type(row.typed);
        EXPECT_EQ(find<QPushButton>("Start")->isEnabled(), row.runs) << row.desc;
    }
    field->setFormulas("/(1,0)", "x");
    EXPECT_FALSE(field->setSpecParams(0, 100, 5, 10, false));
    field->run(); // acts as stop
    EXPECT_EQ(untilItEnds(), "");
}

TEST_F(Sweep, IsRunFromTheDialogByKeys)
{
    UEditSpec other;
    field->openSpectroscopy();
    other.openSpectroscopy();
    EXPECT_EQ(other.dialog(), nullptr);
    UEditSpecDlg* const dialog = UEditSpecDlg::_instance;
    EXPECT_EQ(dialog->windowTitle(), "Soft Spectroscopy");
    type({"0", "100", "5", "1"});
    EXPECT_EQ(find<QLabel>("Delay [10ms]")->buddy(), find<QLineEdit>("Time delay between two points."));
    EXPECT_EQ(find<QLabel>("Steps")->buddy(), find<QLineEdit>("Spectroscopy step count."));
    find<QCheckBox>("Forward / Backward")->setChecked(true);
    auto* const progress = dialog->findChild<QProgressBar*>();
    EXPECT_EQ(progress->maximum(), 10);

    QTest::keyClick(find<QLineEdit>("Spectroscopy start value."), Qt::Key_Return);
    auto const enabled = [&](char const* text) { return find<QWidget>(text)->isEnabled(); };
    EXPECT_TRUE(field->isRunning() && enabled("Stop") && enabled("Close"));
    EXPECT_FALSE(enabled("Start") || enabled("Forward / Backward") || enabled("Spectroscopy step count."));
    untilItEnds();
    EXPECT_EQ(progress->value(), 10);
    EXPECT_TRUE(enabled("Start") && enabled("Forward / Backward") && enabled("Spectroscopy step count."));
    EXPECT_FALSE(enabled("Stop"));

    find<QPushButton>("Start")->click();
    static_cast<QWidget*>(dialog)->close(); // by the window system: the sweep goes on
    EXPECT_EQ(UEditSpecDlg::_instance, nullptr);
    EXPECT_TRUE(untilItEnds().find("1070=9 7") != std::string::npos);
    field->openSpectroscopy();
    find<QPushButton>("Start")->click();
    QTest::keyClick(dialog, Qt::Key_Escape);
    EXPECT_FALSE(field->isRunning() || dialog->isVisible() || UEditSpecDlg::_instance);
    other.openSpectroscopy();
    field->openSpectroscopy();
    EXPECT_FALSE(dialog->isVisible());
    delete other.dialog(); // while it is the one
    EXPECT_EQ(UEditSpecDlg::_instance, nullptr);
}

TEST_F(Sweep, IsReachedFromTheContextMenu)
{
    for (bool const deleted : {false, true}) {
        QTimer::singleShot(0, field, [&] {
            auto* const menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            QAction* const entry = menu->actions().last();
            EXPECT_EQ(entry->text(), "Spectroscopy...");
            deleted ? delete field : entry->trigger();
            if (!deleted) menu->close();
        });
        QContextMenuEvent event(QContextMenuEvent::Keyboard, {});
        QCoreApplication::sendEvent(field, &event);
        EXPECT_EQ(UEditSpecDlg::_instance != nullptr, !deleted);
    }
}

} // namespace
