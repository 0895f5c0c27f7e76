#include "update/updatechecker.h"

#include "tests/support/httpserver.h"
#include "tests/support/metamethods.h"
#include "tests/support/test.h"
#include "update/followredirects.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSettings>
#include <QSignalSpy>

#include <memory>

using qtsparkle::UpdateChecker;

namespace
{

QByteArray feedOf(const QByteArray& version)
{
    return "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><item>"
           "<sparkle:releaseNotesLink>http://updates.example/notes</sparkle:releaseNotesLink>"
           "<enclosure url=\"http://updates.example/orvel.exe\" sparkle:version=\"" +
           version + "\"/></item></channel></rss>";
}

HttpServer::Answer answerOf(const QByteArray& body, const QByteArray& contentType = "application/rss+xml",
                            int status = 200)
{
    HttpServer::Answer answer;
    answer.body = body;
    answer.contentType = contentType;
    answer.status = status;
    return answer;
}

const QString feedPath = QStringLiteral("/sync/clientversionxml");
const QString feedTarget = feedPath + QStringLiteral("?os=win&app=orvel");
const QString skippedKey = QStringLiteral("QtSparkle/skipped_version");

} // namespace

class UpdateCheckerTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<UpdateChecker> m_checker;
    QStringList m_events;
    AppCastPtr m_appcast;

protected:
    void setUp() override
    {
        QCoreApplication::setOrganizationName(QStringLiteral("Velmora")); // without, there are no settings on Windows
        m_server = std::make_unique<HttpServer>();
        create();
    }
    void tearDown() override
    {
        m_checker.reset();
        m_server.reset();
        m_appcast.reset();
    }

private:
    enum Kind
    {
        Automatic,
        Manual
    };

    void create()
    {
        m_events.clear();
        m_checker = std::make_unique<UpdateChecker>(nullptr);
        m_checker->SetVersion(QStringLiteral("1.0"));
        connect(m_checker.get(), &UpdateChecker::CheckStarted, this, [this] { m_events << QStringLiteral("started"); });
        connect(m_checker.get(), &UpdateChecker::UpToDate, this, [this] { m_events << QStringLiteral("up to date"); });
        connect(m_checker.get(), &UpdateChecker::CheckFailed, this,
                [this](const QString& reason) { m_events << QStringLiteral("failed: ") + reason; });
        connect(m_checker.get(), &UpdateChecker::UpdateAvailable, this, [this](const AppCastPtr& appcast) {
            m_events << QStringLiteral("available: ") + appcast->version;
            m_appcast = appcast;
        });
    }

    /// All that a check says, once it has come to its end.
    QStringList check(Kind kind = Automatic, const QString& target = feedTarget)
    {
        m_checker->Check(m_server->url(target), kind == Manual);
        return ending();
    }
    QStringList ending()
    {
        (void)QTest::qWaitFor([this] { return m_events.size() > 1; }, deadline());
        return m_events;
    }

    static QStringList started(const QString& then)
    {
        return {QStringLiteral("started"), then};
    }
    static QStringList upToDate()
    {
        return started(QStringLiteral("up to date"));
    }
    static QStringList failed(const char* reason)
    {
        return started(QStringLiteral("failed: ") + QLatin1String(reason));
    }
    static QStringList available(const char* version)
    {
        return started(QStringLiteral("available: ") + QString::fromUtf8(version));
    }

private slots:
    void signalsAndSlotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(UpdateChecker::staticMetaObject),
                 (QStringList{QStringLiteral("CheckStarted()"), QStringLiteral("UpdateAvailable(AppCastPtr)"),
                              QStringLiteral("UpToDate()"), QStringLiteral("CheckFailed(QString)")}));
        QCOMPARE(slotsOf(UpdateChecker::staticMetaObject),
                 (QStringList{QStringLiteral("Finished()"), QStringLiteral("RedirectLimitReached()")}));
    }

    void feedIsAskedForPastEveryCacheWithItsWholeAddress()
    {
        m_server->serve(feedPath, answerOf(feedOf("2.0")));
        QCOMPARE(check(), available("2.0"));
        QCOMPARE(m_server->requests().size(), 1);
        const HttpServer::Request request = m_server->requests().first();
        QCOMPARE(request.method, QByteArrayLiteral("GET"));
        QCOMPARE(request.target, feedTarget.toLatin1());
        QCOMPARE(request.headers.value("cache-control"), QByteArrayLiteral("no-cache"));
        QCOMPARE(m_appcast->download_url, QStringLiteral("http://updates.example/orvel.exe"));
        QCOMPARE(m_appcast->release_notes_url, QStringLiteral("http://updates.example/notes"));
        QCOMPARE(m_appcast->error_reason, QString());
    }

    void startIsToldBeforeAnythingIsAskedFor()
    {
        m_server->serve(feedPath, answerOf(feedOf("2.0")));
        m_checker->Check(m_server->url(feedTarget), false);
        QCOMPARE(m_events, QStringList{QStringLiteral("started")});
        QCOMPARE(ending(), available("2.0"));
    }

    void runningVersionDecides_data()
    {
        QTest::addColumn<QString>("running");
        QTest::addColumn<QByteArray>("offered");
        QTest::addColumn<bool>("isAvailable");
        const auto row = [](const char* running, const char* offered, bool isAvailable) {
            QTest::addRow("%s against %s", running, offered)
                << QString::fromLatin1(running) << QByteArray(offered) << isAvailable;
        };
        row("1.0", "1.0.1", true);
        row("1.0", "1.0rc", false);
        row("1.0rc", "1.0", true);
        row("1.0", "1.0", false);
        row("1.0", "1.00", false);
        row("2.0", "1.9", false);
        row("0.9.3", "0.9.10", true);
        row("0.9.3", "0.9.3", false);
        row("0.9.3", "rel4", false);
        row("0.9.3", "", false);
        row("", "1.0", true);
    }
    void runningVersionDecides()
    {
        QFETCH(QString, running);
        QFETCH(QByteArray, offered);
        QFETCH(bool, isAvailable);
        m_server->serve(feedPath, answerOf(feedOf(offered)));
        for (const Kind kind : {Automatic, Manual}) {
            create();
            m_checker->SetVersion(running);
            QCOMPARE(check(kind), isAvailable ? available(offered.constData()) : upToDate());
        }
    }

    void skippedVersionIsUpToDateForAnAutomaticCheckAndOfferedByAManualOne()
    {
        QSettings().setValue(skippedKey, QStringLiteral("2.0"));
        m_server->serve(feedPath, answerOf(feedOf("2.0")));
        QCOMPARE(check(Automatic), upToDate());
        create();
        QCOMPARE(check(Manual), available("2.0"));
    }

    void onlyTheExactVersionIsSkipped_data()
    {
        QTest::addColumn<QString>("skipped");
        for (const char* skipped : {"", "2", "2.00", "2.0 ", "1.9", "2.1", "02.0"})
            QTest::addRow("'%s'", skipped) << QString::fromLatin1(skipped);
    }
    void onlyTheExactVersionIsSkipped()
    {
        QFETCH(QString, skipped);
        QSettings().setValue(skippedKey, skipped);
        m_server->serve(feedPath, answerOf(feedOf("2.0")));
        QCOMPARE(check(Automatic), available("2.0"));
    }

    void versionSkippedWhileTheCheckRunsIsSkipped()
    {
        m_server->serve(feedPath, [](const HttpServer::Request&) {
            QSettings().setValue(skippedKey, QStringLiteral("2.0"));
            return answerOf(feedOf("2.0"));
        });
        QCOMPARE(check(Automatic), upToDate());
    }

    void secondCheckWhileOneIsInProgressIsIgnored()
    {
        m_server->serve(feedPath, answerOf(feedOf("2.0")));
        QSettings().setValue(skippedKey, QStringLiteral("2.0"));
        m_checker->Check(m_server->url(feedTarget), false);
        m_checker->Check(m_server->url(QStringLiteral("/other")), true);
        QCOMPARE(ending(), upToDate()); // the first one's kind
        QCOMPARE(m_server->requests().size(), 1);
    }

    void checkAfterAnEndedOneRunsAgain()
    {
        m_server->serve(feedPath, answerOf(feedOf("1.0")));
        QCOMPARE(check(), upToDate());
        m_server->serve(feedPath, answerOf(feedOf("2.0")));
        m_events.clear();
        QCOMPARE(check(), available("2.0"));
    }

    void severalCheckersAtOnceDoNotDisturbEachOther()
    {
        m_server->serve(feedPath, answerOf(feedOf("2.0")));
        m_server->serve(QStringLiteral("/bad"), answerOf("no feed"));
        UpdateChecker other(nullptr);
        other.SetVersion(QStringLiteral("3.0"));
        QSignalSpy upToDateSpy(&other, SIGNAL(UpToDate()));
        UpdateChecker third(nullptr);
        QSignalSpy failedSpy(&third, SIGNAL(CheckFailed(QString)));
        m_checker->Check(m_server->url(feedTarget), false);
        other.Check(m_server->url(feedTarget), false);
        third.Check(m_server->url(QStringLiteral("/bad")), true);
        QCOMPARE(ending(), available("2.0"));
        EVENTUALLY_EQUAL(upToDateSpy.count(), 1);
        EVENTUALLY_EQUAL(failedSpy.count(), 1);
    }

    void fiveRedirectsLeadToTheFeed()
    {
        for (int i = 0; i < 5; ++i)
            m_server->redirect(QStringLiteral("/%1").arg(i), QStringLiteral("/%1").arg(i + 1).toLatin1());
        m_server->serve(QStringLiteral("/5"), answerOf(feedOf("2.0")));
        QCOMPARE(check(Automatic, QStringLiteral("/0?os=win")), available("2.0"));
        QCOMPARE(m_server->requests().last().target, QByteArrayLiteral("/5?os=win"));
    }

    void sixthRedirectFailsTheCheckAndLeavesItInProgress()
    {
        m_server->redirect(feedPath, feedTarget.toLatin1());
        QCOMPARE(check(), failed("Redirect limit reached"));
        QCOMPARE(m_server->requests().size(), 6);
        m_checker->Check(m_server->url(feedTarget), true);
        QCOMPARE(m_events.size(), 2);
    }

    void redirectOffTheWebFailsTheCheckThoughItsBodyIsAFeed_data()
    {
        QTest::addColumn<QByteArray>("location");
        QTest::newRow("ftp") << QByteArrayLiteral("ftp://127.0.0.1/feed");
        QTest::newRow("gopher") << QByteArrayLiteral("gopher://127.0.0.1/feed");
        QTest::newRow("file with a host") << QByteArrayLiteral("file://127.0.0.1/feed");
    }
    void redirectOffTheWebFailsTheCheckThoughItsBodyIsAFeed()
    {
        QFETCH(QByteArray, location);
        HttpServer::Answer answer = answerOf(feedOf("2.0"), "application/rss+xml", 302);
        answer.headers.append({"Location", location});
        m_server->serve(feedPath, answer);
        for (const Kind kind : {Automatic, Manual}) {
            create();
            QCOMPARE(check(kind), failed("The update feed redirects to an address off the web"));
        }
        // The check is over: the next one is made.
        m_checker->Check(m_server->url(feedTarget), true);
        EVENTUALLY_EQUAL(m_events.size(), 4);
    }

    void redirectOffTheWebAsTheSixthIsTheLimit()
    {
        for (int i = 0; i < 5; ++i)
            m_server->redirect(QStringLiteral("/%1").arg(i), QStringLiteral("/%1").arg(i + 1).toLatin1());
        m_server->redirect(QStringLiteral("/5"), QByteArrayLiteral("ftp://127.0.0.1/feed"));
        QCOMPARE(check(Manual, QStringLiteral("/0")), failed("Redirect limit reached"));
        QCOMPARE(m_server->requests().size(), 6);
        create();
        QCOMPARE(check(Manual, QStringLiteral("/1")), failed("The update feed redirects to an address off the web"));
    }

    void bodyIsReadWhateverTheStatusAndTheTypeSay_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("type");
        QTest::newRow("text") << 200 << QByteArrayLiteral("text/plain");
        QTest::newRow("html") << 200 << QByteArrayLiteral("text/html; charset=utf-8");
        QTest::newRow("binary") << 200 << QByteArrayLiteral("application/octet-stream");
        QTest::newRow("none") << 200 << QByteArray();
        QTest::newRow("picture") << 200 << QByteArrayLiteral("image/png");
        QTest::newRow("another encoding") << 200 << QByteArrayLiteral("text/xml; charset=utf-16");
        QTest::newRow("error page that is a feed") << 500 << QByteArrayLiteral("application/rss+xml");
    }
    void bodyIsReadWhateverTheStatusAndTheTypeSay()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, type);
        m_server->serve(feedPath, answerOf(feedOf("2.0"), type, status));
        QCOMPARE(check(), available("2.0"));
    }

    void unusableBodyFailsWithTheReadersReason_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("reason");
        const QByteArray ended("Premature end of document.");
        QTest::newRow("empty") << 200 << QByteArray() << ended;
        QTest::newRow("no content") << 204 << QByteArray() << ended;
        QTest::newRow("empty error") << 404 << QByteArray() << ended;
        QTest::newRow("half a feed") << 200 << feedOf("2.0").left(200) << ended;
        QTest::newRow("text") << 200 << QByteArrayLiteral("Hello") << QByteArrayLiteral("Start tag expected.");
        QTest::newRow("html error page") << 502 << QByteArrayLiteral("<html><body><hr>502</body></html>")
                                         << QByteArrayLiteral("Opening and ending tag mismatch.");
    }
    void unusableBodyFailsWithTheReadersReason()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, reason);
        m_server->serve(feedPath, answerOf(body, "text/html", status));
        for (const Kind kind : {Automatic, Manual}) {
            create();
            QCOMPARE(check(kind), failed(reason.constData()));
        }
    }

    void wellFormedBodyWithoutAUsableItemIsUpToDate_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("no item") << QByteArrayLiteral("<rss/>");
        QTest::newRow("error page") << QByteArrayLiteral("<html><body>404</body></html>");
        QTest::newRow("item without an enclosure") << QByteArrayLiteral("<rss><item><title>2</title></item></rss>");
    }
    void wellFormedBodyWithoutAUsableItemIsUpToDate()
    {
        QFETCH(QByteArray, body);
        m_server->serve(feedPath, answerOf(body));
        QCOMPARE(check(Manual), upToDate());
    }

    void serverThatIsNotThereFailsTheCheck()
    {
        const QUrl url = m_server->url(feedTarget);
        m_server.reset();
        m_checker->Check(url, true);
        QCOMPARE(ending(), failed("Premature end of document."));
    }

    void addressThatIsNoneFailsTheCheck_data()
    {
        QTest::addColumn<QUrl>("url");
        QTest::newRow("empty") << QUrl();
        QTest::newRow("unknown scheme") << QUrl(QStringLiteral("gopher://127.0.0.1/feed"));
        QTest::newRow("missing file") << QUrl(QStringLiteral("file:///no/such/feed"));
    }
    void addressThatIsNoneFailsTheCheck()
    {
        QFETCH(QUrl, url);
        m_checker->Check(url, true);
        QCOMPARE(ending(), failed("Premature end of document."));
    }

    void connectionDroppedBeforeTheAnswerFailsTheCheck()
    {
        m_server->serveRaw(feedPath, [](const HttpServer::Request&, QTcpSocket* socket) { socket->abort(); });
        QCOMPARE(check(), failed("Premature end of document."));
    }

    void connectionDroppedInTheBodyFailsTheCheck()
    {
        m_server->serveRaw(feedPath, [](const HttpServer::Request&, QTcpSocket* socket) {
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n" + feedOf("2.0").left(150));
            socket->disconnectFromHost();
        });
        QCOMPARE(check(), failed("Premature end of document."));
    }

    void answerThatIsNoHttpFailsTheCheck()
    {
        m_server->serveRaw(feedPath, [](const HttpServer::Request&, QTcpSocket* socket) {
            socket->write("220 mail.example ESMTP\r\n\r\n");
            socket->disconnectFromHost();
        });
        QCOMPARE(check(), failed("Premature end of document."));
    }

    void slowAnswerIsWaitedFor()
    {
        m_server->serveRaw(feedPath, [](const HttpServer::Request&, QTcpSocket* socket) {
            auto rest = std::make_shared<QByteArray>(feedOf("2.0"));
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(rest->size()) + "\r\n\r\n");
            connect(socket, &QTcpSocket::bytesWritten, socket, [socket, rest] { // a few bytes a packet
                socket->write(rest->left(7));
                rest->remove(0, 7);
            });
        });
        QCOMPARE(check(), available("2.0"));
    }

    void hangingServerFailsTheCheckWhenTheManagersTimeIsOver()
    {
        QNetworkAccessManager manager;
        manager.setTransferTimeout(100);
        m_checker->SetNetworkAccessManager(&manager);
        m_server->hang(feedPath);
        QCOMPARE(check(), failed("Premature end of document."));
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
    }

    void serverThatHangsInTheBodyFailsTheCheckWhenTheManagersTimeIsOver()
    {
        QNetworkAccessManager manager;
        manager.setTransferTimeout(100);
        m_checker->SetNetworkAccessManager(&manager);
        m_server->serveRaw(feedPath, [](const HttpServer::Request&, QTcpSocket* socket) {
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n" + feedOf("2.0").left(150));
        });
        QCOMPARE(check(), failed("Premature end of document."));
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
    }

    void ownManagerGivesUpOnAServerThatHangs()
    {
        m_server->hang(feedPath);
        m_checker->Check(m_server->url(feedTarget), false);
        const auto* own = m_checker->findChild<QNetworkAccessManager*>();
        QVERIFY(own);
        QCOMPARE(own->transferTimeout(), 30000);
    }

    // Its checker may live as long as the program, and a manager holds a thread and open connections.
    void ownManagerGoesWhenTheCheckIsOver_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("end");
        QTest::newRow("an answer") << feedTarget << QStringLiteral("up to date");
        QTest::newRow("no feed") << QStringLiteral("/none") << QStringLiteral("failed: .*");
        QTest::newRow("too many redirects")
            << QStringLiteral("/loop") << QStringLiteral("failed: Redirect limit reached");
    }
    void ownManagerGoesWhenTheCheckIsOver()
    {
        QFETCH(QString, target);
        QFETCH(QString, end);
        m_server->serve(feedPath, answerOf(feedOf("1.0")));
        m_server->serve(QStringLiteral("/none"), answerOf("none"));
        m_server->redirect(QStringLiteral("/loop"), "/loop");
        const QStringList events = check(Automatic, target);
        QVERIFY2(QRegularExpression(QRegularExpression::anchoredPattern(end)).match(events.value(1)).hasMatch(),
                 qPrintable(events.join(u' ')));
        EVENTUALLY(m_checker->findChild<QObject*>() == nullptr);
    }

    void injectedManagerIsUsedAndNotOwned()
    {
        QNetworkAccessManager manager;
        int finished = 0;
        connect(&manager, &QNetworkAccessManager::finished, this, [&] { ++finished; });
        m_checker->SetNetworkAccessManager(&manager);
        m_server->serve(feedPath, answerOf(feedOf("2.0")));
        QCOMPARE(check(), available("2.0"));
        QCOMPARE(finished, 1);
        QVERIFY(!m_checker->findChild<QNetworkAccessManager*>());
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
    }

    void bodyThatNeverEndsFailsWithAClearReasonAndIsNoLongerTaken_data()
    {
        QTest::addColumn<QByteArray>("piece");
        QTest::newRow("junk") << QByteArray(512 * 1024, 'x');
        QTest::newRow("items") << QByteArrayLiteral("<item><enclosure/></item>\n").repeated(20000);
    }
    void bodyThatNeverEndsFailsWithAClearReasonAndIsNoLongerTaken()
    {
        QFETCH(QByteArray, piece);
        m_server->serveEndless(feedPath, "text/xml", piece);
        QCOMPARE(check(), failed("The update feed is too large"));
#ifndef Q_OS_WIN // Wine tells a server late, or not at all, that its client has gone
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
        QVERIFY(m_server->endlessBytes() < 4 * qtsparkle::FollowRedirects::maximumBody);
#endif
    }

    void compressedBodyThatUnpacksToMoreThanTheBoundFails()
    {
        const QByteArray plain = "<rss>" + QByteArray(32 * 1024 * 1024, ' ') + "</rss>";
        HttpServer::Answer answer = answerOf(qCompress(plain, 9).mid(4)); // without Qt's own length before it
        QVERIFY(answer.body.size() < 256 * 1024);
        answer.headers << qMakePair(QByteArray("Content-Encoding"), QByteArray("deflate"));
        m_server->serve(feedPath, answer);
        QCOMPARE(check(), failed("The update feed is too large"));
    }

    void httpsFeedIsRead()
    {
        if (!HttpServer::canBeSecure())
            QSKIP("a server with a certificate of its own is not served by this system's TLS");
        HttpServer secure(HttpServer::Security::Tls);
        secure.serve(feedPath, answerOf(feedOf("2.0")));
        const QSslConfiguration before = QSslConfiguration::defaultConfiguration();
        QSslConfiguration::setDefaultConfiguration(HttpServer::trusting());
        m_checker->Check(secure.url(feedTarget), false);
        const QStringList events = ending();
        QSslConfiguration::setDefaultConfiguration(before);
        QCOMPARE(events, available("2.0"));
        QCOMPARE(secure.requests().size(), 1);
    }

    void httpsFeedOfAServerThatNobodyTrustsFails()
    {
        if (!HttpServer::canBeSecure())
            QSKIP("a server with a certificate of its own is not served by this system's TLS");
        HttpServer secure(HttpServer::Security::Tls);
        secure.serve(feedPath, answerOf(feedOf("2.0")));
        m_checker->Check(secure.url(feedTarget), false);
        QCOMPARE(ending(), failed("Premature end of document."));
        QCOMPARE(secure.requests().size(), 0);
    }

    void slotsIgnoreStrangers()
    {
        QVERIFY(QMetaObject::invokeMethod(m_checker.get(), "Finished"));
        QCOMPARE(m_events, QStringList());
    }

    void nothingIsLeftAfterAnEndedCheck_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("available") << QStringLiteral("/new");
        QTest::newRow("up to date") << QStringLiteral("/old");
        QTest::newRow("failed") << QStringLiteral("/bad");
        QTest::newRow("missing") << QStringLiteral("/none");
        QTest::newRow("redirected") << QStringLiteral("/redirect");
        QTest::newRow("redirected too often") << QStringLiteral("/circle");
    }
    void nothingIsLeftAfterAnEndedCheck()
    {
        QFETCH(QString, target);
        m_server->serve(QStringLiteral("/new"), answerOf(feedOf("2.0")));
        m_server->serve(QStringLiteral("/old"), answerOf(feedOf("0.1")));
        m_server->serve(QStringLiteral("/bad"), answerOf("<"));
        m_server->redirect(QStringLiteral("/redirect"), "/new");
        m_server->redirect(QStringLiteral("/circle"), "/circle");
        QNetworkAccessManager manager;
        m_checker->SetNetworkAccessManager(&manager);
        QCOMPARE(check(Automatic, target).size(), 2);
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
        QVERIFY(m_checker->children().isEmpty());
    }

    void checkerDestroyedMeanwhileEndsTheDownloadOfASharedManager()
    {
        QNetworkAccessManager manager;
        m_checker->SetNetworkAccessManager(&manager);
        m_server->hang(feedPath);
        m_checker->Check(m_server->url(feedTarget), false);
        EVENTUALLY_EQUAL(m_server->requests().size(), 1);
        m_checker.reset();
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
        QCOMPARE(m_events, QStringList{QStringLiteral("started")});
    }

    void checkerDestroyedMeanwhileTakesItsOwnManagerWithIt()
    {
        m_server->hang(feedPath);
        m_checker->Check(m_server->url(feedTarget), false);
        EVENTUALLY_EQUAL(m_server->requests().size(), 1);
        m_checker.reset();
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
    }
};

QTEST_GUILESS_MAIN(UpdateCheckerTest)
#include "updatechecker_test.moc"
