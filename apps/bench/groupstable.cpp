#include "groupstable.h"

#include "elidedlabel.h"

#include <algorithm>
#include <QAbstractTableModel>
#include <QHeaderView>
#include <QPainter>

namespace bench {

namespace {

constexpr int shownCharacters = 200; ///< of a text in the table; its tool tip has more
constexpr int toolTipCharacters = 2000;
constexpr int widestColumn = 300; ///< a longer text is cut
constexpr int measuredRows = 1000;
constexpr int headerMargin = 6;

// clang-format off
/// A column: the title that it shares with its neighbours, what its header says under that, and the attribute
/// and the keyword that it shows.
struct Column
{
    const char* shared;
    const char* title;
    const char* attribute;
    const char* keyword;
    QString DataGroup::* text;
    int DataGroup::* number;
    bool DataGroup::* flag;
};

constexpr Column columns[] = {
    {"",        "Name",        "Name",         "",               &DataGroup::name,   nullptr, nullptr},
    {"",        "Abbrev.",     "Abbrev",       "",               &DataGroup::abbrev, nullptr, nullptr},
    {"",        "Id",          "Id",           "",               nullptr, &DataGroup::id,        nullptr},
    {"",        "Trigger",     "Trigger",      "",               nullptr, &DataGroup::trigger,   nullptr},
    {"",        "Algorithm",   "Algorithm",    "",               nullptr, &DataGroup::algorithm, nullptr},
    {"",        "Format text", "Formats",      "Ascii",          nullptr, nullptr, &DataGroup::ascii},
    {"",        "Format bin.", "Formats",      "Bin",            nullptr, nullptr, &DataGroup::bin},
    {"Store",   "frame",       "Properties",   "StoreFrame",     nullptr, nullptr, &DataGroup::storeFrame},
    {"Store",   "continuous",  "Properties",   "StoreContinous", nullptr, nullptr, &DataGroup::storeContinous},
    {"Store",   "local",       "Properties",   "StoreLocal",     nullptr, nullptr, &DataGroup::storeLocal},
    {"Store",   "retrigger",   "Properties",   "StoreRetrigger", nullptr, nullptr, &DataGroup::storeRetrigger},
    {"Store",   "group",       "Properties",   "StoreGroup",     nullptr, nullptr, &DataGroup::storeGroup},
    {"Show",    "channels",    "Properties",   "ShowChannels",   nullptr, nullptr, &DataGroup::showChannels},
    {"Show",    "source",      "Properties",   "ShowSource",     nullptr, nullptr, &DataGroup::showSource},
    {"Show",    "average",     "Properties",   "ShowAverage",    nullptr, nullptr, &DataGroup::showAverage},
    {"Show",    "sample time", "Properties",   "ShowSampleTime", nullptr, nullptr, &DataGroup::showSampleTime},
    {"Show",    "stream",      "Properties",   "ShowStream",     nullptr, nullptr, &DataGroup::showStream},
    {"",        "Hide page",   "Properties",   "HidePage",       nullptr, nullptr, &DataGroup::hidePage},
    {"Channel", "number",      "ChannelDescr", "Number",         nullptr, nullptr, &DataGroup::channelNumber},
    {"Channel", "name",        "ChannelDescr", "Name",           nullptr, nullptr, &DataGroup::channelName},
    {"Channel", "signal",      "ChannelDescr", "Signal",         nullptr, nullptr, &DataGroup::channelSignal},
    {"Channel", "group",       "ChannelDescr", "Group",          nullptr, nullptr, &DataGroup::channelGroup},
    {"",        "Condition",   "Condition",    "",               &DataGroup::condition, nullptr, nullptr},
};
// clang-format on

constexpr int columnCount = int(sizeof columns / sizeof columns[0]);
constexpr int lastColumn = columnCount - 1;

bool isUpright(int column)
{
    return columns[column].text == nullptr || columns[column].text == &DataGroup::abbrev;
}

bool isShared(int column)
{
    return *columns[column].shared != '\0';
}

} // namespace

class GroupsTable::Model : public QAbstractTableModel
{
public:
    using QAbstractTableModel::QAbstractTableModel;

    void setGroups(const QVector<descriptions::Group>& groups)
    {
        beginResetModel();
        m_groups = groups;
        endResetModel();
    }

    /// Where a column of texts or numbers has its longest one.
    QModelIndex longest(int column) const
    {
        const Column& shown = columns[column];
        const auto length = [&shown](const descriptions::Group& group) {
            if (shown.text != nullptr) return qint64((group.group.*shown.text).size());
            const qint64 number = group.group.*shown.number;
            return number < 0 ? -10 * number : number; // its sign is as wide as a digit
        };
        const auto found = std::max_element(
            m_groups.begin(), m_groups.end(),
            [&length](const auto& left, const auto& right) { return length(left) < length(right); });
        return found == m_groups.end() ? QModelIndex() : index(int(found - m_groups.begin()), column);
    }

    int rowCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : m_groups.size(); }
    int columnCount(const QModelIndex& parent) const override
    {
        return parent.isValid() ? 0 : bench::columnCount;
    }

    QVariant data(const QModelIndex& index, int role) const override
    {
        const DataGroup& group = m_groups[index.row()].group;
        const Column& column = columns[index.column()];
        if (role == Qt::TextAlignmentRole)
            return int(Qt::AlignVCenter | (column.text != nullptr     ? Qt::AlignLeft
                                           : column.number != nullptr ? Qt::AlignRight
                                                                      : Qt::AlignHCenter));
        if (role != Qt::DisplayRole && role != Qt::ToolTipRole && role != Qt::AccessibleTextRole) return {};
        const bool isToolTip = role == Qt::ToolTipRole;
        if (column.text != nullptr)
            return isToolTip ? plainToolTip(descriptions::shortened(group.*column.text, toolTipCharacters))
                             : descriptions::shortened(group.*column.text, shownCharacters);
        if (column.number != nullptr)
            return isToolTip ? headerData(index.column(), Qt::Horizontal, role)
                             : QString::number(group.*column.number);
        const bool isSet = group.*column.flag;
        if (isToolTip) return isSet ? headerData(index.column(), Qt::Horizontal, role) : QVariant();
        if (role == Qt::AccessibleTextRole)
            return isSet ? QString::fromUtf8(column.keyword) : tr("not %1").arg(column.keyword);
        return isSet ? QStringLiteral("\u2713") : QString();
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (orientation != Qt::Horizontal) return {};
        const Column& column = columns[section];
        if (role == Qt::DisplayRole || role == Qt::AccessibleTextRole)
            return GroupsTable::tr("%1 %2").arg(column.shared, column.title).trimmed();
        if (role != Qt::ToolTipRole) return {};
        const QString attribute = QString::fromUtf8(column.attribute);
        return *column.keyword == '\0'
                   ? attribute
                   : GroupsTable::tr("%1: %2").arg(attribute, QString::fromUtf8(column.keyword));
    }

private:
    QVector<descriptions::Group> m_groups;
};

class GroupsTable::Header : public QHeaderView
{
public:
    explicit Header(QWidget* parent)
        : QHeaderView(Qt::Horizontal, parent)
    {
        setDefaultAlignment(Qt::AlignLeft | Qt::AlignBottom);
        setSectionResizeMode(QHeaderView::Interactive);
        setHighlightSections(false);
        setMinimumSectionSize(fontMetrics().height() + 2);
    }

protected:
    void paintEvent(QPaintEvent* event) override
    {
        QHeaderView::paintEvent(event);
        QPainter painter(viewport());
        painter.setPen(palette().color(QPalette::ButtonText));
        for (int first = 0, next; first < columnCount; first = next) {
            for (next = first + 1; next < columnCount && isShared(first);) {
                if (qstrcmp(columns[next].shared, columns[first].shared) != 0) break;
                ++next;
            }
            if (!isShared(first)) continue;
            const int left = sectionViewportPosition(first);
            const int right = sectionViewportPosition(next - 1) + sectionSize(next - 1);
            const QRect rect(left, 0, right - left, sharedHeight());
            drawSection(&painter, rect, first);
            painter.drawText(rect, Qt::AlignCenter, GroupsTable::tr(columns[first].shared));
        }
    }

    void paintSection(QPainter* painter, const QRect& rect, int section) const override
    {
        if (!isUpright(section)) return QHeaderView::paintSection(painter, rect, section);
        painter->save();
        drawSection(painter, rect.adjusted(0, isShared(section) ? sharedHeight() : 0, 0, 0), section);
        painter->setPen(palette().color(QPalette::ButtonText));
        painter->translate(rect.left(), rect.bottom());
        painter->rotate(-90);
        painter->drawText(QRect(headerMargin, 0, rect.height() - headerMargin, rect.width()),
                          Qt::AlignLeft | Qt::AlignVCenter, GroupsTable::tr(columns[section].title));
        painter->restore();
    }

    QSize sectionSizeFromContents(int section) const override
    {
        if (!isUpright(section)) return QHeaderView::sectionSizeFromContents(section);
        const int length = fontMetrics().horizontalAdvance(GroupsTable::tr(columns[section].title));
        return {minimumSectionSize(), length + 2 * headerMargin + (isShared(section) ? sharedHeight() : 0)};
    }

private:
    void drawSection(QPainter* painter, const QRect& rect, int section) const
    {
        QStyleOptionHeader option;
        initStyleOption(&option);
        option.rect = rect;
        option.section = section;
        option.position = QStyleOptionHeader::Middle;
        style()->drawControl(QStyle::CE_HeaderSection, &option, painter, this);
    }

    int sharedHeight() const { return fontMetrics().height() + 4; }
};

GroupsTable::GroupsTable(QWidget* parent)
    : QTableView(parent)
    , m_model(new Model(this))
{
    setAccessibleName(tr("Data groups"));
    setHorizontalHeader(new Header(this));
    setModel(m_model);
    setSelectionBehavior(SelectRows);
    setSelectionMode(SingleSelection);
    setAlternatingRowColors(true);
    setWordWrap(false);
    setTabKeyNavigation(false);
    setHorizontalScrollMode(ScrollPerPixel);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setMinimumSectionSize(fontMetrics().height());
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 4);
    horizontalHeader()->setResizeContentsPrecision(measuredRows);
    fitColumns();
}

void GroupsTable::showGroups(const QVector<descriptions::Group>& groups)
{
    m_model->setGroups(groups);
    scrollToTop();
    fitColumns();
}

void GroupsTable::fitColumns()
{
    const int letter = fontMetrics().averageCharWidth();
    for (int column = 0; column < columnCount; ++column) {
        int width = horizontalHeader()->sectionSizeHint(column);
        if (columns[column].flag == nullptr) {
            // The most letters need not be the widest text.
            const int longest = sizeHintForIndex(m_model->longest(column)).width() + letter;
            const int widest = std::max(width, column == lastColumn ? QWIDGETSIZE_MAX : widestColumn);
            width = std::clamp(std::max(sizeHintForColumn(column), longest), width, widest);
        }
        setColumnWidth(column, width);
    }
    m_lastColumnWidth = columnWidth(lastColumn);
    fitLastColumn();
}

/// It takes the room that is left.
void GroupsTable::fitLastColumn()
{
    const int before = columnViewportPosition(lastColumn) + horizontalOffset();
    setColumnWidth(lastColumn, std::max(m_lastColumnWidth, viewport()->width() - before));
}

void GroupsTable::resizeEvent(QResizeEvent* event)
{
    QTableView::resizeEvent(event);
    fitLastColumn();
}

void GroupsTable::currentChanged(const QModelIndex& current, const QModelIndex& previous)
{
    QTableView::currentChanged(current, previous);
    emit rowChosen(current.isValid() ? current.row() : -1);
}

} // namespace bench
