#include "tests/ui/gallery.h"

#include "engine/servercomm.h"
#include "syncfolder/folderchooser.h"
#include "syncfolder/pickhomepath.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"
#include "ui/account.h"
#include "ui/desktop.h"
#include "ui/dialogcld.h"
#include "ui/guide.h"
#include "ui/pickracun.h"
#include "ui/sharefolder.h"
#include "ui/webpages.h"
#include "update/uicontroller.h"
#include "update/updatedialog.h"
#include "update/updater.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QLocale>
#include <QMenu>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextBrowser>

namespace
{

constexpr int knownAccount = 1001;
constexpr int firstTeamAccount = 2001;
const char* const user = "ana@orvel.example";
const char* const folder = "C:/Users/Ana/Orvel Storage";

QSettings clientSettings()
{
    return QSettings(QStringLiteral("Velmora d.d."), QStringLiteral("Orvel Storage"));
}

/// Waits with the event loop running; ends the program past the deadline.
template<typename Condition>
void await(const char* what, Condition condition)
{
    if (!QTest::qWaitFor(condition, deadline()))
        qFatal("in vain: %s", what);
}

template<typename Widget>
Widget* visibleTopLevel()
{
    const auto windows = QApplication::topLevelWidgets();
    for (QWidget* window : windows) {
        auto* candidate = qobject_cast<Widget*>(window);
        if (candidate != nullptr && candidate->isVisible())
            return candidate;
    }
    return nullptr;
}

} // namespace

QStringList Gallery::names()
{
    return {QStringLiteral("main-start"),      QStringLiteral("main-signin"),
            QStringLiteral("main-refused"),    QStringLiteral("main-signedout"),
            QStringLiteral("main-offline"),    QStringLiteral("main-lost"),
            QStringLiteral("main-settings"),   QStringLiteral("main-transfer"),
            QStringLiteral("folderexists"),    QStringLiteral("menu"),
            QStringLiteral("guide-1"),         QStringLiteral("guide-2"),
            QStringLiteral("guide-3"),         QStringLiteral("guide-4"),
            QStringLiteral("picker-2"),        QStringLiteral("picker-12"),
            QStringLiteral("missing"),         QStringLiteral("share-ask"),
            QStringLiteral("share-0"),         QStringLiteral("share-1"),
            QStringLiteral("share-2"),         QStringLiteral("share-3"),
            QStringLiteral("share-4"),         QStringLiteral("share-unknown"),
            QStringLiteral("share-done"),      QStringLiteral("account-start"),
            QStringLiteral("account-logout"),  QStringLiteral("account-ok"),
            QStringLiteral("account-offline"), QStringLiteral("update-offer"),
            QStringLiteral("update-progress"), QStringLiteral("update-none"),
            QStringLiteral("update-failed"),   QStringLiteral("update-ask")};
}

void Gallery::addRows()
{
    QTest::addColumn<Language>("language");
    QTest::addColumn<QString>("window");
    for (const QString& name : names()) {
        QTest::newRow(qPrintable(QStringLiteral("en/") + name)) << English << name;
        QTest::newRow(qPrintable(QStringLiteral("sl/") + name)) << Slovenian << name;
    }
}

Gallery::Gallery(Language language)
{
    const bool loaded = language == English ? m_translator.load(QStringLiteral(":/language-en"))
                                            : m_translator.load(QLocale(QLocale::Slovenian, QLocale::AnyCountry),
                                                                QStringLiteral(":/language"));
    if (!loaded)
        qFatal("no translation");
    QCoreApplication::installTranslator(&m_translator);
    desktop::pretendTray(true);
}

Gallery::~Gallery()
{
    clear();
    clientSettings().clear();
    forgetNames();
    QCoreApplication::removeTranslator(&m_translator);
    desktop::pretendTray({});
}

void Gallery::clear()
{
    m_window.reset();
    m_main.reset();
    m_engine.reset();
    folderchooser::setAsker({});
}

const DialogCld& Gallery::mainWindow() const
{
    return *m_main;
}

/// A second run, so that the guide opens only when it is asked for.
void Gallery::start()
{
    clear();
    m_engine = std::make_unique<FakeEngine>();
    QDir::setCurrent(m_engine->installDir());
    forgetNames();
    QSettings settings = clientSettings();
    settings.clear();
    settings.setValue(QStringLiteral("runnum"), 1);
    settings.setValue(QStringLiteral("runstartup"), 1);
    settings.setValue(QStringLiteral("username"), QLatin1String(user));
    settings.sync();
    m_main = std::make_unique<DialogCld>();
    m_main->panel().folderPath->setText(QLatin1String(folder));
}

QWidget& Gallery::show(const QString& name)
{
    start();
    QWidget* window = open(name.section(u'-', 0, 0), name.section(u'-', 1));
    if (window == nullptr)
        qFatal("nothing called %s", qPrintable(name));
    activate(*window);
    await("the window is shown", [&] { return QTest::qWaitForWindowExposed(window); });
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    return *window;
}

void Gallery::activate(QWidget& window)
{
    window.show();
    if (qobject_cast<QMenu*>(&window) != nullptr)
        return; // a pop-up takes the keyboard as it is
    QApplication::setActiveWindow(&window);
    await("the window becomes active", [&] { return window.isActiveWindow(); });
}

QWidget* Gallery::open(const QString& kind, const QString& state)
{
    if (kind == QLatin1String("main"))
        return openMain(state);
    if (kind == QLatin1String("guide"))
        return openGuide(state.toInt());
    if (kind == QLatin1String("picker"))
        return openPicker(state.toInt());
    if (kind == QLatin1String("share"))
        return openShare(state);
    if (kind == QLatin1String("account"))
        return openAccount(state);
    if (kind == QLatin1String("menu"))
        return openMenu();
    if (kind == QLatin1String("folderexists"))
        return openFolderExists();
    if (kind == QLatin1String("update"))
        return openUpdate(state);
    if (kind == QLatin1String("missing")) {
        m_window = std::make_unique<PickHomepath>(QStringLiteral("moveordel"), QLatin1String(folder), nullptr);
        m_window->setWindowFlags(Qt::Tool | Qt::WindowStaysOnTopHint);
        return m_window.get();
    }
    return nullptr;
}

QWidget* Gallery::openMain(const QString& state)
{
    activate(*m_main);
    if (state == QLatin1String("signin") || state == QLatin1String("refused"))
        sayState("logout", 0);
    if (state == QLatin1String("refused")) {
        m_main->panel().login->click();
        sayState("logout", 0);
    }
    if (state == QLatin1String("signedout") || state == QLatin1String("lost") || state == QLatin1String("settings") ||
        state == QLatin1String("transfer"))
        sayState("ok", knownAccount);
    if (state == QLatin1String("signedout"))
        sayState("logout", knownAccount);
    if (state == QLatin1String("transfer"))
        sayTransfer();
    if (state == QLatin1String("offline"))
        sayState("offline", 0);
    if (state == QLatin1String("lost"))
        sayState("offline", knownAccount);
    if (state == QLatin1String("settings") || state == QLatin1String("transfer"))
        m_main->panel().showFolder(QLatin1String(folder));
    return m_main.get();
}

QWidget* Gallery::openGuide(int step)
{
    m_main->openGuide();
    auto* guide = m_main->findChild<Guide*>();
    for (int i = 1; i < step; ++i)
        QMetaObject::invokeMethod(guide, "moveForward");
    return guide;
}

QWidget* Gallery::openPicker(int accounts)
{
    QStringList ids;
    for (int i = 0; i < accounts; ++i)
        ids << QString::number(firstTeamAccount + i);
    m_main->pickRacun(ids);
    m_window.reset(visibleTopLevel<PickRacun>());
    return m_window.get();
}

QWidget* Gallery::openShare(const QString& state)
{
    auto dialog = std::make_unique<ShareFolder>(1, QLatin1String(folder) + QStringLiteral("/Slike"), nullptr);
    activate(*dialog);
    dialog->findChild<QLineEdit*>()->setText(QStringLiteral("bojan@orvel.example"));
    bool isRefusal = false;
    const int refusal = state.toInt(&isRefusal);
    constexpr int unknownRefusal = 7;
    if (isRefusal)
        dialog->shareFolderResult(1, false, refusal);
    else if (state == QLatin1String("unknown"))
        dialog->shareFolderResult(1, false, unknownRefusal);
    else if (state == QLatin1String("done"))
        dialog->shareFolderResult(1, true, 0);
    m_window = std::move(dialog);
    return m_window.get();
}

QWidget* Gallery::openAccount(const QString& state)
{
    m_window = std::make_unique<Account>(const_cast<ServerComm*>(&m_main->server()), nullptr);
    activate(*m_window);
    if (state != QLatin1String("start"))
        sayState(state.toLatin1(), 0);
    return m_window.get();
}

QWidget* Gallery::openMenu()
{
    const QSignalSpy changed(&m_main->server(), SIGNAL(spaceUsedChanged()));
    say(R"({"what":"spaceused","space":4294967296,"quota":26843545600,"package":"Plus"})");
    await("the space", [&] { return changed.count() == 1; });
    QMenu* menu = m_main->tray().contextMenu();
    menu->popup(QPoint(0, 0));
    return menu;
}

/// What follows when the folder that was picked has one of the name already.
QWidget* Gallery::openFolderExists()
{
    m_main->show();
    const QTemporaryDir taken;
    QDir(taken.path()).mkdir(m_main->server().config().syncfolders.value(0));
    folderchooser::setAsker([&](QWidget*, const QString&, const QString&) { return taken.path(); });
    m_main->changeRoot();
    return m_main->findChild<QMessageBox*>();
}

QWidget* Gallery::openUpdate(const QString& state)
{
    if (state == QLatin1String("offer"))
        return openOffer();
    if (state == QLatin1String("ask")) {
        QSettings settings = clientSettings();
        settings.setValue(QStringLiteral("QtSparkle/first_boot"), false);
        settings.setValue(QStringLiteral("QtSparkle/asked_permission"), false);
        settings.setValue(QStringLiteral("QtSparkle/check_automatically"), false);
        settings.sync();
        auto* updater = new qtsparkle::Updater(webpages::updateFeed(QString()), m_main.get());
        QCoreApplication::sendPostedEvents(updater);
        return m_main->findChild<QMessageBox*>();
    }
    m_main->show();
    auto* controller = new qtsparkle::UiController(false, m_main.get(), m_main.get());
    if (state == QLatin1String("progress")) {
        controller->CheckStarted();
        return m_main->findChild<QProgressDialog*>();
    }
    if (state == QLatin1String("none")) {
        controller->UpToDate();
    } else {
        Test::expectWarning(QStringLiteral("Update check failed: .*"));
        controller->CheckFailed(QStringLiteral("Connection refused"));
    }
    return m_main->findChild<QMessageBox*>();
}

QWidget* Gallery::openOffer()
{
    const AppCastPtr appcast(new qtsparkle::AppCast);
    appcast->version = QStringLiteral("1.0");
    auto* offer = new qtsparkle::UpdateDialog(m_main.get());
    offer->SetIcon(m_main->windowIcon());
    offer->SetVersion(QCoreApplication::applicationVersion());
    offer->ShowUpdate(appcast);
    offer->findChild<QTextBrowser*>()->setHtml(
        QStringLiteral("<h2>1.0</h2><ul><li>Hitrejše usklajevanje</li><li>Nove ikone</li></ul>"));
    return offer;
}

void Gallery::say(const QByteArray& line)
{
    await("the engine is there", [&] { return m_engine->isConnected(); });
    m_engine->say(line);
}

void Gallery::sayTransfer()
{
    const QSignalSpy changed(&m_main->server(), SIGNAL(netStateChanged()));
    say(R"({"what":"networkstate","state":"transferring","uid":1001,"uploads":3,"downloads":2,"bps":655360,"timerem":240})");
    await("the state changes", [&] { return changed.count() == 1; });
}

void Gallery::sayState(const QByteArray& state, int uid)
{
    const QSignalSpy changed(&m_main->server(), SIGNAL(netStateChanged()));
    say(R"({"what":"networkstate","state":")" + state + R"(","uid":)" + QByteArray::number(uid) + "}");
    await("the state changes", [&] { return changed.count() == 1; });
}
