#pragma once

#include <QLocalServer>

#include <memory>

class QFileSystemWatcher;

/// A local pipe for the user alone that keeps its name.
///
/// Where another user of the computer has the name: on Linux (in the temporary directory) the pipe lies under the
/// same name in the user's runtime directory, on Windows it cannot be had. A socket that a killed client left behind is
/// taken over; one that is removed while the pipe is listening, as by a cleaning of the temporary directory, is made
/// anew. A pipe that cannot be had, then or later, is logged and not listening. One thread only.
class PipeServer final : public QLocalServer
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PipeServer)

public:
    /// Listens at once.
    explicit PipeServer(const QString& name);
    ~PipeServer() override;

private slots:
    void socketChanged(const QString& path);

private:
    void start();

    QString m_name;
    std::unique_ptr<QFileSystemWatcher> m_socketFile; ///< none where pipes are no files
};
