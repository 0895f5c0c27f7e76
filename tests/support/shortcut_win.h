#pragma once

#include <QString>

/// What a shortcut says of itself; empty texts when it cannot be read.
struct Shortcut
{
    QString target;
    QString workingDirectory;
    QString icon;
    int iconIndex = -1;
    bool hasProperties = false; ///< whether this system keeps properties of a shortcut at all
    QString applicationId;
};

Shortcut readShortcut(const QString& path);
