// Starts an installed client and leads its fake engine by hand: leadclient SHORTCUT DIRECTORY
//
// A file "say" that appears in DIRECTORY is said line by line and removed; "ready" is made there once the
// engine has its configuration.

#include "tests/support/fakeengine.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTimer>

#include <windows.h>

#include <shellapi.h>

namespace
{

class Leader final : public QObject
{
    Q_OBJECT

public:
    explicit Leader(const QString& directory)
        : m_directory(directory)
    {
        constexpr int interval = 100; // ms
        m_timer.setInterval(interval);
        connect(&m_timer, SIGNAL(timeout()), this, SLOT(look()));
        m_timer.start();
    }

private slots:
    void look()
    {
        if (!m_engine.isConnected() || !m_engine.input().endsWith("}\n"))
            return;
        QFile ready(m_directory.filePath(QStringLiteral("ready")));
        if (!ready.exists())
            ready.open(QIODevice::WriteOnly);
        QFile file(m_directory.filePath(QStringLiteral("say")));
        if (!file.open(QIODevice::ReadOnly))
            return;
        const QByteArray words = file.readAll();
        file.close();
        file.remove();
        m_engine.writeError(words);
    }

private:
    QDir m_directory;
    FakeEngine m_engine;
    QTimer m_timer;
};

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const Leader leader(arguments.value(2));
    const std::wstring shortcut = QDir::toNativeSeparators(arguments.value(1)).toStdWString();
    ShellExecuteW(nullptr, nullptr, shortcut.c_str(), nullptr, nullptr, SW_SHOW);
    return QCoreApplication::exec();
}

#include "leadclient.moc"
