#include "ratetable.h"

#include "plotstyle.h"

#include <algorithm>
#include <QHeaderView>
#include <QPainter>
#include <QStyledItemDelegate>
#include <vorelutil/algo/prefix.h>

namespace bench {

namespace {

constexpr int shareRole = Qt::UserRole;
constexpr int barMargin = 4;

/// A bar from the left, as long as the cell's share of the highest rate.
class BarDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QStyledItemDelegate::paint(painter, option, index);
        QRectF bar = QRectF(option.rect).adjusted(barMargin, barMargin, -barMargin, -barMargin);
        bar.setWidth(std::max(bar.width() * index.data(shareRole).toDouble(), 1.0));
        painter->fillRect(bar, plotColours(option.palette).first);
    }
};

QString rateText(double rate)
{
    const char prefix = algoNormalize(&rate, ' ', nullptr, 3);
    return QString::number(rate, 'g', 4) + QLatin1Char(' ') + algoGetPrintablePrefix(prefix);
}

} // namespace

RateTable::RateTable(QWidget* parent)
    : QTableWidget(0, 4, parent)
{
    setAccessibleName(tr("Rates"));
    setHorizontalHeaderLabels({tr("Channel"), tr("Events"), tr("Rate [1/s]"), QString()});
    setEditTriggers(NoEditTriggers);
    setSelectionMode(NoSelection);
    setFocusPolicy(Qt::NoFocus);
    setShowGrid(false);
    setWordWrap(false);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 4);
    horizontalHeader()->setSectionsClickable(false);
    horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    horizontalHeader()->setStretchLastSection(true);
    const int digit = fontMetrics().horizontalAdvance(QLatin1Char('0'));
    setColumnWidth(0, 12 * digit);
    setColumnWidth(1, 14 * digit);
    setColumnWidth(2, 11 * digit);
    setItemDelegateForColumn(3, new BarDelegate(this));
}

void RateTable::showRows(const QVector<Row>& rows)
{
    setRowCount(rows.size());
    double highest = 0.0;
    for (const Row& row : rows) highest = std::max(highest, row.rate);
    for (int i = 0; i < rows.size(); ++i) {
        const QString texts[] = {rows[i].name, QString::number(rows[i].count), rateText(rows[i].rate),
                                 QString()};
        for (int column = 0; column < 4; ++column) {
            if (item(i, column) == nullptr) {
                setItem(i, column, new QTableWidgetItem);
                item(i, column)->setTextAlignment(column == 0 ? Qt::AlignLeft | Qt::AlignVCenter
                                                              : Qt::AlignRight | Qt::AlignVCenter);
            }
            item(i, column)->setText(texts[column]);
        }
        item(i, 3)->setData(shareRole, highest > 0.0 ? rows[i].rate / highest : 0.0);
    }
}

} // namespace bench
