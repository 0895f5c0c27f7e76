#pragma once

#include "tests/support/test.h"

#include <QDir>
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
        QProcess install;
        install.setStandardOutputFile(QProcess::nullDevice());
        install.start(QStringLiteral(ORVEL_CMAKE),
                      {QStringLiteral("--install"), QStringLiteral(ORVEL_BUILD_DIR), QStringLiteral("--prefix"),
                       m_install.path(), QStringLiteral("--component"), QStringLiteral("localengine")});
        if (!install.waitForFinished(deadline()) || install.exitCode() != 0)
            qFatal("the local engine cannot be installed");
        qputenv("ORVEL_LOCAL_CLOUD", (testHome() + QStringLiteral("/cloud")).toUtf8());
    }

    ~LocalEngine()
    {
        qunsetenv("ORVEL_LOCAL_CLOUD");
        QDir::setCurrent(testHome()); // the installation goes now
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
    QTemporaryDir m_install;
};
