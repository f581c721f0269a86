#pragma once

#include <cstdint>
#include <QTableWidget>
#include <QVector>

namespace bench {

/// Channels and markers with their events and rates; small bars compare the rates.
class RateTable : public QTableWidget
{
    Q_OBJECT

public:
    struct Row
    {
        QString name;
        std::uint64_t count = 0;
        double rate = 0.0; ///< per second; NaN: not known
    };

    explicit RateTable(QWidget* parent = nullptr);

    /// The columns grow with what they show, and the table with them.
    void showRows(const QVector<Row>& rows);

private:
    void fitColumns();
};

} // namespace bench
