#include "unitedit.h"

#include "fieldaccessible.h"
#include "fieldlook.h"
#include "numbermodel.h"
#include "stepdialog.h"

#include <cmath>
#include <QActionGroup>
#include <QContextMenuEvent>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QTimer>
#include <QWheelEvent>

// What the user does to the field: status, commit, keys, wheel, steps, focus and menu.

namespace {

constexpr int commitDelay = 100; // ms after the last step
constexpr int fastSteps = 10;

bool isToolkitsOwn(const QAction* action, const QLineEdit* edit)
{
    for (const char* word : {"Undo", "Redo", "Unicode"}) {
        if (action->text().contains(QLatin1String(word))) return true;
    }
    // The texts may be translated: what the actions do is not. Taking a connection off succeeds only where
    // there is one, and the action goes then anyway.
    if (QObject::disconnect(action, SIGNAL(triggered()), edit, SLOT(undo()))) return true;
    if (QObject::disconnect(action, SIGNAL(triggered()), edit, SLOT(redo()))) return true;
    return action->menu() != nullptr && action->menu()->inherits("QUnicodeControlCharacterMenu");
}

} // namespace

const UnitEdit::PfUsage UnitEdit::pfUsageMode[] = {
    {PfDynamic, "Dynamic"},
    {PfStatic, "Static"},
    {PfUseInput, "Use Input"},
    {PfDynamic, nullptr},
};

// Status

void UnitEdit::showStatus(EditStatus s, const QColor& color)
{
    fieldlook::setBackground(this, color);
    setReadOnly(s == EsCommitted);
    if (s == m_status) return;
    m_status = s;
    fieldaccessible::statusChanged(this);
}

void UnitEdit::setStatus(EditStatus s)
{
    if (isStatusEditing(s) && !isStatusEditing(m_status)) m_pendingValue = m_value;
    switch (s) {
    case EsEditValid:
        return showStatus(s, QColor(QStringLiteral("lightgreen")));
    case EsEditInvalid:
        return showStatus(s, QColor(QStringLiteral("red")));
    case EsCommitted:
        return showStatus(s, QColor(QStringLiteral("greenyellow")));
    case EsIdle:
    default:
        return showStatus(EsIdle, m_defaultColor);
    }
}

void UnitEdit::setDefaultColor(QColor c)
{
    m_defaultColor = std::move(c);
    setStatus(m_status);
}

void UnitEdit::setInvalid(bool inv)
{
    m_valid = !inv;
    setStatus(inv ? EsEditInvalid : EsIdle);
}

void UnitEdit::clear()
{
    const QPointer<UnitEdit> self(this);
    QLineEdit::clear();
    if (self) setStatus(EsIdle);
}

void UnitEdit::onTextChange()
{
    m_textDirty = true;
    bool converts = false;
    const double n = getNumber(&converts);
    m_valid = converts && checkNumberValid(n);
    m_stepAccu = 0;
    m_numberStored = false;
    setStatus(m_valid ? EsEditValid : EsEditInvalid);
}

// Commit

void UnitEdit::commit()
{
    if (!text().isEmpty()) m_valueShown = true;
    if (!m_valid) return;

    char pf = m_model->currentPf;
    bool incomplete = false;
    const double n = getNumber(&m_valid, &pf, &incomplete);
    const int v = number2Value(n);
    const bool isNew = m_textDirty && v != m_value;
    // What was typed is judged as it is typed. But `setInvalid` may have called it valid, and a text that was
    // rendered may, rounded to the digits shown, lie beyond the raw range, or a formula back may fail.
    const bool isRefused = (m_textDirty && !m_valid) || (isNew && !m_model->hasRawValue(n));
    if (isRefused) return setInvalid(true);
    if (m_dfltInputPf != DfltPfConfigured) m_model->currentPf = pf;
    if (isNew) m_value = v;

    const bool isDone = m_directCommit || (!isNew && m_status != EsCommitted);
    if (isDone || incomplete) updateDisplay(incomplete);
    m_textDirty = false;
    setStatus(isDone ? EsIdle : EsCommitted);
    if (isNew) emit changed(v); // last: the slot may confirm, and may delete the field
}

bool UnitEdit::setValueAndCommit(int v, bool limit)
{
    const QPointer<UnitEdit> self(this);
    const int former = m_value;
    const bool limited = setValue(v, limit);
    if (!self) return limited;
    m_value = former;
    m_textDirty = true;
    commit();
    return limited;
}

void UnitEdit::restore()
{
    m_commitTimer->stop();
    const bool hasPending = isStatusEditing(m_status) && m_pendingValue != m_value;
    setStatus(EsIdle);
    const QPointer<UnitEdit> self(this);
    if (hasPending) setValue(m_pendingValue, false);
    if (self) updateDisplay(true);
}

// Keys, wheel and steps

void UnitEdit::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
    case Qt::Key_F5:
        event->accept();
        return restore();
    case Qt::Key_Up:
        event->accept();
        step(1);
        return;
    case Qt::Key_Down:
        event->accept();
        step(-1);
        return;
    default:
        QLineEdit::keyPressEvent(event);
    }
}

void UnitEdit::wheelEvent(QWheelEvent* event)
{
    event->accept();
    // Slow fingers on a touch pad may move pixels, but not yet an angle.
    const QPoint moved = event->angleDelta().isNull() ? event->pixelDelta() : event->angleDelta();
    // The toolkit turns the wheel sideways while Alt is held.
    const int delta = moved.y() != 0 ? moved.y() : moved.x();
    // A touch pad tells the begin, the end and the dying away of a gesture with a delta of zero: no notch.
    const Qt::ScrollPhase phase = event->phase();
    const bool isMark = phase == Qt::ScrollBegin || phase == Qt::ScrollEnd || phase == Qt::ScrollMomentum;
    if (delta == 0 && isMark) return;
    int steps = delta >= 1 ? 1 : -1;
    if (event->modifiers().testFlag(Qt::ControlModifier)) steps *= fastSteps;
    if (event->modifiers().testFlag(Qt::ShiftModifier)) steps *= fastSteps;
    step(steps);
}

bool UnitEdit::step(int steps)
{
    // A text typed into a field that never had a value is shown from now on, as by a commit.
    if (!text().isEmpty()) m_valueShown = true;
    bool isNumber = false;
    const double current = getNumber(&isNumber);
    const double rawStep = m_model->rawStep(m_value);
    const double magnitude = std::fabs(value2Number(m_value));
    const double digit = std::pow(10, std::floor(std::log10(magnitude / std::pow(10, resolution() - 1.0))));
    const double least = digit > rawStep ? digit : rawStep;

    const bool isRelative = isStepRelative();
    if (!isRelative) m_absStepFixed = true;
    double width = absoluteStep();
    if (isRelative) {
        const double ratio = relativeStep() / 1000.0;
        width = current * ratio;
        // One step up and one down lead back to the start.
        if (steps <= 0) width /= 1 + ratio;
    }
    width = std::fabs(width);
    if (!(width >= least)) width = least;

    double next = current + steps * width;
    if (std::fabs(next) < digit) next = 0.0;
    // An invalid text is never committed: a step from it would set a value that nobody asked for.
    const bool isPossible = isNumber && checkNumberValid(next);
    if (isPossible) {
        m_commitTimer->start(commitDelay);
        const QPointer<UnitEdit> self(this);
        setText(normalizedText(nullptr, &next));
        if (!self) return true;
    }
    m_stepAccu = steps > 0 ? 1 : -1;
    return isPossible;
}

// Step settings

void UnitEdit::configureStep()
{
    if (!m_stepDialog) m_stepDialog = new StepDialog(this);
    m_stepDialog->refresh();
    m_stepDialog->show();
    m_stepDialog->raise();
    m_absStepFixed = true;
}

void UnitEdit::changeStepInt(bool local, bool useRel, int relStep, double absStep)
{
    const QPointer<UnitEdit> self(this);
    if (local && !m_groupName.isEmpty()) emit stepChanged(m_groupName, useRel, relStep, absStep);
    if (!self) return;
    m_stepIsRel.setValue(static_cast<int>(useRel));
    m_relStep.setValue(relStep);
    m_absStep.setValue(absStep);
    if (m_stepDialog) m_stepDialog->refresh();
}

void UnitEdit::changeStep(QString groupName, bool useRel, int relStep, double absStep)
{
    if (m_groupName.isEmpty() || groupName != m_groupName) return;
    changeStepInt(false, useRel, relStep, absStep);
}

void UnitEdit::configurePf(QAction* a)
{
    if (a == nullptr) return;
    for (const PfUsage* row = pfUsageMode; row->caption != nullptr; ++row) {
        if (a->text() == QLatin1String(row->caption)) return setOutputPrefixSelection(row->value);
    }
}

// Focus and context menu

void UnitEdit::focusInEvent(QFocusEvent* event)
{
    QLineEdit::focusInEvent(event);
    const bool isSelecting = m_selectOnFocus != nullptr && *m_selectOnFocus;
    if (!isSelecting || event->reason() == Qt::ActiveWindowFocusReason) return;
    // Later, so that the click that gave the focus does not undo the selection.
    QTimer::singleShot(0, this, &UnitEdit::selectContents);
}

void UnitEdit::selectContents()
{
    end(false);
    home(true);
}

QMenu* UnitEdit::createContextMenu()
{
    const QPointer<QMenu> menu = createStandardContextMenu();
    for (QAction* action : menu->actions()) {
        if (isToolkitsOwn(action, this)) delete action;
    }
    QAction* const undo = menu->addAction(QStringLiteral("Undo"), this, &UnitEdit::restore);
    undo->setEnabled(m_textDirty);
    menu->addAction(QStringLiteral("Step Width..."), this, &UnitEdit::configureStep);

    QMenu* const prefixes = menu->addMenu(QStringLiteral("Unit Prefix"));
    prefixes->setEnabled(inputPrefix() != 'X');
    auto* const group = new QActionGroup(prefixes);
    for (const PfUsage* row = pfUsageMode; row->caption != nullptr; ++row) {
        QAction* const choice = prefixes->addAction(QString::fromLatin1(row->caption));
        choice->setCheckable(true);
        choice->setChecked(row->value == outputPrefixSelection());
        group->addAction(choice);
    }
    connect(prefixes, &QMenu::triggered, this, &UnitEdit::configurePf);

    emit contextMenuCreated(menu);
    return menu;
}

void UnitEdit::contextMenuEvent(QContextMenuEvent* event)
{
    const QPoint position = event->globalPos();
    if (const QPointer<QMenu> menu = createContextMenu()) runMenu(menu, position);
}

void UnitEdit::runMenu(QMenu* menu, const QPoint& globalPos)
{
    const QPointer<QMenu> alive(menu);
    m_openMenu = menu;
    menu->exec(globalPos);
    delete alive.data();
}
