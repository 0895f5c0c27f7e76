#pragma once

#include "tests/support/test.h"

#include <QDir>
#include <QProcess>

/// The program, started on a directory; what it writes is kept.
class WatchProcess final
{
    Q_DISABLE_COPY_MOVE(WatchProcess)

public:
    explicit WatchProcess(const QStringList& arguments, const QProcessEnvironment& environment = {})
    {
        if (!environment.isEmpty())
            m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral(ORVEL_WATCH), arguments);
    }
    ~WatchProcess()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    QProcess& process()
    {
        return m_process;
    }
    QByteArray output()
    {
        m_output += m_process.readAllStandardOutput();
        return m_output;
    }
    /// The whole lines so far.
    QList<QByteArray> lines()
    {
        QList<QByteArray> found = output().split('\n');
        found.removeLast();
        return found;
    }
    void forget()
    {
        (void)output();
        m_output.clear();
    }

    /// Whether the line comes, or is there already.
    bool says(const QByteArray& line)
    {
        return QTest::qWaitFor([&] { return lines().contains(line); }, deadline());
    }
    /// Waits until everything in the tree is watched.
    bool watches(const QString& directory)
    {
        if (!says("="))
            return false;
        openAll(directory);
        return true;
    }
    bool ends()
    {
        return QTest::qWaitFor([&] { return m_process.state() == QProcess::NotRunning; }, deadline());
    }

private:
    /// Wine sees into an earlier directory only when that is opened while its parent is watched.
    static void openAll(const QString& directory)
    {
        const QStringList names = QDir(directory).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
        for (const QString& name : names)
            openAll(directory + QLatin1Char('/') + name);
    }

    QProcess m_process;
    QByteArray m_output;
};
