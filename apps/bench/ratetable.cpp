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
constexpr int barMargin = 2;
constexpr int barAlpha = 100; ///< a text is read through it
constexpr int rateColumn = 1;
constexpr int columns = 3;

/// A bar behind the text, as long as the cell's share of the highest rate.
class BarDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QRectF bar = QRectF(option.rect).adjusted(barMargin, barMargin, -barMargin, -barMargin);
        bar.setWidth(std::max(bar.width() * index.data(shareRole).toDouble(), 1.0));
        QColor colour = plotColours(option.palette).first;
        colour.setAlpha(barAlpha);
        painter->fillRect(bar, colour);
        QStyledItemDelegate::paint(painter, option, index);
    }
};

QString rateText(double rate)
{
    const char prefix = algoNormalize(&rate, ' ', nullptr, 3);
    return QString::number(rate, 'g', 4) + QLatin1Char(' ') + algoGetPrintablePrefix(prefix);
}

} // namespace

RateTable::RateTable(QWidget* parent)
    : QTableWidget(0, columns, parent)
{
    setAccessibleName(tr("Rates"));
    setHorizontalHeaderLabels({tr("Channel"), tr("Rate [1/s]"), tr("Events")});
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
    const int digit = fontMetrics().horizontalAdvance(QLatin1Char('0'));
    horizontalHeader()->setSectionResizeMode(rateColumn, QHeaderView::Stretch);
    horizontalHeader()->setMinimumSectionSize(7 * digit);
    setColumnWidth(0, 11 * digit);
    setColumnWidth(2, 11 * digit);
    setItemDelegateForColumn(rateColumn, new BarDelegate(this));
}

void RateTable::showRows(const QVector<Row>& rows)
{
    setRowCount(rows.size());
    double highest = 0.0;
    for (const Row& row : rows) highest = std::max(highest, row.rate);
    for (int i = 0; i < rows.size(); ++i) {
        const QString texts[] = {rows[i].name, rateText(rows[i].rate), QString::number(rows[i].count)};
        for (int column = 0; column < columns; ++column) {
            if (item(i, column) == nullptr) {
                setItem(i, column, new QTableWidgetItem);
                const int side = column == 0 ? Qt::AlignLeft : Qt::AlignRight;
                item(i, column)->setTextAlignment(side | Qt::AlignVCenter);
            }
            item(i, column)->setText(texts[column]);
        }
        item(i, rateColumn)->setData(shareRole, highest > 0.0 ? rows[i].rate / highest : 0.0);
    }
}

} // namespace bench
