#pragma once

#include <QStringList>
#include <QThread>

#include <memory>

/// placeholder until the watcher's own commit
class WinFileWatcher final : public QThread
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WinFileWatcher)

public:
    WinFileWatcher(const QStringList& paths, QObject* parent);
    ~WinFileWatcher() override;

signals:
    void pathsChanged(QStringList* paths);

protected:
    void run() override;
};
