#pragma once

#include "engine/machine.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

/// The engine's settings, as the client keeps them in memory between reading and writing "config.json".
/// The members bear the names of the file's keys. A value: no file, no process, no log.
struct EngineConfig
{
    /// Stands in `dirs` for the user's videos folder, wherever that is.
    static const QString myVideos;

    QStringList syncfolders;
    QString homepath;   ///< the directory that contains the sync folder
    QString homefolder; ///< the sync folder's own name
    bool autodiscovery = true;
    QString password;
    bool webacc = false;
    QStringList dirs;
    bool upnp = false;
    int port = 1554;
    QString appname;
    QString organization;
    QString synchome; ///< the server host, without a scheme
    bool itunes = false;
    QString encdir;
    QString statedir;
    QString srvip;
    int encthreads = 2;

    /// What a computer without a configuration starts from.
    void setFirstRunDefaults(const Machine& machine);

    /// Takes over what @p file says. Keys that the client does not read back are left as they are.
    void read(const QVariantMap& file, const Machine& machine);

    /// The object that is written to the file and posted to the engine.
    QVariantMap toMap(const Machine& machine) const;
    /// The text of the file. It holds no zero byte, at which its reader would stop.
    QByteArray toJson(const Machine& machine) const;

    /// The engine's temporary directory.
    QString tmpdir(const Machine& machine) const;
};
