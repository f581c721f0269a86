#include "timestamppanel.h"

#include "console.h"
#include "dialogs.h"
#include "histogramplot.h"
#include "ratetable.h"
#include "theme.h"

#include <algorithm>
#include <limits>
#include <new>
#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <utility>
#include <vorelutil/algo/prefix.h>
#include <vorelutil/widgets/inputnormaliser.h>
#include <vorelutil/widgets/savable.h>
#include <vorelutil/widgets/unitedit.h>
#include <vorelutil/widgets/wheelguard.h>

namespace bench {

using timestamps::Format;

namespace {

constexpr double repaintsPerSecond = 10.0;
constexpr int ageMilliseconds = 500; ///< after which old rates are looked at again
constexpr int leftWidth = 268;
constexpr int fieldWidth = 52; ///< at least
constexpr int offsetCount = 8;

constexpr int least = std::numeric_limits<int>::min();
constexpr int most = std::numeric_limits<int>::max();

struct FieldForm
{
    const char* key; ///< of the setting
    const char* label;
    const char* name; ///< and what it is for
    const char* unit;
    char prefix;
    int minimum, maximum, initial;
};

// clang-format off
constexpr FieldForm forms[] = { // in the order of `Field`; the offsets share the last row
    // key            label             name                                                              unit  prefix least most   first
    {"Rate",         "&Events",         "Events per second that the controller is asked for",             "/s", ' ', 1,     5000000, 100000},
    {"StartChannel", "Sta&rt",          "Start channel, or marker code; the starts of format 60 are on 5", "",  'X', 0,     255,     0},
    {"StopChannel",  "sto&p",           "Stop channel, or marker code",                                   "",   'X', 0,     255,     1},
    {"BinWidth",     "&width",          "Width of a bin",                                                 "s",  'n', 1,     most,    10},
    {"Bins",         "&Bins",           "Number of bins",                                                 "",   'X', 1,     100000,  500},
    {"Divider",      "&Divider",        "Virtual events in a start period, or parts that it is folded onto; 1: off; "
                                        "above 16383 events can get lost",                                "",   'X', 1,     most,    1},
    {"StartPeriod",  "Start per&iod",   "Start period for folding; 0: it is measured, and virtual events are made",
                                                                                                          "s",  'n', 0,     most,    0},
    {"Offset%1",     "%1",              "Offset that is added to the times of channel %1",                "s",  'n', least, most,    0},
};

constexpr struct { Format format; const char* name; } formats[] = {
    {Format::F56, "56"}, {Format::F52, "52"}, {Format::F52x, "52x"}, {Format::F60, "60"}, {Format::F60b, "60b"},
};
// clang-format on

const FieldForm& formOf(int which)
{
    return forms[std::min(which, int(TimeStampPanel::Offset0))];
}

QString numbered(const char* text, int which)
{
    const QString form = QString::fromUtf8(text);
    return form.contains(QLatin1String("%1")) ? form.arg(which - TimeStampPanel::Offset0) : form;
}

QLabel* makeText(QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setMinimumWidth(1); // a long text is cut, and does not widen the window
    return label;
}

} // namespace

TimeStampPanel::TimeStampPanel(Console* console, const bool* selectOnFocus, QWidget* parent)
    : QWidget(parent)
    , m_console(console)
    , m_road(console->timeStamps())
    , m_gate([this] {
        if (isVisible()) repaintNow();
    })
{
    m_gate.setRefreshRate(repaintsPerSecond);
    const auto makeSavable = [this](const QString& name, int value) {
        auto* savable = new Savable(this, name, QStringLiteral("TimeStamps"), false,
                                    SLOT(savableChanged(QString, QString)), this);
        savable->setValue(value);
        savable->setValueDefault();
        return savable;
    };
    m_storedFormat = makeSavable(QStringLiteral("Format"), int(m_format));
    m_storedScale = makeSavable(QStringLiteral("Logarithmic"), 0);
    for (int which = 0; which < FieldCount; ++which) {
        m_fields.append(makeField(which, selectOnFocus));
        m_stored.append(makeSavable(numbered(formOf(which).key, which), formOf(which).initial));
    }

    auto* left = new QVBoxLayout;
    for (QGroupBox* group : {makeStreamGroup(), makeHistogramGroup(), makeSaveGroup()}) {
        group->setFixedWidth(leftWidth);
        left->addWidget(group);
    }
    left->addStretch(1);
    m_plot = new HistogramPlot(this);
    m_table = new RateTable(this);
    m_streamText = makeText(this);
    m_histogramText = makeText(this);
    m_problemText = makeText(this);
    auto* beside = new QHBoxLayout;
    beside->addWidget(m_plot, 1);
    beside->addWidget(m_table);
    auto* right = new QVBoxLayout;
    right->addWidget(m_streamText);
    right->addWidget(m_problemText);
    right->addWidget(m_histogramText);
    right->addLayout(beside, 1);
    right->addWidget(makeDecoderGroup());
    auto* layout = new QHBoxLayout(this);
    layout->addLayout(left);
    layout->addLayout(right, 1);
    setTabOrders();

    new WheelGuard(this);
    for (UnitEdit* edit : qAsConst(m_fields)) new InputNormaliser(edit);
    connect(m_road, &TimeStampRoad::stateChanged, this, &TimeStampPanel::updateState);
    connect(m_road, &TimeStampRoad::stateChanged, &m_gate, &RepaintGate::request);
    connect(m_road, &TimeStampRoad::changed, &m_gate, &RepaintGate::request);
    connect(console, &Console::readyChanged, this, &TimeStampPanel::updateState);
    connect(console, &Console::eventLogChanged, this, &TimeStampPanel::updateTexts);
    connect(&m_ageTimer, &QTimer::timeout, &m_gate, &RepaintGate::request);
    m_ageTimer.start(ageMilliseconds);
    applyColours();
    apply();
    updateState();
    repaintNow();
}

TimeStampPanel::~TimeStampPanel() = default;

UnitEdit* TimeStampPanel::makeField(int which, const bool* selectOnFocus)
{
    const FieldForm& form = formOf(which);
    auto* edit = new UnitEdit(this, UnitEdit::DfltPfConfigured, selectOnFocus, true);
    edit->setResolution(10); // every clock period
    edit->configure(QString::fromUtf8(form.unit), form.prefix, 1.0, 0.0, form.minimum, form.maximum);
    edit->setValue(form.initial);
    edit->setMinimumWidth(fieldWidth);
    const QString name = numbered(form.name, which);
    const QString unit = algoGetPrintablePrefix(form.prefix) + QString::fromUtf8(form.unit);
    edit->setAccessibleName(name);
    edit->setToolTip(tr("%1\n%2 to %3 %4").arg(name).arg(form.minimum).arg(form.maximum).arg(unit).trimmed());
    connect(edit, &UnitEdit::changed, this, [this] { apply(); });
    return edit;
}

/// As the page is read; the fields were made in another order.
void TimeStampPanel::setTabOrders()
{
    const QVector<QWidget*> before = {m_formatBox,    m_fields[Rate],         m_start,
                                      m_stop,         m_fields[StartChannel], m_fields[StopChannel],
                                      m_fields[Bins], m_fields[BinWidth],     m_logBox,
                                      m_clearButton,  m_histogramButton,      m_eventsButton};
    QWidget* last = before.first();
    const auto follow = [&last](QWidget* next) { setTabOrder(std::exchange(last, next), next); };
    for (QWidget* widget : before)
        if (widget != last) follow(widget);
    for (int channel = 0; channel < offsetCount; ++channel) follow(m_fields[Offset0 + channel]);
    follow(m_fields[Divider]);
    follow(m_fields[StartPeriod]);
}

/// Two fields with their labels beside each other.
QLayout* TimeStampPanel::makePair(int first, int second)
{
    auto* row = new QHBoxLayout;
    for (const int which : {first, second}) {
        auto* label = new QLabel(QString::fromUtf8(formOf(which).label), this);
        label->setBuddy(m_fields[which]);
        row->addWidget(label);
        row->addWidget(m_fields[which], 1);
    }
    return row;
}

QGroupBox* TimeStampPanel::makeStreamGroup()
{
    auto* group = new QGroupBox(tr("Stream"), this);
    m_formatBox = new QComboBox(group);
    for (const auto& format : formats)
        m_formatBox->addItem(QString::fromUtf8(format.name), int(format.format));
    m_formatBox->setFocusPolicy(Qt::StrongFocus);
    m_formatBox->setToolTip(tr("Format of the packets"));
    m_formatBox->installEventFilter(this);
    connect(m_formatBox, QOverload<int>::of(&QComboBox::activated), this, &TimeStampPanel::chooseFormat);
    m_start = new QPushButton(tr("&Start"), group);
    m_stop = new QPushButton(tr("St&op"), group);
    connect(m_start, &QPushButton::clicked, m_console, &Console::startTimeStamps);
    connect(m_stop, &QPushButton::clicked, m_road, &TimeStampRoad::stop);
    auto* form = new QFormLayout(group);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->addRow(tr("&Format"), m_formatBox);
    form->addRow(numbered(formOf(Rate).label, Rate), m_fields[Rate]);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_start);
    buttons->addWidget(m_stop);
    form->addRow(buttons);
    return group;
}

QGroupBox* TimeStampPanel::makeHistogramGroup()
{
    auto* group = new QGroupBox(tr("Histogram"), this);
    m_logBox = new QCheckBox(tr("Lo&garithmic"), group);
    connect(m_logBox, &QCheckBox::toggled, this, [this](bool on) {
        m_storedScale->setValue(int(on));
        m_plot->setLogarithmic(on);
        m_gate.request();
    });
    m_clearButton = new QPushButton(tr("C&lear"), group);
    connect(m_clearButton, &QPushButton::clicked, m_road, &TimeStampRoad::clear);
    auto* form = new QFormLayout(group);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->addRow(makePair(StartChannel, StopChannel));
    form->addRow(makePair(Bins, BinWidth));
    auto* row = new QHBoxLayout;
    row->addWidget(m_logBox, 1);
    row->addWidget(m_clearButton);
    form->addRow(row);
    return group;
}

QGroupBox* TimeStampPanel::makeDecoderGroup()
{
    auto* group = new QGroupBox(tr("Decoding: offsets of the channels 0 to 7"), this);
    auto* grid = new QGridLayout;
    for (int channel = 0; channel < offsetCount; ++channel) {
        UnitEdit* edit = m_fields[Offset0 + channel];
        auto* label = new QLabel(QString::number(channel), group);
        label->setBuddy(edit);
        grid->addWidget(label, 0, 2 * channel);
        grid->addWidget(edit, 0, 2 * channel + 1);
    }
    auto* layout = new QVBoxLayout(group);
    layout->addLayout(grid);
    layout->addLayout(makePair(Divider, StartPeriod));
    layout->addStretch(1);
    return group;
}

QGroupBox* TimeStampPanel::makeSaveGroup()
{
    auto* group = new QGroupBox(tr("Save"), this);
    m_histogramButton = new QPushButton(tr("Save histogra&m..."), group);
    m_eventsButton = new QPushButton(group);
    m_eventsButton->setToolTip(tr("Events that are decoded from now on, until the stream ends"));
    connect(m_histogramButton, &QPushButton::clicked, this, &TimeStampPanel::saveHistogram);
    connect(m_eventsButton, &QPushButton::clicked, this, &TimeStampPanel::toggleEventLog);
    auto* layout = new QVBoxLayout(group);
    layout->addWidget(m_histogramButton);
    layout->addWidget(m_eventsButton);
    return group;
}

TimeStampSettings TimeStampPanel::settings() const
{
    TimeStampSettings settings;
    settings.decoder.format = m_format;
    for (int channel = 0; channel < offsetCount; ++channel)
        settings.decoder.offsets[std::size_t(channel)] = m_fields[Offset0 + channel]->getValue();
    settings.decoder.divider = m_fields[Divider]->getValue();
    settings.decoder.startPeriod = m_fields[StartPeriod]->getValue();
    settings.rate = m_fields[Rate]->getValue();
    settings.start = m_fields[StartChannel]->getValue();
    settings.stop = m_fields[StopChannel]->getValue();
    settings.binWidth = m_fields[BinWidth]->getValue();
    settings.bins = m_fields[Bins]->getValue();
    return settings;
}

void TimeStampPanel::setSettings(const TimeStampSettings& settings, bool isKept)
{
    m_format = settings.decoder.format;
    for (int channel = 0; channel < offsetCount; ++channel)
        setValue(Offset0 + channel, settings.decoder.offsets[std::size_t(channel)]);
    setValue(Divider, settings.decoder.divider);
    setValue(StartPeriod, settings.decoder.startPeriod);
    setValue(Rate, settings.rate);
    setValue(StartChannel, settings.start);
    setValue(StopChannel, settings.stop);
    setValue(BinWidth, settings.binWidth);
    setValue(Bins, settings.bins);
    apply(isKept);
}

void TimeStampPanel::setValue(int which, qint64 value)
{
    m_fields[which]->setValue(int(std::clamp<qint64>(value, least, most)), true);
}

void TimeStampPanel::savableChanged(QString name, QString value)
{
    bool ok = false;
    const int number = value.toInt(&ok);
    if (!ok) return;
    if (name == m_storedScale->getName()) return m_logBox->setChecked(number != 0);
    if (name == m_storedFormat->getName()) {
        if (m_formatBox->findData(number) >= 0) m_format = Format(number);
    } else {
        for (int which = 0; which < FieldCount; ++which)
            if (name == m_stored[which]->getName()) setValue(which, number);
    }
    apply();
}

/// The start channel follows, unless it was another one.
void TimeStampPanel::chooseFormat()
{
    const auto format = Format(m_formatBox->currentData().toInt());
    if (m_fields[StartChannel]->getValue() == startChannel(m_format))
        setValue(StartChannel, startChannel(format));
    m_format = format;
    apply();
}

/// What the fields say takes effect, and is a setting from now on if `isKept`.
void TimeStampPanel::apply(bool isKept)
{
    m_formatBox->setCurrentIndex(m_formatBox->findData(int(m_format)));
    if (isKept) {
        m_storedFormat->setValue(int(m_format));
        for (int which = 0; which < FieldCount; ++which)
            m_stored[which]->setValue(m_fields[which]->getValue());
    }
    m_road->setSettings(settings());
}

void TimeStampPanel::updateState()
{
    m_start->setEnabled(m_console->isReady() && m_road->isIdle());
    m_stop->setEnabled(m_road->canStop());
}

void TimeStampPanel::updateTexts()
{
    m_eventsButton->setText(m_console->isCheckingEvents() ? tr("Checking the file...")
                            : m_console->isLoggingEvents()
                                ? tr("Stop saving e&vents (%1)").arg(m_console->loggedEvents())
                                : tr("Save e&vents..."));
    m_eventsButton->setEnabled(!m_console->isCheckingEvents());
    QString state;
    switch (m_road->state()) {
    case TimeStampRoad::State::Idle:
        state = tr("Stopped");
        break;
    case TimeStampRoad::State::Preparing:
        state = tr("Preparing");
        break;
    case TimeStampRoad::State::Running:
        state = tr("Running");
        break;
    case TimeStampRoad::State::Stopping:
        state = tr("Stopping");
        break;
    }
    const TimeStampRoad::Totals& totals = m_road->totals();
    m_streamText->setText(tr("%1. Stream's time: %2 s    Events: %3    Markers: %4")
                              .arg(state)
                              .arg(double(totals.time) * controller::scale::clockPeriod * 1e-12, 0, 'f', 1)
                              .arg(totals.events)
                              .arg(totals.markers));
    m_problemText->setText(problemText());
    m_problemText->setVisible(!m_problemText->text().isEmpty());
}

QString TimeStampPanel::problemText() const
{
    const TimeStampRoad::Totals& totals = m_road->totals();
    QStringList texts;
    if (!m_road->endText().isEmpty()) texts += tr("The stream has ended: %1").arg(m_road->endText());
    if (m_road->divider() != m_fields[Divider]->getValue())
        texts += tr("Divider in use: %1").arg(m_road->divider());
    const std::pair<QString, std::uint64_t> counts[] = {
        {tr("Lost by overflow: %1"), totals.decoded.lost},
        {tr("Ordering errors: %1"), totals.decoded.orderingErrors},
        {tr("Words before the first high word: %1"), totals.decoded.wordsBeforeHigh},
        {tr("Packets not asked for: %1"), std::uint64_t(totals.strays)},
    };
    for (const auto& [text, count] : counts)
        if (count > 0) texts += text.arg(count);
    if (totals.events > 0 && m_road->settledHistogram().stops() > 0 &&
        m_road->settledHistogram().starts() == 0)
        texts += tr("No start on channel %1").arg(m_road->settings().start);
    return texts.join(QStringLiteral("    "));
}

void TimeStampPanel::repaintNow()
{
    updateTexts();
    try {
        const timestamps::StartStopHistogram& histogram = m_road->settledHistogram();
        const std::uint64_t dropped = histogram.beyond() + histogram.withoutStart() + histogram.late();
        QString text = tr("Starts: %1    Stops in bins: %2    beyond: %3")
                           .arg(histogram.starts())
                           .arg(histogram.stops() - std::min(histogram.stops(), dropped))
                           .arg(histogram.beyond());
        if (histogram.withoutStart() > 0) text += tr("    without a start: %1").arg(histogram.withoutStart());
        if (histogram.late() > 0) text += tr("    out of order: %1").arg(histogram.late());
        m_histogramText->setText(text);
        m_plot->setCounts(histogram.counts(), m_road->settings().binWidth);
        m_plot->replot();
        const timestamps::Summary& decoded = m_road->totals().decoded;
        QVector<RateTable::Row> rows;
        for (int i = 0; i < timestamps::channelCount; ++i) {
            const std::uint64_t count = decoded.channels[std::size_t(i)];
            if (count == 0) continue;
            QString name = QString::number(i);
            if (i == m_road->settings().start) name += tr(" start");
            if (i == m_road->settings().stop) name += tr(" stop");
            rows.append({name, count, m_road->channelRate(i)});
        }
        for (int i = 0; i < timestamps::markerCount; ++i) {
            const std::uint64_t count = decoded.markers[std::size_t(i)];
            const int code = timestamps::markerCodes[std::size_t(i)];
            if (count > 0) rows.append({tr("marker %1").arg(code), count, m_road->markerRate(i)});
        }
        m_table->showRows(rows);
    } catch (const std::bad_alloc&) {
        m_problemText->setText(tr("There is no memory for the histogram"));
    }
}

void TimeStampPanel::refreshNow()
{
    updateState();
    repaintNow();
}

void TimeStampPanel::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_gate.request();
}

/// A wheel that passes over the formats must not begin the stream anew.
bool TimeStampPanel::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_formatBox && event->type() == QEvent::Wheel && !m_formatBox->hasFocus()) {
        event->ignore();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void TimeStampPanel::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange) applyColours();
    QWidget::changeEvent(event);
}

void TimeStampPanel::applyColours()
{
    const QColor base = palette().color(QPalette::Active, QPalette::Base);
    for (UnitEdit* edit : qAsConst(m_fields)) edit->setDefaultColor(base);
    if (m_problemText == nullptr) return;
    QPalette colours = palette();
    colours.setColor(QPalette::WindowText, problemColour(colours));
    m_problemText->setPalette(colours);
}

void TimeStampPanel::saveHistogram()
{
    askForFile(this, tr("Save"), QStringLiteral("histogram.csv"), tr("Histograms (*.csv)"),
               [this](const QString& path) { showFailure(this, m_console->saveHistogram(path)); });
}

void TimeStampPanel::toggleEventLog()
{
    if (m_console->isLoggingEvents()) return m_console->stopEventLog();
    askForFile(this, tr("Save events"), QStringLiteral("timestamps.csv"), tr("Events (*.csv)"),
               [this](const QString& path) { showFailure(this, m_console->startEventLog(path)); });
}

} // namespace bench
