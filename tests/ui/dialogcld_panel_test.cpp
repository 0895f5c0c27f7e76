#include "syncfolder/syncfolder.h"
#include "tests/ui/windowtest.h"

#include <QCheckBox>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

/// What the panel's widgets show in each state, and how they stand.
class DialogCldPanelTest final : public WindowTest
{
    Q_OBJECT

    /// Every widget under its name, in the order in which they are added.
    QVector<QPair<QString, QWidget*>> widgets() const
    {
        const SettingsPanel& panel = m_dialog->panel();
        return {
            {QStringLiteral("heading"), panel.heading},
            {QStringLiteral("username caption"), panel.usernameCaption},
            {QStringLiteral("username"), panel.username},
            {QStringLiteral("password caption"), panel.passwordCaption},
            {QStringLiteral("password"), panel.password},
            {QStringLiteral("startup"), panel.startup},
            {QStringLiteral("folder"), panel.folderPath},
            {QStringLiteral("pick folder"), panel.pickFolder},
            {QStringLiteral("folder caption"), panel.folderCaption},
            {QStringLiteral("automatic updates"), panel.autoUpdate},
            {QStringLiteral("first separator"), panel.firstSeparator},
            {QStringLiteral("second separator"), panel.secondSeparator},
            {QStringLiteral("status"), panel.status},
            {QStringLiteral("login"), panel.login},
        };
    }

    QStringList hidden() const
    {
        QStringList names;
        for (const auto& entry : widgets()) {
            if (!entry.second->isVisible())
                names << entry.first;
        }
        return names;
    }

    QStringList disabled() const
    {
        QStringList names;
        for (const auto& entry : widgets()) {
            if (!entry.second->isEnabled())
                names << entry.first;
        }
        return names;
    }

private slots:
    void widgetsAreAddedInTheirOrder()
    {
        create();
        QVector<QWidget*> expected;
        for (const auto& entry : widgets())
            expected << entry.second;
        QVector<QWidget*> added;
        for (QObject* child : m_dialog->children()) {
            auto* widget = qobject_cast<QWidget*>(child);
            if (widget != nullptr && expected.contains(widget))
                added << widget;
        }
        QCOMPARE(added, expected);
    }

    void separatorsAreHorizontalLines()
    {
        create();
        QCOMPARE(m_dialog->panel().firstSeparator->frameShape(), QFrame::HLine);
        QCOMPARE(m_dialog->panel().secondSeparator->frameShape(), QFrame::HLine);
    }

    void everyStateHasItsWidgets_data()
    {
        const QStringList credentials{QStringLiteral("username caption"), QStringLiteral("username"),
                                      QStringLiteral("password caption"), QStringLiteral("password")};
        const QStringList edits{QStringLiteral("username"), QStringLiteral("password")};
        const QStringList folder{QStringLiteral("folder"), QStringLiteral("pick folder"),
                                 QStringLiteral("folder caption")};
        const QStringList updates{QStringLiteral("automatic updates"), QStringLiteral("first separator")};
        const QStringList second{QStringLiteral("second separator")};
        const QStringList pick{QStringLiteral("pick folder")};
        const QStringList login{QStringLiteral("login")};
        const QStringList signedOutKnown = folder + updates + second;

        QTest::addColumn<bool>("accountKnown");
        QTest::addColumn<QStringList>("states"); // one after the other
        QTest::addColumn<QStringList>("hiddenWidgets");
        QTest::addColumn<QStringList>("disabledWidgets");
        const auto row = [](bool known, const char* states, const QStringList& hiddenWidgets,
                            const QStringList& disabledWidgets) {
            QTest::addRow("%s account: %s", known ? "known" : "no", states)
                << known << QString::fromLatin1(states).split(QLatin1Char(' '), Qt::SkipEmptyParts) << hiddenWidgets
                << disabledWidgets;
        };
        for (const bool known : {false, true}) {
            row(known, "", updates, {});
            row(known, "transferring", updates, {});
            row(known, "ok", credentials, edits);
            row(known, "logout ok", credentials, edits);
            row(known, "offline ok", credentials, edits);
            row(known, "ok transferring", credentials, edits);
        }
        for (const char* states : {"logout", "ok logout", "offline logout", "logout transferring"}) {
            row(false, states, updates, {});
            row(true, states, signedOutKnown, {});
        }
        for (const char* states : {"offline", "ok offline", "logout offline", "offline transferring"}) {
            row(false, states, pick + updates, edits + login);
            row(true, states, signedOutKnown, edits + login);
        }
    }
    void everyStateHasItsWidgets()
    {
        QFETCH(bool, accountKnown);
        QFETCH(QStringList, states);
        QFETCH(QStringList, hiddenWidgets);
        QFETCH(QStringList, disabledWidgets);
        const quint64 uid = accountKnown ? 7 : 0;
        if (accountKnown)
            preset("lastuid", 7);
        create().show();
        for (const QString& state : states)
            sayState(state.toLatin1(), uid);
        QCOMPARE(hidden(), hiddenWidgets);
        QCOMPARE(disabled(), disabledWidgets);
    }

    void offlineWithoutAnAccountLeavesTheFolderAsItIs()
    {
        preset("lastuid", 7);
        create().show();
        sayState("logout", 7);
        QVERIFY(hidden().contains(QStringLiteral("folder")));
        sayState("offline", 0); // of the account that is still known then
        sayState("offline", 0);
        QCOMPARE(m_dialog->syncFolder().uid(), 0ULL);
        for (const char* name : {"folder", "pick folder", "folder caption", "second separator"})
            QVERIFY(hidden().contains(QLatin1String(name)));
        sayState("logout", 0);
        QVERIFY(!hidden().contains(QStringLiteral("folder")));
    }

    void panelHearsOfAStateBeforeTheRegistryHearsOfItsAccount()
    {
        create().show();
        for (int registry = 0; registry < 2; ++registry) {
            clearLog();
            sayState("logout", 7);
            const int panel = log().indexOf(QStringLiteral("maindlg: network state  logout"));
            QVERIFY(panel >= 0);
            QVERIFY(panel <
                    log().indexOf(QRegularExpression(QStringLiteral("syncfolder: Sync folder uid changed .*"))));
            QVERIFY(!hidden().contains(QStringLiteral("folder"))); // it knew of no account yet
            sayState("logout", 0);
            QVERIFY(hidden().contains(QStringLiteral("folder"))); // and of this one still
            sayState("logout", 0);
            QVERIFY(!hidden().contains(QStringLiteral("folder")));

            clientSettings().remove(QStringLiteral("lastuid"));
            clientSettings().sync();
            const int starts = m_engine->starts().size();
            m_engine->crash(); // the next one's registry is a new one
            EVENTUALLY_EQUAL(m_engine->starts().size(), starts + 1);
        }
    }

    void statusIsThatOfItsState()
    {
        create().show();
        const SettingsPanel& panel = m_dialog->panel();
        QCOMPARE(panel.status->text(), QStringLiteral("Disconnected from the cloud."));
        sayState("ok", 0);
        QCOMPARE(panel.status->text(), QString());
        sayState("offline", 0);
        QCOMPARE(panel.status->text(), QStringLiteral("Disconnected from the cloud."));
        sayState("logout", 0);
        QCOMPARE(panel.status->text(), QString());
    }

    void headingIsThatOfItsState()
    {
        create().show();
        const SettingsPanel& panel = m_dialog->panel();
        for (const char* state : {"offline", "logout"}) {
            sayState("ok", 0);
            QCOMPARE(panel.heading->text(), QStringLiteral("<b>Settings</b>"));
            QCOMPARE(panel.login->text(), QStringLiteral("Confirm"));
            sayState(state, 0);
            QCOMPARE(panel.heading->text(), QStringLiteral("<b>Orvel Storage account</b>"));
            QCOMPARE(panel.login->text(), QStringLiteral("Login"));
        }
    }
};

QTEST_MAIN(DialogCldPanelTest)
#include "dialogcld_panel_test.moc"
