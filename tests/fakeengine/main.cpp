// Plays the sync engine: started by the client in the engine's place, it does what the test orders.

#include "tests/fakeengine/protocol.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QDir>
#include <QLocalSocket>
#include <QProcessEnvironment>
#include <QThread>
#include <QVariantMap>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#ifdef Q_OS_WIN
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace
{

constexpr int connectTimeout = 10000; // ms
constexpr int lostControl = 3;

#ifdef Q_OS_WIN
int readBytes(int fd, char* data, size_t size)
{
    return _read(fd, data, static_cast<unsigned>(size));
}

int writeBytes(int fd, const char* data, size_t size)
{
    return _write(fd, data, static_cast<unsigned>(size));
}

void openStreamsAsBytes()
{
    for (FILE* stream : {stdin, stdout, stderr})
        _setmode(fileno(stream), _O_BINARY);
}

[[noreturn]] void die()
{
    TerminateProcess(GetCurrentProcess(), 9);
    std::abort();
}
#else
ssize_t readBytes(int fd, char* data, size_t size)
{
    return read(fd, data, size);
}

ssize_t writeBytes(int fd, const char* data, size_t size)
{
    return write(fd, data, size);
}

void openStreamsAsBytes()
{
}

[[noreturn]] void die()
{
    raise(SIGKILL);
    std::abort();
}
#endif

void writeAll(int fd, const QByteArray& bytes)
{
    for (int done = 0; done < bytes.size();) {
        const auto written = writeBytes(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (written <= 0)
            return;
        done += static_cast<int>(written);
    }
}

/// Standard input has no portable notifier, so a thread of its own waits for it.
class InputReader final : public QThread
{
    Q_OBJECT

public:
    void stop()
    {
        m_stopped = true;
    }

signals:
    void read(QByteArray bytes);
    void ended();

protected:
    void run() override
    {
        std::array<char, 65536> buffer = {};
        while (!m_stopped) {
            const auto count = readBytes(fileno(stdin), buffer.data(), buffer.size());
            if (count <= 0) {
                emit ended();
                return;
            }
            emit read(QByteArray(buffer.data(), static_cast<int>(count)));
        }
    }

private:
    std::atomic<bool> m_stopped{false};
};

class FakeEngine final : public QObject
{
    Q_OBJECT

public:
    bool connectToTest()
    {
        m_socket.connectToServer(qEnvironmentVariable(fakeengine::socketVariable));
        if (!m_socket.waitForConnected(connectTimeout))
            return false;
        connect(&m_socket, SIGNAL(readyRead()), this, SLOT(obey()));
        connect(&m_socket, SIGNAL(disconnected()), this, SLOT(leave()));
        connect(&m_reader, SIGNAL(read(QByteArray)), this, SLOT(reportInput(QByteArray)));
        connect(&m_reader, SIGNAL(ended()), this, SLOT(reportEnd()));
        tell(fakeengine::started,
             QVariantMap{{QStringLiteral("arguments"), QStringList(QCoreApplication::arguments().mid(1))},
                         {QStringLiteral("workingDirectory"), QDir::currentPath()},
                         {QStringLiteral("environment"), QProcessEnvironment::systemEnvironment().toStringList()},
                         {QStringLiteral("processId"), QCoreApplication::applicationPid()}});
        if (!qEnvironmentVariableIsSet(fakeengine::slowVariable))
            m_reader.start();
        return true;
    }

private slots:
    void obey()
    {
        QDataStream stream(&m_socket);
        for (;;) {
            QString order;
            QVariant value;
            stream.startTransaction();
            stream >> order >> value;
            if (!stream.commitTransaction())
                return;
            carryOut(order, value);
        }
    }

    void reportInput(const QByteArray& bytes)
    {
        tell(fakeengine::input, bytes);
    }

    void reportEnd()
    {
        tell(fakeengine::inputEnded, {});
        finish(0);
    }

    void closeInput()
    {
        std::fclose(stdin);
    }

    void leave()
    {
        finish(lostControl);
    }

private:
    void carryOut(const QString& order, const QVariant& value)
    {
        if (order == QLatin1String(fakeengine::writeError)) {
            writeAll(fileno(stderr), value.toByteArray());
        } else if (order == QLatin1String(fakeengine::writeOutput)) {
            writeAll(fileno(stdout), value.toByteArray());
        } else if (order == QLatin1String(fakeengine::flood)) {
            const QVariantList pair = value.toList();
            const QByteArray line = pair.value(0).toByteArray();
            for (int i = pair.value(1).toInt(); i > 0; --i)
                writeAll(fileno(stderr), line);
        } else if (order == QLatin1String(fakeengine::exitWith)) {
            finish(value.toInt());
        } else if (order == QLatin1String(fakeengine::startReading)) {
            m_reader.start();
        } else if (order == QLatin1String(fakeengine::stopReading)) {
            m_reader.stop();
        } else if (order == QLatin1String(fakeengine::closeInput)) {
            connect(&m_reader, SIGNAL(finished()), this, SLOT(closeInput()));
            m_reader.stop();
        } else if (order == QLatin1String(fakeengine::crash)) {
            die();
        }
    }

    void tell(const char* word, const QVariant& value)
    {
        QDataStream stream(&m_socket);
        stream << QString(QLatin1String(word)) << value;
        m_socket.flush();
    }

    /// At once: the reader's thread may stand in a read that nothing interrupts.
    [[noreturn]] void finish(int exitCode)
    {
        m_socket.waitForBytesWritten(0);
        std::_Exit(exitCode);
    }

    QLocalSocket m_socket;
    InputReader m_reader;
};

} // namespace

int main(int argc, char* argv[])
{
    openStreamsAsBytes();
    const QCoreApplication application(argc, argv);
    FakeEngine engine;
    if (!engine.connectToTest())
        return lostControl;
    return QCoreApplication::exec();
}

#include "main.moc"
