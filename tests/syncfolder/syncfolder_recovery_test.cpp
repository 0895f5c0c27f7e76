#include "syncfolder/pickhomepath.h"
#include "tests/syncfolder/syncfoldertest.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QProcess>

#include <algorithm>
#include <functional>

#ifdef Q_OS_WIN
#include <QWinEventNotifier>
#else
#include "tests/support/fulldisk.h"

#include <QSocketNotifier>
#endif

namespace
{

/// Keeps what a function makes of each line at the moment in which it is logged.
class LogWatch final
{
    Q_DISABLE_COPY_MOVE(LogWatch)

public:
    using Note = std::function<QString(const QString& line)>; ///< an empty one is not kept

    explicit LogWatch(Note note)
    {
        s_note = std::move(note);
        s_notes.clear();
        s_previous = qInstallMessageHandler(take);
    }
    ~LogWatch()
    {
        qInstallMessageHandler(s_previous);
        s_note = nullptr;
    }
    static QStringList notes()
    {
        return s_notes;
    }

private:
    static void take(QtMsgType type, const QMessageLogContext& context, const QString& line)
    {
        const QString note = s_note(line);
        if (!note.isEmpty())
            s_notes << note;
        s_previous(type, context, line);
    }

    inline static Note s_note;
    inline static QStringList s_notes;
    inline static QtMessageHandler s_previous = nullptr;
};

/// As long as one lives, the system does not tell this program that a child of it has ended.
class NoNewsOfProcesses final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(NoNewsOfProcesses)

#ifdef Q_OS_WIN
    using Notifier = QWinEventNotifier;
#else
    using Notifier = QSocketNotifier;
#endif

public:
    NoNewsOfProcesses()
    {
        QCoreApplication::instance()->installEventFilter(this);
    }
    ~NoNewsOfProcesses() override
    {
        for (const auto& notifier : m_silenced) {
            if (notifier)
                notifier->setEnabled(true);
        }
    }

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        auto* notifier = qobject_cast<Notifier*>(watched);
        if (notifier == nullptr || qobject_cast<QProcess*>(notifier->parent()) == nullptr)
            return QObject::eventFilter(watched, event);
        if (event->type() != QEvent::SockAct && event->type() != QEvent::WinEventAct)
            return QObject::eventFilter(watched, event);
        notifier->setEnabled(false);
        m_silenced.append(notifier);
        return true;
    }

private:
    QVector<QPointer<Notifier>> m_silenced;
};

PickHomepath* question()
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* dialog = qobject_cast<PickHomepath*>(widget))
            return dialog;
    }
    return nullptr;
}

} // namespace

class SyncFolderRecoveryTest final : public SyncFolderTest
{
    Q_OBJECT

private slots:
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
        QVERIFY(log().contains(QStringLiteral("syncfolder: Root picked  ") + found));
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
#ifndef Q_OS_WIN // where a file that is open is not replaced, but written
        QCOMPARE(open.readAll(), before);
#endif
        QVERIFY(readFile(rootsFile()) != before);
        QCOMPARE(m_folder->readRoots().value(0).toMap().value(QStringLiteral("name")).toString(),
                 QStringLiteral("New"));
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

#ifndef Q_OS_WIN
    void onlyTheConfigurationOfTheVeryNameIsSpared()
    {
        create();
        const QString other = m_server->stateDir() + QStringLiteral("/Config.json");
        writeFile(other, "x");
        call("RootDeleted");
        QVERIFY(!QFileInfo::exists(other));
        QVERIFY(QFileInfo::exists(m_server->configPath()));
    }
#endif

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
        EVENTUALLY_EQUAL(readFile(moved + QStringLiteral("/file")), QByteArray("x"));
        QVERIFY(!QFileInfo::exists(root));
        QVERIFY(m_folder->validRootPaths(account));
        QCOMPARE(m_folder->rootPath(), moved);
        QVERIFY(m_server->running());
    }

    void engineIsOffWhileTheRootIsRenamed()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        const QString moved = m_roots->path() + QStringLiteral("/Moved");
        const LogWatch watch([&](const QString& line) {
            return line.startsWith(QLatin1String("servercomm: Server toggle"))
                       ? line.section(u' ', -1) + QLatin1String(QFileInfo(root).isDir() ? " before" : " after")
                       : QString();
        });
        m_folder->moveRoot(moved);
        EVENTUALLY(QFileInfo(moved).isDir());
        QCOMPARE(watch.notes(), (QStringList{QStringLiteral("false before"), QStringLiteral("true after"),
                                             QStringLiteral("true after")}));
    }

    void moveThatFailsLeavesTheRootRegisteredAndTheEngineOn()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        QString reason;
        m_folder->moveRoot(m_roots->path() + QStringLiteral("/no/such/parent/Root"),
                           [&](const QString& why) { reason = why; });
        EVENTUALLY(!reason.isEmpty());
        QVERIFY(QFileInfo(root).isDir());
        QVERIFY(m_folder->validRootPaths(account));
        QVERIFY(m_server->running());
    }

    void rootIsMovedOnlyWhenTheEngineHasEnded()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        EVENTUALLY(m_engine->isConnected());
        const QString moved = m_roots->path() + QStringLiteral("/Moved");
        m_folder->moveRoot(moved);
        QVERIFY(m_server->hasProcess());
        QVERIFY(QFileInfo(root).isDir());
        QVERIFY(!QFileInfo::exists(moved));
        EVENTUALLY(QFileInfo(moved).isDir());
        EVENTUALLY_EQUAL(m_engine->starts().size(), 2);
    }

    void engineThatDoesNotEndIsWaitedForThreeSeconds()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        EVENTUALLY(m_engine->isConnected());
        const QString moved = m_roots->path() + QStringLiteral("/Moved");
        {
            const NoNewsOfProcesses noNews;
            QElapsedTimer clock;
            clock.start();
            m_folder->moveRoot(moved);
            EVENTUALLY(QFileInfo(moved).isDir());
            const qint64 waited = clock.elapsed();
            QVERIFY2(waited >= 3000 && waited < 4500, qPrintable(QString::number(waited)));
            QVERIFY(m_server->hasProcess());
        }
        EVENTUALLY(!m_server->hasProcess());
    }

    void moveOntoAnEmptyFolderFails()
    {
        const QString root = makeRoot(QStringLiteral("Root"));
        writeRoots({root});
        createForAccount();
        QString reason;
        m_folder->moveRoot(makeRoot(QStringLiteral("taken")), [&](const QString& why) { reason = why; });
        EVENTUALLY(!reason.isEmpty());
        QVERIFY(QFileInfo(root).isDir());
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

    void questionIsAToolWindowOnTopThatProposesAFolderInTheHome()
    {
        writeRoots({m_roots->path() + QStringLiteral("/gone")});
        createForAccount().AppActivated();
        PickHomepath* const dialog = question();
        QVERIFY(dialog);
        QCOMPARE(dialog->windowFlags() & Qt::WindowType_Mask, Qt::WindowFlags(Qt::Tool));
        QVERIFY(dialog->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        QVERIFY(!dialog->parent());
        QVERIFY(!dialog->isModal());
        QVERIFY(QMetaObject::invokeMethod(dialog, "DefaultPath"));
        QVERIFY(log().contains(QStringLiteral("syncfolder: Root picked  ") + QDir::homePath() +
                               QStringLiteral("/Orvel Storage")));
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
        const QVector<int> before = singleShotDelays();
        call("macEventChecker"); // no cache directory yet
        QVector<int> armed = singleShotDelays();
        for (const int delay : before)
            armed.removeOne(delay);
        std::sort(armed.begin(), armed.end());
        QCOMPARE(armed, (QVector<int>{5000, 60000}));
        call("rootsChanged");
        call("macEventChecker");
        QCOMPARE(readFile(cache + QStringLiteral("/fsfile")), QByteArray("\0\0\0\4ABC\0", 8));
    }
};

QTEST_MAIN(SyncFolderRecoveryTest)
#include "syncfolder_recovery_test.moc"
