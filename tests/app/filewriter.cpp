// Changes the configuration and the roots file again and again, for a test that kills it at any moment.
// filewriter COUNT: how often; 0 for until it is killed. The data directory must hold a roots file.

#include "engine/servercomm.h"
#include "syncfolder/syncfolder.h"

#include <QCoreApplication>
#include <QSettings>

#include <cstdio>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const int count = application.arguments().value(1).toInt();
    ServerComm server(QStringLiteral("Orvel Storage"), QStringLiteral("Velmora d.d."), false);
    QCoreApplication::setOrganizationName(QStringLiteral("Velmora d.d."));
    QCoreApplication::setApplicationName(QStringLiteral("Orvel Storage"));
    QSettings().setValue(QStringLiteral("lastuid"), 5);
    SyncFolder folder(&server, nullptr);
    std::puts("ready");
    std::fflush(stdout);
    for (int i = 1; count == 0 || i <= count; ++i) {
        // Long enough for many blocks of a disk, and of another length each time.
        const QString name(10000 + 7000 * (i % 2), QLatin1Char(i % 2 == 0 ? 'a' : 'b'));
        server.setHome(QStringLiteral("/nowhere"), name);
        server.saveConfig(false);
        QMetaObject::invokeMethod(&folder, "RootPicked", Q_ARG(QString, QStringLiteral("/nowhere/") + name));
    }
    return 0;
}
