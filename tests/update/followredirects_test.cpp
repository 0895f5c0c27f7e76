#include "update/followredirects.h"

#include "tests/support/httpserver.h"
#include "tests/support/metamethods.h"
#include "tests/support/test.h"

#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QSslConfiguration>

#include <memory>

using qtsparkle::FollowRedirects;

namespace
{

const QByteArray finalBody = QByteArrayLiteral("the end");

HttpServer::Answer finalAnswer()
{
    HttpServer::Answer answer;
    answer.body = finalBody;
    answer.contentType = "text/plain";
    return answer;
}

/// Keeps every reply that it makes in sight.
class CountingManager final : public QNetworkAccessManager
{
public:
    QVector<QPointer<QNetworkReply>> replies;
    QVector<QNetworkRequest> sent;

    int alive() const
    {
        int count = 0;
        for (const auto& reply : replies)
            count += reply.isNull() ? 0 : 1;
        return count;
    }

protected:
    QNetworkReply* createRequest(Operation operation, const QNetworkRequest& request, QIODevice* body) override
    {
        QNetworkReply* reply = QNetworkAccessManager::createRequest(operation, request, body);
        replies << reply;
        sent << request;
        return reply;
    }
};

} // namespace

class FollowRedirectsTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<CountingManager> m_manager;
    QPointer<FollowRedirects> m_follower;

protected:
    void setUp() override
    {
        m_server = std::make_unique<HttpServer>();
        m_server->serve(QStringLiteral("/end"), finalAnswer());
        m_manager = std::make_unique<CountingManager>();
    }
    void tearDown() override
    {
        delete m_follower;
        m_manager.reset();
        m_server.reset();
    }

private:
    FollowRedirects& get(const QUrl& url)
    {
        m_follower = new FollowRedirects(m_manager->get(QNetworkRequest(url)));
        return *m_follower;
    }

    /// /0 leads to /1, and so on, up to /end after @p length redirects.
    void chain(int length)
    {
        for (int i = 0; i < length; ++i) {
            const QString next = i + 1 < length ? QStringLiteral("/%1").arg(i + 1) : QStringLiteral("/end");
            m_server->redirect(QStringLiteral("/%1").arg(i), m_server->url(next).toEncoded());
        }
    }

    QByteArray lastTarget() const
    {
        return m_server->requests().isEmpty() ? QByteArray() : m_server->requests().last().target;
    }

private slots:
    void signalsAndSlotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(FollowRedirects::staticMetaObject),
                 (QStringList{QStringLiteral("Finished()"), QStringLiteral("RedirectLimitReached()")}));
        QCOMPARE(slotsOf(FollowRedirects::staticMetaObject).value(0), QStringLiteral("FinishedSlot()"));
    }

    void hasNoParent()
    {
        QVERIFY(get(m_server->url(QStringLiteral("/end"))).parent() == nullptr);
    }

    void chainOfUpToFiveRedirectsIsFollowed_data()
    {
        QTest::addColumn<int>("length");
        for (int length = 0; length <= 5; ++length)
            QTest::addRow("%d redirects", length) << length;
    }
    void chainOfUpToFiveRedirectsIsFollowed()
    {
        QFETCH(int, length);
        chain(length);
        FollowRedirects& follower = get(m_server->url(length == 0 ? QStringLiteral("/end") : QStringLiteral("/0")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        const QSignalSpy limit(&follower, SIGNAL(RedirectLimitReached()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(limit.count(), 0);
        QCOMPARE(m_server->requests().size(), length + 1);
        QVERIFY(follower.reply());
        QCOMPARE(follower.reply()->url(), m_server->url(QStringLiteral("/end")));
        QCOMPARE(follower.takeBody(), finalBody);
        QVERIFY(!follower.isTruncated());
        QVERIFY(!follower.ledOffTheWeb());
    }

    void sixthRedirectReachesTheLimit()
    {
        chain(6);
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/0")));
        const QSignalSpy finished(&follower, SIGNAL(Finished()));
        QSignalSpy limit(&follower, SIGNAL(RedirectLimitReached()));
        bool replyWasCleared = false;
        connect(&follower, &FollowRedirects::RedirectLimitReached, this,
                [&] { replyWasCleared = follower.reply() == nullptr; });
        EVENTUALLY_EQUAL(limit.count(), 1);
        QVERIFY(replyWasCleared);
        QCOMPARE(finished.count(), 0);
        QCOMPARE(m_server->requests().size(), 6);
        QCOMPARE(m_server->count(QStringLiteral("/end")), 0);
    }

    void circleReachesTheLimit()
    {
        m_server->redirect(QStringLiteral("/0"), "/0");
        QSignalSpy limit(&get(m_server->url(QStringLiteral("/0"))), SIGNAL(RedirectLimitReached()));
        EVENTUALLY_EQUAL(limit.count(), 1);
        QCOMPARE(m_server->count(QStringLiteral("/0")), 6);
    }

    void everyKindOfRedirectIsFollowed_data()
    {
        QTest::addColumn<int>("status");
        for (const int status : {301, 302, 303, 307, 308})
            QTest::addRow("%d", status) << status;
    }
    void everyKindOfRedirectIsFollowed()
    {
        QFETCH(int, status);
        m_server->redirect(QStringLiteral("/0"), "/end", status);
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/0")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(follower.takeBody(), finalBody);
    }

    void relativeRedirectTakesOnlyThePathAndKeepsTheRest_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QByteArray>("location");
        QTest::addColumn<QByteArray>("target");
        const auto row = [](const char* name, const char* from, const char* location, const char* target) {
            QTest::newRow(name) << QString::fromLatin1(from) << QByteArray(location) << QByteArray(target);
        };
        row("path", "/old", "/new/path", "/new/path");
        row("path without a leading slash", "/old?a=b", "new/path", "/new/path?a=b");
        row("query of the target is dropped", "/old", "/new/path?x=1", "/new/path");
        row("query of the redirecting address is kept", "/old?os=win&app=orvel", "/new/path",
            "/new/path?os=win&app=orvel");
        row("both", "/old?os=win&app=orvel", "/new/path?x=1", "/new/path?os=win&app=orvel");
        row("fragment is dropped", "/old?a=b", "/new/path#part", "/new/path?a=b");
        row("escaped blank", "/old", "/new%20path", "/new%20path");
        row("escaped slash stays escaped", "/old", "/new%2Fpath", "/new%2Fpath");
        row("escaped percent stays escaped", "/old", "/new%2541", "/new%2541");
        row("escaped byte that is no UTF-8", "/old", "/new%E8", "/new%E8");
        row("escaped question mark stays in the path", "/old?a=b", "/new%3Fx", "/new%3Fx?a=b");
        row("host alone is no address", "/old?a=b", "//127.0.0.1/new", "/new?a=b");
        row("file without a host is a path", "/old?a=b", "file:///new", "/new?a=b");
    }
    void relativeRedirectTakesOnlyThePathAndKeepsTheRest()
    {
        QFETCH(QString, from);
        QFETCH(QByteArray, location);
        QFETCH(QByteArray, target);
        m_server->redirect(QStringLiteral("/old"), location);
        FollowRedirects& follower = get(m_server->url(from));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(m_server->requests().size(), 2);
        QCOMPARE(lastTarget(), target);
    }

    void absoluteRedirectTakesTheWholeAddress()
    {
        m_server->redirect(QStringLiteral("/old"), m_server->url(QStringLiteral("/end?x=1")).toEncoded());
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/old?os=win")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(lastTarget(), QByteArrayLiteral("/end?x=1"));
    }

    void redirectWithoutATargetLeadsToTheRoot()
    {
        m_server->redirect(QStringLiteral("/old"), "");
        m_server->serve(QStringLiteral("/"), finalAnswer());
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/old?a=b")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(lastTarget(), QByteArrayLiteral("/?a=b"));
    }

    void redirectOffTheWebIsNotFollowed_data()
    {
        QTest::addColumn<QByteArray>("location");
        QTest::newRow("file with a host") << QByteArrayLiteral("file://127.0.0.1/etc/passwd");
        QTest::newRow("ftp") << QByteArrayLiteral("ftp://127.0.0.1/feed");
        QTest::newRow("unknown") << QByteArrayLiteral("gopher://127.0.0.1/feed");
    }
    void redirectOffTheWebIsNotFollowed()
    {
        QFETCH(QByteArray, location);
        m_server->redirect(QStringLiteral("/old"), location);
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/old")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(m_manager->replies.size(), 1);
        QVERIFY(follower.reply() == m_manager->replies.first());
        QCOMPARE(follower.takeBody(), QByteArrayLiteral("moved"));
        QVERIFY(follower.ledOffTheWeb());
    }

    void redirectToHttpsIsFollowed()
    {
        if (!HttpServer::canBeSecure())
            QSKIP("a server with a certificate of its own is not served by this system's TLS");
        HttpServer secure(HttpServer::Security::Tls);
        secure.serve(QStringLiteral("/end"), finalAnswer());
        m_server->redirect(QStringLiteral("/0"), secure.url(QStringLiteral("/end")).toEncoded());
        const QSslConfiguration before = QSslConfiguration::defaultConfiguration();
        QSslConfiguration::setDefaultConfiguration(HttpServer::trusting());
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/0")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        (void)QTest::qWaitFor([&] { return finished.count() > 0; }, deadline());
        QSslConfiguration::setDefaultConfiguration(before);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(follower.takeBody(), finalBody);
        QCOMPARE(secure.count(QStringLiteral("/end")), 1);
    }

    void redirectToHttpsOfAServerThatNobodyTrustsFails()
    {
        if (!HttpServer::canBeSecure())
            QSKIP("a server with a certificate of its own is not served by this system's TLS");
        HttpServer secure(HttpServer::Security::Tls);
        secure.serve(QStringLiteral("/end"), finalAnswer());
        m_server->redirect(QStringLiteral("/0"), secure.url(QStringLiteral("/end")).toEncoded());
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/0")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(follower.takeBody(), QByteArray());
        QCOMPARE(follower.reply()->error(), QNetworkReply::SslHandshakeFailedError);
        QCOMPARE(secure.requests().size(), 0);
    }

    void cacheAttributeIsCopiedAndNothingElse()
    {
        chain(2);
        QNetworkRequest request(m_server->url(QStringLiteral("/0")));
        request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
        request.setRawHeader("X-Own", "1");
        m_follower = new FollowRedirects(m_manager->get(request));
        QSignalSpy finished(m_follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(m_manager->sent.size(), 3);
        for (const QNetworkRequest& sent : m_manager->sent)
            QCOMPARE(sent.attribute(QNetworkRequest::CacheLoadControlAttribute).toInt(), 0);
        QVERIFY(m_manager->sent.last().attribute(QNetworkRequest::CacheLoadControlAttribute).isValid());
        QVERIFY(m_manager->sent.last().rawHeaderList().isEmpty());
        for (const HttpServer::Request& sent : m_server->requests())
            QCOMPARE(sent.headers.value("cache-control"), QByteArrayLiteral("no-cache"));
    }

    void cacheAttributeThatWasNotSetIsNotInvented()
    {
        chain(1);
        QSignalSpy finished(&get(m_server->url(QStringLiteral("/0"))), SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QVERIFY(!m_manager->sent.last().attribute(QNetworkRequest::CacheLoadControlAttribute).isValid());
    }

    void slotIgnoresEverybodyButTheCurrentReply()
    {
        m_server->hang(QStringLiteral("/hang"));
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/hang")));
        const QSignalSpy finished(&follower, SIGNAL(Finished()));
        QObject stranger;
        connect(&stranger, SIGNAL(objectNameChanged(QString)), &follower, SLOT(FinishedSlot()));
        stranger.setObjectName(QStringLiteral("other"));
        QVERIFY(QMetaObject::invokeMethod(&follower, "FinishedSlot"));
        QCOMPARE(finished.count(), 0);
        QVERIFY(follower.reply() == m_manager->replies.first());
    }

    void httpErrorIsNotJudged()
    {
        HttpServer::Answer answer = finalAnswer();
        answer.status = 500;
        m_server->serve(QStringLiteral("/error"), answer);
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/error")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QCOMPARE(follower.takeBody(), finalBody);
        QCOMPARE(follower.takeBody(), QByteArray());
    }

    void bodyAtTheBoundIsWhole()
    {
        HttpServer::Answer answer = finalAnswer();
        answer.body = QByteArray(static_cast<int>(FollowRedirects::maximumBody), 'x');
        m_server->serve(QStringLiteral("/large"), answer);
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/large")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QVERIFY(!follower.isTruncated());
        QVERIFY(follower.takeBody() == answer.body);
    }

    void bodyThatNeverEndsIsCutAtTheBound()
    {
        m_server->serveEndless(QStringLiteral("/endless"), "text/plain", QByteArray(256 * 1024, 'x'));
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/endless")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QVERIFY(follower.isTruncated());
        QCOMPARE(follower.takeBody().size(), static_cast<int>(FollowRedirects::maximumBody));
#ifndef Q_OS_WIN // Wine tells a server late, or not at all, that its client has gone
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
        QVERIFY(m_server->endlessBytes() < 4 * FollowRedirects::maximumBody);
#endif
    }

    void redirectWhoseOwnBodyNeverEndsIsFollowed()
    {
        m_server->serveEndless(QStringLiteral("/0"), "text/plain", QByteArray(256 * 1024, 'x'), 302,
                               m_server->url(QStringLiteral("/end")).toEncoded());
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/0")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        QVERIFY(!follower.isTruncated());
        QCOMPARE(follower.takeBody(), finalBody);
    }

    void repliesThatRedirectedAreDeletedWhileTheLastOneStays()
    {
        chain(5);
        FollowRedirects& follower = get(m_server->url(QStringLiteral("/0")));
        QSignalSpy finished(&follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        EVENTUALLY_EQUAL(m_manager->alive(), 1);
        QCOMPARE(m_manager->replies.size(), 6);
        QVERIFY(follower.reply() == m_manager->replies.last());
    }

    void deletingItDeletesTheLastReply()
    {
        QSignalSpy gone(&get(m_server->url(QStringLiteral("/end"))), SIGNAL(destroyed()));
        QSignalSpy finished(m_follower, SIGNAL(Finished()));
        EVENTUALLY_EQUAL(finished.count(), 1);
        m_follower->deleteLater();
        EVENTUALLY_EQUAL(gone.count(), 1);
        EVENTUALLY_EQUAL(m_manager->alive(), 0);
    }

    void deletingItMeanwhileEndsTheDownload()
    {
        m_server->hang(QStringLiteral("/hang"));
        get(m_server->url(QStringLiteral("/hang")));
        EVENTUALLY_EQUAL(m_server->openConnections(), 1);
        EVENTUALLY_EQUAL(m_server->requests().size(), 1);
        delete m_follower;
        EVENTUALLY_EQUAL(m_manager->alive(), 0);
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
    }

    void nothingIsLeftAfterTheLimitEvenWhenNobodyListens()
    {
        chain(6);
        get(m_server->url(QStringLiteral("/0")));
        EVENTUALLY(m_follower.isNull());
        EVENTUALLY_EQUAL(m_manager->alive(), 0);
        QCOMPARE(m_manager->replies.size(), 6);
    }

    void managerDestroyedMeanwhileTakesEverythingWithIt()
    {
        m_server->hang(QStringLiteral("/hang"));
        m_server->redirect(QStringLiteral("/0"), "/hang");
        QSignalSpy finished(&get(m_server->url(QStringLiteral("/0"))), SIGNAL(Finished()));
        EVENTUALLY_EQUAL(m_server->count(QStringLiteral("/hang")), 1);
        const auto replies = m_manager->replies;
        m_manager.reset();
        EVENTUALLY(m_follower.isNull());
        for (const auto& reply : replies)
            QVERIFY(reply.isNull());
        QCOMPARE(finished.count(), 0);
    }
};

QTEST_GUILESS_MAIN(FollowRedirectsTest)
#include "followredirects_test.moc"
