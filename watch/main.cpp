// orvel-watch DIRECTORY: says in which directories beneath it something changes, for the local engine. What it writes
// stands in localengine/README.md.

#include "syncfolder/winfilewatcher.h"
#include "watch/changelines.h"
#include "watch/system.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTextCodec>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

namespace
{

constexpr int gatherTime = 20;  // ms: a file that is written changes several times
constexpr int lookPause = 2000; // ms; a directory above that is renamed tells nobody

/// What the engine has no more use for is not tidied up, as that may take seconds.
[[noreturn]] void leave(int code)
{
    std::_Exit(code);
}

/// On a thread of its own, so that it sees the end whatever the others wait for.
void leaveWithInput()
{
    while (std::getchar() != EOF) {
    }
    leave(EXIT_SUCCESS);
}

void ignoreMessage(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& /*text*/)
{
}

/// Writes down what the watcher says.
class Writer final : public QObject, public WinFileWatcher::Observer
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Writer)

public:
    explicit Writer(const QString& directory);

private slots:
    void takePaths(QStringList* paths);
    void takeWatching();
    void takeMissed();
    void look();
    void write();

private:
    void watching() override;
    void missed() override;
    void gather();
    [[noreturn]] void leaveGone();

    const QString m_directory;
    const QByteArray m_id;
    ChangeLines m_lines;
    QFile m_output;
    QTimer m_gathering;
    QTimer m_looking;
    std::unique_ptr<WinFileWatcher> m_watcher;
};

Writer::Writer(const QString& directory)
    : m_directory(directory)
    , m_id(directoryId(directory))
    , m_lines(directory.toLocal8Bit())
{
    makeOutputBinary();
    m_output.open(fileno(stdout), QIODevice::WriteOnly | QIODevice::Unbuffered);
    m_gathering.setSingleShot(true);
    m_gathering.setTimerType(Qt::PreciseTimer);
    connect(&m_gathering, SIGNAL(timeout()), this, SLOT(write()));
    connect(&m_looking, SIGNAL(timeout()), this, SLOT(look()));
    if (m_id.isEmpty())
        leaveGone();
    m_watcher = std::make_unique<WinFileWatcher>(QStringList(directory), nullptr, this);
    if (!m_watcher->isRunning())
        leaveGone();
    connect(m_watcher.get(), SIGNAL(pathsChanged(QStringList*)), this, SLOT(takePaths(QStringList*)));
    m_looking.start(lookPause);
}

void Writer::takePaths(QStringList* paths)
{
    const std::unique_ptr<QStringList> taken(paths);
    for (const QString& path : qAsConst(*taken))
        m_lines.addChanged(path.toLocal8Bit());
    gather();
}

void Writer::takeWatching()
{
    m_lines.addWatching();
    gather();
}

void Writer::takeMissed()
{
    look();
    m_lines.addMissed();
    gather();
}

void Writer::look()
{
    if (directoryId(m_directory) != m_id)
        leaveGone();
}

void Writer::write()
{
    const QByteArray lines = m_lines.take();
    if (m_output.write(lines) != lines.size())
        leave(EXIT_FAILURE);
}

// In the order of the reports, which come the same way.
void Writer::watching()
{
    QMetaObject::invokeMethod(this, "takeWatching", Qt::QueuedConnection);
}

void Writer::missed()
{
    QMetaObject::invokeMethod(this, "takeMissed", Qt::QueuedConnection);
}

void Writer::gather()
{
    if (!m_gathering.isActive())
        m_gathering.start(gatherTime);
}

void Writer::leaveGone()
{
    m_lines.addGone();
    write();
    leave(EXIT_FAILURE);
}

} // namespace

int main(int argc, char* argv[])
{
    qInstallMessageHandler(ignoreMessage); // standard error is the engine's
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    QTextCodec::setCodecForLocale(QTextCodec::codecForName(nameCodec()));
    std::thread(leaveWithInput).detach();
    const QCoreApplication application(argc, argv);
    const Writer writer(QDir::fromNativeSeparators(QCoreApplication::arguments().value(1)));
    return QCoreApplication::exec();
}

#include "main.moc"
