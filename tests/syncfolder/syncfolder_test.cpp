#include "syncfolder/syncfolder.h"

#include "engine/servercomm.h"
#include "syncfolder/pickhomepath.h"
#include "syncfolder/winfilewatcher.h"
#include "tests/support/fakeengine.h"
#include "tests/support/metamethods.h"
#include "tests/support/test.h"
#include "json/json.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>

#ifndef Q_OS_WIN
#include "tests/support/fulldisk.h"
#endif

namespace
{

constexpr quint64 account = 1001;

QByteArray rootsJson(const QStringList& fullPaths)
{
    QVariantList roots;
    for (const QString& path : fullPaths) {
        const QFileInfo root(path);
        roots << QVariantMap{{QStringLiteral("path"), root.path()},
                             {QStringLiteral("name"), root.fileName()},
                             {QStringLiteral("kept"), QStringLiteral("as it is")}};
    }
    return Json::serialize(roots);
}

} // namespace

class SyncFolderTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<FakeEngine> m_engine;
    std::unique_ptr<ServerComm> m_server;
    std::unique_ptr<SyncFolder> m_folder;
    std::unique_ptr<QTemporaryDir> m_roots;

protected:
    void setUp() override
    {
        m_engine = std::make_unique<FakeEngine>();
        QDir::setCurrent(m_engine->installDir());
        m_roots = std::make_unique<QTemporaryDir>();
        m_server = std::make_unique<ServerComm>(QStringLiteral("Orvel Storage"), QStringLiteral("V"), false);
        QCoreApplication::setApplicationName(QStringLiteral("Orvel Storage"));
        QCoreApplication::setOrganizationName(QStringLiteral("Velmora d.d."));
        QSettings().clear();
        clearLog();
    }

    void tearDown() override
    {
        m_folder.reset();
        m_server.reset();
        m_engine.reset();
        m_roots.reset();
        QSettings().clear();
        forgetNames();
    }

private:
    SyncFolder& create()
    {
        m_folder = std::make_unique<SyncFolder>(m_server.get(), nullptr);
        connect(m_folder.get(), SIGNAL(pathsChanged(QStringList&)), this, SLOT(takePaths(QStringList&)));
        connect(m_folder.get(), SIGNAL(rootsChanged(QList<QDir>&)), this, SLOT(takeRoots(QList<QDir>&)));
        m_batches.clear();
        m_rootLists.clear();
        return *m_folder;
    }

    /// The registry of an account that was signed in before.
    SyncFolder& createForAccount()
    {
        QSettings().setValue(QStringLiteral("lastuid"), account);
        return create();
    }

    QString makeRoot(const QString& name) const
    {
        const QString path = m_roots->path() + u'/' + name;
        QDir().mkpath(path);
        return path;
    }

    QString rootsFile(quint64 uid = account) const
    {
        return m_server->stateDir() + QStringLiteral("/%1.json").arg(uid);
    }

    void writeRoots(const QStringList& fullPaths, quint64 uid = account) const
    {
        writeFile(rootsFile(uid), rootsJson(fullPaths));
    }

    void call(const char* slot)
    {
        QVERIFY(QMetaObject::invokeMethod(m_folder.get(), slot));
    }

    void pick(const QString& path)
    {
        QVERIFY(QMetaObject::invokeMethod(m_folder.get(), "RootPicked", Q_ARG(QString, path)));
    }

    void change(const QStringList& paths)
    {
        auto* handedOver = new QStringList(paths);
        QVERIFY(QMetaObject::invokeMethod(m_folder.get(), "extPathsChanged", Q_ARG(QStringList*, handedOver)));
    }

    /// Lets the engine say that @p uid is signed in.
    void signIn(quint64 uid)
    {
        EVENTUALLY(m_engine->isConnected());
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":" + QByteArray::number(uid) + "}");
        EVENTUALLY_EQUAL(m_server->state().uid, uid);
    }

    QStringList m_batches; ///< each batch's paths, joined by blanks
    QList<QStringList> m_rootLists;
    int m_changes = 0;

public slots:
    void takePaths(QStringList& paths)
    {
        m_batches << paths.join(u' ');
    }

    void takeRoots(QList<QDir>& roots)
    {
        QStringList paths;
        for (const QDir& root : qAsConst(roots))
            paths << root.path();
        m_rootLists << paths;
    }

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
        call("rootsChanged");
        QCOMPARE(m_rootLists.size(), 1);
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
        QVERIFY2(clock.elapsed() >= 1900, qPrintable(QString::number(clock.elapsed())));
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

    // Answers to the missing folder

    void driveRootIsNoSyncFolder()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        createForAccount();
        const QByteArray before = readFile(rootsFile());
        pick(QDir::rootPath());
        QCOMPARE(readFile(rootsFile()), before);
        QVERIFY(!m_server->running());
        QVERIFY(m_rootLists.isEmpty());
    }

    void pickedRootIsTheOnlyElementOfTheFileAfterwards()
    {
        const QString gone = m_roots->path() + QStringLiteral("/gone");
        writeRoots({gone, gone, gone});
        createForAccount();
        const QString found = makeRoot(QString::fromUtf8("Najden \xc4\x8d"));
        pick(found);
        const QVariantList roots = m_folder->readRoots();
        QCOMPARE(roots.size(), 1);
        QCOMPARE(roots.first().toMap(), (QVariantMap{{QStringLiteral("path"), m_roots->path()},
                                                     {QStringLiteral("name"), QString::fromUtf8("Najden \xc4\x8d")},
                                                     {QStringLiteral("kept"), QStringLiteral("as it is")}}));
        QVERIFY(m_server->running());
        QCOMPARE(m_rootLists, QList<QStringList>{QStringList{found}});
        QVERIFY(m_folder->validRootPaths(account));
    }

    void pickedRootWithoutARootsFileGoesIntoTheConfiguration()
    {
        createForAccount();
        m_server->toggleServer(false);
        pick(m_roots->path() + QStringLiteral("/Picked"));
        QCOMPARE(m_server->config().homefolder, QStringLiteral("Picked"));
        QCOMPARE(m_server->config().homepath, m_roots->path());
        QVERIFY(readFile(m_server->configPath()).contains("\"homefolder\" : \"Picked\""));
        QVERIFY(!m_server->running());
        QVERIFY(m_rootLists.isEmpty());
    }

#ifndef Q_OS_WIN
    void rootsFileIsTheUsersAlone()
    {
        constexpr auto everybodyReads = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
        constexpr auto others = everybodyReads & ~(QFile::ReadOwner | QFile::WriteOwner);
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        QFile::setPermissions(rootsFile(), everybodyReads);
        createForAccount();
        pick(makeRoot(QStringLiteral("New")));
        QCOMPARE(QFile::permissions(rootsFile()) & others, QFile::Permissions());
        writeRoots({m_roots->path() + QStringLiteral("/New")}); // by the engine this time
        QFile::setPermissions(rootsFile(), everybodyReads);
        call("rootsChanged");
        QCOMPARE(QFile::permissions(rootsFile()) & others, QFile::Permissions());
    }
#endif

    void pickedRootKeepsAZeroCharacter()
    {
        writeFile(rootsFile(), R"([ { "id" : "a\u0000b", "name" : "gone", "path" : "/nowhere" } ])");
        createForAccount();
        pick(makeRoot(QStringLiteral("New")));
        const QVariantMap root = m_folder->readRoots().value(0).toMap();
        QCOMPARE(root.value(QStringLiteral("id")).toString(), QStringLiteral("a") + QChar(0) + QStringLiteral("b"));
        QCOMPARE(root.value(QStringLiteral("name")).toString(), QStringLiteral("New"));
    }

    void rootsFileIsReplacedInOneStep()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        createForAccount();
        const QByteArray before = readFile(rootsFile());
        QFile open(rootsFile()); // keeps the old text in hand
        QVERIFY(open.open(QIODevice::ReadOnly));
        pick(makeRoot(QStringLiteral("New")));
#ifdef Q_OS_WIN
        QCOMPARE(readFile(rootsFile()), before); // nobody replaces a file that is open here
        open.close();
        pick(makeRoot(QStringLiteral("Newer")));
#else
        QCOMPARE(open.readAll(), before);
#endif
        QVERIFY(readFile(rootsFile()) != before);
    }

#ifndef Q_OS_WIN
    void fullDiskLeavesTheOldRootsFileAndALine()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        createForAccount();
        const QByteArray before = readFile(rootsFile());
        QVERIFY(before.size() > 16);
        const QString root = makeRoot(QStringLiteral("New"));
        {
            const FullDisk full;
            pick(root);
        }
        QCOMPARE(readFile(rootsFile()), before);
        QVERIFY(!log().filter(QStringLiteral("Unable to write")).filter(rootsFile()).isEmpty());
        pick(root);
        QVERIFY(readFile(rootsFile()).contains("New"));
    }
#endif

    void deletedRootClearsTreeAndJsonFilesButTheConfiguration()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")}, 5);
        const QString state = m_server->stateDir() + u'/';
        for (const char* name : {"5.json", "a.tree", "a.tree.bak", "x.cache"})
            writeFile(state + QLatin1String(name), "x");
        QDir().mkpath(state + QStringLiteral("dir.json"));
        create();
        m_server->toggleServer(false);
        call("RootDeleted");
        QCOMPARE(QDir(state).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name),
                 (QStringList{QStringLiteral("a.tree.bak"), QStringLiteral("config.json"), QStringLiteral("dir.json"),
                              QStringLiteral("x.cache")}));
        QVERIFY(log().contains(QStringLiteral("syncfolder: Deleting file  ") + state + QStringLiteral("5.json")));
        QVERIFY(m_server->running());
    }

    // Moving

    void movedRootIsRenamedAndRegistered()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeFile(root + QStringLiteral("/file"), "x");
        makeRoot(QStringLiteral("elsewhere"));
        writeRoots({root});
        createForAccount();
        const QString moved = m_roots->path() + QStringLiteral("/elsewhere/Root");
        m_folder->moveRoot(moved);
        QCOMPARE(readFile(moved + QStringLiteral("/file")), QByteArray("x"));
        QVERIFY(!QFileInfo::exists(root));
        QVERIFY(m_folder->validRootPaths(account));
        QCOMPARE(m_folder->rootPath(), moved);
        QVERIFY(m_server->running());
    }

    void moveThatFailsLeavesTheRootRegisteredAndTheEngineOn()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        m_folder->moveRoot(m_roots->path() + QStringLiteral("/no/such/parent/Root"));
        QVERIFY(QFileInfo(root).isDir());
        QVERIFY(m_folder->validRootPaths(account));
        QVERIFY(m_server->running());
    }

    void moveWithoutRootsOnlyPicksThePlace()
    {
        createForAccount();
        m_folder->moveRoot(m_roots->path() + QStringLiteral("/Wanted"));
        QCOMPARE(m_server->config().homefolder, QStringLiteral("Wanted"));
    }

    void moveOfAMissingRootDoesNothing()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        createForAccount();
        clearLog();
        m_folder->moveRoot(m_roots->path() + QStringLiteral("/x"));
        QVERIFY(log().filter(QStringLiteral("Server toggle")).isEmpty());
    }

    // The question

    void twoActivationsShowOneDialog()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        createForAccount();
        m_folder->AppActivated();
        m_folder->AppActivated();
        int dialogs = 0;
        for (const QWidget* widget : QApplication::topLevelWidgets())
            dialogs += qobject_cast<const PickHomepath*>(widget) != nullptr && widget->isVisible() ? 1 : 0;
        QCOMPARE(dialogs, 1);
        QCOMPARE(log().filter(QStringLiteral("picking home start pos")),
                 QStringList{QStringLiteral("syncfolder: picking home start pos:  ") + QDir::homePath()});
    }

    void noQuestionIsAskedWhileTheFolderIsThere()
    {
        create().AppActivated();
        QVERIFY(log().filter(QStringLiteral("picking home")).isEmpty());
        QVERIFY(log().contains(QStringLiteral("syncfolder: AppActivated 0x0")));
    }

    void closedQuestionIsAskedAgainAtTheNextActivation()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        createForAccount().AppActivated();
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* dialog = qobject_cast<PickHomepath*>(widget))
                dialog->close();
        }
        QVERIFY(log().contains(QStringLiteral("syncfolder: pick home closed")));
        QVERIFY(!m_server->running());
        m_folder->AppActivated();
        QCOMPARE(log().filter(QStringLiteral("picking home start pos")).size(), 2);
    }

    // The probe

    void dormantProbeWritesItsFileIntoTheCacheDirectory()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        const QString cache = makeRoot(QStringLiteral("Root/.engine.cache"));
        writeRoots({root});
        createForAccount();
        call("macEventChecker"); // no cache directory yet
        call("rootsChanged");
        call("macEventChecker");
        QCOMPARE(readFile(cache + QStringLiteral("/fsfile")), QByteArray("\0\0\0\4ABC\0", 8));
    }
};

QTEST_MAIN(SyncFolderTest)
#include "syncfolder_test.moc"
