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
    /// Whether the line comes when a file is written into the directory beneath the root.
    bool saysOfFileIn(const QString& root, const QString& directory, const QByteArray& line)
    {
        writeFile(root + directory + QStringLiteral("/file"), "content");
#ifdef Q_OS_WIN
        // Wine sees into an earlier directory only when that is opened while its parent is watched, and not always.
        constexpr int patience = 25;
        int number = 0;
        return QTest::qWaitFor(
            [&] {
                openAll(root);
                if (!directory.isEmpty() && number % patience == patience - 1)
                    makeAnew(root, directory);
                writeFile(root + directory + QStringLiteral("/file %1").arg(++number), "content");
                return lines().contains(line);
            },
            deadline());
#else
        return says(line);
#endif
    }
    bool ends()
    {
        return QTest::qWaitFor([&] { return m_process.state() == QProcess::NotRunning; }, deadline());
    }

private:
    /// Puts new directories of the same names in their place.
    static void makeAnew(const QString& root, const QString& directory)
    {
        static int number = 0;
        const QString first = QLatin1Char('/') + directory.section(QLatin1Char('/'), 1, 1);
        QDir().rename(root + first, root + QStringLiteral(" %1").arg(++number));
        QDir().mkpath(root + directory);
    }
    static void openAll(const QString& directory)
    {
        const QStringList names = QDir(directory).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
        for (const QString& name : names)
            openAll(directory + QLatin1Char('/') + name);
    }

    QProcess m_process;
    QByteArray m_output;
};
