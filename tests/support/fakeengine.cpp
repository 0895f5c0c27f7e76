#include "tests/support/fakeengine.h"

#include "tests/fakeengine/protocol.h"
#include "tests/support/test.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QUuid>
#include <QVariantMap>
#include <QtTest>

namespace
{

const QString programPath = QStringLiteral("/erlang/erts-9.0/bin/erl.exe");

} // namespace

FakeEngine::FakeEngine()
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    const QString name = QStringLiteral("fake-") + QUuid::createUuid().toString(QUuid::Id128).left(12);
    if (!m_server.listen(name))
        qFatal("the fake engine's socket cannot be opened: %s", qPrintable(m_server.errorString()));
    connect(&m_server, SIGNAL(newConnection()), this, SLOT(engineConnected()));
    qputenv(fakeengine::socketVariable, m_server.fullServerName().toUtf8());
#ifdef Q_OS_WIN
    // Its libraries lie beside the program that it was copied from.
    const QByteArray libraries = QFileInfo(QStringLiteral(ORVEL_FAKEENGINE)).path().replace(u'/', u'\\').toLocal8Bit();
    const QByteArray path = qgetenv("PATH");
    if (!path.startsWith(libraries + ';'))
        qputenv("PATH", libraries + ';' + path);
#endif
    install();
}

FakeEngine::~FakeEngine()
{
    qunsetenv(fakeengine::socketVariable);
    qunsetenv(fakeengine::slowVariable);
    // The installation goes now, and a current directory cannot be removed everywhere. On Windows, what was killed
    // may hold its program's file a moment longer.
    QDir::setCurrent(QDir::rootPath());
    (void)QTest::qWaitFor([this] { return QDir(installDir()).removeRecursively(); }, deadline());
}

void FakeEngine::install()
{
    const QString target = installDir() + programPath;
    QDir().mkpath(QFileInfo(target).path());
    QDir().mkpath(installDir() + QStringLiteral("/erlang/srv/ebin"));
    // A link where the system has them: the program finds its libraries from where it lies.
    QFile::remove(target);
#ifdef Q_OS_WIN
    const bool placed = QFile::copy(QStringLiteral(ORVEL_FAKEENGINE), target);
#else
    const bool placed = QFile::link(QStringLiteral(ORVEL_FAKEENGINE), target);
#endif
    if (!placed)
        qFatal("the fake engine cannot be installed");
}

void FakeEngine::uninstall()
{
    // A running program cannot be removed everywhere.
    const QString gone = installDir() + QStringLiteral("/erlang/gone-");
    QFile::rename(installDir() + programPath, gone + QUuid::createUuid().toString(QUuid::Id128));
}

QString FakeEngine::installDir() const
{
    return m_installDir.path();
}

void FakeEngine::startSlowly()
{
    qputenv(fakeengine::slowVariable, "1");
}

const QVector<FakeEngine::Start>& FakeEngine::starts() const
{
    return m_starts;
}

const QStringList& FakeEngine::environment() const
{
    return m_environment;
}

const QByteArray& FakeEngine::input() const
{
    return m_input;
}

void FakeEngine::forgetInput()
{
    m_input = QByteArray();
}

bool FakeEngine::isConnected() const
{
    return m_latest && m_latest->state() == QLocalSocket::ConnectedState;
}

void FakeEngine::say(const QByteArray& line)
{
    writeError(line + '\n');
}

void FakeEngine::writeError(const QByteArray& bytes)
{
    order(fakeengine::writeError, bytes);
}

void FakeEngine::writeOutput(const QByteArray& bytes)
{
    order(fakeengine::writeOutput, bytes);
}

void FakeEngine::flood(const QByteArray& bytes, int times)
{
    order(fakeengine::flood, QVariantList{bytes, times});
}

void FakeEngine::exitWith(int exitCode)
{
    order(fakeengine::exitWith, exitCode);
}

void FakeEngine::startReading()
{
    order(fakeengine::startReading, {});
}

void FakeEngine::stopReading()
{
    order(fakeengine::stopReading, {});
}

void FakeEngine::closeInput()
{
    order(fakeengine::closeInput, {});
}

void FakeEngine::crash()
{
    order(fakeengine::crash, {});
}

void FakeEngine::order(const char* word, const QVariant& value)
{
    if (!isConnected())
        qFatal("no engine to order about");
    QDataStream stream(m_latest.data());
    stream << QString(QLatin1String(word)) << value;
    m_latest->flush();
}

void FakeEngine::engineConnected()
{
    while (QLocalSocket* engine = m_server.nextPendingConnection()) {
        connect(engine, SIGNAL(readyRead()), this, SLOT(engineReported()));
        connect(engine, SIGNAL(disconnected()), engine, SLOT(deleteLater()));
    }
}

void FakeEngine::engineReported()
{
    auto* engine = qobject_cast<QLocalSocket*>(sender());
    QDataStream stream(engine);
    for (;;) {
        QString word;
        QVariant value;
        stream.startTransaction();
        stream >> word >> value;
        if (!stream.commitTransaction())
            return;
        take(engine, word, value);
        emit reported();
    }
}

void FakeEngine::take(QLocalSocket* engine, const QString& word, const QVariant& value)
{
    if (word == QLatin1String(fakeengine::started)) {
        const QVariantMap map = value.toMap();
        m_latest = engine;
        m_input.clear();
        m_environment = map.value(QStringLiteral("environment")).toStringList();
        m_starts.append({map.value(QStringLiteral("arguments")).toStringList(),
                         map.value(QStringLiteral("workingDirectory")).toString(),
                         map.value(QStringLiteral("processId")).toLongLong()});
    } else if (word == QLatin1String(fakeengine::input) && engine == m_latest) {
        m_input += value.toByteArray();
    }
}
