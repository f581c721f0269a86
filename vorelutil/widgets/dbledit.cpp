#include "dbledit.h"

#include "fieldaccessible.h"
#include "fieldlook.h"
#include "numbermodel.h"

#include <algorithm>
#include <cmath>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QPointer>
#include <QSignalBlocker>
#include <QTimer>
#include <QWheelEvent>
#include <vorelutil/algo/prefix.h>

namespace {

constexpr int commitDelay = 100; ///< ms after the last step
constexpr double leastTolerance = 1e-10;
constexpr double stepUp = 1.05;
constexpr double stepDown = 0.95238095238095233; ///< 1 / 1.05

} // namespace

DblEdit::DblEdit(QWidget* parent, bool const* selectOnFocus)
    : QLineEdit(parent)
    , m_commitTimer(new QTimer(this))
    , m_selectOnFocus(selectOnFocus)
    , m_defaultColor(QStringLiteral("white"))
{
    m_commitTimer->setSingleShot(true);
    connect(this, &QLineEdit::textChanged, this, &DblEdit::onTextChange);
    connect(this, &QLineEdit::textEdited, m_commitTimer, &QTimer::stop); // a half-typed number is not due
    connect(this, &QLineEdit::editingFinished, this, &DblEdit::commit);
    connect(m_commitTimer, &QTimer::timeout, this, &DblEdit::commit);
    setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("1234.567 mm")));
    fieldaccessible::install();
    setStatus(EsIdle);
}

DblEdit::~DblEdit() = default;

bool DblEdit::checkNumberValid(double n) const
{
    return !limitsOn() || (m_minimum <= n && n <= m_maximum);
}

/// Whether a number that the user enters counts.
bool DblEdit::isAcceptable(double n) const
{
    return !std::isnan(n) && checkNumberValid(n);
}

double DblEdit::parseNumber(bool* valid, char* inputPf, bool* incomplete) const
{
    return ::parseNumber(text(), m_unit, m_prefix, valid, inputPf, incomplete);
}

QString DblEdit::normalizedText(double n, char* pfOut) const
{
    const char largest = m_prefix == 'X' ? 'X' : ' ';
    const char pf = n == 0.0 ? ' ' : algoNormalize(&n, largest, nullptr, m_resolution);
    if (pfOut != nullptr) *pfOut = pf;
    return numberText(n, pf, m_unit, m_resolution);
}

void DblEdit::configure(QString const& unit, double minimum, double maximum)
{
    setBaseUnit(unit);
    setMinimum(minimum);
    setMaximum(maximum);
}

void DblEdit::setBaseUnit(QString const& unit)
{
    if (unit == m_unit) return;
    m_unit = unit.trimmed();
    updateDisplay(m_textDirty);
}

void DblEdit::setResolution(int digits)
{
    if (digits < 0 || digits == m_resolution) return;
    m_resolution = digits;
    updateDisplay(m_textDirty);
}

void DblEdit::setTolerance(double tolerance)
{
    if (tolerance < 1.0) m_tolerance = tolerance;
}

void DblEdit::setStatus(EditStatus status)
{
    const bool isNew = status != m_status;
    m_status = status;
    switch (status) {
    case EsEditValid:
        fieldlook::setBackground(this, QStringLiteral("lightgreen"));
        break;
    case EsEditInvalid:
        fieldlook::setBackground(this, QStringLiteral("red"));
        break;
    case EsIdle:
    default:
        fieldlook::setBackground(this, m_defaultColor);
        break;
    }
    if (isNew) fieldaccessible::statusChanged(this);
}

void DblEdit::setDefaultColor(QColor const& color)
{
    m_defaultColor = color;
    setStatus(m_status);
}

bool DblEdit::setNumber(double v, bool limit)
{
    m_number = limit && limitsOn() ? std::clamp(v, m_minimum, m_maximum) : v;
    updateDisplay(m_textDirty);
    return m_number < v || m_number > v;
}

void DblEdit::commit()
{
    if (!m_valid) return;
    char pf = ' ';
    bool converts = false;
    bool incomplete = false;
    const double n = parseNumber(&converts, &pf, &incomplete);
    if (m_textDirty && n != m_number) {
        const bool taken = converts && isAcceptable(n);
        if (taken) {
            m_number = n;
            m_prefix = pf;
        }
        updateDisplay(incomplete || !taken);
        if (taken) {
            const QPointer<DblEdit> alive(this);
            Q_EMIT changed(m_number);
            if (alive.isNull()) return;
        }
    }
    setStatus(EsIdle);
    m_textDirty = false;
}

void DblEdit::onTextChange()
{
    m_textDirty = true;
    bool converts = false;
    const double n = parseNumber(&converts);
    m_valid = converts && isAcceptable(n);
    setStatus(m_valid ? EsEditValid : EsEditInvalid);
}

void DblEdit::step(int direction)
{
    bool converts = false;
    const double n = parseNumber(&converts) * (direction >= 1 ? stepUp : stepDown);
    if (!converts || !isAcceptable(n)) return;
    m_commitTimer->start(commitDelay);
    setText(normalizedText(n)); // last: a slot of textChanged() may do anything
}

void DblEdit::restore()
{
    m_commitTimer->stop();
    updateDisplay(true);
    setStatus(EsIdle);
}

void DblEdit::selectContents()
{
    end(false);
    home(true);
}

void DblEdit::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Up:
        if (!isReadOnly()) step(1);
        break;
    case Qt::Key_Down:
        if (!isReadOnly()) step(-1);
        break;
    case Qt::Key_Escape:
    case Qt::Key_F5:
        restore();
        break;
    default:
        QLineEdit::keyPressEvent(event);
        return;
    }
    event->accept();
}

void DblEdit::wheelEvent(QWheelEvent* event)
{
    event->accept();
    if (isReadOnly()) return;
    // Slow fingers on a touch pad may move pixels, but not yet an angle.
    const QPoint moved = event->angleDelta().isNull() ? event->pixelDelta() : event->angleDelta();
    // With Alt the toolkit turns the wheel sideways.
    const int delta = moved.y() != 0 ? moved.y() : moved.x();
    // A touch pad tells the begin, the end and the dying away of a gesture with a delta of zero: no notch.
    const Qt::ScrollPhase phase = event->phase();
    const bool isMark = phase == Qt::ScrollBegin || phase == Qt::ScrollEnd || phase == Qt::ScrollMomentum;
    if (delta != 0 || !isMark) step(delta);
}

void DblEdit::focusInEvent(QFocusEvent* event)
{
    QLineEdit::focusInEvent(event);
    if (m_selectOnFocus == nullptr || !*m_selectOnFocus) return;
    // Queued, so that the click that gave the focus does not undo it.
    if (event->reason() != Qt::ActiveWindowFocusReason) QTimer::singleShot(0, this, &DblEdit::selectContents);
}

/// Shows the number, unless the text that stands there is within the tolerance and need not change. A text
/// that was typed and not committed has to go (`force`): it would look as if it were the number.
void DblEdit::updateDisplay(bool force)
{
    const bool shown = !force && m_valid && m_tolerance >= leastTolerance && !text().isEmpty() &&
                       std::fabs(m_number / parseNumber() - 1) <= m_tolerance;
    if (!shown) {
        const QString rendered = normalizedText(m_number);
        if (rendered != text()) {
            const QSignalBlocker blocker(this);
            const int cursor = cursorPosition();
            setText(rendered);
            setCursorPosition(cursor);
        }
        m_valid = true;
    }
    m_textDirty = false;
}
