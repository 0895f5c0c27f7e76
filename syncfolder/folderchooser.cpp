#include "syncfolder/folderchooser.h"

#include <QFileDialog>

namespace folderchooser
{

namespace
{

/// The parent may be destroyed while the dialog runs. It must not take the dialog along: the system's own has a loop
/// that goes on in it.
class Chooser final : public QFileDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Chooser)

public:
    Chooser(QWidget* parent, const QString& caption, const QString& start)
        : QFileDialog(parent, caption, start)
    {
        setFileMode(QFileDialog::Directory);
        setOption(QFileDialog::ShowDirsOnly);
        if (parent != nullptr)
            connect(parent, SIGNAL(destroyed()), this, SLOT(leaveParent()));
    }

private slots:
    void leaveParent()
    {
        reject();
        setParent(nullptr);
        destroy(); // Windows would do that together with the parent's window
    }
};

QString runDialog(QWidget* parent, const QString& caption, const QString& start)
{
    Chooser chooser(parent, caption, start);
    return chooser.exec() == QDialog::Accepted ? chooser.selectedFiles().value(0) : QString();
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

#include "folderchooser.moc"
