#include "groupspanel.h"

#include "dialogs.h"
#include "elidedlabel.h"
#include "groupstable.h"
#include "sourceview.h"
#include "theme.h"

#include <algorithm>
#include <QDir>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QMimeData>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStyle>
#include <QUrl>
#include <QVBoxLayout>
#include <utility>
#include <vorelutil/widgets/savable.h>

namespace bench {

namespace {

QString localFile(const QMimeData* data)
{
    return data->hasUrls() && data->urls().size() == 1 ? data->urls().first().toLocalFile() : QString();
}

} // namespace

GroupsPanel::GroupsPanel(QWidget* parent)
    : QWidget(parent)
    , m_storedPath(new Savable(this, QStringLiteral("File"), QStringLiteral("DataGroups"), false,
                               SLOT(savableChanged(QString, QString)), this))
{
    setAcceptDrops(true);
    auto* open = new QPushButton(tr("&Open..."), this);
    m_reload = new QPushButton(tr("&Reload"), this);
    m_reload->setToolTip(tr("Reads the file once more"));
    m_reload->setEnabled(false);
    auto* example = new QPushButton(tr("E&xample"), this);
    example->setToolTip(tr("Shows a description that comes with the program"));
    m_fileText = new ElidedLabel(this);
    m_countText = new QLabel(this);
    auto* header = new QHBoxLayout;
    for (QPushButton* button : {open, m_reload, example}) header->addWidget(button);
    header->addSpacing(8);
    header->addWidget(m_fileText, 1);
    header->addWidget(m_countText);

    m_table = new GroupsTable(this);
    m_problems = new QListWidget(this);
    m_problems->setAccessibleName(tr("Problems of the description"));
    m_problems->setWordWrap(true);
    m_problems->setAlternatingRowColors(true);
    m_source = new SourceView(this);
    auto* below = new QSplitter(Qt::Horizontal, this);
    below->addWidget(m_problems);
    below->addWidget(m_source);
    below->setSizes({400, 500});
    auto* parts = new QSplitter(Qt::Vertical, this);
    parts->addWidget(m_table);
    parts->addWidget(below);
    parts->setStretchFactor(0, 3);
    parts->setStretchFactor(1, 2);
    parts->setSizes({260, 110});
    parts->setChildrenCollapsible(false);
    auto* hint = new QLabel(tr("Open a description of data groups, or drop its file here.\n"
                               "The example shows what one looks like."),
                            this);
    hint->setAlignment(Qt::AlignCenter);
    m_pages = new QStackedWidget(this);
    m_pages->addWidget(hint);
    m_pages->addWidget(parts);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(header);
    layout->addWidget(m_pages, 1);

    connect(open, &QPushButton::clicked, this, [this] {
        askForExistingFile(this, tr("Open a description of data groups"),
                           tr("Descriptions (*.xml);;All files (*)"),
                           [this](const QString& path) { openFile(path); });
    });
    connect(m_reload, &QPushButton::clicked, this, &GroupsPanel::reload);
    connect(example, &QPushButton::clicked, this, &GroupsPanel::openExample);
    connect(m_table, &GroupsTable::rowChosen, this, &GroupsPanel::chooseGroup);
    // What is current already can be chosen once more.
    connect(m_table, &QTableView::clicked, this, [this](const QModelIndex& i) { chooseGroup(i.row()); });
    connect(m_table, &QTableView::activated, this, [this](const QModelIndex& i) { chooseGroup(i.row()); });
    connect(m_problems, &QListWidget::currentRowChanged, this, &GroupsPanel::chooseProblem);
    connect(m_problems, &QListView::clicked, this, [this](const QModelIndex& i) { chooseProblem(i.row()); });
    connect(m_problems, &QListView::activated, this,
            [this](const QModelIndex& i) { chooseProblem(i.row()); });
}

GroupsPanel::~GroupsPanel() = default;

void GroupsPanel::openFile(const QString& path)
{
    m_path = QFileInfo(path).absoluteFilePath();
    m_remembered.clear();
    m_storedPath->setValue(m_path);
    showDescription(readGroups(m_path));
}

void GroupsPanel::openExample()
{
    m_path.clear();
    m_remembered.clear();
    m_storedPath->setValue(QString());
    showDescription(exampleGroups());
}

void GroupsPanel::reload()
{
    const int row = m_table->currentIndex().row();
    const int id = row >= 0 ? m_description.list.groups[row].group.id : -1;
    showDescription(m_path.isEmpty() ? exampleGroups() : readGroups(m_path), id);
}

void GroupsPanel::showDescription(const GroupDescription& description, int chosenId)
{
    m_description = description;
    const descriptions::GroupList& list = m_description.list;
    const QString folder = QDir::toNativeSeparators(QFileInfo(m_path).path());
    m_fileText->setText(m_path.isEmpty() ? tr("%1 (example)").arg(description.name)
                                         : tr("%1 in %2").arg(description.name, folder));
    m_reload->setEnabled(true);

    m_problems->clear();
    for (const descriptions::Problem& problem : list.problems)
        m_problems->addItem(description.problemText(problem));
    if (list.unlisted > 0) m_problems->addItem(tr("... and %1 more").arg(list.unlisted));
    m_problems->setVisible(m_problems->count() > 0);
    m_source->showSource(description.source);
    m_table->showGroups(list.groups);
    const int groups = list.groups.size();
    const int problems = list.problems.size() + list.unlisted;
    QString counts = groups == 1 ? tr("1 group") : tr("%1 groups").arg(groups);
    if (problems > 0) counts += problems == 1 ? tr(", 1 problem") : tr(", %1 problems").arg(problems);
    m_countText->setText(counts);
    applyColours();
    m_pages->setCurrentIndex(1);

    const auto chosen =
        std::find_if(list.groups.begin(), list.groups.end(),
                     [chosenId](const descriptions::Group& group) { return group.group.id == chosenId; });
    if (list.groups.isEmpty())
        m_problems->setCurrentRow(0);
    else
        m_table->selectRow(chosen == list.groups.end() ? 0 : int(chosen - list.groups.begin()));
}

void GroupsPanel::chooseGroup(int row)
{
    if (row < 0) return;
    m_problems->setCurrentRow(-1);
    m_source->markLine(m_description.list.groups[row].line, false);
}

void GroupsPanel::chooseProblem(int row)
{
    if (row < 0 || row >= m_description.list.problems.size()) return;
    m_source->markLine(m_description.list.problems[row].line, true);
}

void GroupsPanel::applyColours()
{
    for (int row = 0; row < m_description.list.problems.size(); ++row) {
        const bool isError = m_description.list.problems[row].isError;
        const auto icon = isError ? QStyle::SP_MessageBoxCritical : QStyle::SP_MessageBoxWarning;
        m_problems->item(row)->setIcon(style()->standardIcon(icon, nullptr, this));
        if (isError) m_problems->item(row)->setForeground(problemColour(palette()));
    }
}

void GroupsPanel::savableChanged(QString, QString value)
{
    m_remembered = value;
    if (isVisible() && !value.isEmpty()) openFile(value);
}

void GroupsPanel::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && m_problems != nullptr) applyColours();
}

void GroupsPanel::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (!m_remembered.isEmpty()) openFile(std::exchange(m_remembered, QString()));
}

void GroupsPanel::dragEnterEvent(QDragEnterEvent* event)
{
    if (!localFile(event->mimeData()).isEmpty()) event->acceptProposedAction();
}

void GroupsPanel::dropEvent(QDropEvent* event)
{
    const QString path = localFile(event->mimeData());
    if (path.isEmpty()) return;
    event->acceptProposedAction();
    openFile(path);
}

} // namespace bench
