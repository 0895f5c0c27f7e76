#include "ui/panelview.h"

#include "tests/support/test.h"

namespace
{

PanelView view(const char* netState, bool accountKnown, int attempts = 0)
{
    const auto shown = panelView(QLatin1String(netState), accountKnown, attempts, QStringLiteral("Orvel Storage"));
    return shown.value_or(PanelView());
}

} // namespace

class PanelViewTest final : public Test
{
    Q_OBJECT

private slots:
    void signedInShowsTheSettings()
    {
        const PanelView shown = view("ok", true);
        QCOMPARE(shown.heading, QStringLiteral("<b>Settings</b>"));
        QVERIFY(!shown.credentialsVisible);
        QVERIFY(!shown.credentialsEnabled);
        QCOMPARE(shown.folderVisible, std::optional<bool>(true));
        QCOMPARE(shown.pickFolderVisible, std::optional<bool>(true));
        QVERIFY(shown.updateVisible);
        QVERIFY(shown.loginEnabled);
        QCOMPARE(shown.loginText, QStringLiteral("Confirm"));
        QVERIFY(shown.loginConfirms);
        QCOMPARE(shown.status, std::optional<QString>(QString()));
    }

    void signedOutWithoutAnAccountAsksForItAndTheFolder()
    {
        const PanelView shown = view("logout", false);
        QCOMPARE(shown.heading, QStringLiteral("<b>Orvel Storage account</b>"));
        QVERIFY(shown.credentialsVisible && shown.credentialsEnabled);
        QCOMPARE(shown.folderVisible, std::optional<bool>(true));
        QCOMPARE(shown.pickFolderVisible, std::optional<bool>(true));
        QVERIFY(!shown.updateVisible);
        QVERIFY(shown.loginEnabled);
        QCOMPARE(shown.loginText, QStringLiteral("Login"));
        QVERIFY(!shown.loginConfirms);
        QCOMPARE(shown.status, std::optional<QString>(QString()));
    }

    void signedOutAfterAnAttemptSaysThatItFailed()
    {
        QCOMPARE(view("logout", false, 1).status, std::optional<QString>(QStringLiteral("Login unsuccessful.")));
    }

    void signedOutWithAKnownAccountHidesTheFolderAndLeavesTheStatus()
    {
        const PanelView shown = view("logout", true, 1);
        QCOMPARE(shown.folderVisible, std::optional<bool>(false));
        QCOMPARE(shown.pickFolderVisible, std::optional<bool>(false));
        QVERIFY(!shown.status);
    }

    void offlineShowsTheFormButTakesNothing()
    {
        const PanelView shown = view("offline", false);
        QCOMPARE(shown.heading, QStringLiteral("<b>Orvel Storage account</b>"));
        QVERIFY(shown.credentialsVisible);
        QVERIFY(!shown.credentialsEnabled);
        QVERIFY(!shown.loginEnabled);
        QCOMPARE(shown.loginText, QStringLiteral("Login"));
        QVERIFY(!shown.loginConfirms);
        QCOMPARE(shown.status, std::optional<QString>(QStringLiteral("Disconnected from the cloud.")));
        QVERIFY(!shown.updateVisible);
    }

    void offlineHidesTheFolderOnlyOfAKnownAccount()
    {
        QVERIFY(!view("offline", false).folderVisible);
        QCOMPARE(view("offline", false).pickFolderVisible, std::optional<bool>(false));
        QCOMPARE(view("offline", true).folderVisible, std::optional<bool>(false));
        QCOMPARE(view("offline", true).pickFolderVisible, std::optional<bool>(false));
    }

    void otherStatesLeaveThePanelAsItIs()
    {
        for (const char* state : {"", "transferring", "OK"})
            QVERIFY(!panelView(QLatin1String(state), true, 0, QString()));
    }
};

QTEST_GUILESS_MAIN(PanelViewTest)
#include "panelview_test.moc"
