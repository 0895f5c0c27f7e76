#include "ui/account.h"

#include "engine/servercomm.h"
#include "tests/support/fakeengine.h"
#include "tests/support/metamethods.h"
#include "tests/support/test.h"

#include <QDir>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>

#include <memory>

class AccountTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<FakeEngine> m_engine;
    std::unique_ptr<ServerComm> m_server;
    std::unique_ptr<Account> m_account;

protected:
    void setUp() override
    {
        QCoreApplication::setOrganizationName(QStringLiteral("Velmora d.d."));
        QCoreApplication::setApplicationName(QStringLiteral("Orvel Storage"));
        m_engine = std::make_unique<FakeEngine>();
        QDir::setCurrent(m_engine->installDir());
        m_server = std::make_unique<ServerComm>(QStringLiteral("Orvel Storage"), QStringLiteral("V"), true);
        QSettings().setValue(QStringLiteral("username"), QStringLiteral("ana@orvel.example"));
        m_account = std::make_unique<Account>(m_server.get(), nullptr);
        m_account->show();
        EVENTUALLY(m_engine->input().endsWith("}\n"));
    }
    void tearDown() override
    {
        m_account.reset();
        m_server.reset();
        m_engine.reset();
        QSettings().clear();
    }

private:
    QLineEdit* edit(int position) const
    {
        return m_account->findChildren<QLineEdit*>().value(position);
    }
    QPushButton* button() const
    {
        return m_account->findChild<QPushButton*>();
    }
    QString status() const
    {
        return m_account->findChildren<QLabel*>().last()->text();
    }
    void sayState(const QByteArray& state)
    {
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"" + state + "\"}");
        EVENTUALLY(log().contains(QStringLiteral("network state  ") + QString::fromLatin1(state)));
        clearLog(); // it may come again
    }
    bool engineReads(const QByteArray& bytes)
    {
        return QTest::qWaitFor([&] { return m_engine->input().contains(bytes); }, deadline());
    }

private slots:
    void slotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(slotsOf(Account::staticMetaObject),
                 (QStringList{QStringLiteral("doLogin()"), QStringLiteral("srvStateChange()")}));
    }

    void startsWithTheLastAddress()
    {
        QCOMPARE(edit(0)->text(), QStringLiteral("ana@orvel.example"));
        QCOMPARE(edit(1)->echoMode(), QLineEdit::Password);
        QCOMPARE(button()->text(), QStringLiteral("Login"));
        QCOMPARE(status(), QString());
        auto* grid = qobject_cast<QGridLayout*>(m_account->layout());
        QCOMPARE(qobject_cast<QLabel*>(grid->itemAtPosition(0, 0)->widget())->text(), QStringLiteral("Email"));
        QCOMPARE(qobject_cast<QLabel*>(grid->itemAtPosition(1, 0)->widget())->text(), QStringLiteral("Password"));
        QCOMPARE(grid->itemAtPosition(2, 1)->widget(), static_cast<QWidget*>(button()));
    }

    void statusStandsBelowAcrossFiveRowsAndBothColumns()
    {
        auto* grid = qobject_cast<QGridLayout*>(m_account->layout());
        int row = -1;
        int column = -1;
        int rowSpan = -1;
        int columnSpan = -1;
        grid->getItemPosition(grid->indexOf(m_account->findChildren<QLabel*>().last()), &row, &column, &rowSpan,
                              &columnSpan);
        QCOMPARE((QVector<int>{row, column, rowSpan, columnSpan}), (QVector<int>{3, 0, 5, 2}));
        QCOMPARE(grid->itemAtPosition(0, 1)->widget(), static_cast<QWidget*>(edit(0)));
        QCOMPARE(grid->itemAtPosition(1, 1)->widget(), static_cast<QWidget*>(edit(1)));
    }

    void buttonActsWhenItIsPressedAndNotAgainWhenItIsReleased()
    {
        sayState("logout");
        m_engine->forgetInput();
        edit(0)->setText(QStringLiteral("bo@orvel.example"));
        QTest::mousePress(button(), Qt::LeftButton);
        QVERIFY(engineReads("\"cmd\" : \"login\""));
        QTest::mouseRelease(button(), Qt::LeftButton);
        m_server->pathQuery(QStringLiteral("/last"), QStringLiteral("revs"));
        QVERIFY(engineReads("/last"));
        QCOMPARE(m_engine->input().count("\"cmd\" : \"log"), 1);
    }

    void nothingIsSentBeforeTheFirstStateOrWhileTransferring_data()
    {
        QTest::addColumn<QByteArray>("state");
        QTest::newRow("none yet") << QByteArray();
        QTest::newRow("transferring") << QByteArray("transferring");
    }
    void nothingIsSentBeforeTheFirstStateOrWhileTransferring()
    {
        QFETCH(QByteArray, state);
        if (!state.isEmpty())
            sayState(state);
        edit(0)->setText(QStringLiteral("bo@orvel.example"));
        m_engine->forgetInput();
        clearLog();
        QTest::mouseClick(button(), Qt::LeftButton);
        QCOMPARE(log(), QStringList{QString::fromLatin1(state)}); // what the press itself logs
        m_server->pathQuery(QStringLiteral("/last"), QStringLiteral("revs"));
        QVERIFY(engineReads("/last"));
        QVERIFY(!m_engine->input().contains("\"cmd\" : \"log"));
        QCOMPARE(QSettings().value(QStringLiteral("username")).toString(), QStringLiteral("ana@orvel.example"));
    }

    void returningStatesTakeTheirTextsBack()
    {
        sayState("offline");
        sayState("logout");
        QVERIFY(edit(0)->isEnabled() && edit(1)->isEnabled() && button()->isEnabled());
        QCOMPARE(status(), QString());
        sayState("ok");
        sayState("offline");
        QCOMPARE(button()->text(), QStringLiteral("Login"));
        sayState("ok");
        QCOMPARE(status(), QString());
        QVERIFY(button()->isEnabled());
    }

    void signedInOffersToLogOut()
    {
        sayState("ok");
        QVERIFY(!edit(0)->isEnabled() && !edit(1)->isEnabled() && button()->isEnabled());
        QCOMPARE(button()->text(), QStringLiteral("Logout"));
        QTest::mouseClick(button(), Qt::LeftButton);
        QVERIFY(engineReads("{ \"cmd\" : \"logout\" }"));
    }

    void signedOutTakesAddressAndPassword()
    {
        sayState("logout");
        QVERIFY(edit(0)->isEnabled() && edit(1)->isEnabled() && button()->isEnabled());
        edit(0)->setText(QStringLiteral("bo@orvel.example"));
        edit(1)->setText(QStringLiteral("word"));
        QTest::mouseClick(button(), Qt::LeftButton);
        QVERIFY(engineReads("\"password\" : \"word\", \"username\" : \"bo@orvel.example\""));
        QCOMPARE(QSettings().value(QStringLiteral("username")).toString(), QStringLiteral("bo@orvel.example"));
    }

    void offlineTakesNothing()
    {
        sayState("offline");
        QVERIFY(!edit(0)->isEnabled() && !edit(1)->isEnabled() && !button()->isEnabled());
        QCOMPARE(status(), QStringLiteral("Disconnected from server."));
    }

    void otherStatesChangeNothing()
    {
        sayState("offline");
        sayState("transferring");
        QCOMPARE(status(), QStringLiteral("Disconnected from server."));
    }
};

QTEST_MAIN(AccountTest)
#include "account_test.moc"
