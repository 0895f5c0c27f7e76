#include "syncfolder/winfilewatcher.h"
#include "tests/support/metamethods.h"
#include "tests/syncfolder/syncfoldertest.h"

#include <QElapsedTimer>

class SyncFolderRegistryTest final : public SyncFolderTest
{
    Q_OBJECT

    int m_changes = 0;

public slots:
    void changeAgain()
    {
        change({QStringLiteral("/later%1").arg(++m_changes)});
    }

private slots:
    void signalsAndSlotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(SyncFolder::staticMetaObject), (QStringList{QStringLiteral("pathsChanged(QStringList&)"),
                                                                       QStringLiteral("rootsChanged(QList<QDir>&)")}));
        QCOMPARE(slotsOf(SyncFolder::staticMetaObject),
                 (QStringList{QStringLiteral("RootPicked(QString)"), QStringLiteral("RootDeleted()"),
                              QStringLiteral("extPathsChanged(QStringList*)"), QStringLiteral("reportTimeout()"),
                              QStringLiteral("rootsChanged()"), QStringLiteral("loginChanged()"),
                              QStringLiteral("pickHomeclosed(int)"), QStringLiteral("macEventChecker()"),
                              QStringLiteral("macEventChecker1()")}));
        QCOMPARE(signalsOf(WinFileWatcher::staticMetaObject),
                 QStringList{QStringLiteral("pathsChanged(QStringList*)")});
    }

    // The check at start

    void withoutALastAccountTheEngineIsStartedUnchecked()
    {
        create();
        QVERIFY(m_server->running());
        QVERIFY(log().filter(QStringLiteral("validrootpaths")).isEmpty());
        QSettings().setValue(QStringLiteral("lastuid"), 0);
        m_server->toggleServer(false);
        create();
        QVERIFY(m_server->running());
    }

    void rootsThatAreThereStartTheEngineAndTheLastIsRemembered()
    {
        const QString first = makeRoot(QStringLiteral("A"));
        const QString second = makeRoot(QStringLiteral("B"));
        writeRoots({first, second});
        createForAccount();
        QVERIFY(m_server->running());
        QCOMPARE(m_folder->rootPath(), second);
        QCOMPARE(m_folder->uid(), account);
        QVERIFY(log().contains(QStringLiteral("validrootpaths  1001")));
        QVERIFY(log().contains(QStringLiteral("syncfolder: Valid rootpaths for  2")));
    }

    void rootBeforeAMissingOneIsRemembered()
    {
        const QString first = makeRoot(QStringLiteral("A"));
        writeRoots({first, m_roots->path() + QStringLiteral("/gone"), makeRoot(QStringLiteral("C"))});
        createForAccount();
        QVERIFY(!m_server->running());
        QCOMPARE(m_folder->rootPath(), first);
    }

    void lastAccountIsReadAsASignedNumber_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("checked");
        QTest::newRow("beyond a signed number") << "18446744073709551611"
                                                << "";
        QTest::newRow("the largest") << "9223372036854775807"
                                     << "9223372036854775807";
        QTest::newRow("negative") << "-5"
                                  << "18446744073709551611";
    }
    void lastAccountIsReadAsASignedNumber()
    {
        QFETCH(QString, stored);
        QFETCH(QString, checked);
        QSettings().setValue(QStringLiteral("lastuid"), stored);
        create();
        QCOMPARE(log().filter(QStringLiteral("validrootpaths")),
                 checked.isEmpty() ? QStringList() : QStringList{QStringLiteral("validrootpaths  ") + checked});
    }

    void missingRootKeepsTheEngineOff()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        createForAccount();
        QVERIFY(!m_server->running());
        QVERIFY(m_folder->rootPath().isEmpty());
        QVERIFY(log().contains(QStringLiteral("servercomm: Save config  true")));
    }

    void emptyRootsFilePassesTheCheckAndRebuildsToAWatcherOverNothing()
    {
        writeFile(rootsFile(), "[]");
        createForAccount();
        QVERIFY(m_server->running());
        call("rootsChanged");
        QCOMPARE(m_rootLists, QList<QStringList>{QStringList()});
        QVERIFY(log().contains(QStringLiteral("Win file watcher paths:  ")));
    }

    void unusableRootsFileCountsAsNoRoots_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("complained");
        QTest::newRow("empty") << QByteArray() << false;
        QTest::newRow("noise") << QByteArray("{noise") << true;
        QTest::newRow("object") << QByteArray("{\"path\":\"/\"}") << false;
        QTest::newRow("cut short") << QByteArray("[{\"path\":\"/\",") << true;
        QTest::newRow("a million deep") << QByteArray(1000000, '[') << true;
    }
    void unusableRootsFileCountsAsNoRoots()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, complained);
        writeFile(rootsFile(), content);
        QVERIFY(createForAccount().readRoots().isEmpty());
        QVERIFY(m_server->running());
        QCOMPARE(log().contains(QStringLiteral("syncfolder: Unable to parse json  ") + QString::fromUtf8(content)),
                 complained);
    }

    void rootsFileThatIsADirectoryCountsAsNoRoots()
    {
        QDir().mkpath(rootsFile());
        QVERIFY(createForAccount().readRoots().isEmpty());
        QVERIFY(m_server->running());
        call("RootDeleted");
        QVERIFY(QFileInfo(rootsFile()).isDir());
    }

    void elementsOfTheWrongTypeDoNoHarm()
    {
        writeFile(rootsFile(), "[1, null, \"x\", [[]], {\"path\": {\"a\":1}, \"name\": [1]}]");
        QCOMPARE(createForAccount().readRoots().size(), 5);
        QVERIFY(m_server->running());
        QVERIFY(m_folder->rootPath().isEmpty());
        call("rootsChanged");
        QCOMPARE(m_rootLists, QList<QStringList>{QStringList()});
    }

    void elementWithoutANameDoesNotStandForTheDirectoryAboveIt()
    {
        writeFile(rootsFile(), R"([{"path":")" + m_roots->path().toUtf8() + R"("}, {"name":"tmp"}])");
        createForAccount();
        QVERIFY(m_folder->rootPath().isEmpty());
        call("rootsChanged");
        QCOMPARE(m_rootLists, QList<QStringList>{QStringList()});
    }

    void rootsFileEndsAtItsFirstZeroByte()
    {
        writeFile(rootsFile(), QByteArray(R"([{"path":"/a","name":"b?c"}])").replace('?', '\0'));
        QVERIFY(createForAccount().readRoots().isEmpty()); // cut within a text
        QCOMPARE(log().filter(QStringLiteral("syncfolder: Unable to parse json  ")).size(), 2);
        writeFile(rootsFile(), QByteArray(R"([{"path":"/a","name":"b"}]?)").replace('?', '\0'));
        QCOMPARE(m_folder->readRoots().size(), 1);
    }

    void rootThatIsGoneIsUsedAsItStands()
    {
        const QString gone = m_roots->path() + QStringLiteral("/gone");
        const QString there = makeRoot(QStringLiteral("there"));
        writeRoots({gone, there});
        createForAccount();
        clearLog();
        call("rootsChanged");
        QCOMPARE(m_rootLists, (QList<QStringList>{QStringList{gone, there}}));
        QVERIFY(log().contains(QStringLiteral("Win file watcher paths:  ") + gone + u' ' + there));
        QVERIFY(log().contains(QStringLiteral("Unable CreateFile failed for path  ") + gone));
    }

    void rootsFileIsReadAsLatin1()
    {
        writeFile(rootsFile(), "[{\"path\":\"/\xe9\",\"name\":\"\\u010d\"}]");
        const QVariantMap root = createForAccount().readRoots().value(0).toMap();
        QCOMPARE(root.value(QStringLiteral("path")).toString(), QStringLiteral("/") + QChar(0xe9));
        QCOMPARE(root.value(QStringLiteral("name")).toString(), QString(QChar(0x10d)));
    }

    // Signing in and out

    void signInStoresTheAccountAndLoadsItsRootsOnTheEnginesReport()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        create();
        signIn(account);
        QCOMPARE(m_folder->uid(), account);
        QCOMPARE(QSettings().value(QStringLiteral("lastuid")).toULongLong(), account);
        QCOMPARE(QSettings().value(QStringLiteral("lastuidact")).toULongLong(), account);
        // The rebuild at sign-in still reads the previous account's file.
        QCOMPARE(m_rootLists, QList<QStringList>{QStringList()});
        QVERIFY(log().contains(QStringLiteral("syncfolder: Sync folder uid changed from  0  to  1001")));
        m_engine->say("{\"what\":\"rootschanged\"}");
        EVENTUALLY_EQUAL(m_rootLists, (QList<QStringList>{QStringList(), QStringList{root}}));
    }

    void repeatedReportOfTheSameAccountRebuildsNothing()
    {
        create();
        signIn(account);
        m_rootLists.clear();
        call("loginChanged");
        QVERIFY(m_rootLists.isEmpty());
    }

    void accountThatIsGoneFromTheSettingsComesBackWithTheNextReport()
    {
        create();
        signIn(account);
        for (const char* key : {"lastuid", "lastuidact"})
            QSettings().remove(QLatin1String(key));
        call("loginChanged");
        QCOMPARE(QSettings().value(QStringLiteral("lastuid")).toULongLong(), account);
        QCOMPARE(QSettings().value(QStringLiteral("lastuidact")).toULongLong(), account);
    }

    void otherAccountWithoutASignOutTakesTheWatcherAndThePreviousRootsFirst()
    {
        constexpr quint64 other = account + 1;
        const QString mine = makeRoot(QStringLiteral("Mine"));
        const QString theirs = makeRoot(QStringLiteral("Theirs"));
        writeRoots({mine}, account);
        writeRoots({theirs}, other);
        createForAccount();
        signIn(account);
        EVENTUALLY_EQUAL(m_rootLists, QList<QStringList>{QStringList{mine}});
        clearLog();
        signIn(other);
        EVENTUALLY_EQUAL(m_folder->uid(), other);
        QCOMPARE(log().count(QStringLiteral("Watcher stop")), 1);
        QCOMPARE(m_rootLists.mid(1), QList<QStringList>{QStringList{mine}});
        QVERIFY(log().contains(QStringLiteral("syncfolder: Sync folder uid changed from  1001  to  1002")));
        QVERIFY(log().contains(QStringLiteral("syncfolder: root changed  1001")));
        QCOMPARE(QSettings().value(QStringLiteral("lastuid")).toULongLong(), other);
        m_engine->say("{\"what\":\"rootschanged\"}");
        EVENTUALLY_EQUAL(m_rootLists.mid(2), QList<QStringList>{QStringList{theirs}});
    }

    void knownAccountWithoutAWatcherIsRebuilt()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        signIn(account);
        EVENTUALLY_EQUAL(m_rootLists, QList<QStringList>{QStringList{root}});
    }

    void logOutDestroysTheWatcherAndKeepsTheLastAccount()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        signIn(account);
        clearLog();
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"logout\",\"uid\":0}");
        EVENTUALLY_EQUAL(m_folder->uid(), 0ULL);
        EVENTUALLY(log().contains(QStringLiteral("Watcher stop")));
        QCOMPARE(QSettings().value(QStringLiteral("lastuid")).toULongLong(), account);
        QCOMPARE(QSettings().value(QStringLiteral("lastuidact")).toULongLong(), 0ULL);
        QVERIFY(QSettings().contains(QStringLiteral("lastuidact")));
    }

    // Reports of changes

    void changedFileReachesTheReport()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        signIn(account);
        // Again and again, because the watch may begin after the first.
        const auto reported = [&] {
            writeFile(root + QStringLiteral("/file"), "x");
            return !m_batches.isEmpty();
        };
        QVERIFY(QTest::qWaitFor(reported, deadline()));
        QCOMPARE(m_batches.at(0), root);
    }

    void twoBatchesHalfASecondApartAreReportedOnceASecondAfterTheFirstTimer()
    {
        create();
        QElapsedTimer clock;
        clock.start();
        change({QStringLiteral("/first")});
        QTimer::singleShot(500, this, SLOT(changeAgain()));
        EVENTUALLY_EQUAL(m_batches, QStringList{QStringLiteral("/first /later1")});
        const qint64 waited = clock.elapsed();
        QVERIFY2(waited >= 1900, qPrintable(QString::number(waited)));
        QVERIFY2(waited < deadline() * 3 / 10, qPrintable(QString::number(waited)));
    }

    void oneBatchIsReportedASecondLater()
    {
        create();
        QElapsedTimer clock;
        clock.start();
        change({QStringLiteral("/only")});
        EVENTUALLY_EQUAL(m_batches, QStringList{QStringLiteral("/only")});
        const qint64 waited = clock.elapsed();
        QVERIFY2(waited >= 900, qPrintable(QString::number(waited)));
        QVERIFY2(waited < deadline() * 19 / 100, qPrintable(QString::number(waited)));
    }

    void batchIsLoggedWithItsPathsAndTheTime()
    {
        create();
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        change({QStringLiteral("/a"), QStringLiteral("/b")});
        const qint64 after = QDateTime::currentMSecsSinceEpoch();
        const QString line = log().last();
        QVERIFY2(line.startsWith(QStringLiteral("syncfolder: extpaths changed  /a /b ")), qPrintable(line));
        const qint64 logged = line.section(u' ', -1).toLongLong();
        QVERIFY(logged >= before && logged <= after);
    }

    void thirdBatchDuringTheSecondSecondStartsItsOwnTimer()
    {
        create();
        change({QStringLiteral("/first")});
        change({QStringLiteral("/second")});
        // The first timer has run out when another one has taken its place.
        call("reportTimeout");
        QVERIFY(m_batches.isEmpty());
        const int timers = armedSingleShots();
        change({QStringLiteral("/third")});
        QCOMPARE(armedSingleShots(), timers + 1);
        EVENTUALLY_EQUAL(m_batches, QStringList{QStringLiteral("/first /second /third")});
    }

    void samePathTwiceInABatchIsReportedOnce()
    {
        create();
        change({QStringLiteral("/a"), QStringLiteral("/b"), QStringLiteral("/a")});
        call("reportTimeout");
        QCOMPARE(m_batches, QStringList{QStringLiteral("/a /b")});
        change({QStringLiteral("/a"), QStringLiteral("/A")});
        call("reportTimeout");
        QCOMPARE(m_batches.value(1), QStringLiteral("/a /A"));
    }

    void reportWithNothingPendingSaysNothing()
    {
        create();
        call("reportTimeout");
        QVERIFY(m_batches.isEmpty());
    }

    void cacheDirectoryIsNeverReported()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        const QString cache = makeRoot(QStringLiteral("Root/.engine.cache"));
        writeRoots({root});
        createForAccount();
        change({cache, root});
        call("reportTimeout");
        QCOMPARE(m_batches, QStringList{cache + u' ' + root}); // not yet known

        call("rootsChanged");
        QVERIFY(log().contains(QStringLiteral("syncfolder: CACHEDIR  ") + cache));
        change({cache, cache + QStringLiteral("/sub"), root});
        call("reportTimeout");
        QCOMPARE(m_batches.value(1), root);
    }

    void whatOnlyBeginsLikeTheCacheDirectoryIsNotReportedEither()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        const QString cache = makeRoot(QStringLiteral("Root/x.cache"));
        writeRoots({root});
        createForAccount();
        call("rootsChanged");
        const QString otherCase = root + QStringLiteral("/X.cache");
        change({cache + u'2', otherCase});
        call("reportTimeout");
        QCOMPARE(m_batches, QStringList{otherCase});
    }

    void fileIsNoCacheDirectory()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeFile(root + QStringLiteral("/x.cache"), "x");
        writeRoots({root});
        createForAccount();
        call("rootsChanged");
        QVERIFY(log().filter(QStringLiteral("CACHEDIR")).isEmpty());
    }

    void ofSeveralRootsTheLastWithACacheDirectoryWins()
    {
        const QStringList roots{makeRoot(QStringLiteral("A")), makeRoot(QStringLiteral("B")),
                                makeRoot(QStringLiteral("C"))};
        makeRoot(QStringLiteral("A/x.cache"));
        const QString last = makeRoot(QStringLiteral("B/y.cache"));
        writeRoots(roots);
        createForAccount();
        call("rootsChanged");
        QCOMPARE(log().filter(QStringLiteral("CACHEDIR")).last(), QStringLiteral("syncfolder: CACHEDIR  ") + last);
    }
};

QTEST_MAIN(SyncFolderRegistryTest)
#include "syncfolder_test.moc"
