#include "dialogs.h"

#include <QFileDialog>
#include <QMessageBox>

namespace bench {

namespace {

QFileDialog* makeFileDialog(QWidget* parent, const QString& title, const QString& filter,
                            const std::function<void(const QString& path)>& chosen)
{
    auto* dialog = new QFileDialog(parent, title, QString(), filter);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QFileDialog::fileSelected, parent, chosen);
    return dialog;
}

} // namespace

void askForFile(QWidget* parent, const QString& title, const QString& suggestion, const QString& filter,
                const std::function<void(const QString& path)>& chosen)
{
    QFileDialog* const dialog = makeFileDialog(parent, title, filter, chosen);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->selectFile(suggestion);
    dialog->open();
}

void askForExistingFile(QWidget* parent, const QString& title, const QString& filter,
                        const std::function<void(const QString& path)>& chosen)
{
    QFileDialog* const dialog = makeFileDialog(parent, title, filter, chosen);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->open();
}

void showFailure(QWidget* parent, const SaveResult& result)
{
    if (result.ok) return;
    auto* box =
        new QMessageBox(QMessageBox::Warning, QObject::tr("Save"), result.text, QMessageBox::Ok, parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

} // namespace bench
