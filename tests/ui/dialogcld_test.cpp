#include "ui/dialogcld.h"

#include "syncfolder/syncfolder.h"
#include "tests/support/httpserver.h"
#include "tests/support/metamethods.h"
#include "tests/ui/windowtest.h"
#include "ui/guide.h"
#include "update/updatechecker.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDesktopServices>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QWindow>

#include <memory>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

class DialogCldTest final : public WindowTest
{
    Q_OBJECT

private slots:
    void slotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(DialogCld::staticMetaObject), QStringList());
        QCOMPARE(slotsOf(DialogCld::staticMetaObject),
                 (QStringList{QStringLiteral("rootsChanged(QList<QDir>&)"),
                              QStringLiteral("toggleStartUp(bool)"),
                              QStringLiteral("menuClose()"),
                              QStringLiteral("manualUpdate()"),
                              QStringLiteral("menuShow()"),
                              QStringLiteral("disableSync()"),
                              QStringLiteral("trayActivated(QSystemTrayIcon::ActivationReason)"),
                              QStringLiteral("checkUpdate()"),
                              QStringLiteral("shellCommand(QString,QString)"),
                              QStringLiteral("shareFolder(QString,QString,int)"),
                              QStringLiteral("shareClosed(ShareFolder*)"),
                              QStringLiteral("srvStateChange()"),
                              QStringLiteral("srvDied()"),
                              QStringLiteral("aboutToDie()"),
                              QStringLiteral("doLogin()"),
                              QStringLiteral("changeRoot()"),
                              QStringLiteral("openHomepage()"),
                              QStringLiteral("openHomefolder()"),
                              QStringLiteral("openGuide()"),
                              QStringLiteral("openHelp()"),
                              QStringLiteral("openBuy()"),
                              QStringLiteral("guideClosed(int)"),
                              QStringLiteral("spaceUsedChanged()"),
                              QStringLiteral("pathQueryResult(QString,QList<quint64>)"),
                              QStringLiteral("toggleAutoUpdate(bool)"),
                              QStringLiteral("pickedRacun(QString)"),
                              QStringLiteral("pickRacun(QStringList)")}));
    }

    // The start

    void dataDirectoryIsNamedAfterTheExecutableAndTheIdentityIsSetAfterwards()
    {
        const QString executable = QCoreApplication::applicationName();
        create();
        QCOMPARE(QFileInfo(m_dialog->server().stateDir()).fileName(), executable);
        QCOMPARE(QCoreApplication::applicationName(), QStringLiteral("Orvel Storage"));
        QCOMPARE(QCoreApplication::applicationVersion(), QStringLiteral("0.9.3"));
        QCOMPARE(QCoreApplication::organizationName(), QStringLiteral("Velmora d.d."));
        QVERIFY(!QCoreApplication::organizationDomain().isEmpty());
        QCOMPARE(m_dialog->windowTitle(), QStringLiteral("Orvel Storage"));
    }

    void constructionLogsItsStepsInOrder()
    {
        create();
        const QStringList lines = log();
        const int organization = lines.indexOf(QStringLiteral("maindlg: Organization is  Velmora d.d."));
        const int server = lines.indexOf(QStringLiteral("servercomm: ServerComm created "));
        const int state = lines.indexOf(QStringLiteral("maindlg: STATE PATH ") + m_dialog->server().stateDir());
        const int activated = lines.indexOf(QStringLiteral("syncfolder: AppActivated 0x0"));
        const int validated = lines.indexOf(QStringLiteral("maindlg: VALIDATED PATH  "));
        QVERIFY(organization >= 0);
        QVERIFY(organization < server);
        QVERIFY(server < state);
        QVERIFY(state < activated);
        QVERIFY(activated < validated);
    }

    void firstStartOpensTheGuideSettlesUpdatesAndRunsAtStartupFromNowOn()
    {
        create();
        QCOMPARE(m_dialog->findChildren<Guide*>().size(), 1);
        m_dialog->show(); // it comes after the guide, and below it
        const QWindow* guide = m_dialog->findChild<Guide*>()->windowHandle();
        QVERIFY(guide != nullptr && m_dialog->windowHandle() != nullptr);
        QCOMPARE(guide->transientParent(), m_dialog->windowHandle());
#ifdef Q_OS_WIN
        QCOMPARE(GetWindow(reinterpret_cast<HWND>(guide->winId()), GW_OWNER),
                 reinterpret_cast<HWND>(m_dialog->winId()));
#endif
        clientSettings().sync();
        QCOMPARE(clientSettings().value(QStringLiteral("QtSparkle/check_automatically")).toBool(), true);
        QCOMPARE(clientSettings().value(QStringLiteral("QtSparkle/first_boot"), true).toBool(), false);
        QCOMPARE(clientSettings().value(QStringLiteral("QtSparkle/asked_permission")).toBool(), true);
        QVERIFY(m_dialog->panel().autoUpdate->isChecked());
        QCOMPARE(clientSettings().value(QStringLiteral("runnum")).toInt(), 1);
        QCOMPARE(clientSettings().value(QStringLiteral("runstartup")).toInt(), 1);
        QVERIFY(log().contains(QStringLiteral("maindlg: Toggle startup  true")));
#ifndef Q_OS_WIN
        const QByteArray entry = readFile(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                                          QStringLiteral("/autostart/Orvel Storage.desktop"));
        QVERIFY(entry.contains(QCoreApplication::applicationFilePath().toUtf8()));
#endif
    }

    void secondStartOpensNoGuideAndKeepsTheUsersChoices()
    {
        create();
        m_dialog->panel().startup->setChecked(false);
        m_dialog->panel().autoUpdate->setChecked(false);
        create();
        QVERIFY(m_dialog->findChildren<Guide*>().isEmpty());
        QCOMPARE(clientSettings().value(QStringLiteral("runnum")).toInt(), 2);
        QVERIFY(!m_dialog->panel().startup->isChecked());
        QVERIFY(!m_dialog->panel().autoUpdate->isChecked());
#ifndef Q_OS_WIN
        QVERIFY(!QFileInfo::exists(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                                   QStringLiteral("/autostart/Orvel Storage.desktop")));
#endif
    }

    void textStaysReadableOnTheWhiteGroundOfADarkDesktop()
    {
        const QPalette before = QApplication::palette();
        QPalette dark(QColor(30, 30, 30));
        QVERIFY(dark.color(QPalette::WindowText).lightness() > 200);
        QApplication::setPalette(dark);
        create();
        QVERIFY(m_dialog->palette().color(QPalette::WindowText).lightness() < 100);
        QVERIFY(m_dialog->panel().username->palette().color(QPalette::Text).lightness() < 100);
        QVERIFY(m_dialog->panel().username->palette().color(QPalette::Base).lightness() > 200);
        QApplication::setPalette(before);
        create();
        QCOMPARE(QApplication::palette(), before);
    }

    void statusIconsAreCopiedForTheShellAtEveryStart()
    {
        create();
        const QString copy = m_dialog->server().stateDir() + QStringLiteral("/quota.ico");
        writeFile(copy, "old");
        create();
        for (const char* name : {"synced.ico", "quota.ico", "syncing.ico", "offline.ico"}) {
            const QByteArray resource = readFile(QStringLiteral(":/") + QLatin1String(name));
            QVERIFY(!resource.isEmpty());
            QCOMPARE(readFile(m_dialog->server().stateDir() + u'/' + QLatin1String(name)), resource);
        }
    }

    void firstStartChecksForNoUpdateAndLaterOnesDo_data()
    {
        QTest::addColumn<int>("runNumber");
        QTest::addColumn<int>("checks");
        QTest::newRow("first") << 0 << 0;
        QTest::newRow("second") << 1 << 1;
    }
    void firstStartChecksForNoUpdateAndLaterOnesDo()
    {
        QFETCH(int, runNumber);
        QFETCH(int, checks);
        HttpServer server;
        server.hang(QStringLiteral("/feed"));
        if (runNumber > 0) { // what the first start leaves
            preset("runnum", runNumber);
            preset("QtSparkle/check_automatically", true);
            preset("QtSparkle/first_boot", false);
            preset("QtSparkle/asked_permission", true);
        }
        const QByteArray before = qgetenv("ORVEL_UPDATE_FEED");
        qputenv("ORVEL_UPDATE_FEED", server.url(QStringLiteral("/feed")).toEncoded());
        create();
        qputenv("ORVEL_UPDATE_FEED", before);
        sayState("ok", 7);
        QCOMPARE(m_dialog->findChildren<qtsparkle::UpdateChecker*>().size(), checks); // they wait for an answer
        EVENTUALLY_EQUAL(server.count(QStringLiteral("/feed")), checks);
        QVERIFY(m_dialog->findChildren<QMessageBox*>().isEmpty()); // nothing is asked either
    }

    void choiceThatTheUserDidNotMakeIsNotStored()
    {
        preset("runnum", 1);
        create();
        QVERIFY(m_dialog->panel().autoUpdate->isChecked());
        clientSettings().sync();
        QVERIFY(!clientSettings().contains(QStringLiteral("QtSparkle/check_automatically")));
        m_dialog->panel().autoUpdate->click();
        clientSettings().sync();
        QCOMPARE(clientSettings().value(QStringLiteral("QtSparkle/check_automatically"), true).toBool(), false);
    }

    void pathsAreStoredForOtherPrograms()
    {
        create();
        QCOMPARE(clientSettings().value(QStringLiteral("apppath")).toString(), QCoreApplication::arguments().value(0));
        QCOMPARE(clientSettings().value(QStringLiteral("localapppath")).toString(), m_dialog->server().stateDir());
        preset("localapppath", QStringLiteral("/kept"));
        create();
        QCOMPARE(clientSettings().value(QStringLiteral("localapppath")).toString(), QStringLiteral("/kept"));
    }

    void styleSheetCoversEveryDialog()
    {
        create();
        QCOMPARE(qApp->styleSheet(),
                 QStringLiteral("QDialog {background-image: url(:/watermark.png);"
                                "background-position:left top;background-repeat:none;background-color:white}"));
    }

    void panelStartsAsASignInForm()
    {
        preset("username", QStringLiteral("ana@orvel.example"));
        create().show();
        const SettingsPanel& panel = m_dialog->panel();
        QCOMPARE(panel.heading->text(), QStringLiteral("<b>Orvel Storage account</b>"));
        QCOMPARE(panel.username->objectName(), QStringLiteral("username"));
        QCOMPARE(panel.username->text(), QStringLiteral("ana@orvel.example"));
        QCOMPARE(panel.password->objectName(), QStringLiteral("password"));
        QCOMPARE(panel.password->echoMode(), QLineEdit::Password);
        QCOMPARE(panel.folderCaption->text(), QStringLiteral("Orvel Storage folder will be created at:"));
        QCOMPARE(panel.folderPath->text(), QDir::homePath() + QStringLiteral("/Orvel Storage"));
        QCOMPARE(panel.status->text(), QStringLiteral("Disconnected from the cloud."));
        QCOMPARE(panel.login->text(), QStringLiteral("Login"));
        QVERIFY(panel.autoUpdate->isHidden());
        QVERIFY(panel.firstSeparator->isHidden());
        QVERIFY(panel.secondSeparator->isVisible());
        QCOMPARE(panel.usernameCaption->buddy(), static_cast<QWidget*>(panel.username));
    }

    void menuHoldsTenActionsInOrder()
    {
        create();
        QStringList texts;
        for (const QAction* entry : m_dialog->tray().contextMenu()->actions())
            texts << (entry->isSeparator() ? QStringLiteral("-") : entry->text());
        QCOMPARE(texts, (QStringList{QStringLiteral("Open Orvel Storage folder"),
                                     QStringLiteral("Open Orvel Storage web site"), QStringLiteral("Stop sync"),
                                     QStringLiteral("-"), QString(), QString(), QStringLiteral("-"),
                                     QStringLiteral("Settings"), QStringLiteral("Guide"), QStringLiteral("Help"),
                                     QStringLiteral("Check for updates"), QStringLiteral("Exit")}));
    }

    // The state

    void trayShowsTheStartIconAndNameUntilTheFirstState()
    {
        create();
        QVERIFY(showsIcon(QStringLiteral(":/omri36.png")));
        QCOMPARE(m_dialog->tray().toolTip(), QStringLiteral("Orvel Storage 0.9.3"));
        QVERIFY(m_dialog->tray().isVisible());
    }

    void signedInShowsSettingsAndASyncedTray()
    {
        create().show();
        sayState("ok", 1001);
        const SettingsPanel& panel = m_dialog->panel();
        QVERIFY(showsIcon(QStringLiteral(":/online36.png")));
        QCOMPARE(m_dialog->tray().toolTip(), QStringLiteral("Orvel Storage 0.9.3\nSync done"));
        QCOMPARE(panel.heading->text(), QStringLiteral("<b>Settings</b>"));
        QVERIFY(panel.username->isHidden() && panel.usernameCaption->isHidden());
        QVERIFY(panel.password->isHidden() && panel.passwordCaption->isHidden());
        QVERIFY(!panel.username->isEnabled() && !panel.password->isEnabled());
        QVERIFY(panel.autoUpdate->isVisible() && panel.firstSeparator->isVisible());
        QVERIFY(panel.folderPath->isVisible() && panel.pickFolder->isVisible());
        QCOMPARE(panel.login->text(), QStringLiteral("Confirm"));
        QVERIFY(log().contains(QStringLiteral("maindlg: network state  ok")));
    }

    void transferShowsInTheTrayAndLeavesThePanel()
    {
        create();
        say("{\"what\":\"networkstate\",\"state\":\"transferring\",\"uid\":1,\"uploads\":2,\"bps\":0}");
        EVENTUALLY(showsIcon(QStringLiteral(":/sync36.png")));
        QCOMPARE(m_dialog->tray().toolTip(),
                 QStringLiteral("Orvel Storage 0.9.3\n2 files are uploading to the cloud\n"));
        QCOMPARE(m_dialog->panel().login->text(), QStringLiteral("Login"));
    }

    void offlineShowsItsIconAndTheSlovenianLine()
    {
        create();
        sayState("offline", 0);
        QVERIFY(showsIcon(QStringLiteral(":/offline36.png")));
        QCOMPARE(m_dialog->tray().toolTip(), QStringLiteral("Orvel Storage 0.9.3\nInternetna povezava je prekinjena"));
        QVERIFY(!m_dialog->panel().login->isEnabled());
        QVERIFY(!m_dialog->panel().username->isEnabled());
    }

    void spaceAndPackageAreNotShownBeforeTheyAreKnown()
    {
        create();
        QVERIFY(!action(4)->isVisible());
        QVERIFY(!action(5)->isVisible());
        QVERIFY(action(3)->isVisible()); // a separator, and the one after them is not shown beside it
    }

    void freeSpaceIsShownWithTwoDigits_data()
    {
        QTest::addColumn<quint64>("freeGibibytes10");
        QTest::addColumn<QString>("text");
        QTest::newRow("1.5") << 15ULL << "1.5";
        QTest::newRow("12") << 120ULL << "12";
        QTest::newRow("120 shows an exponent") << 1200ULL << "1.2e+02";
    }
    void freeSpaceIsShownWithTwoDigits()
    {
        QFETCH(quint64, freeGibibytes10);
        QFETCH(QString, text);
        create();
        const quint64 quota = 200ULL << 30;
        const quint64 space = quota - (freeGibibytes10 << 30) / 10;
        say("{\"what\":\"spaceused\",\"space\":" + QByteArray::number(space) +
            ",\"quota\":" + QByteArray::number(quota) + ",\"package\":\"Family\"}");
        EVENTUALLY_EQUAL(action(5)->text(), text + QStringLiteral(" GB free out of 200 GB"));
        QCOMPARE(action(4)->text(), QStringLiteral("Family - Change package"));
        QVERIFY(!action(5)->isEnabled());
        QVERIFY(action(4)->isVisible() && action(5)->isVisible());
        QVERIFY(
            log().contains(QStringLiteral("maindlg: space used changed free = %1 %2").arg(quota - space).arg(quota)));
    }

    void freeSpaceIsWrittenAsTheUserWritesNumbersAndTheQuotaIsNot()
    {
        QLocale::setDefault(QLocale(QLocale::Slovenian, QLocale::Slovenia));
        create();
        say("{\"what\":\"spaceused\",\"space\":2145873428480,\"quota\":2147483648000}");
        EVENTUALLY_EQUAL(action(5)->text(), QStringLiteral("1,5 GB free out of 2000 GB"));
    }

    void quotaThatIsExceededLeavesNothingFree()
    {
        create();
        say("{\"what\":\"spaceused\",\"space\":12884901888,\"quota\":10737418240,\"package\":\"Plus\"}");
        EVENTUALLY_EQUAL(action(5)->text(), QStringLiteral("0 GB free out of 10 GB"));
        QVERIFY(log().contains(QStringLiteral("maindlg: space used changed free = 0 10737418240")));
    }

    void rootsReportShowsTheFolder()
    {
        create();
        QList<QDir> roots{QDir(QStringLiteral("/one")), QDir(QStringLiteral("/two"))};
        m_dialog->rootsChanged(roots);
        QCOMPARE(m_dialog->panel().folderPath->text(), QStringLiteral("/two"));
        QCOMPARE(m_dialog->panel().folderCaption->text(), QStringLiteral("Orvel Storage is at:"));
    }

    void registryIsActivatedOnceAndReportsToTheEngineAndTheWindowAlsoWhenItWasRebuilt()
    {
        clearLog();
        create();
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        for (int registry = 0; registry < 2; ++registry) {
            QCOMPARE(log().filter(QStringLiteral("syncfolder: AppActivated")).size(), 1);
            auto* folder = const_cast<SyncFolder*>(&m_dialog->syncFolder());
            m_engine->forgetInput();
            QStringList paths{QStringLiteral("/changed/%1").arg(registry)};
            QVERIFY(QMetaObject::invokeMethod(folder, "pathsChanged", Q_ARG(QStringList&, paths)));
            QVERIFY(engineReads("{ \"cmd\" : \"pathschaned\", \"paths\" : [ \"/changed/" +
                                QByteArray::number(registry) + "\" ] }"));
            QCOMPARE(m_engine->input().count("pathschaned"), 1);
            QList<QDir> roots{QDir(QStringLiteral("/root/%1").arg(registry))};
            clearLog();
            QVERIFY(QMetaObject::invokeMethod(folder, "rootsChanged", Q_ARG(QList<QDir>&, roots)));
            QCOMPARE(m_dialog->panel().folderPath->text(), QStringLiteral("/root/%1").arg(registry));
            QCOMPARE(log().filter(QStringLiteral("maindlg: rootschanged ")).size(), 1);

            clearLog();
            const int starts = m_engine->starts().size();
            m_engine->crash();
            EVENTUALLY_EQUAL(m_engine->starts().size(), starts + 1);
            EVENTUALLY(m_engine->input().endsWith("}\n"));
            QVERIFY(log().indexOf(QStringLiteral("maindlg: srvdied")) <
                    log().indexOf(QStringLiteral("syncfolder: AppActivated 0x0")));
        }
    }

    void diedEngineIsReplacedThroughARebuiltRegistry()
    {
        create();
        EVENTUALLY(m_engine->isConnected());
        m_engine->crash();
        EVENTUALLY_EQUAL(m_engine->starts().size(), 2);
        QVERIFY(log().contains(QStringLiteral("maindlg: srvdied")));
        sayState("ok", 7); // the new registry listens
        QCOMPARE(m_dialog->syncFolder().uid(), 7ULL);
    }

    void engineSwitchedOffAndOnAtOnceComesBack()
    {
        create();
        EVENTUALLY(m_engine->isConnected());
        auto& server = const_cast<ServerComm&>(m_dialog->server());
        server.toggleServer(false);
        server.toggleServer(true);
        EVENTUALLY_EQUAL(m_engine->starts().size(), 2);
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        QVERIFY(log().contains(QStringLiteral("maindlg: srvdied")));
    }

    // The end

    void exitEndsTheEventLoopWithCodeOneAndTheEngineWithIt()
    {
        create();
        EVENTUALLY(m_engine->isConnected());
        QTimer::singleShot(0, action(11), SLOT(trigger()));
        QCOMPARE(QCoreApplication::exec(), 1);
        QVERIFY(!m_dialog->server().running());
        QVERIFY(log().contains(QStringLiteral("servercomm: Terminating erlang")));
    }
};

QTEST_MAIN(DialogCldTest)
#include "dialogcld_test.moc"
