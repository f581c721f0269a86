#include "apps/bench/console.h"
#include "apps/bench/gaugebar.h"
#include "apps/bench/sweepplot.h"
#include "apps/bench/sweepwatch.h"
#include "apps/bench/ticaxis.h"
#include "apps/bench/valuepanel.h"
#include "apps/bench/valueroad.h"
#include "apps/controller/controllerlink.h"
#include "apps/simulator/simulator.h"
#include "tests/controller/probe.h"

#include <gtest/gtest.h>
#include <QtTest>
#include <vorelutil/widgets/savable.h>
#include <vorelutil/widgets/ueditspec.h>

using namespace bench;

namespace {

constexpr int limitMilliseconds = 20000;

template <class Condition> bool wait(Condition condition)
{
    return QTest::qWaitFor(condition, limitMilliseconds);
}

void enter(UnitEdit* field, const char* text)
{
    field->selectAll();
    QTest::keyClicks(field, QString::fromUtf8(text));
    QTest::keyClick(field, Qt::Key_Return);
}

bool isIdle(const UnitEdit* field)
{
    return field->status() == UnitEdit::EsIdle;
}

/// A controller, and a field on the road to its voltage.
struct Road : ::testing::Test
{
    Road()
    {
        EXPECT_TRUE(simulator.start(&error)) << error.toStdString();
        field.configure("V", 'm', 1, 0, -10000, 10000);
        road.bind(0x21, &field, "Voltage");
        QObject::connect(&road, &ValueRoad::message, [this](const QString& text) { messages += text; });
    }
    void connectAndRead()
    {
        link.connectTo("127.0.0.1", simulator.port());
        ASSERT_TRUE(wait([this] { return field.isEnabled() && field.text() == "0 mV"; }));
    }
    /// Waits for the answer to what was entered.
    void expectShown(const char* text, const QString& message)
    {
        ASSERT_TRUE(wait([this] { return isIdle(&field); })) << text;
        EXPECT_EQ(field.text(), QString(text));
        EXPECT_EQ(messages.join('\n'), message);
        messages.clear();
    }

    Simulator simulator{Simulator::Options()};
    QString error;
    ControllerLink link;
    ValueRoad road{&link};
    UnitEdit field;
    QStringList messages;
};

TEST_F(Road, ShowsWhatTheControllerAnswers)
{
    connectAndRead();
    const std::tuple<int, const char*, const char*, const char*> rows[] = {
        {0, "1.5 V", "1.5 V", ""},
        {0, "-250 m", "-250 mV", ""},
        {1, "2 V", "-250 mV", "Voltage was refused: unknown error (reason 99)"},
        {0, "3 V", "3 V", ""}};
    QSignalSpy overcome(&road, &ValueRoad::overcome);
    for (const auto& [refuseEvery, text, shown, message] : rows) {
        simulator.setRefuseEvery(refuseEvery);
        enter(&field, text);
        EXPECT_EQ(field.status(), UnitEdit::EsCommitted) << text;
        expectShown(shown, message);
    }
    EXPECT_EQ(overcome.size(), 1);
    EXPECT_EQ(overcome.value(0).value(0).toString(), std::get<3>(rows[2])); // once "3 V" is taken
}

TEST_F(Road, DoesNotWaitForEver)
{
    EXPECT_FALSE(field.isEnabled()); // nothing to enter before the controller has said its value
    connectAndRead();
    simulator.setConfirmMilliseconds(60000);
    enter(&field, "2 V");
    link.disconnectFrom();
    expectShown("0 mV", "Voltage was not confirmed: not connected");
    EXPECT_FALSE(field.isEnabled());
    simulator.setConfirmMilliseconds(0);
    connectAndRead();
    simulator.setConfirmMilliseconds(ValueRoad::answerMilliseconds + 2000);
    enter(&field, "3 V");
    expectShown("0 mV", "Voltage was not confirmed: no answer within 3 s");
    EXPECT_TRUE(wait([this] { return field.text() == "3 V"; })); // late, but an answer
    EXPECT_TRUE(messages.join('\n').contains(QRegularExpression("^Voltage was confirmed after \\d{4,} ms$")));
}

TEST_F(Road, LetsTheLastOfSeveralSettingsDecide)
{
    UnitEdit direct(nullptr, UnitEdit::DfltPfConfigured, nullptr, true);
    direct.configure("V", 'm', 1, 0, -10000, 10000);
    road.bind(0x21, &direct, "Voltage");
    connectAndRead();
    QVector<int> shown;
    QObject::connect(&link, &ControllerLink::acknowledged, [&] { shown += direct.getValue(); });
    for (const char* text : {"1 V", "2 V", "3 V"}) enter(&direct, text);
    ASSERT_TRUE(wait([&] { return shown.size() == 3; }));
    EXPECT_EQ(shown, (QVector<int>{3000, 3000, 3000}));
    EXPECT_EQ(field.text(), "3 V");
}

TEST_F(Road, KeepsWhatIsToldWhileTheUserTypes)
{
    UnitEdit frequency;
    frequency.configure("Hz", ' ', 1, 0, 1, 50000000);
    frequency.setResolution(8);
    road.bind(0x22, &frequency, "Frequency");
    connectAndRead();
    ASSERT_TRUE(wait([&] { return frequency.text() == "1 MHz"; }));
    QTest::keyClicks(&frequency, "x");
    simulator.setOwnChanges(0.01);
    EXPECT_TRUE(wait([&] { return frequency.pendingValue() != 1000000; }));
    EXPECT_EQ(frequency.text(), "x1 MHz");
    simulator.setOwnChanges(0);
    QTest::keyClick(&frequency, Qt::Key_Escape);
    EXPECT_NEAR(frequency.getNumber(), 1e6, 2e5);
    EXPECT_NE(frequency.getNumber(), 1e6);
}

TEST_F(Road, SendsTheFormerValueWhenItIsAskedForAgain)
{
    connectAndRead();
    Probe other(simulator.port());
    for (const bool byStep : {false, true}) {
        field.selectAll();
        QTest::keyClicks(&field, "0 mV");
        EXPECT_EQ(other.ask(0, 0x21, {1500})[0], 0); // which the field keeps back
        ASSERT_TRUE(wait([&] {
            for (const auto key : {Qt::Key_Up, Qt::Key_Down})
                if (byStep) QTest::keyClick(&field, key);
            return field.pendingValue() == 1500;
        }));
        if (!byStep) QTest::keyClick(&field, Qt::Key_Return);
        EXPECT_TRUE(wait([&] { return other.ask(1, 0x21)[1] == 0 && isIdle(&field); })) << byStep;
        EXPECT_EQ(field.text(), "0 mV");
    }
}

/// A console with its values, connected to a controller.
struct Panel : ::testing::Test
{
    Panel()
    {
        EXPECT_TRUE(simulator.start(&error)) << error.toStdString();
        QObject::connect(&console, &Console::message, [this](const QString& text) { messages += text; });
        console.connectTo("127.0.0.1", simulator.port());
        EXPECT_TRUE(wait([this] { return console.isReady() && panel.sweepField()->isEnabled(); }));
    }
    Simulator simulator{Simulator::Options()};
    QString error;
    Console console;
    ValuePanel panel{&console, &simulator};
    QStringList messages;
};

TEST_F(Panel, TakesPhysicalValuesIntoRawOnes)
{
    using Row = std::tuple<int, const char*, int, const char*>; // address, entered; raw, shown
    constexpr int least = -2147483647 - 1;
    // clang-format off
    for (const auto& [address, text, raw, shown] : {
             Row{0x21, "2,5 V", 2500, "2.5 V"}, Row{0x21, "10 V", 10000, "10 V"}, Row{0x22, "12.345678 MHz", 12345678, "12.345678 MHz"},
             Row{0x23, "1:01:01 h", 3661000, "01:01:01 h"}, Row{0x23, "59999", 59999, "59.999 s"},
             Row{0x24, "-2147483648", least, "-2147483648 pm"}, Row{0x24, "1 um", 1000000, "1000000 pm"},
             Row{0x25, "40 dB", 4095, "40 dB"}, Row{0x25, "20", 1365, "20 dB"}, Row{0x25, "0", 0, "0 dB"}}) {
        // clang-format on
        UnitEdit* field = panel.field(address);
        enter(field, text);
        ASSERT_TRUE(wait([&] { return isIdle(field); })) << text;
        EXPECT_EQ(field->text(), QString(shown));
        EXPECT_EQ(Probe(simulator.port()).ask(1, address)[1], raw) << text;
    }
    for (const auto& [address, text] : {std::pair(0x21, "10.001 V"), std::pair(0x22, "0 Hz"),
                                        std::pair(0x25, "41 dB"), std::pair(0x24, "3 mm")}) {
        enter(panel.field(address), text);
        EXPECT_EQ(panel.field(address)->status(), UnitEdit::EsEditInvalid) << text;
    }
    EXPECT_TRUE(
        wait([this] { return panel.field(0x26)->text().section(' ', 0, 0).toLongLong() > 2147483647; }));
    EXPECT_TRUE(wait([this] { return qAbs(panel.field(0x27)->getValue() - 10000) <= 5; })); // a mean
    EXPECT_FALSE(panel.field(0x26)->isEnabled() || panel.field(0x27)->isEnabled());
    QWheelEvent passing({1, 1}, {1, 1}, {}, {0, 120}, Qt::NoButton, {}, {}, false);
    QApplication::sendEvent(panel.field(0x23), &passing);
    EXPECT_EQ(panel.field(0x23)->text(), "59.999 s"); // a wheel that passes over it
}

TEST_F(Panel, SharesStepsInAGroupAndTakesStoredSettings)
{
    panel.field(0x21)->changeStepInt(true, true, 35, 1.0);
    EXPECT_EQ(panel.sweepField()->relativeStep(), 35);
    EXPECT_EQ(panel.field(0x22)->relativeStep(), 10);
    panel.field(0x21)->changeStepInt(true, false, 35, 0.25);
    enter(panel.field(0x21), "1 V");
    ASSERT_TRUE(wait([&] { return isIdle(panel.field(0x21)) && panel.sweepField()->text() == "1 V"; }));
    EXPECT_EQ(panel.sweepField()->absoluteStep(), 0.25);
    for (Savable* setting : QList<Savable*>(Savable::_savableList)) {
        setting->setValueFromExt("Gauge", "FullScale", "0.1");
        setting->setValueFromExt("Gauge", "Alarm", "nonsense");
    }
    QString unit;
    panel.findChild<TicAxis*>()->tics(&unit);
    EXPECT_EQ(unit, "mV");
}

TEST_F(Panel, SaysHowASweepEnds)
{
    UEditSpec* field = panel.sweepField();
    ASSERT_TRUE(field->setSpecParams(100, 1100, 5, 10, true));
    // clang-format off
    const std::tuple<int, int, int, QStringList> rows[] = { // confirmation time, refusals; points, messages
        {20, 0, 10, {"The sweep is done: 10 points"}},
        {20, 3, 2, {"Output voltage was refused: unknown error (reason 99)",
                        "The sweep has stopped: the controller refused point 3"}},
        {650, 0, 0, {"The sweep has stopped: point 1 was not confirmed within 500 ms",
                         "The sweep has stopped: point 1 was answered after # ms, later than 500 ms"}}};
    // clang-format on
    for (const auto& [confirm, refuseEvery, points, expected] : rows) {
        simulator.setConfirmMilliseconds(confirm);
        simulator.setRefuseEvery(refuseEvery);
        messages.clear();
        QSignalSpy ended(panel.sweepWatch(), &SweepWatch::ended);
        field->run();
        ASSERT_TRUE(wait([&, count = expected.size()] {
            return messages.size() == count && ended.size() == 1;
        })) << messages.join('\n').toStdString();
        EXPECT_EQ(ended[0][0].toBool(), points == 10);
        const QRegularExpression pattern(QRegularExpression::anchoredPattern(
            QRegularExpression::escape(expected.join('\n')).replace("\\#", "\\d+")));
        EXPECT_TRUE(pattern.match(messages.join('\n')).hasMatch()) << messages.join('\n').toStdString();
        EXPECT_TRUE(wait([&] { return field->getValue() == 0; })); // as before
        EXPECT_EQ(panel.sweepPlot()->pointCount(), points);
    }
}

TEST_F(Panel, EndsASweepBeforeTheLink)
{
    UEditSpec* field = panel.sweepField();
    ASSERT_TRUE(field->setSpecParams(100, 1100, 5, 10000, true));
    for (const bool isLost : {false, true}) {
        QSignalSpy reached(panel.sweepWatch(), &SweepWatch::reached);
        field->run();
        ASSERT_TRUE(wait([&] { return reached.size() == 1; }));
        EXPECT_TRUE(field->isEnabled() && !panel.field(0x21)->isEnabled());
        messages.clear();
        isLost ? console.link()->disconnectFrom() : console.disconnectFrom();
        ASSERT_TRUE(wait([&] { return console.link()->state() == ControllerLink::Off; }));
        ASSERT_TRUE(wait([&] { return !panel.sweepWatch()->isRunning(); }));
        EXPECT_EQ(Probe(simulator.port()).ask(1, 0x21)[1], isLost ? 100 : 0);
        SCOPED_TRACE(messages.join(" / ").toStdString());
        EXPECT_EQ(messages.last(), isLost ? "The sweep has stopped: not connected"
                                          : "The sweep was stopped after 1 of 10 points");
        field->run();
        EXPECT_FALSE(field->isRunning());
        EXPECT_EQ(messages.last(), "The sweep has not started: not connected");
        console.connectTo("127.0.0.1", simulator.port());
        ASSERT_TRUE(wait([&] { return console.isReady() && field->isEnabled(); }));
    }
}

TEST(GaugeTest, ChoosesRoundMarksAndTics)
{
    GaugeBar gauge('m', "V");
    TicAxis axis("V");
    gauge.resize(400 + 2 * GaugeBar::margin, 50);
    axis.resize(400 + 2 * GaugeBar::margin, 30);
    using Row = std::tuple<int, int, const char*, const char*>; // full scale; mark, tics
    for (const auto& [full, length, mark, tics] :
         {Row{10000, 100, "5 V", "-8 -4 0 4 8 V"}, Row{500, 80, "200 mV", "-400 -200 0 200 400 mV"},
          Row{100000, 100, "50 V", "-80 -40 0 40 80 V"}}) {
        gauge.setFullScale(full);
        axis.setRange(-full / 1000.0, full / 1000.0);
        EXPECT_EQ(gauge.markLength(), length) << full;
        EXPECT_EQ(gauge.markText(), QString(mark));
        QString text, unit;
        for (const TicAxis::Tic& tic : axis.tics(&unit)) text += tic.label + ' ';
        EXPECT_EQ(text + unit, QString(tics));
    }
    gauge.setAlarm(200);
    for (const auto& [reading, alarmed] :
         {std::pair(200, false), std::pair(-201, true), std::pair(-2147483647 - 1, true)}) {
        gauge.setReading(reading);
        EXPECT_EQ(gauge.isAlarmed(), alarmed) << reading;
        EXPECT_FALSE(gauge.grab().isNull());
    }
}

} // namespace
