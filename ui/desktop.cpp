#include "ui/desktop.h"

#include <QPalette>
#include <QSystemTrayIcon>

namespace desktop
{

namespace
{

std::optional<bool>& pretended()
{
    static std::optional<bool> there;
    return there;
}

} // namespace

bool hasTray()
{
    return pretended().value_or(QSystemTrayIcon::isSystemTrayAvailable());
}

void pretendTray(std::optional<bool> there)
{
    pretended() = there;
}

QPalette readableOnWhite(const QPalette& palette)
{
    constexpr int halfLight = 128;
    constexpr QRgb lightButtons = 0xffefefef;
    if (palette.color(QPalette::WindowText).lightness() < halfLight)
        return palette;
    QPalette light(QColor::fromRgb(lightButtons));
    light.setColor(QPalette::Highlight, palette.color(QPalette::Highlight));
    light.setColor(QPalette::HighlightedText, palette.color(QPalette::HighlightedText));
    return light;
}

} // namespace desktop
