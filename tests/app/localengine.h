#pragma once

#include "tests/support/test.h"

#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>

/// An installation directory with the real local engine, made by the build's own installation step. Accounts'
/// clouds lie in the home of the test.
class LocalEngine final
{
    Q_DISABLE_COPY_MOVE(LocalEngine)

public:
    static constexpr quint64 trialAccount = 1001;

    LocalEngine()
    {
        install();
        qputenv("ORVEL_LOCAL_CLOUD", (testHome() + QStringLiteral("/cloud")).toUtf8());
    }

    ~LocalEngine()
    {
        qunsetenv("ORVEL_LOCAL_CLOUD");
        // The installation goes now. On Windows, what was killed may hold its program's file a moment longer.
        QDir::setCurrent(testHome());
        (void)QTest::qWaitFor([this] { return QDir(installDir()).removeRecursively(); }, deadline());
    }

    QString installDir() const
    {
        return m_install.path();
    }

    /// The cloud of an account, or a path in it.
    static QString cloud(quint64 uid, const QString& path = QString())
    {
        return testHome() + QStringLiteral("/cloud/%1").arg(uid) + (path.isEmpty() ? path : u'/' + path);
    }

    /// The sync folder that an account gets when it has none, or a path in it.
    static QString folder(const QString& path = QString())
    {
        return testHome() + QStringLiteral("/Orvel Storage") + (path.isEmpty() ? path : u'/' + path);
    }

    /// Lets the engine of the program @p client find the trial account signed in.
    static void rememberSignIn(const QString& client)
    {
        writeFile(testHome() + QStringLiteral("/data/") + client + QStringLiteral("/signin.terms"),
                  "#{address => <<\"trial@orvel.example\">>,uid => 1001}.\n");
    }

private:
#ifdef Q_OS_WIN
    /// The step is one of the computer that built it, and was done for all before the tests.
    void install() const
    {
        const QString built = QStringLiteral(ORVEL_ENGINE_INSTALLATION);
        QDirIterator files(built, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString copy = installDir() + files.next().mid(built.size());
            if (!QDir().mkpath(QFileInfo(copy).path()) || !QFile::copy(files.filePath(), copy))
                qFatal("the local engine cannot be installed: %s", qPrintable(copy));
        }
        writeFile(installDir() + QStringLiteral("/config.json"),
                  "{\"homepath\":\"" + testHome().toUtf8() + "\",\"homefolder\":\"Orvel Storage\"}");
    }
#else
    void install() const
    {
        QProcess install;
        install.setStandardOutputFile(QProcess::nullDevice());
        install.start(QStringLiteral(ORVEL_CMAKE),
                      {QStringLiteral("--install"), QStringLiteral(ORVEL_BUILD_DIR), QStringLiteral("--prefix"),
                       m_install.path(), QStringLiteral("--component"), QStringLiteral("localengine")});
        if (!install.waitForFinished(deadline()) || install.exitCode() != 0)
            qFatal("the local engine cannot be installed");
    }
#endif

    QTemporaryDir m_install;
};
