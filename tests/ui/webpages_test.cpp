#include "ui/webpages.h"

#include "tests/support/test.h"

class WebPagesTest final : public Test
{
    Q_OBJECT

private slots:
    void pagesOfTheWebSite()
    {
        const QString site = QStringLiteral("www.orvel.example");
        QCOMPARE(webpages::homepage(site).toString(), QStringLiteral("https://www.orvel.example/kesta/vse"));
        QCOMPARE(webpages::orderPage(site).toString(), QStringLiteral("https://www.orvel.example/narocanje-kesta"));
        QCOMPARE(webpages::help(site).toString(), QStringLiteral("http://www.orvel.example/kesta/pomoc"));
    }

    void folderHasThreeSlashesOnBothSystems()
    {
        QCOMPARE(webpages::folder(QStringLiteral("/home/ana/Orvel Storage")).toEncoded(),
                 QByteArray("file:///home/ana/Orvel%20Storage"));
        QCOMPARE(webpages::folder(QStringLiteral("/a/100% #1?.txt")).toLocalFile(), QStringLiteral("/a/100% #1?.txt"));
#ifdef Q_OS_WIN
        QCOMPARE(webpages::folder(QStringLiteral("C:/Ana")).toEncoded(), QByteArray("file:///C:/Ana"));
#endif
    }

    void itemPageNamesTheFoldersBetweenRootAndItem_data()
    {
        QTest::addColumn<QList<quint64>>("ids");
        QTest::addColumn<QString>("end");
        QTest::newRow("in the root") << QList<quint64>{7, 42} << "/datoteke/vse/#share=42";
        QTest::newRow("two folders down") << QList<quint64>{7, 10, 11, 42} << "/datoteke/vse/10/11/#share=42";
        QTest::newRow("largest") << QList<quint64>{1, 18446744073709551615ULL}
                                 << "/datoteke/vse/#share=18446744073709551615";
    }
    void itemPageNamesTheFoldersBetweenRootAndItem()
    {
        QFETCH(QList<quint64>, ids);
        QFETCH(QString, end);
        QCOMPARE(webpages::item(QStringLiteral("sync.orvel.example"), ids, QStringLiteral("share")).toString(),
                 QStringLiteral("http://sync.orvel.example") + end);
    }

    void itemPageOfTheVersions()
    {
        QVERIFY(webpages::item(QStringLiteral("h"), {1, 2}, QStringLiteral("versions"))
                    .toString()
                    .endsWith(QStringLiteral("#versions=2")));
    }

    void updateFeedIsTheServersUnlessTheEnvironmentNamesAnother()
    {
        const QByteArray before = qgetenv("ORVEL_UPDATE_FEED");
        qunsetenv("ORVEL_UPDATE_FEED");
        QCOMPARE(webpages::updateFeed(QStringLiteral("sync.orvel.example")).toString(),
                 QStringLiteral("http://sync.orvel.example/sync/clientversionxml?os=win&app=orvel"));
        qputenv("ORVEL_UPDATE_FEED", "https://127.0.0.1:1/staged?x=1");
        QCOMPARE(webpages::updateFeed(QStringLiteral("sync.orvel.example")).toString(),
                 QStringLiteral("https://127.0.0.1:1/staged?x=1"));
        qputenv("ORVEL_UPDATE_FEED", before);
    }

    void fewerThanTwoIdsNameNoPage()
    {
        QVERIFY(webpages::item(QStringLiteral("h"), {}, QStringLiteral("share")).isEmpty());
        QVERIFY(webpages::item(QStringLiteral("h"), {7}, QStringLiteral("share")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(WebPagesTest)
#include "webpages_test.moc"
