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

/// The program speaks Slovenian wherever it has the translation; readers of English can ask for the source
/// texts, whose own translation knows nothing but the plural forms.
void loadTexts(QTranslator& translator)
{
    if (qEnvironmentVariable("ORVEL_LANGUAGE") == QLatin1String("en"))
        translator.load(QStringLiteral(":/language-en"));
    else
        translator.load(QLocale(QLocale::Slovenian, QLocale::AnyCountry), QStringLiteral(":/language"));
}

} // namespace

int main(int argc, char* argv[])
{
    prepareProcess();
    // Qt would look at the network's interfaces every ten seconds; nobody asks for what it sees.
    qputenv("QT_BEARER_POLL_TIMEOUT", QByteArray::number(std::numeric_limits<int>::max()));
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    // On Windows, Qt would still take the one of its first dialogs.
    QApplication::setFont(QApplication::font("QMessageBox"));

    settingsfile::install();
    QTranslator translator;
    loadTexts(translator);
    QCoreApplication::installTranslator(&translator);
    ORVEL_LOG << "Ran " << argv[0];

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
    QObject::connect(endRequest.get(), SIGNAL(asked()), &application, SLOT(quit()));
    DialogCld dialog;
    dialog.show();
    const int exitCode = QApplication::exec();
    endRequest.reset(); // first: a second request ends a client that hangs on its way out
    lock.release();     // before the dialog goes: its end may wait for the engine, the next start need not
    return exitCode;
}
