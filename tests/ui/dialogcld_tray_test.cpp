#include "syncfolder/syncfolder.h"
#include "tests/ui/windowtest.h"

#include <QAbstractEventDispatcher>
#include <QCheckBox>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPushButton>
#include <QTimerEvent>

#ifndef Q_OS_WIN

#include <sys/time.h>

#include <ctime>

namespace
{
qint64 clockSetBack = 0; ///< s
}

/// The clock on the wall, in the C library's place, which a user can set.
extern "C" int gettimeofday(timeval* now, void* zone) noexcept
{
    Q_UNUSED(zone)
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    now->tv_sec = time.tv_sec - clockSetBack;
    now->tv_usec = time.tv_nsec / 1000;
    return 0;
}

#endif

/// The window that comes and goes, and the tray in its place.
class DialogCldTrayTest final : public WindowTest
{
    Q_OBJECT

    enum MenuEntry
    {
        Settings = 7
    };

    static constexpr int laterStart = 2; ///< the first number of a start that hides the window

    /// Starts as at log-on: with somebody signed in.
    DialogCld& createSignedIn()
    {
        preset("runnum", laterStart);
        preset("lastuidact", 1001);
        return create();
    }

    QList<QAbstractEventDispatcher::TimerInfo> timersOfWindow() const
    {
        return QAbstractEventDispatcher::instance()->registeredTimers(m_dialog.get());
    }

    bool isShown() const
    {
        return m_dialog->isVisible() && !m_dialog->isMinimized();
    }

    bool isMinimized() const
    {
        return m_dialog->isVisible() && m_dialog->isMinimized();
    }

    void clickTray(QSystemTrayIcon::ActivationReason reason = QSystemTrayIcon::Trigger)
    {
        m_dialog->trayActivated(reason);
    }

    /// What the last click logged: the ms since the click before it that opened the folder.
    static qint64 loggedTime()
    {
        static const QRegularExpression line(QStringLiteral("^maindlg: (-?\\d+)$"));
        const QStringList lines = log().filter(line);
        return lines.isEmpty() ? -1 : line.match(lines.last()).captured(1).toLongLong();
    }

private slots:
    // The start

    void thirdStartWithAnActiveAccountHidesItselfAMillisecondAfterTheEventLoopHasStarted()
    {
        const QVector<int> before = singleShotDelays();
        createSignedIn().show();
        QVERIFY(isShown());
        QVector<int> armed = singleShotDelays();
        for (const int interval : before)
            armed.removeOne(interval);
        QVERIFY2(armed.removeOne(1), "nothing is there to hide the window");
        QCOMPARE(armed.size(), 1); // the engine link's own
        EVENTUALLY(!m_dialog->isVisible());
    }

    void startStaysShownOnTheFirstTwoRunsAndWithoutAnActiveAccount_data()
    {
        QTest::addColumn<int>("runNumber");
        QTest::addColumn<int>("activeAccount");
        QTest::newRow("third, signed out") << 2 << 0;
        QTest::newRow("second, signed in") << 1 << 1001;
    }
    void startStaysShownOnTheFirstTwoRunsAndWithoutAnActiveAccount()
    {
        QFETCH(int, runNumber);
        QFETCH(int, activeAccount);
        preset("runnum", runNumber);
        preset("lastuidact", activeAccount);
        const int armed = armedSingleShots();
        create().show();
        // The engine link's own timer is the only one: none is there to hide the window.
        QCOMPARE(armedSingleShots(), armed + 1);
        QVERIFY(isShown());
    }

    // Putting the window away

    void closingTheWindowOnlyHidesIt()
    {
        create().show();
        QVERIFY(!QApplication::quitOnLastWindowClosed());
        m_dialog->close();
        QVERIFY(!m_dialog->isVisible());
        sayState("ok", 3); // the program lives on
        m_dialog->menuShow();
        QVERIFY(isShown());
    }

    void windowIsMinimisedWhileThereIsNoTrayAndHiddenWhenThereIsOne_data()
    {
        QTest::addColumn<bool>("tray");
        QTest::newRow("tray") << true;
        QTest::newRow("no tray") << false;
    }
    void windowIsMinimisedWhileThereIsNoTrayAndHiddenWhenThereIsOne()
    {
        QFETCH(bool, tray);
        const auto isPutAway = [&] {
            return tray ? !m_dialog->isVisible() : isMinimized();
        };
        desktop::pretendTray(tray);
        create().show();
        sayState("ok", 1);

        QTest::mouseClick(m_dialog->panel().login, Qt::LeftButton); // "Confirm"
        QVERIFY(isPutAway());
        m_dialog->menuShow();
        QVERIFY(isShown());

        QTest::keyClick(m_dialog.get(), Qt::Key_Escape);
        QVERIFY(isPutAway());
        m_dialog->menuShow();
        QVERIFY(isShown());

        m_dialog->close();
        QVERIFY(isPutAway());
    }

    void windowThatIsHiddenStaysHiddenWhenTheTrayGoes()
    {
        create().show();
        m_dialog->hide();
        desktop::pretendTray(false);
        m_dialog->hide();
        QVERIFY(!m_dialog->isVisible());
    }

    void windowCanBeMinimisedByHandOnlyWithoutATray()
    {
        create();
        QVERIFY(!m_dialog->windowFlags().testFlag(Qt::WindowMinimizeButtonHint));
        desktop::pretendTray(false);
        create();
        QVERIFY(m_dialog->windowFlags().testFlag(Qt::WindowMinimizeButtonHint));
        QVERIFY(m_dialog->windowFlags().testFlag(Qt::WindowCloseButtonHint));
    }

    void endOfTheSessionClosesNoWindow()
    {
        create(); // one that stays would count as a veto
        QVERIFY(!QGuiApplication::isFallbackSessionManagementEnabled());
    }

    void startWithoutATrayIsMinimisedAndHiddenWhenTheTrayComesUp()
    {
        desktop::pretendTray(false);
        createSignedIn().show();
        QVERIFY(isShown());
        EVENTUALLY(m_dialog->isMinimized());
        QVERIFY(m_dialog->isVisible());
        desktop::pretendTray(true);
        EVENTUALLY(!m_dialog->isVisible());
        QCOMPARE(timersOfWindow().size(), 0);
        action(Settings)->trigger();
        QVERIFY(isShown());
    }

    void windowThatWouldNotBeMinimisedIsHiddenWhenTheTrayComesUp()
    {
        desktop::pretendTray(false);
        createSignedIn().show();
        EVENTUALLY(m_dialog->isMinimized());
        m_dialog->showNormal(); // by a window manager that starts after the client
        desktop::pretendTray(true);
        EVENTUALLY(!m_dialog->isVisible());
    }

    void windowThatTheUserHasBroughtBackStaysWhenTheTrayComesUp_data()
    {
        QTest::addColumn<QString>("by");
        for (const char* by : {"mouse", "key", "menu"})
            QTest::newRow(by) << by;
    }
    void windowThatTheUserHasBroughtBackStaysWhenTheTrayComesUp()
    {
        QFETCH(QString, by);
        desktop::pretendTray(false);
        create().show();
        m_dialog->hide();
        QCOMPARE(timersOfWindow().size(), 1);
        if (by == QLatin1String("menu"))
            action(Settings)->trigger();
        else
            m_dialog->showNormal();
        if (by == QLatin1String("mouse"))
            QTest::mousePress(m_dialog->panel().startup, Qt::LeftButton);
        if (by == QLatin1String("key"))
            QTest::keyPress(m_dialog->panel().username, Qt::Key_A);
        QCOMPARE(timersOfWindow().size(), 0); // it is no longer looked for
        desktop::pretendTray(true);
        QVERIFY(isShown());
    }

    void workInAnotherWindowIsNoReasonToKeepThisOne()
    {
        desktop::pretendTray(false);
        create().show();
        m_dialog->hide();
        QWidget other;
        QTest::mousePress(&other, Qt::LeftButton);
        QCOMPARE(timersOfWindow().size(), 1);
    }

    void trayIsLookedForOnlyInTheFirstSeconds()
    {
        desktop::pretendTray(false);
        create().show();
        QCOMPARE(timersOfWindow().size(), 0);
        m_dialog->hide();
        QCOMPARE(timersOfWindow().size(), 1);
        const auto timer = timersOfWindow().constFirst();
        int time = 0; // ms
        while (timersOfWindow().size() == 1 && time < 120000) {
            QTimerEvent look(timer.timerId);
            QCoreApplication::sendEvent(m_dialog.get(), &look);
            time += timer.interval;
        }
        QVERIFY2(time >= 10000 && time <= 60000, qPrintable(QString::number(time)));
        QVERIFY(isMinimized());
        QVERIFY2(timer.interval >= 100 && timer.interval <= 1000, qPrintable(QString::number(timer.interval)));
    }

    // Clicks on the tray

    void clickOpensTheFolderWhenMoreThan200MillisecondsHavePassedSinceItWasOpened()
    {
        create();
        sayState("ok", 7);
        QElapsedTimer beforeOpening; // the client counts from within the click that opened
        QElapsedTimer afterOpening;
        for (int opened = 0; opened < 3;) {
            clearLog();
            QElapsedTimer clock;
            clock.start();
            const qint64 least = opened > 0 ? afterOpening.elapsed() : 0;
            clickTray();
            const qint64 most = opened > 0 ? beforeOpening.elapsed() : loggedTime();
            const bool opens = m_opened.size() > opened;
            QCOMPARE(opens, loggedTime() > 200);
            QVERIFY(loggedTime() >= least);
            QVERIFY(loggedTime() <= most);
            if (opens) {
                ++opened;
                beforeOpening = clock;
                afterOpening.start();
            }
        }
        QCOMPARE(m_opened.size(), 3);
    }

    void everyClickCountsAsTurningToTheApplication()
    {
        create();
        sayState("ok", 7);
        int ignored = 0;
        while (ignored == 0) {
            clearLog();
            clickTray();
            QVERIFY(loggedTime() >= 0);
            ignored += loggedTime() <= 200 ? 1 : 0;
            QCOMPARE(log().filter(QStringLiteral("syncfolder: AppActivated")).size(), 1);
        }
    }

    void clickIsRememberedAlsoWhileNobodyIsSignedIn()
    {
        create();
        clickTray();
        const qint64 first = loggedTime();
        clickTray();
        QVERIFY(loggedTime() >= 0);
        QVERIFY2(loggedTime() < first, qPrintable(QString::number(loggedTime())));
    }

    void firstClickIsCountedFromTheEpoch()
    {
        for (int window = 0; window < 2; ++window) {
            const qint64 before = QDateTime::currentMSecsSinceEpoch();
            create();
            clickTray();
            QVERIFY(loggedTime() >= before);
            QVERIFY(loggedTime() <= QDateTime::currentMSecsSinceEpoch());
        }
    }

#ifndef Q_OS_WIN
    void clockThatIsSetBackStopsNoClick()
    {
        create();
        sayState("ok", 7);
        clickTray();
        QCOMPARE(m_opened.size(), 1);
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        clockSetBack = 3600;
        QVERIFY(QDateTime::currentMSecsSinceEpoch() < before);
        (void)QTest::qWaitFor(
            [&] {
                clickTray();
                return m_opened.size() > 1;
            },
            deadline());
        clockSetBack = 0;
        QCOMPARE(m_opened.size(), 2);
        QVERIFY2(loggedTime() > 200 && loggedTime() < deadline(), qPrintable(QString::number(loggedTime())));
    }
#endif

    void otherActivationsAreIgnored()
    {
        create();
        sayState("ok", 7);
        clearLog();
        for (const auto reason : {QSystemTrayIcon::DoubleClick, QSystemTrayIcon::Context, QSystemTrayIcon::MiddleClick,
                                  QSystemTrayIcon::Unknown})
            clickTray(reason);
        QVERIFY(m_opened.isEmpty());
        QVERIFY(log().isEmpty());
    }

    void clickWithoutAnAccountOpensNothingButActivates()
    {
        create();
        clearLog();
        clickTray();
        QVERIFY(m_opened.isEmpty());
        QCOMPARE(log().filter(QStringLiteral("syncfolder: AppActivated")).size(), 1);
    }
};

QTEST_MAIN(DialogCldTrayTest)
#include "dialogcld_tray_test.moc"
