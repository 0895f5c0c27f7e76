#pragma once

#include <QObject>

#include <memory>

/// Hears when somebody wants the client to end: on Windows the installer, which broadcasts a message of its
/// own; on Linux whoever sends SIGTERM, SIGINT or SIGHUP. One object for a process, on the GUI thread.
class EndRequest final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(EndRequest)

public:
    EndRequest();
    ~EndRequest() override;

signals:
    void asked();

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};
