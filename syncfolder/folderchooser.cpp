#include "syncfolder/folderchooser.h"

#include <QFileDialog>
#include <QPointer>

namespace folderchooser
{

namespace
{

QString runDialog(QWidget* parent, const QString& caption, const QString& start)
{
    // On the heap: the parent may be destroyed, and take the dialog with it, while the dialog runs.
    const QPointer<QFileDialog> dialog(new QFileDialog(parent, caption, start));
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return {};
    const QString picked = accepted ? dialog->selectedFiles().value(0) : QString();
    delete dialog;
    return picked;
}

Asker& replacement()
{
    static Asker asker;
    return asker;
}

} // namespace

QString ask(QWidget* parent, const QString& caption, const QString& start)
{
    return replacement() ? replacement()(parent, caption, start) : runDialog(parent, caption, start);
}

void setAsker(Asker asker)
{
    replacement() = std::move(asker);
}

} // namespace folderchooser
