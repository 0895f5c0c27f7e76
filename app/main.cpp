#include "app/endrequest.h"
#include "app/process.h"
#include "app/userlock.h"
#include "base/log.h"
#include "ui/dialogcld.h"
#include "ui/settingsfile.h"

#include <QApplication>
#include <QDir>
#include <QLocale>
#include <QStandardPaths>
#include <QTranslator>

#include <limits>
#include <memory>

namespace
{

constexpr int alreadyRunning = 1;

/// The program speaks Slovenian wherever it has the translation. Readers of English can ask for theirs, and whoever
/// compares them for the source texts as they stand.
void loadTexts(QTranslator& translator)
{
    const QString language = qEnvironmentVariable("ORVEL_LANGUAGE");
    if (language == QLatin1String("en"))
        translator.load(QStringLiteral(":/language-en"));
    else if (language != QLatin1String("C"))
        translator.load(QLocale(QLocale::Slovenian, QLocale::AnyCountry), QStringLiteral(":/language"));
}

} // namespace

int main(int argc, char* argv[])
{
    prepareProcess();
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    // On Windows, Qt would still take the one of its first dialogs.
    QApplication::setFont(QApplication::font("QMessageBox"));

    settingsfile::install();
    QTranslator translator;
    loadTexts(translator);
    QCoreApplication::installTranslator(&translator);
    ORVEL_LOG << "Ran " << QCoreApplication::arguments().value(0); // on Windows argv lacks what its code page lacks

    UserLock lock(QStringLiteral("kestakljuc"));
    if (!lock.take()) {
        ORVEL_LOG << "shared memory exists";
        return alreadyRunning;
    }

    // The names are not set yet: both follow the executable's file name, as the engine's directory does.
    QDir data(QStandardPaths::writableLocation(QStandardPaths::DataLocation));
    data.mkdir(QCoreApplication::applicationName());
    data.cd(QCoreApplication::applicationName());

    auto endRequest = std::make_unique<EndRequest>(); // one that comes during the start counts, too
    QObject::connect(endRequest.get(), SIGNAL(asked()), &application, SLOT(quit()), Qt::QueuedConnection);
    DialogCld dialog;
    // Qt would look at the network's interfaces every ten seconds; nobody asks for what it sees. Only now: the engine's
    // environment, which the dialog has taken, is the system's.
    qputenv("QT_BEARER_POLL_TIMEOUT", QByteArray::number(std::numeric_limits<int>::max()));
    dialog.show();
    const int exitCode = QApplication::exec();
    endRequest.reset(); // first: a second request ends a client that hangs on its way out
    lock.release();     // before the dialog goes: its end may wait for the engine, the next start need not
    return exitCode;
}
