#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>

#include <csignal>
#include <memory>

/// The built client as a process of its own.
class RunningClient final
{
    Q_DISABLE_COPY_MOVE(RunningClient)

public:
    explicit RunningClient(const QString& installDir)
    {
        m_process.setWorkingDirectory(installDir);
        m_process.start(QStringLiteral(ORVEL_CLIENT), QStringList());
    }

    QProcess& process()
    {
        return m_process;
    }

    /// All that it has logged.
    const QByteArray& output()
    {
        m_output += m_process.readAllStandardError();
        return m_output;
    }

    /// The state that the engine told last, empty when it has told none.
    QByteArray state()
    {
        static const QByteArray line = "maindlg: network state  ";
        const QByteArray& all = output();
        const int start = all.lastIndexOf(line);
        const int end = all.indexOf('\n', start);
        return start < 0 || end < 0 ? QByteArray() : all.mid(start + line.size(), end - start - line.size());
    }

    /// Ends it at once, and so its engine.
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    /// Kills its engine alone; false when there is none.
    bool killEngine() const
    {
        if (m_process.processId() == 0)
            return false;
        const QStringList processes = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
        for (const QString& process : processes) {
            QFile file(QStringLiteral("/proc/") + process + QStringLiteral("/stat"));
            if (!file.open(QIODevice::ReadOnly))
                continue;
            // The name in parentheses may hold anything; the state and the parent follow it.
            const QByteArray stat = file.readAll();
            const QByteArray parent = stat.mid(stat.lastIndexOf(')') + 2).split(' ').value(1);
            if (parent.toLongLong() == m_process.processId())
                return ::kill(process.toInt(), SIGKILL) == 0;
        }
        return false;
    }

private:
    QProcess m_process;
    QByteArray m_output;
};
