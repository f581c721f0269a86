#include "scanpanel.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QPushButton>
#include <QSpinBox>

namespace bench {

namespace {

QSpinBox* makeSpinBox(QWidget* parent, int largest, const QString& help)
{
    auto* box = new QSpinBox(parent);
    box->setRange(1, largest);
    box->setLocale(QLocale::c());
    box->setGroupSeparatorShown(false);
    box->setToolTip(help);
    return box;
}

} // namespace

ScanPanel::ScanPanel(QWidget* parent)
    : QGroupBox(tr("Scan"), parent)
    , m_kind(new QComboBox(this))
    , m_xPixels(makeSpinBox(this, 4096, tr("Pixels per line; of a stream, samples per frame")))
    , m_yPixels(makeSpinBox(this, 4096, tr("Lines per frame")))
    , m_mode(new QComboBox(this))
    , m_rate(makeSpinBox(this, 100000, tr("Lines per second; of a stream, samples per second")))
    , m_start(new QPushButton(tr("&Start"), this))
    , m_stop(new QPushButton(tr("St&op"), this))
{
    m_kind->addItem(tr("Area"), int(ScanKind::Area));
    m_kind->addItem(tr("Line"), int(ScanKind::Line));
    m_kind->addItem(tr("Stream"), int(ScanKind::Stream));
    m_mode->addItem(tr("forward"), 3);
    m_mode->addItem(tr("forward + back"), 4);
    m_mode->addItem(tr("backward"), 5);
    m_mode->addItem(tr("back + forward"), 6);

    auto* form = new QFormLayout(this);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->addRow(tr("&Kind"), m_kind);
    form->addRow(tr("&X pixels"), m_xPixels);
    form->addRow(tr("&Y pixels"), m_yPixels);
    form->addRow(tr("&Passes"), m_mode);
    form->addRow(tr("&Rate [1/s]"), m_rate);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_start);
    buttons->addWidget(m_stop);
    form->addRow(buttons);

    connect(m_kind, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &ScanPanel::updateFields);
    connect(m_start, &QPushButton::clicked, this, [this] { emit startRequested(settings()); });
    connect(m_stop, &QPushButton::clicked, this, &ScanPanel::stopRequested);
    setSettings(ScanSettings());
    setState(false, false, false);
}

ScanSettings ScanPanel::settings() const
{
    ScanSettings settings;
    settings.kind = static_cast<ScanKind>(m_kind->currentData().toInt());
    settings.xPixels = m_xPixels->value();
    settings.yPixels = m_yPixels->value();
    settings.mode = m_mode->currentData().toInt();
    settings.rate = m_rate->value();
    return settings;
}

void ScanPanel::setSettings(const ScanSettings& settings)
{
    m_kind->setCurrentIndex(m_kind->findData(int(settings.kind)));
    m_xPixels->setValue(settings.xPixels);
    m_yPixels->setValue(settings.yPixels);
    m_mode->setCurrentIndex(m_mode->findData(settings.mode));
    m_rate->setValue(settings.rate);
    updateFields();
}

void ScanPanel::setState(bool canStart, bool running, bool canStop)
{
    m_running = running;
    m_start->setEnabled(canStart && !running);
    m_stop->setEnabled(canStop);
    updateFields();
}

void ScanPanel::updateFields()
{
    const auto kind = static_cast<ScanKind>(m_kind->currentData().toInt());
    m_kind->setEnabled(!m_running);
    m_xPixels->setEnabled(!m_running);
    m_yPixels->setEnabled(!m_running && kind == ScanKind::Area);
    m_mode->setEnabled(!m_running && kind != ScanKind::Stream);
    m_rate->setEnabled(!m_running);
}

} // namespace bench
