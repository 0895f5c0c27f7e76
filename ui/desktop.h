#pragma once

#include <optional>

class QPalette;

/// What the desktop offers and looks like, asked in one place so that a test can pretend.
namespace desktop
{

/// Whether there is a tray now. One that comes up later takes the icon by itself.
bool hasTray();

/// Lets tests say whether there is a tray; no value asks the desktop again.
void pretendTray(std::optional<bool> there);

/// The colours for our dialogs, whose ground is always white: those of the desktop, or light ones where
/// the desktop's text would not stand out.
QPalette readableOnWhite(const QPalette& palette);

} // namespace desktop
