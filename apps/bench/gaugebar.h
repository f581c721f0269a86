#pragma once

#include <QWidget>

namespace bench {

/// A bar from zero to a reading, on a scale that runs as far to the left of zero as to its right.
///
/// Above the bar a mark of a round length tells the scale, as on a map: "5 V", say, whatever the width.
/// Dashed lines show where the alarm begins; beyond it the bar changes its colour. Raw integers, all of one
/// prefix.
class GaugeBar : public QWidget
{
    Q_OBJECT

public:
    /// What is free to the left and right of the scale, for labels; a `TicAxis` below has the same.
    static constexpr int margin = 44;

    /// `prefix` and `unit` of a raw step: 'm' and "V".
    GaugeBar(char prefix, const QString& unit, QWidget* parent = nullptr);

    void setReading(int raw);
    /// No bar, and no alarm, until the next reading; so at first.
    void clearReading();
    /// From zero to either end; below 1 counts as 1.
    void setFullScale(int raw);
    /// Readings of a larger magnitude are an alarm.
    void setAlarm(int raw);
    bool isAlarmed() const;
    /// The bar's end is not where the reading is.
    bool isBeyondScale() const;

    /// The length of the mark in pixels, and what it stands for.
    int markLength() const;
    QString markText() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int markLength(QString* text) const;
    double place(double raw) const;

    const char m_prefix;
    const QString m_unit;
    int m_reading = 0;
    bool m_hasReading = false;
    int m_fullScale = 1;
    int m_alarm = 0;
};

} // namespace bench
