#include "ui/traystatus.h"

#include "tests/support/test.h"

namespace
{

const QString title = QStringLiteral("Orvel Storage 0.9.3");

EngineState transferring(int uploads, int downloads, int bps, int timeRemaining)
{
    EngineState state;
    state.netState = QStringLiteral("transferring");
    state.uploads = uploads;
    state.downloads = downloads;
    state.bps = bps;
    state.timeRemaining = timeRemaining;
    return state;
}

EngineState named(const char* netState)
{
    EngineState state;
    state.netState = QLatin1String(netState);
    return state;
}

} // namespace

class TrayStatusTest final : public Test
{
    Q_OBJECT

private slots:
    void iconFollowsTheState_data()
    {
        QTest::addColumn<QString>("netState");
        QTest::addColumn<QString>("icon");
        QTest::addColumn<QString>("line");
        QTest::newRow("ok") << "ok"
                            << ":/online36.png"
                            << "Sync done";
        QTest::newRow("offline") << "offline"
                                 << ":/offline36.png"
                                 << "Internetna povezava je prekinjena";
        QTest::newRow("logout") << "logout"
                                << ":/offline36.png"
                                << "Internetna povezava je prekinjena";
        QTest::newRow("transferring") << "transferring"
                                      << ":/sync36.png"
                                      << "";
    }
    void iconFollowsTheState()
    {
        QFETCH(QString, netState);
        QFETCH(QString, icon);
        QFETCH(QString, line);
        const auto status = trayStatus(named(netState.toLatin1().constData()), title);
        QVERIFY(status);
        QCOMPARE(status->icon, icon);
        QCOMPARE(status->toolTip, title + u'\n' + line);
    }

    void otherStatesLeaveTheTrayAlone()
    {
        QVERIFY(!trayStatus(named(""), title));
        QVERIFY(!trayStatus(named("OK"), title));
        QVERIFY(!trayStatus(named("updating"), title));
    }

    void transferNamesEveryFigure()
    {
        QCOMPARE(trayStatus(transferring(3, 2, 4096, 150), title)->toolTip,
                 title + QStringLiteral("\n3 files are uploading to the cloud\n2 files are downloading from the cloud\n"
                                        "4 kB/sec, time remaining 2 min"));
    }

    void transferWithZeroSpeedShowsOnlyTheCountLines()
    {
        QCOMPARE(trayStatus(transferring(1, 0, 0, 150), title)->toolTip,
                 title + QStringLiteral("\n1 files are uploading to the cloud\n"));
        QCOMPARE(trayStatus(transferring(0, 1, 0, 0), title)->toolTip,
                 title + QStringLiteral("\n1 files are downloading from the cloud\n"));
    }

    void speedBelowAKilobyteShowsZero()
    {
        QVERIFY(trayStatus(transferring(0, 0, 1023, 59), title)
                    ->toolTip.endsWith(QStringLiteral("\n0 kB/sec, time remaining 0 min")));
    }

    void negativeFiguresAreNotShown()
    {
        QCOMPARE(trayStatus(transferring(-1, -1, -5, -60), title)->toolTip, title + u'\n');
    }
};

QTEST_GUILESS_MAIN(TrayStatusTest)
#include "traystatus_test.moc"
