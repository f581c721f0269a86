#include "fields.h"

#include <functional>
#include <QCheckBox>
#include <QContextMenuEvent>
#include <QLabel>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <vorelutil/widgets/ueditspec.h>

// clang-format off

namespace {

using Answer = std::function<void(int)>; // what the program does on `changed`
constexpr char const* tips[] = {"Spectroscopy start value.", "Spectroscopy end value.", "Spectroscopy step count.", "Time delay between two points."};

/// A field of 1 mV a raw step that shows 7 mV, and what it emits: a point as "25", a telegram as "1070=1".
struct Sweep : testing::Test
{
    Sweep()
    {
        field->configure("V", 'm', 1, 0, -10000, 10000);
        field->setValue(7);
        QObject::connect(field, &UnitEdit::changed, [this](int v) { log << QString::number(v); answer(v); });
        QObject::connect(field, &UEditSpec::sendTel, [this](bool set, int addr, int index, int val) {
            log << QString(set && index == 0 ? "" : "!") + QString::number(addr, 16) + "=" + QString::number(val);
            told(addr);
        });
    }
    ~Sweep() override { delete field; }
    bool restored() { return QTest::qWaitFor([this] { return field->getValue() == 7; }, patience); }
    bool ended() { return QTest::qWaitFor([this] { return !field || !field->isRunning(); }, patience); }
    std::string record() { EXPECT_TRUE(ended()); return std::exchange(log, {}).join(' ').toStdString(); }
    std::string run(int start, int end, int steps, bool both, int delay = 10)
    {
        EXPECT_TRUE(field->setSpecParams(start, end, steps, delay, both));
        field->run();
        return delay == 10000 ? "" : record();
    }
    QTimer* timer() const // the one that runs
    {
        for (auto* const timer : field->findChildren<QTimer*>()) if (timer->isActive()) return timer;
        throw std::runtime_error("no timer");
    }
    template <typename Widget = QWidget> Widget* find(char const* text) const
    {
        for (auto* const w : field->dialog()->findChildren<Widget*>()) if (w->property("text") == text || w->toolTip() == text) return w;
        throw std::runtime_error(text);
    }
    void click(char const* button) { find<QPushButton>(button)->click(); }
    void type(QStringList const& texts) { for (int i = 0; i < 4; ++i) find<QLineEdit>(tips[i])->setText(texts[i]); }
    /// What the dialog shows: texts, progress, and which of its widgets are enabled.
    std::string shown() const
    {
        QString texts, each;
        for (auto* const tip : tips) texts += find<QLineEdit>(tip)->text() + ", ";
        for (auto* const text : {"Start", tips[0], tips[1], tips[2], tips[3], "Forward / Backward", "Stop", "Close"}) each += find(text)->isEnabled() ? '+' : '-';
        auto const* const bar = field->dialog()->findChild<QProgressBar*>();
        return QString("%1%2/%3, %4").arg(texts).arg(bar->value()).arg(bar->maximum()).arg(each).toStdString();
    }

    QWidget window;
    QPointer<UEditSpec> field = new UEditSpec(&window);
    Answer const confirm = [this](int v) { field->setValue(v); };
    Answer answer = confirm;
    Answer told = [](int) {};
    QStringList log;
};

TEST_F(Sweep, SendsThePointsAndThenTheValueBefore)
{
    Answer const later = [this](int v) { QTimer::singleShot(1, field, [this, v] { confirm(v); }); };
    for (auto const& how : {confirm, later}) {
        answer = how;
        EXPECT_EQ(run(0, 100, 5, false), "1071=0 1072=100000000 1073=5 1074=637 1075=0 0 1070=0 25 1070=1 50 1070=2 75 1070=3 100 1070=4 7");
        EXPECT_TRUE(restored());
        EXPECT_EQ(run(2000, -3, 3, true), "1071=2000000 1072=-3000 1073=3 1074=638 1075=1 "
                                          "2000 1070=0 999 1070=1 -3 1070=2 -3 1070=3 999 1070=4 2000 1070=5 7");
        EXPECT_TRUE(restored());
    }
    answer = confirm;
    field->setInputUnsigned(true); // up, from 2147000000 to 2147967296
    EXPECT_EQ(run(2147000000, -2147000000, 3, false), "1071=2147000 1072=2147967 1073=3 1074=640 1075=0 "
                                                      "2147000000 1070=0 -2147483648 1070=1 -2147000000 1070=2 7");
}

TEST_F(Sweep, IsConfirmedByTheValueAskedForOnceThePointIsOut)
{
    field->setMaximum(100);
    for (auto const& how : {Answer([](int) {}), Answer([this](int v) { field->setValue(v + 1, true); })}) { // 101 is limited to 100
        field->setValue(7);
        answer = how;
        EXPECT_EQ(run(100, 200, 5, false), "1071=100000000 1072=200000000 1073=5 1074=637 1075=0 100 1070=0 7");
    }
    field->setValue(7);
    answer = [this](int v) { field->setValue(v, true); };
    told = [this](int addr) { if (addr == 0x1071) { field->setValue(100); field->makeStep(); } }; // the point of the sweep before
    EXPECT_EQ(run(100, 200, 2, false), "1071=100000000 1072=200000000 1073=2 1074=637 1075=0 100 1070=0 200 1070=1 7");
}

TEST_F(Sweep, PausesOnceHoweverOftenAPointIsConfirmed)
{
    for (int const delay : {9, 10, 10000, 10001}) EXPECT_EQ(field->setSpecParams(0, 100, 5, delay, false), delay % 10 == 0);
    answer = [](int) {};
    run(0, 100, 5, false, 10000);
    EXPECT_EQ(timer()->interval(), 500);
    field->setValue(0);
    EXPECT_EQ(timer()->interval(), 10000);
    EXPECT_TRUE(QTest::qWaitFor([this] { return timer()->remainingTime() < 9980; }, patience));
    field->setValue(0);
    EXPECT_LT(timer()->remainingTime(), 9980); // goes on
}

TEST_F(Sweep, IsStoppedStartedAnewAndDestroyedByItsSlots)
{
    answer = [this](int) { field->stop(); };
    EXPECT_EQ(run(0, 100, 5, false), "1071=0 1072=100000000 1073=5 1074=637 1075=0 0 7");
    answer = [this](int v) { if (v != 7) confirm(v); }; // the value before is not set yet when it starts anew
    run(0, 100, 5, false, 10000);
    for (int i = 0; i < 2; ++i) { field->stop(); field->run(); }
    field->stop();
    EXPECT_EQ(std::exchange(log, {}).last(), "7");
    field->setValue(7);
    std::string const start = "1071=0 1072=1000000000 1073=2 1074=636 1075=0 0", all = start + " 1070=0 1 1070=1 7";
    int points = 0; // started anew at the second, and by the end of the sweep; and the pause is longer than the wait
    answer = [&](int v) { ++points == 2 || points == 5 ? field->run() : confirm(v); };
    EXPECT_EQ(run(0, 1, 2, false, 510), start + " 1070=0 1 " + all + " " + all);
    answer = confirm;
    for (int const address : {0x1075, 0x1070}) { // the dialog goes before the first point, and before the first pause
        field->openSpectroscopy();
        told = [&](int addr) { if (addr == address) delete field->dialog(); };
        EXPECT_EQ(run(0, 1, 2, false), all);
    }
    told = [](int) {};
    field->openSpectroscopy();
    answer = [this](int) { delete field; };
    QTest::keyClick(find<QLineEdit>(tips[1]), Qt::Key_Return); // "Start"
    EXPECT_EQ(record(), start);
    EXPECT_EQ(UEditSpecDlg::_instance, nullptr);
}

TEST_F(Sweep, ChecksItsSettings)
{
    struct Row { char const* desc; char const* unit; QStringList typed; bool runs; } const rows[] = { // start, end, steps, delay
        {"as it should be", "V", {"0", "100", "5", "1"}, true},          {"one point", "V", {"0", "100", "1", "1"}, false},
        {"as many steps as values", "V", {"0", "4", "5", "1"}, true},    {"fewer values", "V", {"0", "3", "5", "1"}, false},
        {"no delay", "V", {"0", "100", "5", "0"}, false},                {"delay too long", "V", {"0", "100", "5", "1001"}, false},
        {"delay out of range", "V", {"0", "1", "2", "429496731"}, false}, {"start empty", "V", {"", "100", "5", "1"}, false},
        {"end is no number", "V", {"0", "x", "5", "1"}, false},          {"steps are no integer", "V", {"0", "100", "5.5", "1"}, false},
        {"unknown unit", "v", {"0", "100", "5", "1"}, false},            {"unit without prefixes", "[dB]", {"0", "100", "5", "1"}, false},
        {"span of 100", "V", {"1000000 V", "1000100 V", "5", "1"}, false}, {"more", "V", {"1000000 V", "1000101 V", "5", "1000"}, true},
        {"prefix last used", "V", {"0", "3", "5", "1"}, true}}; // 3 V
    field->openSpectroscopy();
    for (auto const& row : rows) {
        field->setBaseUnit(row.unit);
        type(row.typed);
        EXPECT_EQ(find("Start")->isEnabled(), row.runs) << row.desc;
    }
    field->setInputFactor(1e-320); // the scale is not finite
    EXPECT_FALSE(field->setSpecParams(-100, 100, 5, 10, false));
    field->setFormulas("/(1,0)", "x");
    EXPECT_FALSE(field->setSpecParams(0, 100, 5, 10, false));
    field->run(); // acts as stop
    EXPECT_EQ(record(), "");
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
    EXPECT_TRUE(find<QLabel>("Delay [10ms]")->buddy() == find(tips[3]) && find<QLabel>("Steps")->buddy() == find(tips[2]));
    find<QCheckBox>("Forward / Backward")->setChecked(true);
    EXPECT_EQ(shown(), "0, 100, 5, 1, 0/10, ++++++-+");
    QTest::keyClick(find<QLineEdit>(tips[0]), Qt::Key_Return); // the first point is out and confirmed
    EXPECT_EQ(shown(), "0, 100, 5, 1, 2/10, ------++");
    record();
    EXPECT_EQ(shown(), "0, 100, 5, 1, 10/10, ++++++-+");
    click("Start");
    static_cast<QWidget*>(dialog)->close(); // by the window system: the sweep goes on
    EXPECT_EQ(UEditSpecDlg::_instance, nullptr);
    EXPECT_TRUE(record().find("1070=9 7") != std::string::npos);
    field->openSpectroscopy();
    click("Start");
    QTest::keyClick(dialog, Qt::Key_Escape);
    EXPECT_FALSE(field->isRunning() || dialog->isVisible() || UEditSpecDlg::_instance);
    other.openSpectroscopy();
    field->openSpectroscopy();
    EXPECT_FALSE(dialog->isVisible());
    delete other.dialog(); // while it is the one
    EXPECT_EQ(UEditSpecDlg::_instance, nullptr);
}

TEST_F(Sweep, ShowsInTheDialogWhatIsWhenItIsOpened)
{
    for (int const end : {100, 200}) {
        run(0, end, 5, true, 10000); // and now it pauses
        field->openSpectroscopy();
        field->setEnabled(false);
        EXPECT_EQ(shown(), end == 100 ? "0 mV, 100 mV, 5, 1000, 2/10, ------++" : "0 mV, 200 mV, 5, 1000, 2/10, ------++");
        click("Stop");
        EXPECT_FALSE(field->isRunning());
        field->close();
        EXPECT_FALSE(field->dialog()->isVisible() || UEditSpecDlg::_instance);
        field->setEnabled(true);
    }
    field->openSpectroscopy();
    type({"123456 mV", "100", "5", "1"});
    field->close();
    field->openSpectroscopy();
    EXPECT_EQ(shown().substr(0, 21), "123456 mV, 100, 5, 1,"); // not rounded
}

TEST_F(Sweep, IsReachedFromTheContextMenu)
{
    for (bool const deleted : {false, true}) {
        QTimer::singleShot(0, field, [&] {
            auto* const menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            EXPECT_EQ(menu->actions().last()->text(), "Spectroscopy...");
            deleted ? delete field : menu->actions().last()->trigger();
            if (!deleted) menu->close();
        });
        QContextMenuEvent event(QContextMenuEvent::Keyboard, {});
        QCoreApplication::sendEvent(field, &event);
        EXPECT_EQ(UEditSpecDlg::_instance != nullptr, !deleted);
    }
}

} // namespace
