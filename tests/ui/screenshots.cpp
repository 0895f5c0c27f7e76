#include "tests/ui/gallery.h"

#include <QApplication>
#include <QDir>
#include <QPixmap>
#include <QWidget>

#include <cstdio>

namespace
{

constexpr int wrongUse = 2;

int takeAll(const QDir& target, Gallery::Language language, const QStringList& names)
{
    Gallery gallery(language);
    for (const QString& name : names) {
        const QPixmap shot = gallery.show(name).grab();
        const QString suffix = shot.devicePixelRatio() > 1 ? QStringLiteral("@2x.png") : QStringLiteral(".png");
        if (!shot.save(target.filePath(name + suffix))) {
            std::fprintf(stderr, "cannot write to %s\n", qPrintable(target.path()));
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

} // namespace

// Pictures of the program's windows: screenshots DIRECTORY en|sl [NAME...]; all windows when none is named.
int main(int argc, char* argv[])
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    const QApplication application(argc, argv);
    QApplication::setCursorFlashTime(0);

    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.size() < 2) {
        std::fputs("usage: screenshots DIRECTORY en|sl [NAME...]\n", stderr);
        return wrongUse;
    }
    const auto language = arguments.at(1) == QLatin1String("sl") ? Gallery::Slovenian : Gallery::English;
    const QStringList names = arguments.size() > 2 ? arguments.mid(2) : Gallery::names();
    return takeAll(QDir(QDir(arguments.at(0)).absolutePath()), language, names);
}
