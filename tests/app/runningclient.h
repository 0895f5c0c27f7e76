#pragma once

#include "tests/support/killengine.h"

#include <QByteArray>
#include <QProcess>
#include <QString>

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
        m_output += m_process.readAllStandardError().replace("\r\n", "\n");
        return m_output;
    }

    /// The state that the engine told last since it was started, empty when it has told none.
    QByteArray state()
    {
        static const QByteArray started = "servercomm: Server Started!";
        static const QByteArray line = "maindlg: network state  ";
        const QByteArray& all = output();
        const int from = all.lastIndexOf(started);
        const int start = all.lastIndexOf(line);
        const int end = all.indexOf('\n', start);
        return from < m_engineFrom || start < from || end < 0 ? QByteArray()
                                                              : all.mid(start + line.size(), end - start - line.size());
    }

    /// Ends it at once, and so its engine.
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    /// Kills its engine alone; false when there is none. What that one has told is forgotten.
    bool killEngine()
    {
        m_engineFrom = output().size();
        return killEngineOf(m_process.processId());
    }

private:
    QProcess m_process;
    QByteArray m_output;
    int m_engineFrom = 0; ///< the place in the output after which the present engine was started
};
