#include "syncfolder/syncfolder.h"
#include "tests/ui/oneword.h"
#include "tests/ui/windowtest.h"
#include "ui/pickracun.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>

/// Signing in, and what the button for it does in the states that know nothing of that.
class DialogCldLoginTest final : public WindowTest
{
    Q_OBJECT

    /// The one visible picker; null when there is none.
    static PickRacun* picker()
    {
        PickRacun* found = nullptr;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* candidate = qobject_cast<PickRacun*>(widget);
            if (candidate != nullptr && candidate->isVisible()) {
                if (found != nullptr)
                    qFatal("two account pickers at once");
                found = candidate;
            }
        }
        return found;
    }

    /// Without the lines of the watcher, which come when they will.
    static QStringList logOfWindow()
    {
        static const QRegularExpression ours(QStringLiteral("^(maindlg|servercomm|syncfolder):"));
        return log().filter(ours);
    }

    void pressLogin()
    {
        QTest::mouseClick(m_dialog->panel().login, Qt::LeftButton);
    }

    void typeAndPressLogin()
    {
        m_dialog->panel().username->setText(QStringLiteral("ana@orvel.example"));
        m_dialog->panel().password->setText(QStringLiteral("word"));
        pressLogin();
    }

    /// Whether the engine has got no word of signing in or out up to now.
    bool engineWasLeftAlone()
    {
        m_dialog->shellCommand(QStringLiteral("revs"), QStringLiteral("/last"));
        return engineReads("/last") && !m_engine->input().contains("\"cmd\" : \"log");
    }

private slots:
    void loginSendsWhatWasTypedAndRemembersTheName()
    {
        create().show();
        sayState("logout", 0);
        QTest::keyClicks(m_dialog->panel().username, QStringLiteral("ana@orvel.example"));
        QTest::keyClicks(m_dialog->panel().password, QStringLiteral("word"));
        QTest::mouseClick(m_dialog->panel().login, Qt::LeftButton);
        QVERIFY(engineReads("{ \"cid\" : \"\", \"cmd\" : \"login\", \"password\" : \"word\", "
                            "\"username\" : \"ana@orvel.example\" }"));
        QCOMPARE(clientSettings().value(QStringLiteral("username")).toString(), QStringLiteral("ana@orvel.example"));
        QVERIFY(log().contains(QStringLiteral("maindlg: dologin  logout ana@orvel.example")));
        sayState("logout", 0);
        QCOMPARE(m_dialog->panel().status->text(), QStringLiteral("Login unsuccessful."));
    }

    void cursorIsInThePasswordAfterARefusalAndTheTextIsSelected()
    {
        create().show();
        sayState("logout", 0);
        typeAndPressLogin();
        sayState("logout", 0);
        QCOMPARE(m_dialog->focusWidget(), m_dialog->panel().password);
        QCOMPARE(m_dialog->panel().password->selectedText().size(), 4);
    }

    void refusalThatComesAfterALostConnectionPutsTheCursorIntoThePasswordToo()
    {
        create().show();
        sayState("logout", 0);
        typeAndPressLogin();
        sayState("offline", 0);
        sayState("logout", 0);
        QCOMPARE(m_dialog->focusWidget(), m_dialog->panel().password);
        QCOMPARE(m_dialog->panel().password->selectedText().size(), 4);
    }

    void cursorStaysWhereItIsWhenTheEngineRepeatsThatNobodyIsSignedIn_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("before any attempt") << QByteArray();
        QTest::newRow("after a refusal") << QByteArray("{\"what\":\"networkstate\",\"state\":\"logout\"}");
        QTest::newRow("after a sign-in") << QByteArray("{\"what\":\"networkstate\",\"state\":\"ok\"}");
        QTest::newRow("after a choice of accounts") << QByteArray(R"({"what":"loginids","ids":["1","2"]})");
    }
    void cursorStaysWhereItIsWhenTheEngineRepeatsThatNobodyIsSignedIn()
    {
        QFETCH(QByteArray, answer);
        create().show();
        sayState("logout", 0);
        if (!answer.isEmpty()) {
            typeAndPressLogin();
            clearLog();
            say(answer);
            EVENTUALLY(!log().filter(QStringLiteral("servercomm: Received from erlang")).isEmpty());
        }
        m_dialog->panel().username->setFocus();
        m_dialog->panel().username->setText(QStringLiteral("ana"));
        sayState("logout", 0);
        QCOMPARE(m_dialog->focusWidget(), m_dialog->panel().username);
        QCOMPARE(m_dialog->panel().username->selectedText(), QString());
    }

    void chosenAccountThatIsRefusedAsksForThePasswordAgain()
    {
        create().show();
        sayState("logout", 0);
        typeAndPressLogin();
        say(R"({"what":"loginids","ids":["1","2"]})");
        EVENTUALLY(picker() != nullptr);
        picker()->findChildren<QRadioButton*>().value(1)->setChecked(true);
        QTest::mouseClick(picker()->findChild<QPushButton*>(), Qt::LeftButton);
        m_dialog->panel().username->setFocus();
        sayState("logout", 0);
        QCOMPARE(m_dialog->focusWidget(), m_dialog->panel().password);
    }

    void passwordIsInNoLineAndInNoTitle()
    {
        writeFile(m_engine->installDir() + QStringLiteral("/config.json"), "{\"password\": \"s3cr3t\"}");
        create().show();
        sayState("logout", 0);
        QTest::keyClicks(m_dialog->panel().username, QStringLiteral("ana@orvel.example"));
        QTest::keyClicks(m_dialog->panel().password, QStringLiteral("w0rdw0rd"));
        QTest::mouseClick(m_dialog->panel().login, Qt::LeftButton);
        QVERIFY(engineReads("w0rdw0rd"));
        QVERIFY(engineReads("s3cr3t"));
        m_engine->crash();
        EVENTUALLY_EQUAL(m_engine->starts().size(), 2);
        sayState("ok", 5);
        QStringList seen = log();
        const auto widgets = QApplication::allWidgets();
        for (const QWidget* widget : widgets)
            seen << widget->windowTitle() << widget->toolTip() << widget->accessibleName();
        QCOMPARE(seen.filter(QStringLiteral("s3cr3t")), QStringList());
        QCOMPARE(seen.filter(QStringLiteral("w0rdw0rd")), QStringList());
    }

    void confirmOnlyHidesTheWindow()
    {
        create().show();
        sayState("ok", 1);
        QTest::mouseClick(m_dialog->panel().login, Qt::LeftButton);
        QVERIFY(!m_dialog->isVisible());
        say("{\"what\":\"rootschanged\"}");
        EVENTUALLY(log().contains(QStringLiteral("servercomm: Received from erlang  rootschanged")));
        QVERIFY(!m_engine->input().contains("logout"));
    }

    void severalAccountsAreOfferedAndTheChosenOneIsSent()
    {
        create();
        m_dialog->panel().username->setText(QStringLiteral("team@orvel.example"));
        m_dialog->panel().password->setText(QStringLiteral("team"));
        say("{\"what\":\"loginids\",\"ids\":[\"2001\",\"2002\"]}");
        EVENTUALLY(picker() != nullptr);
        auto* login = picker()->findChild<QPushButton*>();
        QTest::mouseClick(login, Qt::LeftButton); // nothing is chosen yet
        QVERIFY(picker()->isVisible());
        QVERIFY(log().filter(QStringLiteral("Picked racun")).isEmpty());

        picker()->findChildren<QRadioButton*>().value(1)->setChecked(true);
        QTest::mouseClick(login, Qt::LeftButton);
        QVERIFY(engineReads("\"cid\" : \"2002\""));
        QVERIFY(log().contains(QStringLiteral("maindlg: Picked racun 2002")));
        EVENTUALLY(picker() == nullptr);
    }

    void secondListOfAccountsReplacesThePicker()
    {
        create();
        m_dialog->pickRacun({QStringLiteral("1")});
        m_dialog->pickRacun({QStringLiteral("2"), QStringLiteral("3")});
        EVENTUALLY(picker() != nullptr);
        QCOMPARE(picker()->findChildren<QRadioButton*>().size(), 2);
    }

    void everyAttemptCountsAsTurningToTheApplicationFirst()
    {
        create().show();
        sayState("logout", 0);
        m_dialog->panel().username->setText(QStringLiteral("ana"));
        for (int attempt = 0; attempt < 2; ++attempt) {
            clearLog();
            pressLogin();
            QCOMPARE(logOfWindow(), (QStringList{QStringLiteral("maindlg: dologin  logout ana"),
                                                 QStringLiteral("syncfolder: AppActivated 0x0"),
                                                 QStringLiteral("servercomm: login with username  ana")}));
        }
    }

    void nothingIsSentBeforeTheFirstStateOrWhileTransferring_data()
    {
        QTest::addColumn<QByteArray>("state");
        QTest::newRow("none yet") << QByteArray();
        QTest::newRow("transferring") << QByteArray("transferring");
        QTest::newRow("one that is not known") << QByteArray("updating");
    }
    void nothingIsSentBeforeTheFirstStateOrWhileTransferring()
    {
        QFETCH(QByteArray, state);
        create().show();
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        if (!state.isEmpty())
            sayState(state, 0);
        m_dialog->panel().username->setText(QStringLiteral("ana"));
        clearLog();
        pressLogin();
        QCOMPARE(logOfWindow(), (QStringList{QStringLiteral("maindlg: dologin  %1 ana").arg(QString::fromLatin1(state)),
                                             QStringLiteral("syncfolder: AppActivated 0x0")}));
        QVERIFY(engineWasLeftAlone());
        QVERIFY(m_dialog->isVisible());
        clientSettings().sync();
        QVERIFY(!clientSettings().contains(QStringLiteral("username")));
    }

    void confirmWhileTransferringOnlyHidesTheWindow()
    {
        create().show();
        sayState("ok", 1);
        sayState("transferring", 1); // leaves the settings as they are
        QCOMPARE(m_dialog->panel().login->text(), QStringLiteral("Confirm"));
        pressLogin();
        QVERIFY(!m_dialog->isVisible());
        QVERIFY(engineWasLeftAlone());
    }

    void confirmCountsAsAnAttempt()
    {
        create().show();
        sayState("ok", 1);
        pressLogin();
        sayState("logout", 0); // the account is still known when the panel hears of it
        sayState("logout", 0);
        QCOMPARE(m_dialog->panel().status->text(), QStringLiteral("Login unsuccessful."));
    }

    void signedOutWithoutAnAttemptSaysNothingOfOne()
    {
        create().show();
        sayState("ok", 1);
        sayState("logout", 0);
        sayState("logout", 0);
        QCOMPARE(m_dialog->panel().status->text(), QString());
    }

    void buttonDoesWhatItIsThereForWhateverItIsCalled()
    {
        const OneWord language({QStringLiteral("Login"), QStringLiteral("Confirm")});
        create().show();
        sayState("logout", 0);
        QCOMPARE(m_dialog->panel().login->text(), OneWord::word());
        m_dialog->panel().username->setText(QStringLiteral("ana"));
        pressLogin();
        QVERIFY(m_dialog->isVisible());
        QVERIFY(engineReads("\"username\" : \"ana\""));
        sayState("ok", 1);
        QCOMPARE(m_dialog->panel().login->text(), OneWord::word());
        pressLogin();
        QVERIFY(!m_dialog->isVisible());
        sayState("logout", 1);
        m_dialog->menuShow();
        m_engine->forgetInput();
        pressLogin();
        QVERIFY(m_dialog->isVisible());
        QVERIFY(engineReads("\"username\" : \"ana\""));
    }

    void buttonActsWhenItIsClickedAndNotWhenItIsPressed()
    {
        create().show();
        sayState("ok", 1);
        QTest::mousePress(m_dialog->panel().login, Qt::LeftButton);
        QVERIFY(m_dialog->isVisible());
        QTest::mouseRelease(m_dialog->panel().login, Qt::LeftButton);
        QVERIFY(!m_dialog->isVisible());
    }

    void pickerIsAToolThatStaysOnTop()
    {
        create();
        m_dialog->pickRacun({QStringLiteral("1")});
        QVERIFY(picker() != nullptr);
        QCOMPARE(picker()->windowType(), Qt::Tool);
        QVERIFY(picker()->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        QVERIFY(picker()->parent() == nullptr);
    }

    void pickerGoesWithTheWindow()
    {
        create();
        m_dialog->pickRacun({QStringLiteral("1")});
        QVERIFY(picker() != nullptr);
        m_dialog.reset();
        QVERIFY(picker() == nullptr);
    }
};

QTEST_MAIN(DialogCldLoginTest)
#include "dialogcld_login_test.moc"
