#pragma once

#include "scansettings.h"

#include <QGroupBox>

class QComboBox;
class QPushButton;
class QSpinBox;

namespace bench {

/// The operator's fields for a scan: kind, geometry, mode, rate, start and stop.
class ScanPanel : public QGroupBox
{
    Q_OBJECT

public:
    explicit ScanPanel(QWidget* parent = nullptr);

    ScanSettings settings() const;
    void setSettings(const ScanSettings& settings);

    /// What can be done now: start when `canStart` and not `running`, stop when `canStop`; fields rest while
    /// running.
    void setState(bool canStart, bool running, bool canStop);

signals:
    void startRequested(const bench::ScanSettings& settings);
    void stopRequested();

private:
    void updateFields();

    QComboBox* m_kind;
    QSpinBox* m_xPixels;
    QSpinBox* m_yPixels;
    QComboBox* m_mode;
    QSpinBox* m_rate;
    QPushButton* m_start;
    QPushButton* m_stop;
    bool m_running = false;
};

} // namespace bench
