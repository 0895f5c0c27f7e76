#pragma once

#include <QStringList>

class QHostAddress;

/// The facts of this computer that the engine's configuration names. Paths are as Qt gives them, with
/// slashes; an empty path means that there is no such place.
struct Machine
{
    QStringList addresses; ///< local IPv4 addresses another computer can reach, in the system's order
    QString movies;
    QString music;
    QString documents;
    QString temp;

    /// The computer as it is now.
    static Machine current();

    /// The first usable address, or empty.
    QString firstAddress() const;

    /// Whether @p address is IPv4 and neither loopback nor self-assigned.
    static bool isUsable(const QHostAddress& address);
};
