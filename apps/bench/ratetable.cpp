#include "ratetable.h"

#include "plotstyle.h"

#include <algorithm>
#include <cmath>
#include <QHeaderView>
#include <QPainter>
#include <QScrollBar>
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

/// Four digits, and always as many, so that they do not jump; below 1 fewer.
QString rateText(double rate)
{
    if (std::isnan(rate)) return QStringLiteral("\u2013 ");
    const char prefix = rate < 1.0 ? ' ' : algoNormalize(&rate, ' ', nullptr, 1);
    const int decimals = rate < 9.9995 ? 3 : rate < 99.995 ? 2 : 1;
    return QString::number(rate, 'f', decimals) + QLatin1Char(' ') + algoGetPrintablePrefix(prefix);
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
    verticalHeader()->setMinimumSectionSize(fontMetrics().height());
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 2);
    horizontalHeader()->setSectionsClickable(false);
    horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff); // it is as wide as its columns
    setItemDelegateForColumn(rateColumn, new BarDelegate(this));
    const int digit = fontMetrics().horizontalAdvance(QLatin1Char('0'));
    setColumnWidth(0, 9 * digit); // what most streams need
    setColumnWidth(rateColumn, 11 * digit);
    setColumnWidth(2, 9 * digit);
    fitColumns();
}

/// They only grow: a number that loses a digit moves nothing.
void RateTable::fitColumns()
{
    int width = 2 * frameWidth() + verticalScrollBar()->sizeHint().width();
    for (int column = 0; column < columns; ++column) {
        const int needed = std::max(sizeHintForColumn(column), horizontalHeader()->sectionSizeHint(column));
        if (needed > columnWidth(column)) setColumnWidth(column, needed);
        width += columnWidth(column);
    }
    if (width != minimumWidth()) setFixedWidth(width);
}

void RateTable::showRows(const QVector<Row>& rows)
{
    setRowCount(rows.size());
    double highest = 0.0;
    for (const Row& row : rows) highest = std::fmax(highest, row.rate);
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
        const bool isKnown = highest > 0.0 && !std::isnan(rows[i].rate);
        item(i, rateColumn)->setData(shareRole, isKnown ? rows[i].rate / highest : 0.0);
    }
    fitColumns();
}

} // namespace bench
