#include "stepdialog.h"

#include "qthelpers.h"
#include "unitedit.h"

#include <QButtonGroup>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

enum Column : int
{
    ButtonColumn,
    LabelColumn,
    GapColumn,
    FieldColumn
};

constexpr int gapWidth = 25;
constexpr int outerMargin = 10;
constexpr int outerSpacing = 12;
constexpr int innerMargin = 6;
constexpr int mostRelative = 1000; // tenths of a percent

} // namespace

StepDialog::StepDialog(UnitEdit* edit)
    : QDialog(edit)
    , m_edit(edit)
    , m_absolute(new QRadioButton(this))
    , m_relative(new QRadioButton(this))
    , m_buttons(new QButtonGroup(this))
    , m_relStep(qth_makeSpinBox(0, mostRelative, 1, this))
    , m_absStep(new QLineEdit(this))
    , m_ok(new QPushButton(QStringLiteral("Ok"), this))
{
    setWindowTitle(QStringLiteral("Step Width Up/Down/Wheel"));
    setModal(false);
    m_buttons->addButton(m_relative);
    m_buttons->addButton(m_absolute);
    m_relStep->setSuffix(QStringLiteral("  [0.1%]"));
    m_ok->setDefault(true);
    auto* const cancel = new QPushButton(QStringLiteral("Cancel"), this);
    auto* const relativeLabel = new QLabel(QStringLiteral("Relative Step"), this);
    auto* const absoluteLabel = new QLabel(QStringLiteral("Absolute Step"), this);

    auto* const outer = new QVBoxLayout(this);
    qth_setLayoutParams(outer, outerMargin, outerSpacing);
    auto* const grid = new QGridLayout;
    qth_setLayoutParams(grid, innerMargin, -1);
    grid->setColumnMinimumWidth(GapColumn, gapWidth);
    grid->addWidget(m_relative, 0, ButtonColumn);
    grid->addWidget(relativeLabel, 0, LabelColumn);
    grid->addWidget(m_relStep, 0, FieldColumn);
    grid->addWidget(m_absolute, 1, ButtonColumn);
    grid->addWidget(absoluteLabel, 1, LabelColumn);
    grid->addWidget(m_absStep, 1, FieldColumn);
    outer->addLayout(grid);
    auto* const row = new QHBoxLayout;
    qth_setLayoutParams(row, innerMargin, -1);
    row->addWidget(m_ok);
    row->addWidget(cancel);
    outer->addLayout(row);

    // The order of the texts is the order in which they were always given: the spin box keeps the last.
    m_relative->setToolTip(QStringLiteral("Step width proportional to current value."));
    m_absolute->setToolTip(QStringLiteral("Step width absolute."));
    m_relStep->setToolTip(QStringLiteral("Step width compared to current value."));
    m_relStep->setToolTip(QStringLiteral("Value of absolute step width."));

    relativeLabel->setBuddy(m_relStep);
    absoluteLabel->setBuddy(m_absStep);
    m_relative->setAccessibleName(relativeLabel->text());
    m_absolute->setAccessibleName(absoluteLabel->text());
    QWidget* const order[] = {m_relative, m_relStep, m_absolute, m_absStep, m_ok, cancel};
    for (std::size_t i = 1; i < std::size(order); ++i) setTabOrder(order[i - 1], order[i]);

    const bool isRelative = m_edit->isStepRelative();
    m_relStep->setEnabled(isRelative);
    m_relative->setChecked(isRelative);
    m_absStep->setEnabled(!isRelative);
    m_absolute->setChecked(!isRelative);
    m_absolute->setEnabled(m_edit->isValueShown() && m_edit->isValid());

    connect(m_relative, &QRadioButton::toggled, m_relStep, &QSpinBox::setEnabled);
    connect(m_absolute, &QRadioButton::toggled, m_absStep, &QLineEdit::setEnabled);
    connect(m_absStep, &QLineEdit::textChanged, this, &StepDialog::absStepTextChanged);
    connect(m_ok, &QPushButton::clicked, this, &StepDialog::accept);
    connect(cancel, &QPushButton::clicked, this, &StepDialog::reject);
}

void StepDialog::refresh()
{
    if (!isVisible()) m_absolute->setEnabled(m_edit->isValueShown() && m_edit->isValid());
    m_relStep->setValue(m_edit->relativeStep());
    const double absStep = m_edit->absoluteStep();
    m_absStep->setText(m_edit->normalizedText(&m_prefix, &absStep));
    const bool isRelative = m_edit->isStepRelative();
    m_relative->setChecked(isRelative);
    m_absolute->setChecked(!isRelative);
}

void StepDialog::absStepTextChanged(const QString& text)
{
    bool converts = false;
    char prefix = m_prefix;
    m_edit->getNumber(&converts, &prefix, nullptr, text);
    m_ok->setEnabled(converts);
    if (m_absStep->text() != text) m_absStep->setText(text);
}

void StepDialog::accept()
{
    char prefix = m_prefix;
    const double absStep = m_edit->getNumber(nullptr, &prefix, nullptr, m_absStep->text());
    const int relStep = m_relStep->value();
    const bool useRel = m_relative->isChecked();
    const QPointer<StepDialog> self(this); // a slot may delete the field, and this with it
    emit m_edit->stepChanged(m_edit->groupName(), useRel, relStep, absStep);
    if (!self) return;
    m_edit->changeStepInt(false, useRel, relStep, absStep);
    refresh();
    QDialog::accept();
}
