#include "update/updater.h"

#include "tests/support/metamethods.h"
#include "tests/update/prompttest.h"
#include "update/uicontroller.h"
#include "update/updatechecker.h"

#include <QLabel>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>
#include <QTextBrowser>
#include <QTimer>

using qtsparkle::UiController;
using qtsparkle::UpdateChecker;
using qtsparkle::UpdateDialog;
using qtsparkle::Updater;

class UpdaterTest final : public PromptTest
{
    Q_OBJECT

    QPointer<Updater> m_updater;

protected:
    void tearDown() override
    {
        delete m_updater;
        PromptTest::tearDown();
    }

private:
    enum Boot
    {
        FirstBoot,
        LaterBoot
    };

    static void preset(Boot boot, bool asked, bool automatic)
    {
        QSettings settings;
        settings.beginGroup(QStringLiteral("QtSparkle"));
        settings.setValue(QStringLiteral("first_boot"), boot == FirstBoot);
        settings.setValue(QStringLiteral("asked_permission"), asked);
        settings.setValue(QStringLiteral("check_automatically"), automatic);
    }

    Updater& create()
    {
        delete m_updater;
        m_updater = new Updater(m_server->url(QStringLiteral("/feed?os=win&app=orvel")), m_parent.get());
        return *m_updater;
    }

    /// Runs what has been posted.
    static void startEventLoop()
    {
        QCoreApplication::sendPostedEvents();
    }

    int checks() const
    {
        return m_updater->findChildren<UpdateChecker*>().size();
    }
    int controllers() const
    {
        return m_updater->findChildren<UiController*>().size();
    }

    static void press(const QMessageBox& box, const char* text)
    {
        for (auto* button : box.buttons()) {
            if (button->text() == QLatin1String(text)) {
                button->click();
                return;
            }
        }
        QFAIL(text);
    }

    void answerPermission(const char* text)
    {
        auto* box = window<QMessageBox>();
        QVERIFY(box);
        if (text != nullptr)
            press(*box, text);
        else
            box->close();
    }

private slots:
    void slotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(slotsOf(Updater::staticMetaObject).value(0), QStringLiteral("CheckNow()"));
        QCOMPARE(signalsOf(Updater::staticMetaObject), QStringList());
    }

    void firstStartWithEmptySettingsOnlyNotesThatItWasThere()
    {
        create();
        QCOMPARE(QSettings().allKeys(), QStringList{QStringLiteral("QtSparkle/first_boot")});
        QCOMPARE(setting("first_boot"), QVariant(QStringLiteral("false")));
        startEventLoop();
        QVERIFY(!anyPrompt());
        QCOMPARE(checks(), 0);
        QCOMPARE(controllers(), 0);
    }

    void secondStartAsksOnceAndOnlyWhenTheEventLoopRuns()
    {
        create();
        create();
        QVERIFY(!anyPrompt());
        startEventLoop();
        QPointer<QMessageBox> box = window<QMessageBox>();
        QVERIFY(box);
        QVERIFY(box->isVisible());
        QVERIFY(box->isModal());
        startEventLoop();
        QCOMPARE(windows<QMessageBox>().size(), 1);
        QCOMPARE(checks(), 0);
        QVERIFY(!QSettings().contains(QStringLiteral("QtSparkle/asked_permission")));
    }

    void questionHasItsTextsAndButtons()
    {
        preset(LaterBoot, false, false);
        create();
        startEventLoop();
        auto* box = window<QMessageBox>();
        QVERIFY(box);
        QVERIFY(box->parentWidget() == m_parent.get());
        QCOMPARE(box->icon(), QMessageBox::Question);
        QCOMPARE(box->windowTitle(), QStringLiteral("Check for updates automatically?"));
        QCOMPARE(box->text(), QStringLiteral("Should Orvel automatically check for updates?  You can always check for "
                                             "updates manually from the menu."));
        QCOMPARE(box->standardButtons(), QMessageBox::StandardButtons(QMessageBox::NoButton));
        QCOMPARE(box->buttons().size(), 2);
        for (auto* button : box->buttons()) {
            const bool yes = button->text() == QLatin1String("Check automatically");
            QVERIFY(yes || button->text() == QLatin1String("Don't check"));
            QCOMPARE(box->buttonRole(button), yes ? QMessageBox::YesRole : QMessageBox::NoRole);
        }
    }

    void answerIsStoredAndNeverAskedForAgain_data()
    {
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<bool>("automatic");
        QTest::newRow("yes") << QByteArrayLiteral("Check automatically") << true;
        QTest::newRow("no") << QByteArrayLiteral("Don't check") << false;
        QTest::newRow("closed by its frame") << QByteArray() << false;
    }
    void answerIsStoredAndNeverAskedForAgain()
    {
        QFETCH(QByteArray, button);
        QFETCH(bool, automatic);
        serveFeed("1.9");
        preset(LaterBoot, false, false);
        create();
        startEventLoop();
        answerPermission(button.isNull() ? nullptr : button.constData());
        QCOMPARE(setting("asked_permission").toBool(), true);
        QCOMPARE(setting("check_automatically").toBool(), automatic);
        QVERIFY(QSettings().contains(QStringLiteral("QtSparkle/check_automatically")));
        QCOMPARE(checks(), automatic ? 1 : 0); // at once, and quietly
        EVENTUALLY_EQUAL(controllers(), 0);
        EVENTUALLY(!anyPrompt());
        QCOMPARE(m_server->count(QStringLiteral("/feed")), automatic ? 1 : 0);

        create();
        startEventLoop();
        QVERIFY(!anyPrompt());
        QCOMPARE(checks(), automatic ? 1 : 0);
    }

    void escapeCountsAsNo()
    {
        preset(LaterBoot, false, false);
        create();
        startEventLoop();
        QPointer<QMessageBox> box = window<QMessageBox>();
        QVERIFY(box);
        QTest::keyClick(box, Qt::Key_Escape);
        EVENTUALLY(box.isNull());
        QCOMPARE(setting("asked_permission").toBool(), true);
        QCOMPARE(setting("check_automatically"), QVariant(QStringLiteral("false")));
    }

    void exitWithTheQuestionOpenCountsAsNo()
    {
        preset(LaterBoot, false, true);
        QSettings().remove(QStringLiteral("QtSparkle/check_automatically"));
        create();
        QTimer::singleShot(0, qApp, SLOT(quit())); // after the question, which was posted
        QCOMPARE(QCoreApplication::exec(), 0);
        QCOMPARE(setting("asked_permission").toBool(), true);
        QCOMPARE(setting("check_automatically"), QVariant(QStringLiteral("false")));
        QCOMPARE(checks(), 0);
        EVENTUALLY(!anyPrompt());
    }

    void exitAfterAnAnswerLeavesIt()
    {
        serveFeed("1.9");
        preset(LaterBoot, false, false);
        create();
        startEventLoop();
        answerPermission("Check automatically");
        QTimer::singleShot(0, qApp, SLOT(quit()));
        QCOMPARE(QCoreApplication::exec(), 0);
        QCOMPARE(setting("check_automatically").toBool(), true);
    }

    void automaticCheckRunsQuietlyAtEachStart_data()
    {
        QTest::addColumn<bool>("first");
        QTest::newRow("first start") << true;
        QTest::newRow("later start") << false;
    }
    void automaticCheckRunsQuietlyAtEachStart()
    {
        QFETCH(bool, first);
        serveFeed("1.9");
        preset(first ? FirstBoot : LaterBoot, true, true);
        create();
        QCOMPARE(checks(), 0);
        startEventLoop();
        QCOMPARE(checks(), 1);
        QVERIFY(!anyPrompt());
        EVENTUALLY_EQUAL(m_server->count(QStringLiteral("/feed")), 1);
        EVENTUALLY_EQUAL(controllers(), 0);
        QVERIFY(!anyPrompt());
        QCOMPARE(m_server->requests().first().target, QByteArrayLiteral("/feed?os=win&app=orvel"));
        QCOMPARE(setting("first_boot").toBool(), false);
    }

    void questionAndAutomaticCheckMayComeTogether()
    {
        serveFeed("1.9");
        preset(LaterBoot, false, true);
        create();
        startEventLoop();
        QVERIFY(window<QMessageBox>());
        QCOMPARE(checks(), 1);
        answerPermission("Don't check");
        QCOMPARE(setting("check_automatically").toBool(), false);
        EVENTUALLY_EQUAL(controllers(), 0);
    }

    void changedSettingTakesEffectAtTheNextStart()
    {
        preset(LaterBoot, true, false);
        create();
        preset(LaterBoot, true, true);
        startEventLoop();
        QCOMPARE(checks(), 0);
        create();
        startEventLoop();
        QCOMPARE(checks(), 1);
    }

    void automaticCheckThatFindsNothingShowsNothing_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("fails");
        QTest::newRow("up to date") << feedOfVersion("1.9") << false;
        QTest::newRow("failed") << QByteArray() << true;
    }
    void automaticCheckThatFindsNothingShowsNothing()
    {
        QFETCH(QByteArray, body);
        QFETCH(bool, fails);
        serveText(QStringLiteral("/feed"), body, "text/xml");
        if (fails)
            expectWarning(QStringLiteral("Update check failed: Premature end of document\\."));
        preset(LaterBoot, true, true);
        create();
        startEventLoop();
        QCOMPARE(controllers(), 1);
        bool anyShown = false;
        EVENTUALLY((anyShown |= anyPrompt(), controllers() == 0));
        QVERIFY(!anyShown);
        QCOMPARE(checks(), 1); // stays until the updater goes
    }

    void automaticCheckThatFindsAnUpdateShowsItWithoutProgress()
    {
        serveFeed("2.0");
        preset(LaterBoot, true, true);
        create();
        startEventLoop();
        EVENTUALLY(window<UpdateDialog>());
        QVERIFY(window<UpdateDialog>()->isVisible());
        QVERIFY(windows<QProgressDialog>().isEmpty());
        QVERIFY(windows<QMessageBox>().isEmpty());
    }

    void manualCheckShowsProgressAndThenTheInformation()
    {
        serveFeed("1.9");
        create().CheckNow();
        QPointer<QProgressDialog> progress = window<QProgressDialog>();
        QVERIFY(progress);
        QVERIFY(progress->isVisible());
        QVERIFY(windows<QMessageBox>().isEmpty());
        EVENTUALLY(window<QMessageBox>());
        QVERIFY(!progress || progress->isHidden());
        QCOMPARE(window<QMessageBox>()->icon(), QMessageBox::Information);
        EVENTUALLY_EQUAL(controllers(), 0);
        QVERIFY(progress.isNull());
        QCOMPARE(checks(), 1);
        window<QMessageBox>()->close();
        EVENTUALLY(!anyPrompt());
    }

    void manualCheckThatFailsShowsTheReason()
    {
        m_server->redirect(QStringLiteral("/feed"), "/feed");
        expectWarning(QStringLiteral("Update check failed: Redirect limit reached"));
        create().CheckNow();
        EVENTUALLY(window<QMessageBox>());
        QCOMPARE(window<QMessageBox>()->icon(), QMessageBox::Warning);
        QCOMPARE(window<QMessageBox>()->text(), QStringLiteral("Redirect limit reached"));
        EVENTUALLY_EQUAL(controllers(), 0);
        QCOMPARE(checks(), 1);
        window<QMessageBox>()->close();
        EVENTUALLY(!anyPrompt());
    }

    void manualCheckOffersTheSkippedVersionAndTheAutomaticOneDoesNot()
    {
        serveFeed("2.0");
        create().CheckNow();
        EVENTUALLY(window<UpdateDialog>());
        window<UpdateDialog>()->findChild<QPushButton*>(QStringLiteral("skip"))->click();
        EVENTUALLY_EQUAL(controllers(), 0);
        QCOMPARE(setting("skipped_version").toString(), QStringLiteral("2.0"));

        preset(LaterBoot, true, true);
        create();
        startEventLoop();
        QCOMPARE(controllers(), 1);
        EVENTUALLY_EQUAL(controllers(), 0);
        QVERIFY(!anyPrompt());

        m_updater->CheckNow();
        EVENTUALLY(window<UpdateDialog>());

        delete window<UpdateDialog>();
        serveFeed("2.1"); // a newer one is offered again
        create();
        startEventLoop();
        EVENTUALLY(window<UpdateDialog>());
    }

    void postponedVersionIsOfferedAgainAtTheNextStart()
    {
        serveFeed("2.0");
        preset(LaterBoot, true, true);
        for (int start = 0; start < 2; ++start) {
            create();
            startEventLoop();
            EVENTUALLY(window<UpdateDialog>());
            window<UpdateDialog>()->findChild<QPushButton*>(QStringLiteral("later"))->click();
            EVENTUALLY_EQUAL(controllers(), 0);
            EVENTUALLY(!anyPrompt());
        }
    }

    void updateWithNotesIsShownAndCleanedUp()
    {
        serveFeed("2.0", QStringLiteral("/notes"));
        serveText(QStringLiteral("/notes"), "<b>Faster</b>", "text/html");
        QNetworkAccessManager manager;
        create().SetNetworkAccessManager(&manager);
        m_updater->CheckNow();
        EVENTUALLY(window<UpdateDialog>());
        QPointer<UpdateDialog> dialog = window<UpdateDialog>();
        EVENTUALLY_EQUAL(dialog->findChild<QTextBrowser*>()->toPlainText(), QStringLiteral("Faster"));
        dialog->findChild<QPushButton*>(QStringLiteral("install"))->click();
        QCOMPARE(m_opened, QStringList{QStringLiteral("http://updates.example/orvel-2.0.exe")});
        EVENTUALLY(dialog.isNull());
        EVENTUALLY_EQUAL(controllers(), 0);
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
        QVERIFY(!anyPrompt());
        QCOMPARE(checks(), 1);
        QCOMPARE(m_server->openConnections(), 0);
    }

    void severalChecksAtOnceHaveTheirOwnPrompts()
    {
        serveFeed("2.0");
        preset(LaterBoot, true, true);
        create();
        startEventLoop();
        m_updater->CheckNow();
        m_updater->CheckNow();
        QCOMPARE(checks(), 3);
        QCOMPARE(controllers(), 3);
        QCOMPARE(windows<QProgressDialog>().size(), 2);
        EVENTUALLY_EQUAL(windows<UpdateDialog>().size(), 3);
        QCOMPARE(m_server->count(QStringLiteral("/feed")), 3);
        for (auto* dialog : windows<UpdateDialog>())
            dialog->close();
        EVENTUALLY_EQUAL(controllers(), 0);
        EVENTUALLY(!anyPrompt());
        QCOMPARE(checks(), 3);
    }

    void versionAndIconAreTheApplicationsAndTheWindowsUnlessSet_data()
    {
        QTest::addColumn<bool>("set");
        QTest::newRow("left alone") << false;
        QTest::newRow("set") << true;
    }
    void versionAndIconAreTheApplicationsAndTheWindowsUnlessSet()
    {
        QFETCH(bool, set);
        QPixmap picture(64, 64);
        picture.fill(Qt::green);
        m_parent->setWindowIcon(QIcon(picture));
        serveFeed("2.0");
        create();
        if (set) {
            picture.fill(Qt::blue);
            m_updater->SetIcon(QIcon(picture));
            m_updater->SetVersion(QStringLiteral("1.5"));
        }
        m_updater->CheckNow();
        EVENTUALLY(window<UpdateDialog>());
        const auto* dialog = window<UpdateDialog>();
        const auto text = dialog->findChild<QLabel*>(QStringLiteral("summary"))->text();
        QVERIFY(text.contains(set ? QStringLiteral(" 1.5. ") : QStringLiteral(" 1.9. ")));
        const auto* icon = dialog->findChild<QLabel*>(QStringLiteral("icon"));
        QVERIFY(icon->isVisible());
        QCOMPARE(QColor(icon->pixmap(Qt::ReturnByValue).toImage().pixel(1, 1)), QColor(set ? Qt::blue : Qt::green));
    }

    void injectedManagerServesEveryCheck()
    {
        serveFeed("1.9");
        QNetworkAccessManager manager;
        int finished = 0;
        connect(&manager, &QNetworkAccessManager::finished, this, [&] { ++finished; });
        create().SetNetworkAccessManager(&manager);
        m_updater->CheckNow();
        EVENTUALLY_EQUAL(finished, 1);
        EVENTUALLY_EQUAL(controllers(), 0);
        QVERIFY(m_updater->findChildren<QNetworkAccessManager*>().isEmpty());
    }

    void updaterThatGoesMeanwhileTakesItsChecksAndTheirProgressWithIt()
    {
        m_server->hang(QStringLiteral("/feed"));
        create().CheckNow();
        EVENTUALLY_EQUAL(m_server->requests().size(), 1);
        const QPointer<UpdateChecker> checker = m_updater->findChild<UpdateChecker*>();
        const QPointer<UiController> controller = m_updater->findChild<UiController*>();
        delete m_updater;
        QVERIFY(checker.isNull());
        QVERIFY(controller.isNull());
        QVERIFY(!anyPrompt());
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
    }

    void windowThatGoesTakesUpdaterAndPromptsWithIt()
    {
        serveFeed("2.0");
        preset(LaterBoot, false, false);
        create().CheckNow();
        startEventLoop();
        EVENTUALLY(window<UpdateDialog>());
        QVERIFY(window<QMessageBox>());
        m_parent.reset();
        QVERIFY(m_updater.isNull());
        QVERIFY(!anyPrompt());
        m_parent = std::make_unique<QWidget>();
    }

    void updaterWithoutAWindowWorks()
    {
        serveFeed("2.0");
        m_updater = new Updater(m_server->url(QStringLiteral("/feed")), nullptr);
        m_updater->CheckNow();
        EVENTUALLY(window<UpdateDialog>());
        QVERIFY(!window<UpdateDialog>()->findChild<QLabel*>(QStringLiteral("icon"))->isVisible());
        window<UpdateDialog>()->close();
        EVENTUALLY_EQUAL(controllers(), 0);
    }

    void secureFeedIsReadAndItsUpdateShown()
    {
        if (!HttpServer::canBeSecure())
            QSKIP("a server with a certificate of its own is not served by this system's TLS");
        HttpServer secure(HttpServer::Security::Tls);
        HttpServer::Answer answer;
        answer.body = feed("2.0");
        secure.serve(QStringLiteral("/feed"), answer);
        const QSslConfiguration before = QSslConfiguration::defaultConfiguration();
        QSslConfiguration::setDefaultConfiguration(HttpServer::trusting());
        m_updater = new Updater(secure.url(QStringLiteral("/feed")), m_parent.get());
        m_updater->CheckNow();
        (void)QTest::qWaitFor([this] { return window<UpdateDialog>() != nullptr; }, deadline());
        QSslConfiguration::setDefaultConfiguration(before);
        QVERIFY(window<UpdateDialog>());
    }

    void otherEventsGoTheirUsualWay()
    {
        create();
        QEvent resize(QEvent::Resize);
        QVERIFY(!m_updater->event(&resize));
        QEvent stranger(static_cast<QEvent::Type>(QEvent::registerEventType()));
        m_updater->event(&stranger);
        QCOMPARE(checks(), 0);
        QVERIFY(!anyPrompt());
    }

private:
    static QByteArray feedOfVersion(const QByteArray& version)
    {
        return "<rss xmlns:s=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><item><enclosure s:version=\"" +
               version + "\"/></item></rss>";
    }
};

QTEST_MAIN(UpdaterTest)
#include "updater_test.moc"
