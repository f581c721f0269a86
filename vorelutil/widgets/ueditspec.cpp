#include "ueditspec.h"

#include <vorelutil/algo/rounding.h>
#include <vorelutil/algo/unit.h>

#include <QContextMenuEvent>
#include <QMenu>
#include <QTimer>

#include <cmath>
#include <cstdlib>

// A sweep is a chain of points. `makeStep` sends one; its confirmation starts the delay timer, which sends
// the next. Each signal may run any code of the owner: confirm, stop, start anew, or delete the field. So
// after each one `m_runs` (behind a guarded pointer) tells whether the sweep is still the same, and a
// confirmation that comes while a point is being sent takes effect once it is sent.

namespace {

enum Address : int
{
    pointIndex = 0x1070,
    sweepStartNumber = 0x1071,
    sweepEndNumber = 0x1072,
    sweepPoints = 0x1073,
    sweepUnit = 0x1074,
    sweepBothWays = 0x1075
};

constexpr int confirmationTime = 500; // ms
constexpr int shortestDelay = 10;     // ms
constexpr int longestDelay = 10000;   // ms
constexpr double smallestSpan = 100.0;

} // namespace

UEditSpec::UEditSpec(QWidget* parent, UnitEdit::DfltInputPf dfltInputPf, bool const* selectOnFocus,
                     bool directCommit, QString groupName)
    : UnitEdit(parent, dfltInputPf, selectOnFocus, directCommit, groupName)
    , m_delayTimer(new QTimer(this))
    , m_confirmTimer(new QTimer(this))
{
    for (auto* const timer : {m_delayTimer, m_confirmTimer}) {
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
    }
    connect(m_delayTimer, &QTimer::timeout, this, &UEditSpec::makeStep);
    connect(m_confirmTimer, &QTimer::timeout, this, &UEditSpec::stop);
}

UEditSpec::~UEditSpec()
{
    // While it is still a field: what the dialog's end brings about may ask it.
    delete m_dialog;
}

bool UEditSpec::setSpecParams(int start, int end, int steps, int delay, bool forwardBackward)
{
    m_next = {start, end, steps, delay, forwardBackward};
    return checkXResolution();
}

double UEditSpec::rawAsDouble(int raw) const
{
    return isInputUnsigned() ? static_cast<double>(static_cast<unsigned>(raw)) : raw;
}

bool UEditSpec::checkXResolution(int* xStart, int* xEnd, int* unit) const
{
    double const rawSpan = std::abs(rawAsDouble(m_next.end) - rawAsDouble(m_next.start));
    if (m_next.steps < 2 || rawSpan < m_next.steps - 1) return false;
    if (m_next.delay < shortestDelay || m_next.delay > longestDelay) return false;

    double const a = value2Number(m_next.start);
    double const b = value2Number(m_next.end);
    if (!std::isfinite(a) || !std::isfinite(b)) return false;
    int code = algoParseUnit(baseUnit().toUtf8().constData());
    char prefix = 'X';
    algoGetBaseUnit(code, &prefix, nullptr);
    if (prefix == 'X') return false; // unknown, or takes none
    double larger = std::abs(a) >= std::abs(b) ? a : b;
    double const scale = algoRescaleUnit(&larger, &code, false);
    if (!std::isfinite(scale)) return false;
    if (!(std::abs(a * scale - b * scale) > smallestSpan)) return false;

    if (xStart) *xStart = algoNearest(a * scale);
    if (xEnd) *xEnd = algoNearest(b * scale);
    if (unit) *unit = code;
    return true;
}

void UEditSpec::run()
{
    int first = 0;
    int last = 0;
    int unit = 0;
    if (!checkXResolution(&first, &last, &unit)) {
        stop();
        return;
    }
    m_delayTimer->stop();
    m_confirmTimer->stop();
    // A value other than that at the end was entered since.
    bool const isRestored = !m_restoring || getValue() != m_lastValue;
    if (!m_running && isRestored) m_savedValue = getValue();
    m_running = true;
    m_restoring = false;
    m_sending = true; // no point is out: what is set now confirms none
    m_index = 0;
    m_progress = 0;
    m_current = m_next;
    if (m_dialog) m_dialog->begin();

    QPointer<UEditSpec> const self(this);
    unsigned const thisRun = ++m_runs;
    std::pair<int, int> const telegrams[] = {{sweepStartNumber, first},
                                             {sweepEndNumber, last},
                                             {sweepPoints, m_current.steps},
                                             {sweepUnit, unit},
                                             {sweepBothWays, m_current.forwardBackward ? 1 : 0}};
    for (auto const& [address, value] : telegrams) {
        emit sendTel(true, address, 0, value);
        if (!self || m_runs != thisRun) return;
    }
    m_sending = false;
    makeStep();
}

void UEditSpec::makeStep()
{
    if (!m_running || m_sending || m_index >= m_current.points()) return;
    double const steps = m_current.steps;
    double const j = m_index < m_current.steps ? static_cast<double>(m_index)
                                               : 2 * steps - 1 - static_cast<double>(m_index);
    double const f = j / (steps - 1);
    double const point = rawAsDouble(m_current.start) * (1 - f) + f * rawAsDouble(m_current.end);
    m_target = isInputUnsigned() ? static_cast<int>(algoNearestU(point)) : algoNearest(point);

    QPointer<UEditSpec> const self(this);
    unsigned const thisRun = m_runs;
    m_delayTimer->stop();
    m_confirmTimer->stop();
    m_sending = true;
    m_confirmed = false;
    emit changed(m_target);
    if (!self || m_runs != thisRun) return;
    if (!m_confirmed) m_confirmTimer->start(confirmationTime);
    emit sendTel(true, pointIndex, 0, static_cast<int>(m_index));
    if (!self || m_runs != thisRun) return;
    ++m_index;
    m_sending = false;
    if (m_confirmed) confirmed();
}

bool UEditSpec::setValue(int v, bool limit)
{
    bool const limited = UnitEdit::setValue(v, limit);
    m_restoring = false;
    if (m_running && v == m_target) {
        if (m_sending) {
            m_confirmed = true;
        } else if (!m_delayTimer->isActive()) {
            confirmed();
        }
    }
    return limited;
}

/// The point sent last is confirmed. Kept: the progress is one ahead of the points done.
void UEditSpec::confirmed()
{
    m_confirmTimer->stop();
    m_progress = static_cast<int>(m_index + 1);
    if (m_dialog) m_dialog->setProgress(m_progress);
    if (m_index < m_current.points()) {
        m_delayTimer->start(m_current.delay);
    } else {
        stop();
    }
}

void UEditSpec::stop()
{
    m_delayTimer->stop();
    m_confirmTimer->stop();
    m_sending = false;
    QPointer<UEditSpec> const self(this);
    if (m_running) {
        m_running = false; // first, so that a stop out of the signal finds nothing to do
        ++m_runs;
        m_restoring = true; // until the program has set it
        m_lastValue = getValue();
        emit changed(m_savedValue);
    }
    if (self && m_dialog && !m_running) m_dialog->finish();
}

void UEditSpec::close()
{
    QPointer<UEditSpec> const self(this);
    stop();
    if (self && m_dialog) m_dialog->close();
}

void UEditSpec::openSpectroscopy()
{
    if (UEditSpecDlg::_instance != nullptr && UEditSpecDlg::_instance != m_dialog) return;
    if (!m_dialog) m_dialog = new UEditSpecDlg(this);
    UEditSpecDlg::_instance = m_dialog;
    if (!m_dialog->isVisible()) {
        QWidget* const owner = window() == this ? nullptr : window();
        if (m_dialog->parentWidget() != owner) m_dialog->setParent(owner, m_dialog->windowFlags());
        m_dialog->showParams();
        m_dialog->setRunning(m_running);
        if (m_running) m_dialog->showProgress(m_current.points(), m_progress);
    }
    m_dialog->show();
    m_dialog->raise();
    m_dialog->activateWindow();
}

void UEditSpec::contextMenuEvent(QContextMenuEvent* event)
{
    QPointer<UEditSpec> const self(this);
    QPoint const position = event->globalPos();
    QPointer<QMenu> const menu = createContextMenu();
    if (!self || !menu) return;
    menu->addAction(QStringLiteral("Spectroscopy..."), this, &UEditSpec::openSpectroscopy);
    runMenu(menu, position);
}
