#include "qthelpers.h"
#include "ueditspec.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScopedValueRollback>

#include <algorithm>
#include <limits>

namespace {

constexpr int outerMargin = 10;
constexpr int outerSpacing = 12;
constexpr int innerMargin = 6;
constexpr int delayUnit = 10; // ms
constexpr int mostInt = std::numeric_limits<int>::max();

/// A labelled text field in the next row of the grid.
QLineEdit* addField(QGridLayout* grid, QString const& caption, QString const& toolTip)
{
    auto* const field = new QLineEdit(grid->parentWidget());
    field->setToolTip(toolTip);
    auto* const label = new QLabel(caption, grid->parentWidget());
    label->setBuddy(field);
    int const row = grid->rowCount();
    grid->addWidget(label, row, 0);
    grid->addWidget(field, row, 1);
    return field;
}

} // namespace

UEditSpecDlg* UEditSpecDlg::_instance = nullptr;

UEditSpecDlg::UEditSpecDlg(UEditSpec* edit)
    : QDialog(edit->window() == edit ? nullptr : edit->window())
    , m_edit(edit)
{
    setWindowTitle(QStringLiteral("Soft Spectroscopy"));
    setModal(false);
    auto* const outer = new QVBoxLayout(this);
    qth_setLayoutParams(outer, outerMargin, outerSpacing);
    auto* const grid = new QGridLayout;
    outer->addLayout(grid);
    qth_setLayoutParams(grid, innerMargin, -1);
    m_start = addField(grid, QStringLiteral("Start value"), QStringLiteral("Spectroscopy start value."));
    m_end = addField(grid, QStringLiteral("End value"), QStringLiteral("Spectroscopy end value."));
    m_steps = addField(grid, QStringLiteral("Steps"), QStringLiteral("Spectroscopy step count."));
    m_delay =
        addField(grid, QStringLiteral("Delay [10ms]"), QStringLiteral("Time delay between two points."));
    m_forwardBackward = new QCheckBox(QStringLiteral("Forward / Backward"), this);
    grid->addWidget(m_forwardBackward, grid->rowCount(), 1);
    m_progress = new QProgressBar(this);
    m_progress->setAccessibleName(QStringLiteral("Progress"));
    grid->addWidget(m_progress, grid->rowCount(), 0, 1, 2);
    outer->addStretch();

    auto* const buttons = new QHBoxLayout;
    outer->addLayout(buttons);
    qth_setLayoutParams(buttons, innerMargin, -1);
    m_startButton = new QPushButton(QStringLiteral("Start"), this);
    m_stopButton = new QPushButton(QStringLiteral("Stop"), this);
    m_closeButton = new QPushButton(QStringLiteral("Close"), this);
    m_startButton->setDefault(true);
    for (auto* const button : {m_startButton, m_stopButton, m_closeButton}) buttons->addWidget(button);

    m_startPf = m_endPf = edit->currentPrefix();
    showParams();
    setRunning(edit->isRunning());
    for (auto* const field : {m_start, m_end, m_steps, m_delay}) {
        connect(field, &QLineEdit::textChanged, this, &UEditSpecDlg::onParamChanged);
    }
    connect(m_forwardBackward, &QCheckBox::toggled, this, &UEditSpecDlg::onParamChanged);
    connect(m_startButton, &QPushButton::clicked, this, &UEditSpecDlg::accept);
    connect(m_stopButton, &QPushButton::clicked, edit, &UEditSpec::stop);
    connect(m_closeButton, &QPushButton::clicked, this, &UEditSpecDlg::reject);
}

UEditSpecDlg::~UEditSpecDlg()
{
    if (_instance == this) _instance = nullptr;
}

/// Fills in the settings of the field, where it has any. A number is first read with the field's own prefix.
void UEditSpecDlg::showParams()
{
    if (m_edit->sweepSteps() > 0) {
        QScopedValueRollback<bool> const filling(m_filling, true);
        showRaw(m_start, &m_startPf, m_edit->sweepStart());
        showRaw(m_end, &m_endPf, m_edit->sweepEnd());
        m_steps->setText(QString::number(m_edit->sweepSteps()));
        m_delay->setText(QString::number(m_edit->sweepDelay() / delayUnit));
        m_forwardBackward->setChecked(m_edit->isSweepForwardBackward());
        m_readable = !m_start->text().isEmpty() && !m_end->text().isEmpty();
    }
    resetProgress();
}

/// A text that means the value stays as it was typed: rendered it would be rounded.
void UEditSpecDlg::showRaw(QLineEdit* field, char* pf, int raw) const
{
    bool reads = false;
    char typedPf = *pf;
    if (readRaw(field, &typedPf, &reads) == raw && reads) return;
    double const number = m_edit->value2Number(raw);
    field->setText(m_edit->normalizedText(pf, &number));
}

int UEditSpecDlg::readRaw(QLineEdit const* field, char* pf, bool* reads) const
{
    // An empty text would make the field read its own.
    QString const text = field->text().isEmpty() ? QStringLiteral(" ") : field->text();
    return m_edit->number2Value(m_edit->getNumber(reads, pf, nullptr, text));
}

void UEditSpecDlg::resetProgress()
{
    showProgress(qint64(m_edit->sweepSteps()) * (m_edit->isSweepForwardBackward() ? 2 : 1), 0);
}

void UEditSpecDlg::showProgress(qint64 points, int done)
{
    // A range of nothing would show a bar that is busy.
    m_progress->setRange(0, static_cast<int>(qBound(qint64(1), points, qint64(mostInt))));
    m_progress->setValue(done);
}

void UEditSpecDlg::setRunning(bool running)
{
    for (QWidget* const widget :
         std::initializer_list<QWidget*>{m_start, m_end, m_steps, m_delay, m_forwardBackward}) {
        widget->setEnabled(!running);
    }
    m_startButton->setEnabled(!running && m_readable && m_edit->checkXResolution());
    m_stopButton->setEnabled(running);
    m_closeButton->setEnabled(true);
}

void UEditSpecDlg::onParamChanged()
{
    if (!m_edit || m_filling) return;
    bool startReads = false;
    bool endReads = false;
    bool stepsRead = false;
    bool delayReads = false;
    int const start = readRaw(m_start, &m_startPf, &startReads);
    int const end = readRaw(m_end, &m_endPf, &endReads);
    int const steps = m_steps->text().toInt(&stepsRead);
    qint64 const delay = qint64(m_delay->text().toInt(&delayReads)) * delayUnit;
    m_readable = startReads && endReads && stepsRead && delayReads;
    m_edit->setSpecParams(start, end, steps,
                          static_cast<int>(qBound(qint64(-mostInt), delay, qint64(mostInt))),
                          m_forwardBackward->isChecked());
    setRunning(m_edit->isRunning());
    if (!m_edit->isRunning()) resetProgress();
}

void UEditSpecDlg::accept()
{
    if (m_edit) m_edit->run();
}

void UEditSpecDlg::begin()
{
    m_stopButton->setEnabled(true);
    m_stopButton->setFocus(); // before what has it is disabled
    setRunning(true);
    resetProgress();
}

void UEditSpecDlg::reject()
{
    QPointer<UEditSpecDlg> const self(this);
    if (m_edit) m_edit->stop();
    if (!self) return;
    if (_instance == this) _instance = nullptr;
    QDialog::reject();
}

void UEditSpecDlg::closeEvent(QCloseEvent* event)
{
    // Not the dialog's own, which would reject: a sweep goes on.
    if (_instance == this) _instance = nullptr;
    event->accept();
}

void UEditSpecDlg::finish()
{
    if (!m_edit) return;
    bool const hadFocus = focusWidget() == m_stopButton;
    setRunning(false);
    if (hadFocus) m_startButton->setFocus();
}

void UEditSpecDlg::setProgress(int points)
{
    m_progress->setValue(points);
}
