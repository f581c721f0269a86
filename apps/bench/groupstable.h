#pragma once

#include <apps/descriptions/grouplist.h>
#include <QTableView>

namespace bench {

/// Data groups in a table: texts and numbers as they are, and a tick for each keyword that is set.
///
/// The header of most columns is upright, under a title that they share, so that all of them have room in a
/// small window; tool tips say the attribute and the keyword as a file has them. A row is selected at a time.
class GroupsTable : public QTableView
{
    Q_OBJECT

public:
    explicit GroupsTable(QWidget* parent = nullptr);

    /// Shows these groups, in their order, and selects none.
    void showGroups(const QVector<descriptions::Group>& groups);

signals:
    /// Another row is the current one; -1: none.
    void rowChosen(int row);

protected:
    void resizeEvent(QResizeEvent* event) override;
    void currentChanged(const QModelIndex& current, const QModelIndex& previous) override;

private:
    class Header;
    class Model;

    void fitColumns();
    void fitLastColumn();

    Model* m_model;
    int m_lastColumnWidth = 0; ///< that its texts need
};

} // namespace bench
