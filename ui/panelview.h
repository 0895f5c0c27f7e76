#pragma once

#include <QString>

#include <optional>

/// What the settings panel shows for a network state. A member without a value leaves its widget alone.
struct PanelView
{
    QString heading;
    bool credentialsVisible = false; ///< both captions and both edits
    bool credentialsEnabled = false;
    std::optional<bool> folderVisible; ///< path field, folder caption and second separator
    std::optional<bool> pickFolderVisible;
    bool updateVisible = false; ///< auto-update check box and first separator
    bool loginEnabled = false;
    QString loginText;
    bool loginConfirms = false; ///< the button signs nobody in, it only puts the window away
    std::optional<QString> status;
};

/// The panel for @p netState, or none when that state leaves it as it is. @p attempts counts the presses
/// of the login button.
std::optional<PanelView> panelView(const QString& netState, bool accountKnown, int attempts,
                                   const QString& applicationName);
