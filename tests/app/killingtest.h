#pragma once

#include "tests/support/fakeengine.h"
#include "tests/support/test.h"

#include <QDir>
#include <QProcess>

#include <memory>

/// The base of tests that start clients with the engine played by the test, and kill or end them at any moment.
class KillingTest : public Test
{
    Q_OBJECT

protected:
    std::unique_ptr<FakeEngine> m_engine;

    void setUp() override
    {
        m_engine = std::make_unique<FakeEngine>();
    }

    void tearDown() override
    {
        m_engine.reset();
    }

    std::unique_ptr<QProcess> start(const QString& program, const QStringList& arguments = {},
                                    const QStringList& variables = {}) const
    {
        auto process = std::make_unique<QProcess>();
        process->setEnvironment(QProcess::systemEnvironment() + variables);
        process->setWorkingDirectory(m_engine->installDir());
        process->start(program, arguments);
        return process;
    }

    static bool ended(QProcess& process)
    {
        return QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, deadline());
    }

    bool isConfigured() const
    {
        return m_engine->input().endsWith("}\n");
    }

    /// What it has logged since the last call.
    static QByteArray logOf(QProcess& client)
    {
        return client.readAllStandardError().replace("\r\n", "\n");
    }

    /// For a client that does not do what is waited for: whether it runs, and what it said last.
    static QByteArray stateOf(QProcess& client)
    {
        const QByteArray state = client.state() == QProcess::NotRunning
                                     ? "ended with " + QByteArray::number(client.exitCode())
                                     : QByteArray("running");
        return state + ": " + logOf(client).right(1000);
    }

    static QString dataDirectory(const QString& program)
    {
        return testHome() + QStringLiteral("/data/") + program;
    }
};
