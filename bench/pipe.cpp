#include "bench/installation.h"
#include "bench/process.h"
#include "bench/table.h"
#include "bench/topics.h"
#include "engine/servercomm.h"
#include "ui/dialogcld.h"

#include <QCoreApplication>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>

#include <csignal>
#include <memory>

namespace
{

/// The shell extension's side: sends a command and waits until its connection is closed.
class Sender final : public QThread
{
public:
    explicit Sender(QString pipe)
        : m_pipe(std::move(pipe))
    {
    }
    double seconds = 0;

protected:
    void run() override
    {
        static const QString message = QStringLiteral("revs|/home/marjeta/Orvel Storage/Fotografije");
        const double start = bench::wallTime();
        QLocalSocket socket;
        socket.connectToServer(m_pipe);
        socket.waitForConnected();
        socket.write(reinterpret_cast<const char*>(message.utf16()),
                     static_cast<qint64>(message.size() * sizeof(QChar)));
        socket.flush();
        if (socket.state() == QLocalSocket::ConnectedState)
            socket.waitForDisconnected();
        seconds = bench::wallTime() - start;
    }

private:
    const QString m_pipe;
};

/// A server that takes what comes and closes.
class BareServer final : public QObject
{
    Q_OBJECT

public:
    explicit BareServer(const QString& name)
    {
        QLocalServer::removeServer(name);
        connect(&m_server, SIGNAL(newConnection()), this, SLOT(take()));
        if (!m_server.listen(name))
            bench::fail(QStringLiteral("Cannot listen on ") + name);
    }

private slots:
    void take()
    {
        const std::unique_ptr<QLocalSocket> socket(m_server.nextPendingConnection());
        socket->waitForReadyRead();
        socket->readAll();
    }

private:
    QLocalServer m_server;
};

double send(const QString& pipe)
{
    constexpr int times = 100;
    QVector<double> durations;
    for (int i = 0; i < times; ++i) {
        Sender sender(pipe);
        sender.start();
        bench::waitUntil([&] { return sender.isFinished(); }, "the end of the connection");
        durations << sender.seconds;
    }
    return bench::median(durations);
}

} // namespace

void bench::pipe(Table& table)
{
    installTalker(1);
    DialogCld window;
    window.show();
    waitUntil([&] { return !window.server().state().netState.isEmpty(); }, "the engine");
    QProcess stop;
    launch(stop, QStringLiteral("sh"),
           {QStringLiteral("-c"), QStringLiteral("kill -STOP $(pgrep -P \"$0\" erl.exe)"),
            QString::number(QCoreApplication::applicationPid())});
    stop.waitForFinished();

    const QString bareName = QStringLiteral("orvel-bench");
    const BareServer bare(bareName);
    const auto figures = medians({[] { return send(QStringLiteral("kestaextcommands")); },
                                  [&] {
                                      return send(bareName);
                                  }},
                                 5);
    table.within(QStringLiteral("a shell command while the engine hangs"), QStringLiteral("a bare QLocalServer"),
                 figures[0], figures[1], QStringLiteral("s"), 1.5);
}

#include "pipe.moc"
