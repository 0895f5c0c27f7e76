// The smallest program with a window and a tray icon: what the client is measured against.

#include <QApplication>
#include <QLabel>
#include <QSystemTrayIcon>

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    const QIcon icon(QStringLiteral(":/omri36.png"));
    QSystemTrayIcon tray(icon); // first, as in the client
    tray.show();
    QLabel window(QStringLiteral("Orvel Storage"));
    window.show();
    return QApplication::exec();
}
