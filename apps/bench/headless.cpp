#include "headless.h"

#include "apps/controller/controllerlink.h"
#include "mainwindow.h"
#include "sweepwatch.h"
#include "timestamppanel.h"
#include "valuepanel.h"

#include <cmath>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPixmap>
#include <vorelutil/frames/framebuffer.h>
#include <vorelutil/trace/tracelog.h>
#include <vorelutil/widgets/ueditspec.h>

namespace bench {

namespace {

struct Value
{
    int address;
    const char* text; ///< that is entered
    int value;        ///< that it means
    const char* name;
};

// clang-format off
constexpr Value values[] = {
    {controller::outputVoltage, "1.234 V",    1234,    "output voltage"},
    {controller::frequency,     "2.5 MHz",    2500000, "frequency"},
    {controller::exposureTime,  "0:02:05 h",  125000,  "exposure time"},
    {controller::xPosition,     "-75000 pm",  -75000,  "x position"},
    {controller::attenuator,    "16 dB",      1024,    "attenuator"},
};
// clang-format on
constexpr int voltage = 0;                  ///< index of the value that is swept
constexpr int relativeStep = 20;            ///< 2 %
constexpr std::uint64_t eventCount = 50000; ///< that are saved
constexpr int valueCount = static_cast<int>(std::size(values));

} // namespace

HeadlessRun::HeadlessRun(Console* console, MainWindow* window, const QString& folder,
                         const ScanSettings& scan, double seconds, QObject* parent)
    : QObject(parent)
    , m_console(console)
    , m_window(window)
    , m_folder(folder)
    , m_settings(scan)
    , m_seconds(seconds)
{
    // A link that was lost and is back takes the step again.
    connect(console, &Console::readyChanged, this, [this](bool ready) {
        if (ready) begin(m_step);
    });
    connect(console->link(), &ControllerLink::acknowledged, this,
            [this](int number, int, int, int reason, int value) { onAcknowledged(number, reason, value); });
    connect(console, &Console::message, this, [this](const QString& text, bool isProblem) {
        if (isProblem) m_problem = text;
    });
    connect(window->values()->sweepWatch(), &SweepWatch::ended, this, &HeadlessRun::onSweepEnded);
    connect(console, &Console::frameDone, this, &HeadlessRun::onFrame);
    connect(console->scan(), &Scan::stopped, this, &HeadlessRun::onStopped);
    TimeStampRoad* const timeStamps = console->timeStamps();
    connect(timeStamps, &TimeStampRoad::eventsDecoded, this, &HeadlessRun::onEvents);
    connect(timeStamps, &TimeStampRoad::stopped, this, &HeadlessRun::onStopped);
    connect(timeStamps, &TimeStampRoad::failed, this, [this](const QString& text) {
        // A link that was lost and is back takes the step again.
        if (m_step == Step::TimeStamps && m_console->link()->state() == ControllerLink::Connected)
            fail(tr("%1: %2").arg(stepName(), text));
    });
    connect(console->scan(), &Scan::failed, this, &HeadlessRun::onScanFailed);
    connect(console->scan(), &Scan::stopFailed, this, &HeadlessRun::onStopFailed);
    m_deadline.setSingleShot(true);
    m_deadline.setTimerType(Qt::PreciseTimer);
    connect(&m_deadline, &QTimer::timeout, this, &HeadlessRun::onTimeOver);
    m_deadline.start(static_cast<int>(std::lround(seconds * 1000)));
}

QString HeadlessRun::path(const char* name) const
{
    return QDir(m_folder).filePath(QLatin1String(name));
}

QString HeadlessRun::stepName() const
{
    switch (m_step) {
    case Step::Values:
        return m_console->isReady() ? tr("setting values") : tr("connecting");
    case Step::Sweep:
        return tr("the sweep");
    case Step::Area:
        return tr("the area scan");
    case Step::Line:
        return tr("the line scan");
    case Step::Stream:
        return tr("the stream");
    case Step::TimeStamps:
        return tr("the time stamps");
    case Step::Dwell:
    case Step::Ending:
        break;
    }
    return tr("the end");
}

void HeadlessRun::begin(Step step)
{
    if (m_over) return;
    m_step = step;
    m_haveFrame = false;
    ScanSettings settings = m_settings;
    switch (step) {
    case Step::Values:
        enterValues();
        return;
    case Step::Sweep:
        startSweep();
        return;
    case Step::TimeStamps:
        startTimeStamps();
        return;
    case Step::Area:
    case Step::Dwell:
        settings.kind = ScanKind::Area;
        break;
    case Step::Line:
        settings.kind = ScanKind::Line;
        break;
    case Step::Stream:
        settings.kind = ScanKind::Stream;
        break;
    case Step::Ending:
        return;
    }
    if (!m_console->startScan(settings)) {
        fail(tr("%1 could not be started").arg(stepName()));
        return;
    }
    if (step == Step::Stream) {
        const SaveResult log = m_console->startLog(path("log.csv"));
        if (!log.ok) fail(log.text);
    }
}

void HeadlessRun::enterValues()
{
    m_entered.clear();
    m_reading.clear();
    // The fields of a group share their steps; one that is not as at first is kept with the settings.
    const ValuePanel& panel = *m_window->values();
    UnitEdit* first = panel.field(values[voltage].address);
    first->changeStepInt(true, true, relativeStep, first->absoluteStep());
    if (panel.sweepField()->relativeStep() != relativeStep) fail(tr("a group does not share its step"));
    for (int i = 0; i < valueCount && !m_over; ++i) {
        UnitEdit* field = panel.field(values[i].address);
        field->setText(QString::fromUtf8(values[i].text));
        if (field->status() != UnitEdit::EsEditValid)
            fail(tr("the field of the %1 does not take %2")
                     .arg(QLatin1String(values[i].name), QLatin1String(values[i].text)));
        m_entered.append(i);
        field->commit();
    }
}

// Each value is read back when its field has left the waiting state, and compared. This is called after the
// fields have had the answer.
void HeadlessRun::onAcknowledged(int number, int reason, int value)
{
    if (m_over || (m_step != Step::Values && m_step != Step::Sweep)) return;
    checkFields();
    if (m_over || !m_reading.contains(number)) return;
    const Value& wanted = values[m_reading.take(number)];
    if (reason != controller::reasonOk)
        fail(tr("the controller refused to tell the %1: %2")
                 .arg(QLatin1String(wanted.name), QLatin1String(tracePrintReason(reason))));
    else if (const int shown = m_window->values()->field(wanted.address)->getValue(); value != shown)
        fail(tr("the field of the %1 shows %2 and the controller has %3")
                 .arg(QLatin1String(wanted.name))
                 .arg(shown)
                 .arg(value));
    else if (m_entered.isEmpty() && m_reading.isEmpty())
        begin(m_step == Step::Values ? Step::Sweep : Step::Area);
}

void HeadlessRun::checkFields()
{
    for (int i = m_entered.size() - 1; i >= 0 && !m_over; --i) {
        const Value& wanted = values[m_entered[i]];
        const UnitEdit* field = m_window->values()->field(wanted.address);
        if (field->status() == UnitEdit::EsCommitted) continue;
        if (field->getValue() != wanted.value)
            fail(tr("the %1 was entered as %2 and is %3 (%4)")
                     .arg(QLatin1String(wanted.name))
                     .arg(wanted.value)
                     .arg(field->getValue())
                     .arg(m_problem));
        m_reading.insert(m_console->link()->get(wanted.address), m_entered[i]);
        m_entered.remove(i);
    }
}

void HeadlessRun::startSweep()
{
    m_entered.clear();
    m_reading.clear();
    UEditSpec* field = m_window->values()->sweepField();
    field->stop(); // one that a lost link has left
    if (field->setSpecParams(-500, 500, 6, 20, true))
        field->run();
    else
        fail(tr("%1 could not be started").arg(stepName()));
}

// The field returns to its value before; the answer to the last request comes after that.
void HeadlessRun::onSweepEnded(bool done)
{
    if (m_over || m_step != Step::Sweep || m_console->link()->state() != ControllerLink::Connected) return;
    if (!done) return fail(m_problem);
    m_reading.insert(m_console->link()->get(values[voltage].address), voltage);
}

void HeadlessRun::onFrame(ScanKind kind)
{
    if (m_over || m_haveFrame) return;
    m_haveFrame = true;
    switch (m_step) {
    case Step::Area:
        save(Snapshot::Text, kind, "area.asc");
        save(Snapshot::Binary, kind, "area.bcr");
        break;
    case Step::Line:
        save(Snapshot::Line, kind, "line.csv");
        break;
    case Step::Stream: {
        save(Snapshot::Line, kind, "stream.csv");
        const SaveResult log = m_console->stopLog();
        if (!log.ok) fail(log.text);
        break;
    }
    case Step::Values:
    case Step::Sweep:
    case Step::TimeStamps:
    case Step::Dwell:
    case Step::Ending:
        return;
    }
    if (!m_over) m_console->scan()->stop();
}

void HeadlessRun::save(Snapshot snapshot, ScanKind kind, const char* name)
{
    if (m_over) return;
    const bool forward = m_settings.mode != FrameBuffer::Backward; // which has no forward pass
    const SaveResult result = m_console->save(snapshot, kind, path(name), forward);
    if (!result.ok) fail(result.text);
}

void HeadlessRun::startTimeStamps()
{
    TimeStampSettings settings;
    settings.decoder.format = timestamps::Format::F60;
    settings.start = startChannel(settings.decoder.format);
    m_histogram = std::make_unique<timestamps::StartStopHistogram>(
        std::uint8_t(settings.start), std::uint8_t(settings.stop), settings.binWidth,
        std::size_t(settings.bins));
    m_eventsDone = false;
    const SaveResult file = m_events.start(path("timestamps.csv"));
    if (!file.ok) return fail(file.text);
    m_window->timeStamps()->setSettings(settings, false); // the settings are the operator's
    if (!m_console->startTimeStamps()) fail(tr("%1 could not be started").arg(stepName()));
}

void HeadlessRun::onEvents(const PpTimest* events, std::size_t count)
{
    if (m_over || m_step != Step::TimeStamps || m_eventsDone) return;
    const std::size_t taken = std::size_t(std::min<std::uint64_t>(count, eventCount - m_events.count()));
    m_events.add(events, taken);
    m_histogram->add(events, taken);
    if (m_events.count() < eventCount && !m_events.hasFailed()) return;
    m_eventsDone = true;
    saveTimeStamps();
    if (!m_over) m_console->timeStamps()->stop();
}

void HeadlessRun::saveTimeStamps()
{
    m_histogram->settle();
    for (const SaveResult& file :
         {m_events.stop(), saveHistogram(m_histogram->counts(), path("histogram.csv"))})
        if (!file.ok) return fail(file.text);
}

void HeadlessRun::onStopped()
{
    if (m_over) return;
    switch (m_step) {
    case Step::Area:
        begin(Step::Line);
        break;
    case Step::Line:
        begin(Step::Stream);
        break;
    case Step::Stream:
        begin(Step::TimeStamps);
        break;
    case Step::TimeStamps:
        begin(Step::Dwell);
        break;
    case Step::Ending:
        finish();
        break;
    case Step::Values:
    case Step::Sweep:
    case Step::Dwell:
        break;
    }
}

void HeadlessRun::onScanFailed(const QString& text)
{
    if (m_over) return;
    if (m_step == Step::Ending)
        finish(); // the roads are taken; the link broke while the scan was being stopped
    else if (m_console->link()->state() == ControllerLink::Connected)
        fail(tr("%1: %2").arg(stepName(), text));
}

void HeadlessRun::onStopFailed(const QString& text)
{
    if (m_over) return;
    // At the end the roads are taken, and the link is given up.
    if (m_step != Step::Ending)
        fail(tr("%1: %2").arg(stepName(), text));
    else if (m_console->scan()->isIdle() || m_console->link()->state() == ControllerLink::Off)
        finish();
}

void HeadlessRun::onTimeOver()
{
    if (m_over) return;
    if (m_step != Step::Dwell) {
        fail(tr("%1 was not done within %2 s (link: %3)")
                 .arg(stepName())
                 .arg(m_seconds)
                 .arg(m_console->link()->stateText()));
        return;
    }
    m_step = Step::Ending;
    if (!writePictures()) return;
    if (m_console->scan()->isIdle())
        finish();
    else
        m_console->disconnectFrom(); // stops it
}

void HeadlessRun::interrupt()
{
    fail(tr("interrupted during %1").arg(stepName()));
}

bool HeadlessRun::writePictures()
{
    const std::pair<MainWindow::Page, const char*> pictures[] = {
        {MainWindow::Page::Values, "values.png"},
        {MainWindow::Page::TimeStamps, "timestamps.png"},
        {MainWindow::Page::Scan, "bench.png"},
    };
    for (const auto& [page, name] : pictures) {
        m_window->showPage(page);
        m_window->refreshNow();
        const QString file = path(name);
        if (m_window->grab().save(file)) continue;
        fail(tr("%1 could not be written").arg(file));
        return false;
    }
    return true;
}

bool HeadlessRun::writeSummary()
{
    const Scan& scan = *m_console->scan();
    const ControllerLink& link = *m_console->link();
    const TimeStampRoad& timeStamps = *m_console->timeStamps();
    const QJsonObject summary{
        {QStringLiteral("telegrams"), link.telegramCount()},
        {QStringLiteral("samples"), scan.sampleCount()},
        {QStringLiteral("frames"), scan.frameCount()},
        {QStringLiteral("events"), qint64(timeStamps.eventCount())},
        {QStringLiteral("errors"),
         link.errorCount() + scan.gapCount() + scan.refusedCount() + qint64(timeStamps.faultCount())},
        {QStringLiteral("reconnects"), link.reconnectCount()},
    };
    QFile file(path("summary.json"));
    const QByteArray text = QJsonDocument(summary).toJson();
    if (file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush()) return true;
    fail(tr("%1 could not be written: %2").arg(file.fileName(), file.errorString()));
    return false;
}

void HeadlessRun::fail(const QString& text)
{
    if (m_over) return;
    m_over = true;
    emit finished(text);
}

void HeadlessRun::finish()
{
    if (!writeSummary()) return;
    m_over = true;
    emit finished(QString());
}

} // namespace bench
