#pragma once

#include <QObject>
#include <QString>

#include <memory>

class PipeServer;

/// Reads the commands of the file manager's shell extension from the local pipe "kestaextcommands".
///
/// One message a connection, UTF-16 in the computer's byte order without a mark: a command word, "|", a path. Nothing
/// is answered; what a command means is the receiver's business. A pipe that cannot be had leaves the reader silent.
/// GUI thread only; a connection that sends nothing blocks it for up to a second.
class PipeCmdReader final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PipeCmdReader)

public:
    PipeCmdReader();
    ~PipeCmdReader() override;

signals:
    void Command(QString command, QString path);

private slots:
    void newConnection();

private:
    std::unique_ptr<PipeServer> m_server;
};
