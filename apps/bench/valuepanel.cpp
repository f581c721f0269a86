#include "valuepanel.h"

#include "apps/controller/controllerlink.h"
#include "apps/simulator/simulator.h"
#include "console.h"
#include "gaugebar.h"
#include "sweepplot.h"
#include "sweepwatch.h"
#include "theme.h"
#include "ticaxis.h"
#include "valueroad.h"

#include <cmath>
#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <vorelutil/widgets/dbledit.h>
#include <vorelutil/widgets/inputnormaliser.h>
#include <vorelutil/widgets/ueditspec.h>
#include <vorelutil/widgets/wheelguard.h>

namespace bench {

namespace {

constexpr int readBacksShown = 10; ///< that make one value: two a second
constexpr int leftWidth = 340;

/// How a field shows its raw values.
struct Format
{
    int address;
    const char* group; ///< of the step settings
    UnitEdit::DfltInputPf dfltInputPf;
    const char* unit;
    char prefix;
    int minimum, maximum; ///< equal: no limits
    int resolution;       ///< enough for every raw step
};

constexpr int least = -2147483647 - 1;
constexpr int most = 2147483647;

// clang-format off
constexpr Format formats[] = { // one raw step is one of prefix and unit
    // address                      group            typed without prefix          unit     prefix minimum maximum   digits
    {controller::outputVoltage,   "OutputVoltage", UnitEdit::DfltPfLastShown,  "V",      'm', -10000, 10000,    5},
    {controller::frequency,       "Frequency",     UnitEdit::DfltPfLastShown,  "Hz",     ' ', 1,      50000000, 8},
    {controller::exposureTime,    "ExposureTime",  UnitEdit::DfltPfLastInput,  "s",      'm', 1,      10000000, 8},
    {controller::xPosition,       "XPosition",     UnitEdit::DfltPfConfigured, "m",      'p', least,  most,     10},
    {controller::attenuator,      "Attenuation",   UnitEdit::DfltPfConfigured, "dB",     'X', 0,      4095,     5},
    {controller::counter,         "",              UnitEdit::DfltPfConfigured, "counts", 'X', 0,      0,        10},
    {controller::voltageReadBack, "",              UnitEdit::DfltPfConfigured, "V",      'm', 0,      0,        5},
};
// clang-format on

const Format& formatOf(int address)
{
    for (const Format& format : formats)
        if (format.address == address) return format;
    return formats[0];
}

void configure(UnitEdit* field, const Format& format)
{
    field->setResolution(format.resolution);
    field->configure(QString::fromUtf8(format.unit), format.prefix, 1.0, 0.0, format.minimum, format.maximum,
                     false);
}

template <class Box> Box* makeBox(QWidget* parent, int largest, const QString& suffix, const QString& help)
{
    auto* box = new Box(parent);
    box->setLocale(QLocale::c());
    box->setRange(0, largest);
    box->setSuffix(suffix);
    box->setToolTip(help);
    return box;
}

} // namespace

ValuePanel::ValuePanel(Console* console, Simulator* simulator, QWidget* parent)
    : QWidget(parent)
    , m_console(console)
    , m_road(new ValueRoad(console->link(), this))
    , m_storedScale(this, QStringLiteral("FullScale"), QStringLiteral("Gauge"), false,
                    SLOT(savableChanged(QString, QString)), this)
    , m_storedAlarm(this, QStringLiteral("Alarm"), QStringLiteral("Gauge"), false,
                    SLOT(savableChanged(QString, QString)), this)
    , m_storedSelection(this, QStringLiteral("SelectOnFocus"), QStringLiteral("Values"), false,
                        SLOT(savableChanged(QString, QString)), this)
{
    auto* left = new QVBoxLayout;
    left->addWidget(makeValueGroup());
    if (simulator != nullptr) left->addWidget(makeSimulatorGroup(simulator));
    left->addStretch(1);
    auto* right = new QVBoxLayout;
    right->addWidget(makeGaugeGroup());
    right->addWidget(makeSweepGroup(), 1);
    auto* layout = new QHBoxLayout(this);
    layout->addLayout(left);
    layout->addLayout(right, 1);

    // A wheel that passes over a field must not set a voltage.
    new WheelGuard(this);
    for (const auto& [address, field] : m_fields) new InputNormaliser(field);
    for (DblEdit* field : {m_fullScale, m_alarm}) new InputNormaliser(field);
    shareSteps();
    applyColours();
    connect(m_road, &ValueRoad::message, console, &Console::tell);
    connect(m_road, &ValueRoad::overcome, console, &Console::overcome);
    connect(m_road, &ValueRoad::shown, this, &ValuePanel::keepSteps);
    connect(m_road, &ValueRoad::answered, this, [this](int address, int, int, int, bool isLast) {
        if (!m_holdsLink || !isLast || address != controller::outputVoltage) return;
        m_holdsLink = false;
        m_console->release();
    });
    connect(m_sweepWatch, &SweepWatch::message, console, &Console::tell);
    connect(m_sweepWatch, &SweepWatch::started, m_road,
            [this] { m_road->reserve(controller::outputVoltage, m_sweepField); });
    connect(m_sweepWatch, &SweepWatch::ended, m_road,
            [this] { m_road->reserve(controller::outputVoltage, nullptr); });
    connect(console, &Console::leaving, this, &ValuePanel::leave);
    connect(console->link(), &ControllerLink::stateChanged, this, [this](ControllerLink::State state) {
        if (state == ControllerLink::Connected) return;
        m_gauge->clearReading();
        showAlarm();
    });
    connect(console->link(), &ControllerLink::told, this, [this](const controller::TelegramView& telegram) {
        if (telegram.type == controller::typeTell && telegram.address == controller::voltageReadBack &&
            telegram.wordCount > 0)
            showReadBack(telegram.word(0));
    });
}

ValuePanel::~ValuePanel() = default;

QWidget* ValuePanel::makeValueGroup()
{
    auto* group = new QGroupBox(tr("Values"), this);
    group->setFixedWidth(leftWidth);
    auto* form = new QFormLayout(group);
    addField(form, controller::outputVoltage, tr("Output &voltage"));
    addField(form, controller::frequency, tr("&Frequency"));
    addField(form, controller::exposureTime, tr("&Exposure time"));
    addField(form, controller::xPosition, tr("&X position"))->setOutputPrefixSelection(UnitEdit::PfStatic);
    // What the attenuator does: 80 dB x / (x + 4095), 0 to 40 dB.
    addField(form, controller::attenuator, tr("&Attenuation"))
        ->setFormulas(QStringLiteral("/(*(80,x),+(x,4095))"), QStringLiteral("/(*(4095,x),-(80,x))"));
    UnitEdit* counter = addField(form, controller::counter, tr("Counter"), false);
    counter->setInputUnsigned(true);
    m_road->askAgain(controller::counter);
    UnitEdit* readBack = addField(form, controller::voltageReadBack, tr("Read-back"), false);
    readBack->setAverageLength(readBacksShown);
    readBack->setToolTip(tr("Mean of %1 values").arg(readBacksShown));

    m_selectBox = new QCheckBox(tr("Select text on f&ocus"), group);
    m_selectBox->setChecked(m_selectOnFocus);
    form->addRow(m_selectBox);
    m_storedSelection.setValue(int(m_selectOnFocus));
    m_storedSelection.setValueDefault();
    connect(m_selectBox, &QCheckBox::toggled, this, [this](bool on) {
        m_selectOnFocus = on;
        m_storedSelection.setValue(int(on));
    });
    return group;
}

UnitEdit* ValuePanel::addField(QFormLayout* form, int address, const QString& label, bool isEntry)
{
    const Format& format = formatOf(address);
    auto* field =
        new UnitEdit(this, format.dfltInputPf, &m_selectOnFocus, false, QString::fromUtf8(format.group));
    configure(field, format);
    form->addRow(label, field);
    bind(address, field, label, isEntry);
    return field;
}

void ValuePanel::bind(int address, UnitEdit* field, const QString& label, bool isEntry)
{
    const QString name = QString(label).remove(QLatin1Char('&'));
    field->setAccessibleName(name);
    m_road->bind(address, field, name, isEntry);
    m_fields.append({address, field});
}

UnitEdit* ValuePanel::field(int address) const
{
    for (const auto& [at, field] : m_fields)
        if (at == address) return field;
    return nullptr;
}

/// The members of a group take each other's step settings over.
void ValuePanel::shareSteps()
{
    for (const auto& [from, sender] : qAsConst(m_fields)) {
        connect(sender, &UnitEdit::stepChanged, this,
                [this](const QString& group, bool useRel, int relStep, double absStep) {
                    m_steps.insert(group, {useRel, relStep, absStep});
                });
        for (const auto& [to, receiver] : qAsConst(m_fields))
            if (sender != receiver) connect(sender, &UnitEdit::stepChanged, receiver, &UnitEdit::changeStep);
    }
}

/// A value makes the absolute step of a field that was only told one what it was at first.
void ValuePanel::keepSteps(UnitEdit* field)
{
    const QString group = field->groupName();
    const auto steps = m_steps.constFind(group);
    if (steps != m_steps.constEnd()) field->changeStep(group, steps->useRel, steps->relStep, steps->absStep);
}

/// A sweep ends before the link, and the controller has the value from before it.
void ValuePanel::leave()
{
    if (!m_sweepField->isRunning()) return;
    m_sweepField->stop();
    m_holdsLink = m_road->isWaiting(controller::outputVoltage);
    if (m_holdsLink) m_console->hold();
}

QWidget* ValuePanel::makeGaugeGroup()
{
    auto* group = new QGroupBox(tr("Read-back"), this);
    m_gauge = new GaugeBar('m', QStringLiteral("V"), group);
    m_axis = new TicAxis(QStringLiteral("V"), group);
    m_fullScale = new DblEdit(group, &m_selectOnFocus);
    m_fullScale->configure(QStringLiteral("V"), 0.01, 100.0);
    m_fullScale->setNumber(10.0);
    m_alarm = new DblEdit(group, &m_selectOnFocus);
    m_alarm->configure(QStringLiteral("V"), 0.0, 100.0);
    m_alarm->setNumber(8.0);
    m_alarmText = new QLabel(group);

    auto* row = new QHBoxLayout;
    row->setSpacing(6); // the layout around it has none
    for (const auto& [text, field] :
         {qMakePair(tr("Full &scale"), m_fullScale), qMakePair(tr("A&larm above"), m_alarm)}) {
        auto* label = new QLabel(text, group);
        label->setBuddy(field);
        row->addWidget(label);
        row->addWidget(field);
        row->addSpacing(16);
        connect(field, &DblEdit::changed, this, &ValuePanel::applyScale);
    }
    row->addWidget(m_alarmText, 1);
    auto* layout = new QVBoxLayout(group);
    layout->setSpacing(0);
    layout->addLayout(row);
    layout->addWidget(m_gauge);
    layout->addWidget(m_axis);
    applyScale();
    m_storedScale.setValueDefault();
    m_storedAlarm.setValueDefault();
    return group;
}

QWidget* ValuePanel::makeSweepGroup()
{
    auto* group = new QGroupBox(tr("Sweep"), this);
    const QString name = tr("S&wept voltage");
    const Format& format = formatOf(controller::outputVoltage);
    m_sweepField =
        new UEditSpec(group, format.dfltInputPf, &m_selectOnFocus, false, QString::fromUtf8(format.group));
    configure(m_sweepField, format);
    bind(controller::outputVoltage, m_sweepField, name, true);
    m_sweepWatch = new SweepWatch(m_sweepField, m_road, controller::outputVoltage, this);
    m_sweepPlot = new SweepPlot(group);
    connect(m_sweepWatch, &SweepWatch::started, m_sweepPlot, [this] {
        m_readings.clear();
        m_sweepPlot->clear(m_sweepField->value2Number(m_sweepField->sweepStart()),
                           m_sweepField->value2Number(m_sweepField->sweepEnd()));
    });

    connect(m_sweepWatch, &SweepWatch::reached, this, [this](int value, bool backward) {
        const int number = m_console->link()->get(controller::voltageReadBack);
        if (number != 0) m_readings.insert(number, {value, backward});
    });
    connect(m_console->link(), &ControllerLink::acknowledged, this,
            [this](int number, int, int, int reason, int value) { plotReadBack(number, reason, value); });

    auto* label = new QLabel(name, group);
    label->setBuddy(m_sweepField);
    auto* button = new QPushButton(tr("S&pectroscopy..."), group);
    connect(button, &QPushButton::clicked, m_sweepField, &UEditSpec::openSpectroscopy);
    auto* row = new QHBoxLayout;
    row->addWidget(label);
    row->addWidget(m_sweepField);
    row->addSpacing(16);
    row->addWidget(button);
    row->addStretch(1);
    auto* layout = new QVBoxLayout(group);
    layout->addLayout(row);
    layout->addWidget(m_sweepPlot, 1);
    return group;
}

QWidget* ValuePanel::makeSimulatorGroup(Simulator* simulator)
{
    auto* group = new QGroupBox(tr("Simulated controller"), this);
    group->setFixedWidth(leftWidth);
    auto* confirm = makeBox<QSpinBox>(group, 60000, tr(" ms"), tr("A sweep needs less than about 450 ms"));
    auto* refuse = makeBox<QSpinBox>(group, 1000, QString(), tr("Every N-th value that is set is refused"));
    auto* own =
        makeBox<QDoubleSpinBox>(group, 3600, tr(" s"), tr("Frequency or exposure time change by themselves"));
    refuse->setPrefix(tr("1 in "));
    refuse->setSpecialValueText(tr("none"));
    own->setSpecialValueText(tr("never"));
    own->setDecimals(1);
    confirm->setSingleStep(50);
    const Simulator::Options& options = simulator->options();
    confirm->setValue(options.confirmMilliseconds);
    refuse->setValue(options.refuseEvery);
    own->setValue(options.ownChangesSeconds);
    connect(confirm, QOverload<int>::of(&QSpinBox::valueChanged), this,
            [simulator](int milliseconds) { simulator->setConfirmMilliseconds(milliseconds); });
    connect(refuse, QOverload<int>::of(&QSpinBox::valueChanged), this,
            [simulator](int every) { simulator->setRefuseEvery(every); });
    connect(own, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this,
            [simulator](double seconds) { simulator->setOwnChanges(seconds); });
    auto* form = new QFormLayout(group);
    form->addRow(tr("Confir&ms after"), confirm);
    form->addRow(tr("Ref&uses settings"), refuse);
    form->addRow(tr("Cha&nges values every"), own);
    return group;
}

void ValuePanel::savableChanged(QString name, QString value)
{
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok || !std::isfinite(number)) return;
    if (name == QLatin1String("SelectOnFocus")) {
        m_selectBox->setChecked(number != 0.0);
        return;
    }
    (name == QLatin1String("Alarm") ? m_alarm : m_fullScale)->setNumber(number, true);
    applyScale();
}

/// Shows gauge and axis as the two fields say, and remembers it.
void ValuePanel::applyScale()
{
    const double full = m_fullScale->getNumber();
    m_gauge->setFullScale(int(std::lround(full * 1000)));
    m_gauge->setAlarm(int(std::lround(m_alarm->getNumber() * 1000)));
    m_axis->setRange(-full, full);
    showAlarm();
    m_storedScale.setValue(full);
    m_storedAlarm.setValue(m_alarm->getNumber());
}

void ValuePanel::showReadBack(int raw)
{
    m_gauge->setReading(raw);
    showAlarm();
}

void ValuePanel::showAlarm()
{
    QStringList texts;
    if (m_gauge->isAlarmed()) texts += tr("Alarm");
    if (m_gauge->isBeyondScale()) texts += tr("beyond the scale");
    m_alarmText->setText(texts.join(QStringLiteral(", ")));
}

/// What is read at a point is taken before the next one is set: requests are answered in their order.
void ValuePanel::plotReadBack(int number, int reason, int raw)
{
    if (!m_readings.contains(number)) return;
    const auto [point, backward] = m_readings.take(number);
    if (reason == controller::reasonOk)
        m_sweepPlot->add(m_sweepField->value2Number(point), m_sweepField->value2Number(raw), backward);
}

void ValuePanel::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange) applyColours();
    QWidget::changeEvent(event);
}

/// A field that is idle looks like every other field of the theme.
void ValuePanel::applyColours()
{
    const QColor base = palette().color(QPalette::Active, QPalette::Base);
    for (const auto& [address, field] : qAsConst(m_fields)) field->setDefaultColor(base);
    for (DblEdit* field : {m_fullScale, m_alarm})
        if (field != nullptr) field->setDefaultColor(base);
    if (m_alarmText == nullptr) return;
    QPalette colours = palette();
    colours.setColor(QPalette::WindowText, problemColour(colours));
    m_alarmText->setPalette(colours);
}

} // namespace bench
