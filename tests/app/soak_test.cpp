// The window under a busy engine for as long as it is told: what it holds at the end is what it held before.

#include "syncfolder/syncfolder.h"
#include "tests/support/httpserver.h"
#include "tests/support/processholdings.h"
#include "tests/ui/windowtest.h"
#include "ui/guide.h"
#include "ui/pickracun.h"
#include "ui/sharefolder.h"
#include "update/updatedialog.h"

#include <QElapsedTimer>
#include <QLineEdit>
#include <QMessageBox>
#include <QPixmapCache>
#include <QProgressDialog>
#include <QPushButton>
#include <QRadioButton>

#include <cstdio>

namespace
{

constexpr int usualSeconds = 25;
constexpr int leastRounds = 20;  // of each of the two measured stretches
constexpr int mostRounds = 2000; // in all: years of a user's windows
constexpr int changesOfARound = 100;
constexpr int checkPause = 5000; // ms; each check by hand leaves its small checker until the program ends
constexpr double allowedGrowth = 0.02;

struct Holdings
{
    ProcessHoldings process;
    int windows = 0;
    QMap<QByteArray, int> objects; ///< by their class
};

QByteArray feed(const char* version)
{
    return QByteArray("<rss xmlns:s=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><item><enclosure "
                      "s:version=\"") +
           version + "\"/></item></rss>";
}

} // namespace

class SoakTest final : public WindowTest
{
    Q_OBJECT

    std::unique_ptr<HttpServer> m_http;
    int m_changes = 0;
    int m_rebuilds = 0;
    int m_guides = 0;
    int m_dialogs = 0;
    int m_checks = 0;
    QElapsedTimer m_sinceCheck;

public slots:
    void countChange()
    {
        ++m_changes;
    }
    void countRebuild(QList<QDir>& roots)
    {
        Q_UNUSED(roots)
        ++m_rebuilds;
    }

protected:
    void setUp() override
    {
        WindowTest::setUp();
        m_http = std::make_unique<HttpServer>();
        m_http->serve(QStringLiteral("/feed"), [this](const HttpServer::Request&) {
            HttpServer::Answer answer;
            answer.body = feed(++m_checks % 2 == 0 ? "99.0" : "0.1");
            return answer;
        });
        m_usualFeed = qgetenv("ORVEL_UPDATE_FEED");
        qputenv("ORVEL_UPDATE_FEED", m_http->url(QStringLiteral("/feed")).toEncoded());
    }

    void tearDown() override
    {
        qputenv("ORVEL_UPDATE_FEED", m_usualFeed);
        WindowTest::tearDown();
        m_http.reset();
    }

private:
    QByteArray m_usualFeed;

    template<typename Widget>
    static Widget* find()
    {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* found = qobject_cast<Widget*>(widget);
            if (found != nullptr && found->isVisible())
                return found;
        }
        return nullptr;
    }

    template<typename Widget>
    static bool appears(Widget*& widget)
    {
        return QTest::qWaitFor([&] { return (widget = find<Widget>()) != nullptr; }, deadline());
    }

    static QString root(int number)
    {
        return testHome() + QStringLiteral("/roots/Orvel %1").arg(number);
    }

    void changeStates()
    {
        static const QByteArrayList states{"transferring", "ok", "offline", "transferring", "logout"};
        const int target = m_changes + changesOfARound;
        for (int i = 0; i < changesOfARound; ++i) {
            const QByteArray& state = states.at(i % states.size());
            const QByteArray number = QByteArray::number(i);
            // Signing out ends the watcher, signing in brings it back.
            m_engine->say(
                "{\"what\":\"networkstate\",\"state\":\"" + state +
                "\",\"uid\":" + (state == "logout" && i == changesOfARound - 1 ? QByteArray("0") : QByteArray("5")) +
                ",\"bps\":" + number + "000,\"uploads\":" + number + ",\"downloads\":7,\"timerem\":" + number + "}");
        }
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":5}");
        EVENTUALLY(m_changes == target + 1);
        m_engine->say("{\"what\":\"spaceused\",\"space\":" + QByteArray::number(target) +
                      "000000,\"quota\":5368709120,\"package\":\"Trial\"}");
    }

    void rebuildRoots(int round)
    {
        const QString path = root(round % 2);
        writeFile(m_dialog->server().stateDir() + QStringLiteral("/5.json"),
                  "[{\"path\":\"" + QFileInfo(path).path().toUtf8() + "\",\"name\":\"" +
                      QFileInfo(path).fileName().toUtf8() + "\"}]");
        const int before = m_rebuilds;
        m_engine->say("{\"what\":\"rootschanged\"}");
        EVENTUALLY(m_rebuilds == before + 1);
        EVENTUALLY_EQUAL(m_dialog->panel().folderPath->text(), path);
        writeFile(path + QStringLiteral("/sub/file"), QByteArray::number(round));
    }

    void readGuide()
    {
        m_dialog->openGuide();
        Guide* guide = nullptr;
        QVERIFY(appears(guide));
        const QPointer<Guide> open(guide);
        for (const char* text : {"Next", "Next", "Next", "Close guide"}) {
            QPushButton* wanted = nullptr;
            for (auto* button : guide->findChildren<QPushButton*>())
                wanted = button->text() == QLatin1String(text) ? button : wanted;
            QVERIFY(wanted);
            QTest::mouseClick(wanted, Qt::LeftButton);
        }
        EVENTUALLY(!open);
        ++m_guides;
    }

    void openDialog(int kind)
    {
        switch (kind) {
        case 0:
            pickAccount();
            break;
        case 1:
            shareFolder();
            break;
        default:
            m_dialog->menuShow();
            QVERIFY(m_dialog->isVisible());
            m_dialog->close();
            QVERIFY(!m_dialog->isVisible());
        }
        ++m_dialogs;
    }

    void pickAccount()
    {
        m_engine->say("{\"what\":\"loginids\",\"ids\":[\"5\",\"6\"]}");
        PickRacun* picker = nullptr;
        QVERIFY(appears(picker));
        const QPointer<PickRacun> open(picker);
        picker->findChildren<QRadioButton*>().last()->setChecked(true);
        QTest::mouseClick(picker->findChild<QPushButton*>(), Qt::LeftButton);
        EVENTUALLY(!open);
    }

    void shareFolder()
    {
        auto* share = new ShareFolder(1, root(0), m_dialog.get());
        const QPointer<ShareFolder> open(share);
        connect(share, SIGNAL(newSharedFolder(QString, QString, int)), m_dialog.get(),
                SLOT(shareFolder(QString, QString, int)));
        connect(share, SIGNAL(shareClosed(ShareFolder*)), m_dialog.get(), SLOT(shareClosed(ShareFolder*)));
        share->show();
        share->findChild<QLineEdit*>()->setText(QStringLiteral("ana@orvel.example"));
        QTest::mouseClick(share->findChild<QPushButton*>(), Qt::LeftButton);
        share->shareFolderResult(1, true, 0);
        share->close();
        EVENTUALLY(!open);
    }

    void checkForUpdates()
    {
        m_dialog->manualUpdate();
        QDialog* answer = nullptr;
        EVENTUALLY((answer = find<qtsparkle::UpdateDialog>()) != nullptr || (answer = find<QMessageBox>()) != nullptr);
        const QPointer<QDialog> open(answer);
        answer->close();
        EVENTUALLY(!open);
        EVENTUALLY(find<QProgressDialog>() == nullptr);
    }

    void round(int number)
    {
        changeStates();
        rebuildRoots(number);
        readGuide();
        openDialog(number % 3);
        if (!m_sinceCheck.isValid() || m_sinceCheck.hasExpired(checkPause)) {
            m_sinceCheck.start();
            checkForUpdates();
            ++m_dialogs;
        }
        // The test's own memory is none of the client's.
        clearLog();
        m_engine->forgetInput();
        m_http->forgetRequests();
    }

    Holdings holdings()
    {
        // What deletes itself later has its turn first.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QPixmapCache::clear(); // it holds up to 10 MiB of what was shown last
        Holdings now;
        now.process = ownHoldings();
        now.windows = QApplication::topLevelWidgets().size();
        for (const QObject* parent : {static_cast<QObject*>(m_dialog.get()), static_cast<QObject*>(qApp)}) {
            const auto children = parent->findChildren<QObject*>();
            for (const QObject* child : children)
                ++now.objects[child->metaObject()->className()];
        }
        now.objects.remove("qtsparkle::UpdateChecker"); // each stays with its updater, and is small
        now.objects.remove("QSingleShotTimer");         // those that have still to fire
        return now;
    }

    static bool sameCounts(const Holdings& a, const Holdings& b)
    {
        return a.process.handles == b.process.handles && a.process.threads == b.process.threads &&
               a.windows == b.windows && a.objects == b.objects;
    }

    static QByteArray countsOf(const QMap<QByteArray, int>& objects)
    {
        QByteArray text;
        for (auto count = objects.cbegin(); count != objects.cend(); ++count)
            text += count.key() + ' ' + QByteArray::number(count.value()) + ' ';
        return text;
    }

    static void print(const char* when, qint64 ms, const Holdings& now)
    {
        int objects = 0;
        for (const int count : now.objects)
            objects += count;
        std::printf("%s (%lld s): %d handles, %d threads, %d windows, %d objects, %lld KiB allocated, %lld KiB "
                    "resident\n",
                    when, static_cast<long long>(ms / 1000), now.process.handles, now.process.threads, now.windows,
                    objects, static_cast<long long>(now.process.allocated / 1024),
                    static_cast<long long>(now.process.resident / 1024));
        std::fflush(stdout);
    }

    /// Memory: what has come to it, compared with all that the process takes up.
    static bool grew(qint64 before, qint64 after, const Holdings& all)
    {
        return static_cast<double>(after - before) > static_cast<double>(all.process.resident) * allowedGrowth;
    }

private slots:
    void busyEngineAndUserLeaveNothingBehind()
    {
        const int seconds = qMax(usualSeconds, qEnvironmentVariableIntValue("ORVEL_TEST_SOAK"));
        constexpr qint64 settled = 60000; // ms
        const qint64 firstPart = qMin(settled, seconds * 500LL);
        for (int number : {0, 1})
            QDir().mkpath(root(number) + QStringLiteral("/sub"));
        preset("runnum", 1);
        create();
        connect(&m_dialog->server(), SIGNAL(netStateChanged()), this, SLOT(countChange()));
        connect(&m_dialog->syncFolder(), SIGNAL(rootsChanged(QList<QDir>&)), this, SLOT(countRebuild(QList<QDir>&)));
        EVENTUALLY(m_engine->isConnected());

        QElapsedTimer clock;
        clock.start();
        int rounds = 0;
        qint64 minute = 0;
        const auto soak = [&](int atLeast, qint64 until) {
            for (int i = 0; i < atLeast || clock.elapsed() < until || i % 20 != 0; ++i) {
                round(rounds++);
                if (QTest::currentTestFailed())
                    return;
                // A long run is spread, so that it is one of time.
                const qint64 due = seconds * 1000LL * rounds / mostRounds;
                (void)QTest::qWaitFor([&] { return clock.elapsed() >= due; }, deadline());
                if (clock.elapsed() / 60000 != minute) {
                    minute = clock.elapsed() / 60000;
                    print("meanwhile", clock.elapsed(), holdings());
                }
            }
        };
        soak(leastRounds, firstPart);
        const Holdings first = holdings();
        print("after the first part", clock.elapsed(), first);
        soak(leastRounds, seconds * 1000LL);

        Holdings last;
        (void)QTest::qWaitFor([&] { return sameCounts(last = holdings(), first); }, deadline());
        print("at the end", clock.elapsed(), last);
        std::printf("%d rounds: %d state changes, %d root rebuilds, %d guides, %d dialogs\n", rounds, m_changes,
                    m_rebuilds, m_guides, m_dialogs);
        QCOMPARE(last.process.handles, first.process.handles);
        QCOMPARE(last.process.threads, first.process.threads);
        QCOMPARE(last.windows, first.windows);
        QCOMPARE(countsOf(last.objects), countsOf(first.objects));
#ifndef __SANITIZE_ADDRESS__ // it keeps what was freed for a while
        QVERIFY(!grew(first.process.allocated, last.process.allocated, first));
        // Until then Qt's caches still fill.
        QVERIFY(firstPart < settled || !grew(first.process.resident, last.process.resident, first));
#endif
    }
};

QTEST_MAIN(SoakTest)
#include "soak_test.moc"
