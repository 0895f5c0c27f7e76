#pragma once

#include <QString>
#include <QStringList>

/// What the engine said last about itself, the account and the transfers.
struct EngineState
{
    QStringList pin;
    bool upnp = false; ///< the engine's report; the switch of the same name in the configuration is another
    bool portWorks = false;
    int portTime = 0;

    QString netState; ///< "ok", "transferring", "offline", "logout"; empty until the engine said one
    quint64 uid = 0;  ///< id of the signed-in account, 0 for none
    int bps = 0;      ///< bytes a second
    int uploads = 0;  ///< files still to go up
    int downloads = 0;
    int timeRemaining = 0; ///< seconds

    quint64 space = 0; ///< bytes used
    quint64 quota = 0; ///< bytes granted
    QString package;   ///< name of the package the account has bought
};
