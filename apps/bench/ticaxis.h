#pragma once

#include <QVector>
#include <QWidget>

namespace bench {

/// Tics and labels of a scale, below a `GaugeBar`. The unit of the labels stands at its right end.
class TicAxis : public QWidget
{
    Q_OBJECT

public:
    struct Tic
    {
        double value; ///< in base units
        QString label;
    };

    /// `unit`: the base unit, such as "V".
    explicit TicAxis(const QString& unit, QWidget* parent = nullptr);

    /// In base units, `low` below `high`.
    void setRange(double low, double high);

    /// The tics that fit the width, from left to right, and the unit of their labels ("mV").
    QVector<Tic> tics(QString* labelUnit) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const QString m_unit;
    double m_low = 0.0;
    double m_high = 1.0;
};

} // namespace bench
