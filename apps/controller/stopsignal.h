#pragma once

#include <QObject>

class QSocketNotifier;

/// Turns SIGTERM and SIGINT into a Qt signal. One object at a time; the earlier dispositions come back when
/// it is destroyed.
class StopSignal : public QObject
{
    Q_OBJECT

public:
    explicit StopSignal(QObject* parent = nullptr);
    ~StopSignal() override;

signals:
    void received();

private:
    QSocketNotifier* m_notifier = nullptr;
};
