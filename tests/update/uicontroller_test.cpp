#include "update/uicontroller.h"

#include "tests/support/metamethods.h"
#include "tests/update/prompttest.h"

#include <QAbstractButton>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QPushButton>
#include <QSignalSpy>
#include <QTimer>

using qtsparkle::AppCast;
using qtsparkle::UiController;
using qtsparkle::UpdateDialog;

class UiControllerTest final : public PromptTest
{
    Q_OBJECT

    QPointer<UiController> m_controller;

protected:
    void tearDown() override
    {
        delete m_controller;
        PromptTest::tearDown();
    }

private:
    enum Kind
    {
        Manual,
        Quiet
    };

    UiController& create(Kind kind)
    {
        delete m_controller;
        m_controller = new UiController(kind == Quiet, this, m_parent.get());
        m_controller->SetVersion(QStringLiteral("1.9"));
        return *m_controller;
    }

    static AppCastPtr appcast()
    {
        AppCastPtr made(new AppCast);
        made->version = QStringLiteral("2.0");
        made->download_url = QStringLiteral("http://updates.example/orvel.exe");
        return made;
    }

    static QString onlyButton(const QMessageBox& box)
    {
        return box.buttons().size() == 1 ? box.buttons().first()->text() : QStringLiteral("several");
    }

private slots:
    void slotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(slotsOf(UiController::staticMetaObject),
                 (QStringList{QStringLiteral("CheckStarted()"), QStringLiteral("UpdateAvailable(AppCastPtr)"),
                              QStringLiteral("UpToDate()"), QStringLiteral("CheckFailed(QString)")}));
        QCOMPARE(signalsOf(UiController::staticMetaObject), QStringList());
    }

    void manualCheckShowsABusyIndicatorThatCannotBeCancelled()
    {
        create(Manual).CheckStarted();
        auto* progress = window<QProgressDialog>();
        QVERIFY(progress);
        QVERIFY(progress->isVisible());
        QVERIFY(!progress->isModal());
        QVERIFY(progress->parentWidget() == m_parent.get());
        QCOMPARE(progress->windowTitle(), QStringLiteral("Preverjam za posodobitve"));
        QCOMPARE(progress->labelText(), QStringLiteral("Preverjam za posodobitve Orvel..."));
        QCOMPARE(progress->minimum(), 0);
        QCOMPARE(progress->maximum(), 0);
        QVERIFY(!progress->autoClose());
        QVERIFY(!progress->autoReset());
        QVERIFY(progress->findChildren<QAbstractButton*>().isEmpty());
    }

    void quietCheckShowsNothingAtItsStart()
    {
        create(Quiet).CheckStarted();
        QVERIFY(!anyPrompt());
    }

    void upToDateShowsTheInformationBoxAndEndsTheController()
    {
        create(Manual).CheckStarted();
        QPointer<QProgressDialog> progress = window<QProgressDialog>();
        m_controller->UpToDate();
        QVERIFY(progress->isHidden());
        QVERIFY(m_controller);
        QPointer<QMessageBox> box = window<QMessageBox>();
        QVERIFY(box);
        QVERIFY(box->isVisible());
        QVERIFY(box->parentWidget() == m_parent.get());
        QCOMPARE(box->icon(), QMessageBox::Information);
        QCOMPARE(box->windowTitle(), QString::fromUtf8("Novih razli\xc4\x8dic ni na voljo"));
        QCOMPARE(box->text(), QString::fromUtf8("Name\xc5\xa1\xc4\x8d"
                                                "eno ima\xc5\xa1 najnovej\xc5\xa1o razli\xc4\x8dico Orvela."));
        QCOMPARE(box->standardButtons(), QMessageBox::StandardButtons(QMessageBox::Ok));
        EVENTUALLY(m_controller.isNull());
        EVENTUALLY(progress.isNull());
        QVERIFY(box); // it outlives the controller
        box->button(QMessageBox::Ok)->click();
        EVENTUALLY(box.isNull());
    }

    void failureShowsTheWarningBoxWithTheReasonAndEndsTheController()
    {
        create(Manual).CheckStarted();
        QPointer<QProgressDialog> progress = window<QProgressDialog>();
        expectWarning(QStringLiteral("Update check failed: Start tag expected\\."));
        m_controller->CheckFailed(QStringLiteral("Start tag expected."));
        QVERIFY(progress->isHidden());
        QPointer<QMessageBox> box = window<QMessageBox>();
        QVERIFY(box);
        QVERIFY(box->isVisible());
        QVERIFY(box->parentWidget() == m_parent.get());
        QCOMPARE(box->icon(), QMessageBox::Warning);
        QCOMPARE(box->windowTitle(), QStringLiteral("Preverjanje za posodobitve ni uspelo"));
        QCOMPARE(box->text(), QStringLiteral("Start tag expected."));
        QCOMPARE(box->standardButtons(), QMessageBox::StandardButtons(QMessageBox::Close));
        EVENTUALLY(m_controller.isNull());
        EVENTUALLY(progress.isNull());
        box->close();
        EVENTUALLY(box.isNull());
    }

    void reasonIsShownAsTextNotAsMarkup()
    {
        expectWarning(QStringLiteral(".*"));
        create(Manual).CheckFailed(QStringLiteral("<b>expected</b>"));
        QVERIFY(window<QMessageBox>());
        QCOMPARE(window<QMessageBox>()->textFormat(), Qt::PlainText);
    }

    void quietOutcomesShowNothingButTheLogLine()
    {
        create(Quiet).CheckStarted();
        m_controller->UpToDate();
        QVERIFY(!anyPrompt());
        EVENTUALLY(m_controller.isNull());

        expectWarning(QStringLiteral("Update check failed: Redirect limit reached"));
        create(Quiet).CheckStarted();
        m_controller->CheckFailed(QStringLiteral("Redirect limit reached"));
        QVERIFY(!anyPrompt());
        EVENTUALLY(m_controller.isNull());
    }

    void updateIsShownByQuietAndManualChecksAlike_data()
    {
        QTest::addColumn<bool>("quiet");
        QTest::newRow("quiet") << true;
        QTest::newRow("manual") << false;
    }
    void updateIsShownByQuietAndManualChecksAlike()
    {
        QFETCH(bool, quiet);
        QPixmap picture(64, 64);
        picture.fill(Qt::red);
        create(quiet ? Quiet : Manual).SetIcon(QIcon(picture));
        m_controller->CheckStarted();
        QPointer<QProgressDialog> progress = window<QProgressDialog>();
        QCOMPARE(progress.isNull(), quiet);
        m_controller->UpdateAvailable(appcast());
        QVERIFY(!progress || progress->isHidden());
        auto* dialog = window<UpdateDialog>();
        QVERIFY(dialog);
        QVERIFY(dialog->isVisible());
        QVERIFY(!dialog->isModal());
        QVERIFY(dialog->testAttribute(Qt::WA_DeleteOnClose));
        QVERIFY(dialog->parentWidget() == m_parent.get());
        QCOMPARE(dialog->findChild<QLabel*>(QStringLiteral("summary"))->text(),
                 QString::fromUtf8("Orvel 2.0 je na voljo - ti ima\xc5\xa1 1.9. \xc5\xbd"
                                   "eli\xc5\xa1 prenesti najnovej\xc5\xa1o razli\xc4\x8dico?"));
        QVERIFY(dialog->findChild<QLabel*>(QStringLiteral("icon"))->isVisible());
    }

    void hiddenProgressDoesNotComeBackWhileTheUpdateStands()
    {
        create(Manual).CheckStarted();
        QPointer<QProgressDialog> progress = window<QProgressDialog>();
        m_controller->UpdateAvailable(appcast());
        QVERIFY(progress);
        for (const auto* timer : progress->findChildren<QTimer*>())
            QVERIFY(!timer->isActive());
    }

    void controllerLivesUntilTheUpdateIsClosed_data()
    {
        QTest::addColumn<QString>("button");
        QTest::newRow("frame") << QString();
        QTest::newRow("later") << QStringLiteral("later");
        QTest::newRow("skip") << QStringLiteral("skip");
        QTest::newRow("install") << QStringLiteral("install");
    }
    void controllerLivesUntilTheUpdateIsClosed()
    {
        QFETCH(QString, button);
        create(Manual).CheckStarted();
        QPointer<QProgressDialog> progress = window<QProgressDialog>();
        m_controller->UpdateAvailable(appcast());
        QPointer<UpdateDialog> dialog = window<UpdateDialog>();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(m_controller);
        QVERIFY(progress);
        if (button.isEmpty())
            dialog->close();
        else
            dialog->findChild<QPushButton*>(button)->click();
        EVENTUALLY(dialog.isNull());
        EVENTUALLY(m_controller.isNull());
        EVENTUALLY(progress.isNull());
        QVERIFY(!anyPrompt());
    }

    void destroyedControllerTakesItsProgressWithIt()
    {
        create(Manual).CheckStarted();
        delete m_controller;
        QVERIFY(!anyPrompt());
    }

    void parentMayTakeTheProgressFirst()
    {
        create(Manual).CheckStarted();
        m_parent.reset();
        QVERIFY(!anyPrompt());
        delete m_controller;
        m_parent = std::make_unique<QWidget>();
    }

    void managerIsHandedOnToTheUpdate()
    {
        QNetworkAccessManager manager;
        int finished = 0;
        connect(&manager, &QNetworkAccessManager::finished, this, [&] { ++finished; });
        serveText(QStringLiteral("/notes"), "notes", "text/plain");
        create(Quiet).SetNetworkAccessManager(&manager);
        AppCastPtr offered = appcast();
        offered->release_notes_url = m_server->url(QStringLiteral("/notes")).toString();
        m_controller->UpdateAvailable(offered);
        EVENTUALLY_EQUAL(finished, 1);
        delete window<UpdateDialog>();
    }
};

QTEST_MAIN(UiControllerTest)
#include "uicontroller_test.moc"
