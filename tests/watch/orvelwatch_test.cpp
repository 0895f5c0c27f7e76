#include "tests/watch/watchprocess.h"

#include <QElapsedTimer>
#include <QTemporaryDir>

namespace
{

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

class OrvelWatchTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_directory;
    QString m_root;

    QString inRoot(const char* path) const
    {
        return m_root + QLatin1Char('/') + text(path);
    }

protected:
    void setUp() override
    {
        m_directory = std::make_unique<QTemporaryDir>();
        m_root = m_directory->filePath(text("above/root"));
        QVERIFY(QDir().mkpath(inRoot("a/b c")));
    }

private slots:
    void theFirstChangeAfterTheSignIsReported()
    {
        WatchProcess watch({m_root});
        QVERIFY(watch.says("="));
        watch.forget();
        QVERIFY(watch.saysOfFileIn(m_root, text("/a/b c"), "+a/b%20c"));
        QVERIFY(!watch.lines().contains("+"));
        QVERIFY(!watch.lines().contains("!"));
        QVERIFY(!watch.lines().contains("="));
    }

    void theDirectoryItselfIsAnEmptyPath_data()
    {
        QTest::addColumn<QString>("end");
        QTest::newRow("plain") << QString();
        QTest::newRow("with a slash") << text("/");
        QTest::newRow("with two") << text("//");
    }

    void theDirectoryItselfIsAnEmptyPath()
    {
        QFETCH(QString, end);
        WatchProcess watch({m_root + end});
        QVERIFY(watch.says("="));
        watch.forget();
        QVERIFY(watch.saysOfFileIn(m_root, QString(), "+"));
        QVERIFY(!watch.lines().contains("!"));
        QVERIFY(watch.saysOfFileIn(m_root, text("/a"), "+a"));
    }

    void namesAreUtf8AndEscapedWhateverTheLocaleSays()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
#ifndef Q_OS_WIN // where it means nothing, but to Wine
        environment.insert(text("LC_ALL"), text("C"));
#endif
        QVERIFY(QDir().mkpath(inRoot("Ljubljana – š 50%")));
        WatchProcess watch({m_root}, environment);
        QVERIFY(watch.says("="));
        const QByteArray line = "+Ljubljana%20\xe2\x80\x93%20\xc5\xa1%2050%25";
        QVERIFY(watch.saysOfFileIn(m_root, text("/Ljubljana – š 50%"), line));
    }

    void aLineEndsInALineFeedAlone()
    {
        WatchProcess watch({m_root});
        QVERIFY(watch.says("="));
        QVERIFY(watch.output().endsWith("=\n"));
    }

    void newDirectoriesAreWatched()
    {
        WatchProcess watch({m_root});
        QVERIFY(watch.says("="));
        QVERIFY(QDir().mkpath(inRoot("new")));
        QVERIFY(watch.says("+"));
        watch.forget();
        QVERIFY(watch.saysOfFileIn(m_root, text("/new"), "+new"));
    }

    void aChangeIsReportedWithinAMoment()
    {
        constexpr int attempts = 20;
        constexpr int patience = 1000; // ms, of one
        constexpr int moment = 50;     // ms; the least of all, should the computer be busy
        WatchProcess watch({m_root});
        QVERIFY(watch.says("="));
        qint64 least = deadline();
        for (int i = 0; i < attempts && least > moment; ++i) {
            watch.forget();
            QElapsedTimer time;
            time.start();
            writeFile(m_root + text("/file %1").arg(i), "content");
            while (!watch.lines().contains("+") && time.elapsed() < patience)
                watch.process().waitForReadyRead(1);
            least = qMin(least, time.elapsed());
        }
        QVERIFY2(least <= moment, qPrintable(QString::number(least)));
    }

    void aDirectoryThatIsNoneCannotBeWatched_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("missing") << QStringList(text("missing"));
        QTest::newRow("a file") << QStringList(text("file"));
        QTest::newRow("none named") << QStringList();
    }

    void aDirectoryThatIsNoneCannotBeWatched()
    {
        QFETCH(QStringList, arguments);
        for (QString& argument : arguments)
            argument = m_directory->filePath(argument);
        writeFile(m_directory->filePath(text("file")), "content");
        WatchProcess watch(arguments);
        QVERIFY(watch.ends());
        QCOMPARE(watch.output(), QByteArray("-\n"));
        QCOMPARE(watch.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(watch.process().exitCode(), 1);
    }

    void aDirectoryThatGoesEndsIt_data()
    {
        QTest::addColumn<QString>("renamed");
        QTest::addColumn<bool>("another");
        QTest::newRow("removed") << QString() << false;
        QTest::newRow("renamed") << text("above/root") << false;
        QTest::newRow("renamed, and another is made in its place") << text("above/root") << true;
        QTest::newRow("the one above is renamed") << text("above") << false;
        QTest::newRow("the one above is renamed, and another is made in its place") << text("above") << true;
    }

    void aDirectoryThatGoesEndsIt()
    {
        QFETCH(QString, renamed);
        QFETCH(bool, another);
        WatchProcess watch({m_root});
        QVERIFY(watch.says("="));
        if (renamed.isEmpty())
            QVERIFY(QDir(m_root).removeRecursively());
        else
            QVERIFY(QDir().rename(m_directory->filePath(renamed), m_directory->filePath(text("elsewhere"))));
        if (QDir(m_root).exists())
            QSKIP("Wine keeps a directory until nobody holds it any more");
        if (another)
            QVERIFY(QDir().mkpath(m_root));
        QVERIFY(watch.ends());
        QCOMPARE(watch.lines().last(), QByteArray("-"));
        QCOMPARE(watch.lines().count("-"), 1);
        QCOMPARE(watch.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(watch.process().exitCode(), 1);
    }

    void theEndOfItsInputEndsIt()
    {
        WatchProcess watch({m_root});
        QVERIFY(watch.says("="));
        watch.process().write("anything\n");
        watch.process().closeWriteChannel();
        QVERIFY(watch.ends());
        QVERIFY(!watch.lines().contains("-"));
        QCOMPARE(watch.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(watch.process().exitCode(), 0);
    }

    void inputThatHasEndedBeforeEndsIt()
    {
        WatchProcess watch({m_root});
        watch.process().closeWriteChannel();
        QVERIFY(watch.ends());
        QCOMPARE(watch.process().exitCode(), 0);
    }

    void standardErrorStaysEmptyWhateverIsToBeLogged()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(text("QT_LOGGING_RULES"), text("*.debug=true"));
        WatchProcess watch({m_root}, environment);
        QVERIFY(watch.says("="));
        QVERIFY(watch.saysOfFileIn(m_root, text("/a"), "+a"));
        watch.process().closeWriteChannel();
        QVERIFY(watch.ends());
        QCOMPARE(watch.process().readAllStandardError(), QByteArray());
    }
};

QTEST_GUILESS_MAIN(OrvelWatchTest)
#include "orvelwatch_test.moc"
