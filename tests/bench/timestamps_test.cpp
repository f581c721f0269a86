#include "apps/bench/console.h"
#include "apps/bench/histogramplot.h"
#include "apps/bench/ratetable.h"
#include "apps/bench/timestamppanel.h"
#include "apps/controller/controllerlink.h"
#include "apps/simulator/simulator.h"
#include "tests/support/files.h"
#include "tests/support/wait.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <QCheckBox>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>
#include <sys/resource.h>
#include <vorelutil/widgets/settingsstore.h>
#include <vorelutil/widgets/unitedit.h>

#include "fakecontroller.h"

using namespace bench;
using ::testing::HasSubstr;
using timestamps::Format;

namespace {

const bool selectOnFocus = true;

struct TimeStampTest : ::testing::Test
{
    TimeStampTest()
    {
        QObject::connect(&console, &Console::message, [this](const QString& text, bool isProblem) {
            if (isProblem) problems += text;
        });
    }
    void connectTo(int port)
    {
        console.connectTo(QStringLiteral("127.0.0.1"), port);
        ASSERT_TRUE(eventually([this] { return console.isReady(); }));
    }
    void connectToSimulator(const QString& fault = QString())
    {
        Simulator::Options options;
        options.confirmMilliseconds = 5;
        Simulator::Fault parsed;
        if (Simulator::parseFault(fault, &parsed)) options.faults.append(parsed);
        simulator = std::make_unique<Simulator>(options);
        QString error;
        ASSERT_TRUE(simulator->start(&error)) << error.toStdString();
        connectTo(simulator->port());
    }
    bool reaches(TimeStampRoad::State state)
    {
        return eventually([&] { return road.state() == state; });
    }
    void startAndDecode(std::uint64_t events)
    {
        ASSERT_TRUE(console.startTimeStamps());
        const std::uint64_t target = road.eventCount() + events;
        ASSERT_TRUE(eventually([&] { return road.eventCount() >= target; }))
            << problems.join('\n').toStdString();
    }
    int formatAtController()
    {
        QSignalSpy answers(console.link(), &ControllerLink::acknowledged);
        const int number = console.link()->get(controller::timeStampFormat);
        const bool came =
            eventually([&] { return !answers.isEmpty() && answers.last()[0].toInt() == number; });
        return came ? answers.last()[4].toInt() : -1;
    }
    void enter(int which, const char* text)
    {
        panel.field(which)->setText(QString::fromUtf8(text));
        panel.field(which)->commit();
    }

    std::unique_ptr<Simulator> simulator;
    Console console;
    TimeStampRoad& road = *console.timeStamps();
    TimeStampPanel panel{&console, &selectOnFocus};
    QStringList problems;
    QTemporaryDir folder;
};

TEST_F(TimeStampTest, ShowsTheDecayWhereItBegins)
{
    connectToSimulator();
    // clang-format off
    const struct { Format format; int start, stop, offset, edge, rate; bool markers; const char* firstRow; } rows[] = {
        {Format::F56,  0, 1,    0,  500, 703000, false, "0 start"}, // edge: ns after the start
        {Format::F52,  0, 2,    0,  800, 551000, true,  "0 start"},
        {Format::F52x, 0, 1,    0,  500, 703000, false, "0 start"},
        {Format::F60,  5, 1, -200,  300, 703000, true,  "1 stop"},
        {Format::F60b, 0, 3,    0, 1200, 399000, true,  "0 start"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(int(row.format));
        TimeStampSettings settings;
        settings.decoder.format = row.format;
        settings.decoder.offsets[std::size_t(row.stop)] = row.offset;
        settings.rate = 2000000;
        settings.start = row.start;
        settings.stop = row.stop;
        panel.setSettings(settings);
        startAndDecode(300000);
        panel.refreshNow();
        const auto& counts = road.settledHistogram().counts();
        const auto edge = counts.begin() + row.edge / 10;
        const auto before = *std::max_element(counts.begin(), edge);
        EXPECT_GT(*std::min_element(edge, edge + 10), 3 * before);
        EXPECT_EQ(road.totals().markers > 0, row.markers);
        EXPECT_NEAR(road.channelRate(row.stop), row.rate, 15000);
        EXPECT_EQ(panel.table()->item(0, 0)->text(), QString(row.firstRow));
        for (const bool isCleared : {false, true}) { // rates begin anew, too
            settings.decoder.offsets[7] = 5;
            isCleared ? road.clear() : panel.setSettings(settings);
            EXPECT_TRUE(std::isnan(road.channelRate(row.stop)));
            const std::uint64_t target = road.eventCount() + 150000;
            ASSERT_TRUE(eventually([&] { return road.eventCount() >= target; }));
            EXPECT_NEAR(road.channelRate(row.stop), row.rate, 30000);
        }
        road.stop();
        ASSERT_TRUE(reaches(TimeStampRoad::State::Idle));
        EXPECT_EQ(formatAtController(), 0);
        EXPECT_EQ(panel.problemText(), QString());
    }
    EXPECT_EQ(problems, QStringList());
    EXPECT_EQ(road.faultCount(), 0U);
}

TEST_F(TimeStampTest, TellsARefusedStart)
{
    connectToSimulator(QStringLiteral("refuse"));
    ASSERT_TRUE(console.startTimeStamps());
    ASSERT_TRUE(reaches(TimeStampRoad::State::Idle));
    EXPECT_EQ(problems.value(0),
              QStringLiteral("The time-stamp stream: the controller refused time stamps off: "
                             "unknown error"));
    EXPECT_THAT(panel.problemText().toStdString(), HasSubstr("The stream has ended: the controller refused"));
}

TEST_F(TimeStampTest, StopsTheStreamBeforeItDisconnects)
{
    connectToSimulator();
    startAndDecode(1);
    console.disconnectFrom();
    ASSERT_TRUE(eventually([this] { return console.link()->state() == ControllerLink::Off; }));
    EXPECT_EQ(problems, QStringList());
    connectTo(simulator->port());
    EXPECT_EQ(formatAtController(), 0);
}

TEST_F(TimeStampTest, TellsLostEventsOnceAndStaysAlive)
{
    connectToSimulator();
    enter(TimeStampPanel::Divider, "20000");
    // More than can be decoded: events are handled, but the link's slot is not left.
    QString shown;
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&] {
        if (road.totals().decoded.lost == 0) return;
        panel.refreshNow();
        shown = panel.problemText();
        enter(TimeStampPanel::Divider, "1");
    });
    watch.start(10);
    ASSERT_TRUE(console.startTimeStamps());
    ASSERT_TRUE(eventually([&] { return !shown.isEmpty(); }));
    EXPECT_THAT(shown.toStdString(), HasSubstr("Lost by overflow: "));
    EXPECT_EQ(problems.filter(QStringLiteral("lost")).size(), 1);
    EXPECT_EQ(road.totals().decoded.lost, 0U); // a new decoder
}

/// Format 56: a high word, and an event on channel 1; and an event without a high word before it.
const QVector<int> withHigh = {0x10000000, 0x20000064}, withoutHigh = {0x20000065};

TEST_F(TimeStampTest, CountsWhatItCannotDecode)
{
    FakeController controller;
    connectTo(controller.serverPort());
    const auto send = [&](int format, const QVector<int>& words) {
        controller.send(controller::typeTell, controller::packet, format, 0, words);
    };
    const auto waitForStrays = [&](int count) {
        return eventually([&] { return road.totals().strays == count; });
    };
    send(1, withHigh); // nobody asked
    ASSERT_TRUE(waitForStrays(1));
    EXPECT_TRUE(road.canStop());
    ASSERT_TRUE(console.startTimeStamps());
    ASSERT_TRUE(reaches(TimeStampRoad::State::Running));
    send(1, withHigh);
    send(2, withHigh);
    send(1, withoutHigh);
    ASSERT_TRUE(waitForStrays(1)); // of this stream
    ASSERT_TRUE(eventually([this] { return road.totals().events == 2; }));
    controller.drop();
    ASSERT_TRUE(eventually([this] { return road.isIdle() && console.isReady(); }));
    ASSERT_TRUE(console.startTimeStamps());
    ASSERT_TRUE(reaches(TimeStampRoad::State::Running));
    send(1, withoutHigh); // the decoder knows nothing of the stream before
    ASSERT_TRUE(eventually([this] { return road.totals().decoded.wordsBeforeHigh == 1; }));
    EXPECT_EQ(panel.problemText(), QStringLiteral("Words before the first high word: 1"));
    EXPECT_EQ(problems.filter(QStringLiteral("link to the controller was lost")).size(), 1);
    TimeStampSettings settings = panel.settings();
    settings.decoder.format = Format::F60;
    panel.setSettings(settings);
    ASSERT_TRUE(eventually([this] { return panel.problemText().isEmpty(); }));
    ASSERT_TRUE(reaches(TimeStampRoad::State::Running));
    send(4, {1, 1}); // two first words
    ASSERT_TRUE(eventually([this] { return !panel.problemText().isEmpty(); }));
    EXPECT_EQ(panel.problemText(), QStringLiteral("Ordering errors: 1"));
}

TEST_F(TimeStampTest, SavesEventsAndHistogram)
{
    FakeController controller;
    connectTo(controller.serverPort());
    enter(TimeStampPanel::Bins, "12");
    enter(TimeStampPanel::StartChannel, "1");
    const std::string events = folder.filePath(QStringLiteral("e.csv")).toStdString();
    const std::string histogram = folder.filePath(QStringLiteral("h.csv")).toStdString();
    ASSERT_TRUE(console.startEventLog(QString::fromStdString(events)).ok);
    ASSERT_TRUE(console.startTimeStamps());
    ASSERT_TRUE(reaches(TimeStampRoad::State::Running));
    controller.send(controller::typeTell, controller::packet, 1, 0, withHigh + QVector<int>{0x200000D1});
    ASSERT_TRUE(eventually([this] { return console.loggedEvents() == 2; }));
    road.stop();
    ASSERT_TRUE(reaches(TimeStampRoad::State::Idle));
    EXPECT_FALSE(console.isLoggingEvents()); // it ends with its stream
    ASSERT_TRUE(eventually([this] { return !console.isCheckingEvents(); }));
    EXPECT_EQ(contents(events), "time,channel\n100,1\n209,1\n");
    ASSERT_TRUE(console.saveHistogram(QString::fromStdString(histogram)).ok);
    EXPECT_EQ(contents(histogram),
              "bin,count\n0,0\n1,0\n2,0\n3,0\n4,0\n5,0\n6,0\n7,0\n8,0\n9,0\n10,1\n11,0\n");
    EXPECT_FALSE(console.startEventLog(QStringLiteral("/dev/full")).ok);
    EXPECT_FALSE(console.saveHistogram(folder.filePath(QStringLiteral("none/h.csv"))).ok);
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files).size(), 2);
}

TEST_F(TimeStampTest, LosesNoEventThatWaitsWhenItsStreamEnds)
{
    FakeController controller;
    connectTo(controller.serverPort());
    enter(TimeStampPanel::Offset0, "-1000 ns"); // an earlier event may come after those
    const std::function<void()> ends[] = {[this] { road.stop(); }, [&] { controller.drop(); },
                                          [this] { enter(TimeStampPanel::Offset0, "-2000 ns"); }};
    const QString file = folder.filePath(QStringLiteral("e.csv"));
    for (const auto& end : ends) {
        SCOPED_TRACE(&end - ends);
        ASSERT_TRUE(eventually([this] { return console.isReady() && road.isIdle(); }));
        ASSERT_TRUE(console.startEventLog(file).ok);
        ASSERT_TRUE(console.startTimeStamps());
        ASSERT_TRUE(reaches(TimeStampRoad::State::Running));
        controller.send(controller::typeTell, controller::packet, 1, 0, withHigh);
        ASSERT_TRUE(eventually([this] { return road.totals().decoded.words == 2; }));
        EXPECT_EQ(console.loggedEvents(), 0U);
        end();
        ASSERT_TRUE(eventually([this] { return console.loggedEvents() == 1; }));
        console.stopEventLog();
        console.finishEventLog();
        EXPECT_EQ(contents(file.toStdString()), "time,channel\n100,1\n");
    }
}

TEST_F(TimeStampTest, ShowsNoRateThatIsNotMeasuredNow)
{
    FakeController controller;
    connectTo(controller.serverPort());
    ASSERT_TRUE(console.startTimeStamps());
    ASSERT_TRUE(reaches(TimeStampRoad::State::Running));
    const auto send = [&](int word) {
        controller.send(controller::typeTell, controller::packet, 1, 0, {0x10000000, word});
    };
    const auto shows = [this](const char* text) {
        panel.refreshNow();
        return panel.table()->rowCount() == 1 && panel.table()->item(0, 1)->text() == QString::fromUtf8(text);
    };
    send(0x20000064);
    send(0x21000064); // 16777216 ns later: 59.6 per second
    EXPECT_TRUE(eventually([&] { return shows("59.60 "); }));
    QSignalSpy told(&console, &Console::message);
    enter(TimeStampPanel::Rate, "200000");
    ASSERT_TRUE(eventually([&] { return !told.isEmpty(); }));
    EXPECT_EQ(told[0][0], QStringLiteral("Time stamps: 200000 events per second, the histogram is cleared"));
    EXPECT_TRUE(shows("\u2013 "));
    EXPECT_EQ(road.settledHistogram().stops(), 0U);
    EXPECT_TRUE(eventually([&] { return send(0x10000000), shows("0.000 "); })); // the stream's time rests
    EXPECT_TRUE(eventually([&] { return shows("\u2013 "); }));                  // no packets
}

TEST_F(TimeStampTest, SaysWhyTheDiskDoesNotTakeEvents)
{
    const rlimit limit{1500000, RLIM_INFINITY};
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    EventLog log;
    ASSERT_TRUE(log.start(folder.filePath(QStringLiteral("e.csv"))).ok);
    const std::vector<PpTimest> events(600000); // 2.4 MB
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    log.add(events.data(), events.size());
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_TRUE(log.hasFailed());
    EXPECT_THAT(log.stop().text.toStdString(), HasSubstr("was not saved: File too large"));
}

TEST_F(TimeStampTest, KeepsItsSettings)
{
    SettingsStore store(folder.filePath(QStringLiteral("settings.ini")));
    ASSERT_TRUE(store.load());
    TimeStampSettings settings;
    settings.decoder.format = Format::F60b;
    settings.decoder.offsets = {-2147483647 - 1, 1, 2, 3, 4, 5, 6, 2147483647};
    settings.decoder.divider = 2147483647;
    settings.decoder.startPeriod = 12500;
    settings.rate = 5000000;
    settings.start = 104;
    settings.stop = 31;
    settings.binWidth = 7;
    settings.bins = 100000;
    panel.setSettings(settings);
    panel.findChild<QCheckBox*>()->setChecked(true);
    ASSERT_TRUE(store.save());
    Console second;
    TimeStampPanel kept(&second, &selectOnFocus);
    SettingsStore again(store.path());
    ASSERT_TRUE(again.load());
    again.offer();
    EXPECT_TRUE(kept.plot()->isLogarithmic());
    for (int which = 0; which < TimeStampPanel::FieldCount; ++which)
        EXPECT_EQ(kept.field(which)->getValue(), panel.field(which)->getValue()) << which;
    EXPECT_EQ(second.timeStamps()->settings().decoder.offsets, settings.decoder.offsets);
    EXPECT_EQ(second.timeStamps()->settings().decoder.format, Format::F60b);
    QVector<int> inTabOrder; // as the page is read
    QWidget* widget = kept.field(TimeStampPanel::Rate);
    do {
        if (auto* edit = qobject_cast<UnitEdit*>(widget); edit != nullptr && kept.isAncestorOf(edit))
            for (int which = 0; which < TimeStampPanel::FieldCount; ++which)
                if (kept.field(which) == edit) inTabOrder += which;
        widget = widget->nextInFocusChain();
    } while (widget != kept.field(TimeStampPanel::Rate));
    EXPECT_EQ(inTabOrder, (QVector<int>{0, 1, 2, 4, 3, 7, 8, 9, 10, 11, 12, 13, 14, 5, 6}));
}

TEST(HistogramPlotTest, DrawsTheLargestBinOfAPixelAndEmptyBinsOnALogarithmicScale)
{
    HistogramPlot plot;
    plot.resize(300, 200);
    plot.setCounts({0, 8, 3}, 500000);
    EXPECT_EQ(plot.outline(),
              (QVector<QPointF>{{0, 0}, {0, 0}, {0.5, 0}, {0.5, 8}, {1, 8}, {1, 3}, {1.5, 3}, {1.5, 0}}));
    EXPECT_EQ(plot.axisTitle(QwtPlot::xBottom).text(), QStringLiteral("after the start [ms]"));
    plot.setLogarithmic(true);
    EXPECT_EQ(plot.outline().mid(1, 2), (QVector<QPointF>{{0, 0.5}, {0.5, 0.5}}));
    std::vector<std::uint64_t> many(100000, 1);
    many[54321] = 1000000;
    plot.setCounts(many, 1);
    EXPECT_LT(plot.outline().size(), 2000);
    EXPECT_TRUE(std::any_of(plot.outline().begin(), plot.outline().end(),
                            [](const QPointF& p) { return p.y() == 1e6; }));
}

} // namespace
