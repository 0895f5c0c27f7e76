#include "tests/ui/gallery.h"
#include "ui/dialogcld.h"

#include <QApplication>
#include <QDir>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QToolTip>

#include <cstdio>

namespace
{

constexpr int wrongUse = 2;
constexpr int fontSize = 12; // pixels, as on most desktops

/// The tool tip as the tray shows it where the desktop leaves it to the program.
QPixmap grabToolTip(const QString& text)
{
    QToolTip::showText(QPoint(), text);
    const auto windows = QApplication::topLevelWidgets();
    for (QWidget* window : windows) {
        if (window->windowType() == Qt::ToolTip && window->isVisible())
            return window->grab();
    }
    return {};
}

} // namespace

// The windows that the guide's pictures show: guidewindows DIRECTORY en|sl. Called by resources/render.sh.
int main(int argc, char* argv[])
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    const QApplication application(argc, argv);
    QApplication::setCursorFlashTime(0);
    // Not the desktop's, so that the pictures are the same wherever they are made.
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(fontSize);
    QApplication::setFont(font);
    QToolTip::setFont(font);

    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.size() != 2) {
        std::fputs("usage: guidewindows DIRECTORY en|sl\n", stderr);
        return wrongUse;
    }
    const QDir target(QDir(arguments.at(0)).absolutePath());
    const auto save = [&](const QPixmap& picture, const char* name) {
        if (!picture.save(target.filePath(QLatin1String(name) + QStringLiteral(".png"))))
            qFatal("cannot write %s to %s", name, qPrintable(target.path()));
    };

    Gallery gallery(arguments.at(1) == QLatin1String("sl") ? Gallery::Slovenian : Gallery::English);
    save(gallery.show(QStringLiteral("main-settings")).grab(), "settings");
    save(grabToolTip(gallery.mainWindow().tray().toolTip()), "synced");
    gallery.show(QStringLiteral("main-transfer"));
    save(grabToolTip(gallery.mainWindow().tray().toolTip()), "transferring");
    gallery.show(QStringLiteral("main-lost"));
    save(grabToolTip(gallery.mainWindow().tray().toolTip()), "offline");
    save(gallery.show(QStringLiteral("menu")).grab(), "menu");
    return EXIT_SUCCESS;
}
