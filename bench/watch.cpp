// watch DIRECTORY: the client's watcher and nothing else. It writes "ready" when it watches the whole tree,
// which it is once it reports anything: here, a file that it makes beside the tree's directories.

#include "syncfolder/winfilewatcher.h"

#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>

#include <cstdio>

class Listener final : public QObject
{
    Q_OBJECT

public slots:
    void take(QStringList* paths)
    {
        delete paths;
        if (!m_told)
            std::puts("ready");
        m_told = true;
        std::fflush(stdout);
    }

private:
    bool m_told = false;
};

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    const QString directory = QCoreApplication::arguments().value(1);
    Listener listener;
    WinFileWatcher watcher({directory}, nullptr);
    QObject::connect(&watcher, SIGNAL(pathsChanged(QStringList*)), &listener, SLOT(take(QStringList*)));
    QFile file(directory + QStringLiteral("/.ready"));
    file.open(QIODevice::WriteOnly);
    file.remove();
    return QCoreApplication::exec();
}

#include "watch.moc"
