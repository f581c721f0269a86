#include "unitedit.h"

#include "fieldaccessible.h"
#include "fieldlook.h"
#include "numbermodel.h"
#include "qthelpers.h"
#include "stepdialog.h"

#include <cmath>
#include <QFontMetrics>
#include <QMenu>
#include <QSignalBlocker>
#include <QTimer>
#include <utility>

// The model side of the field: settings, and taking over values from the program. What the user does is in
// unitedit_interaction.cpp.
//
// Values may come often and mostly change nothing, so what was rendered last (m_rendered) and what was parsed
// last (m_parsed) is remembered. Both know everything that they depend on but the model's settings: whoever
// changes one of those calls applyModel().

namespace {

constexpr double leastTolerance = 1e-10;
constexpr double defaultAbsStep = 1.0;
constexpr int defaultRelStep = 10;
constexpr int defaultStepIsRel = 1;

QString latin1(const std::string& bytes)
{
    return QString::fromLatin1(bytes.data(), static_cast<int>(bytes.size()));
}

} // namespace

UnitEdit::UnitEdit(QWidget* parent, DfltInputPf dfltInputPf, const bool* selectOnFocus, bool directCommit,
                   QString groupName)
    : QLineEdit(parent)
    , m_commitTimer(new QTimer(this))
    , m_model(std::make_unique<NumberModel>())
    , m_absStep(this, QStringLiteral("AbsStep"), groupName, false, nullptr, nullptr)
    , m_relStep(this, QStringLiteral("RelStep"), groupName, false, nullptr, nullptr)
    , m_stepIsRel(this, QStringLiteral("StepIsRel"), groupName, false, nullptr, nullptr)
    , m_dfltInputPf(dfltInputPf)
    , m_selectOnFocus(selectOnFocus)
    , m_directCommit(directCommit)
    , m_groupName(std::move(groupName))
{
    fieldaccessible::install();
    m_commitTimer->setSingleShot(true);
    m_absStep.setValue(defaultAbsStep);
    m_relStep.setValue(defaultRelStep);
    m_stepIsRel.setValue(defaultStepIsRel);
    for (Savable* setting : {&m_absStep, &m_relStep, &m_stepIsRel}) {
        setting->setValueDefault();
        connect(setting, &Savable::notifyChanged, this, [this] {
            if (m_stepDialog) m_stepDialog->refresh();
        });
    }
    setFormulas(QString(), QString());
    fieldlook::setBackground(this, m_defaultColor);
    connect(this, &QLineEdit::textChanged, this, &UnitEdit::onTextChange);
    connect(this, &QLineEdit::editingFinished, this, &UnitEdit::commit);
    connect(m_commitTimer, &QTimer::timeout, this, &UnitEdit::commit);
    // What the user types is committed by the user, not by the steps before.
    connect(this, &QLineEdit::textEdited, m_commitTimer, &QTimer::stop);
    setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("1234.567 mm")));
}

UnitEdit::~UnitEdit()
{
    // The menu may be at work still, with the very entry that deletes the field: who runs it deletes it.
    if (!m_openMenu) return;
    m_openMenu->setParent(nullptr);
    m_openMenu->close();
}

double UnitEdit::value2Number(int v) const
{
    return m_model->value2Number(v);
}

int UnitEdit::number2Value(double n) const
{
    return m_model->number2Value(n);
}

int UnitEdit::prefixedNumber2Value(double n) const
{
    return m_model->prefixedNumber2Value(n);
}

bool UnitEdit::checkNumberValid(double n) const
{
    return m_model->checkNumberValid(n);
}

double UnitEdit::getNumber(bool* valid, char* inputPf, bool* incomplete, QString extText) const
{
    const bool isDefaultPf = inputPf == nullptr || *inputPf == m_model->currentPf;
    if (!extText.isEmpty() || !isDefaultPf) {
        return m_model->parse(extText.isEmpty() ? text() : extText, valid, inputPf, incomplete);
    }
    const Parsed& parsed = parsedText();
    if (valid != nullptr) *valid = parsed.valid;
    if (inputPf != nullptr) *inputPf = parsed.pf;
    if (incomplete != nullptr) *incomplete = parsed.incomplete;
    return parsed.number;
}

/// What the field's text means, without a prefix in units of the current one.
const UnitEdit::Parsed& UnitEdit::parsedText() const
{
    Parsed& p = m_parsed;
    const QString current = text();
    if (!p.fresh || p.defaultPf != m_model->currentPf || p.text != current) {
        p.text = current;
        p.defaultPf = p.pf = m_model->currentPf;
        p.number = m_model->parse(current, &p.valid, &p.pf, &p.incomplete);
        p.fresh = true;
    }
    return p;
}

QString UnitEdit::normalizedText(char* pfOut, const double* number) const
{
    if (!m_valueShown) return QString();
    return m_model->normalizedText(number != nullptr ? *number : m_model->value2Number(m_value), pfOut);
}

// Configuration

/// Shows what became of the value, or of its text, by another setting of the model.
void UnitEdit::applyModel()
{
    m_rendered.fresh = false;
    m_parsed.fresh = false;
    m_followedStep.clear();
    updateDisplay(false);
}

/// The number that a change of the mapping may keep.
double UnitEdit::shownNumber() const
{
    return m_numberStored ? m_storedNumber : getNumber();
}

/// The mapping changed while the field showed `number`.
void UnitEdit::applyMapping(double number, bool keepNumber)
{
    if (keepNumber && m_valid) m_value = number2Value(number);
    applyModel();
}

QString UnitEdit::baseUnit() const
{
    return m_model->baseUnit;
}

void UnitEdit::setBaseUnit(QString u)
{
    if (u == m_model->baseUnit) return;
    m_model->baseUnit = u.trimmed();
    applyModel();
}

char UnitEdit::inputPrefix() const
{
    return m_model->inputPf;
}

void UnitEdit::setInputPrefix(char pf, bool keepNumber)
{
    if (pf == m_model->inputPf) return;
    const double number = shownNumber();
    m_model->inputPf = pf;
    m_model->currentPf = pf;
    applyMapping(number, keepNumber);
}

char UnitEdit::currentPrefix() const
{
    return m_model->currentPf;
}

double UnitEdit::inputFactor() const
{
    return m_model->factor;
}

void UnitEdit::setInputFactor(double f, bool keepNumber)
{
    if (f == m_model->factor) return;
    const double number = shownNumber();
    m_model->factor = f;
    applyMapping(number, keepNumber);
}

double UnitEdit::inputOffset() const
{
    return m_model->offset;
}

void UnitEdit::setInputOffset(double o, bool keepNumber)
{
    if (o == m_model->offset) return;
    const double number = shownNumber();
    m_model->offset = o;
    applyMapping(number, keepNumber);
}

void UnitEdit::configure(QString baseUnit, char pf, double factor, double offset, int minimum, int maximum,
                         bool keepNumber)
{
    setBaseUnit(std::move(baseUnit));
    setInputPrefix(pf, keepNumber);
    setInputFactor(factor, keepNumber);
    setInputOffset(offset, keepNumber);
    m_model->minimum = minimum;
    m_model->maximum = maximum;
}

bool UnitEdit::isInputUnsigned() const
{
    return m_model->unsignedInput;
}

void UnitEdit::setInputUnsigned(bool on)
{
    m_model->unsignedInput = on;
    applyModel();
}

int UnitEdit::minimum() const
{
    return m_model->minimum;
}

void UnitEdit::setMinimum(int minimum)
{
    m_model->minimum = minimum;
}

int UnitEdit::maximum() const
{
    return m_model->maximum;
}

void UnitEdit::setMaximum(int maximum)
{
    m_model->maximum = maximum;
}

int UnitEdit::resolution() const
{
    return m_model->resolution;
}

void UnitEdit::setResolution(int r)
{
    if (r < 0 || r == m_model->resolution) return;
    m_model->resolution = r;
    applyModel();
}

void UnitEdit::setTolerance(double t)
{
    if (t < 1.0) m_tolerance = t;
}

UnitEdit::OutputPfSelect UnitEdit::outputPrefixSelection() const
{
    return static_cast<OutputPfSelect>(m_model->outputPfSelect);
}

void UnitEdit::setOutputPrefixSelection(OutputPfSelect s)
{
    if (s == outputPrefixSelection() || s < PfDynamic || s > PfUseInput) return;
    m_model->outputPfSelect = static_cast<NumberModel::OutputPfSelect>(s);
    applyModel();
}

QString UnitEdit::toNumberFormula() const
{
    return latin1(m_model->value2NumberFormula);
}

QString UnitEdit::toValueFormula() const
{
    return latin1(m_model->number2ValueFormula);
}

void UnitEdit::setFormulas(QString toNumber, QString toValue)
{
    m_model->value2NumberFormula = qth_q2s(toNumber);
    m_model->number2ValueFormula = qth_q2s(toValue);
    applyModel();
}

void UnitEdit::setAbsoluteStepsize(QString text)
{
    m_absStep.setValue(getNumber(nullptr, nullptr, nullptr, text));
    m_absStep.setValueDefault();
    if (!m_stepDialog) return;
    m_stepDialog->absStepTextChanged(text);
    m_stepDialog->accept();
}

bool UnitEdit::isStepRelative() const
{
    return m_stepIsRel.getValue().toInt() != 0;
}

int UnitEdit::relativeStep() const
{
    return m_relStep.getValue().toInt();
}

double UnitEdit::absoluteStep() const
{
    return m_absStep.getValue().toDouble();
}

// Taking over values

/// Collects values for the mean while the field is disabled. True when `*v` is to be shown.
bool UnitEdit::average(int* v)
{
    if (isEnabled()) return true;
    const bool isUnsigned = m_model->unsignedInput;
    m_avgSum += isUnsigned ? static_cast<double>(static_cast<unsigned>(*v)) : static_cast<double>(*v);
    ++m_avgCount;
    if (m_avgCount < m_avgLength) return false;
    // In 64 bits: the values before may have been read the other way, and the mean is then out of the range.
    *v = static_cast<int>(static_cast<unsigned>(static_cast<long long>(m_avgSum / m_avgCount)));
    m_avgSum = 0.0;
    m_avgCount = 0;
    return true;
}

bool UnitEdit::setValue(int v, bool limit)
{
    if (!average(&v)) return false;

    int taken = v;
    if (limit && m_model->limitsOn()) taken = qBound(m_model->minimum, v, m_model->maximum);
    const bool limited = taken != v;
    if (isStatusEditing(m_status)) {
        m_pendingValue = v;
        return limited;
    }
    m_value = taken;
    m_valueShown = true;
    updateDisplay(false);
    followStep();
    showStatus(EsIdle, m_defaultColor);
    m_stepAccu = 0;
    return limited;
}

bool UnitEdit::setNumber(double n, bool limit, bool prefixed)
{
    m_storedNumber = n;
    m_numberStored = true;
    return setValue(prefixed ? prefixedNumber2Value(n) : number2Value(n), limit);
}

/// Until it is fixed, the absolute step is 1 in the current prefix.
void UnitEdit::followStep()
{
    if (m_absStepFixed || m_absStep.hasValueFromExt()) return;
    const bool isDerived = !m_followedStep.isNull() && m_followedPf == m_model->currentPf;
    if (isDerived && m_absStep.getValue() == m_followedStep && !m_absStep.getToBeSaved()) return;
    m_absStep.setValue(getNumber(nullptr, nullptr, nullptr, QStringLiteral("1")));
    m_absStep.setValueDefault();
    m_followedStep = m_absStep.getValue();
    m_followedPf = m_model->currentPf;
}

void UnitEdit::updateDisplay(bool force)
{
    const QString current = text();
    const bool isShown = m_rendered.fresh && m_rendered.value == m_value &&
                         m_rendered.valueShown == m_valueShown &&
                         m_rendered.currentPf == m_model->currentPf && m_rendered.text == current;
    if (isShown) {
        m_valid = m_rendered.valid;
        m_textDirty = false;
        return;
    }

    const double n = m_model->value2Number(m_value);
    if (!force && m_valid && m_tolerance >= leastTolerance && !current.isEmpty()) {
        const double shown = parsedText().number;
        // Two zeros, or two infinities, do not differ; NaN differs from every number.
        if (n == shown || std::fabs(n / shown - 1) <= m_tolerance) {
            m_textDirty = false;
            return;
        }
    }

    char* const pfOut = m_dfltInputPf == DfltPfLastShown ? &m_model->currentPf : nullptr;
    const QString shown = normalizedText(pfOut, &n);
    if (shown != current) {
        const QSignalBlocker blocker(this);
        const int cursor = cursorPosition();
        setText(shown);
        setCursorPosition(cursor);
    }
    m_valid = !std::isnan(n);
    m_textDirty = false;
    m_rendered = {true, m_valueShown, m_valid, m_model->currentPf, m_value, shown.left(maxLength())};
}
