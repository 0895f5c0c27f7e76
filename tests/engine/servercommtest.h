#pragma once

#include "engine/servercomm.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"

#include <QDir>

#include <memory>

/// The base of the engine link's tests: a fresh installation with a fake engine, and a link when asked for.
class ServerCommTest : public Test
{
protected:
    void setUp() override
    {
        m_engine = std::make_unique<FakeEngine>();
        QDir::setCurrent(m_engine->installDir());
    }

    void tearDown() override
    {
        m_server.reset();
        m_engine.reset();
    }

    ServerComm& createServer(bool autostart = false)
    {
        m_server.reset();
        m_server =
            std::make_unique<ServerComm>(QStringLiteral("Orvel Storage"), QStringLiteral("Velmora d.d."), autostart);
        return *m_server;
    }

    /// A link whose engine runs and has its configuration.
    ServerComm& runningServer()
    {
        createServer().toggleServer(true);
        const bool configured = QTest::qWaitFor([this] { return m_engine->input().endsWith("}\n"); }, deadline());
        if (!configured)
            qFatal("the engine did not get its configuration");
        return *m_server;
    }

    bool logContains(const QString& line) const
    {
        return log().contains(line);
    }

    /// Waits until the engine has read @p bytes.
    bool engineReads(const QByteArray& bytes)
    {
        return QTest::qWaitFor([&] { return m_engine->input().contains(bytes); }, deadline());
    }

    std::unique_ptr<FakeEngine> m_engine;
    std::unique_ptr<ServerComm> m_server;
};
