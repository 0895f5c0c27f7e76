// The smallest program with a window and a tray icon: what the client is measured against. It sets the icon
// first, as the client does, and with any argument when its window is shown.

#include <QApplication>
#include <QLabel>
#include <QSystemTrayIcon>

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    const QIcon icon(QStringLiteral(":/omri36.png"));
    QLabel window(QStringLiteral("Orvel Storage"));
    if (argc > 1)
        window.show();
    QSystemTrayIcon tray(icon);
    tray.show();
    window.show();
    return QApplication::exec();
}
