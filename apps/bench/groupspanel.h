#pragma once

#include "groupdescription.h"

#include <QWidget>

class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;
class Savable;

namespace bench {

class GroupsTable;
class SourceView;

/// A description of data groups: its groups in the order of the file, what is wrong with it, and its text.
///
/// A group or a problem that is chosen marks its line in the text. A file that is not read or is faulty shows
/// its problems and no groups, so that what is on the page always belongs to the file that it names. The file
/// is a setting that a store may keep; it is read again when the page is first seen. Files are read on this
/// thread: one of 100,000 groups holds it up for half a second.
class GroupsPanel : public QWidget
{
    Q_OBJECT

public:
    explicit GroupsPanel(QWidget* parent = nullptr);
    ~GroupsPanel() override;

    GroupsTable* table() const { return m_table; }
    QListWidget* problems() const { return m_problems; }
    SourceView* source() const { return m_source; }

public slots:
    /// Reads and shows a file, which is remembered.
    void openFile(const QString& path);
    /// Shows the example that the program brings with it, which is not remembered.
    void openExample();
    /// Reads once more what is shown; the group that is chosen stays chosen.
    void reload();

protected:
    void changeEvent(QEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void showEvent(QShowEvent* event) override;

private slots:
    void savableChanged(QString name, QString value);

private:
    void showDescription(const GroupDescription& description, int chosenId = -1);
    void chooseGroup(int row);
    void chooseProblem(int row);
    void applyColours();

    GroupDescription m_description;
    QString m_path;       ///< empty: the example, or nothing
    QString m_remembered; ///< to be read when the page is first seen
    Savable* m_storedPath = nullptr;
    QPushButton* m_reload = nullptr;
    QLabel* m_fileText = nullptr;
    QLabel* m_countText = nullptr;
    QStackedWidget* m_pages = nullptr; ///< the hint at the start, then the description
    GroupsTable* m_table = nullptr;
    QListWidget* m_problems = nullptr;
    SourceView* m_source = nullptr;
};

} // namespace bench
