#include "ui/traystatus.h"

#include <QCoreApplication>

namespace
{

constexpr int bytesPerKilobyte = 1024;
constexpr int secondsPerMinute = 60;

/// A busy engine reports again and again: hence one text that grows, and not many that are joined.
void appendTransfer(QString& text, const EngineState& state)
{
    constexpr int expectedSize = 200;
    text.reserve(expectedSize);
    if (state.uploads > 0) {
        text += QString::number(state.uploads);
        text += QCoreApplication::translate("DialogCld", " files are uploading to the cloud", "", state.uploads);
        text += QLatin1Char('\n');
    }
    if (state.downloads > 0) {
        text += QString::number(state.downloads);
        text += QCoreApplication::translate("DialogCld", " files are downloading from the cloud", "", state.downloads);
        text += QLatin1Char('\n');
    }
    if (state.bps > 0) {
        text += QString::number(state.bps / bytesPerKilobyte);
        text += QLatin1String(" kB/sec, ");
        text += QCoreApplication::translate("DialogCld", "time remaining %1 min")
                    .arg(state.timeRemaining / secondsPerMinute);
    }
}

} // namespace

std::optional<TrayStatus> trayStatus(const EngineState& state, const QString& title)
{
    QString toolTip = title + QLatin1Char('\n');
    if (state.netState == QLatin1String("ok")) {
        toolTip += QCoreApplication::translate("DialogCld", "Sync done");
        return TrayStatus{QStringLiteral(":/online36.png"), toolTip};
    }
    if (state.netState == QLatin1String("transferring")) {
        appendTransfer(toolTip, state);
        return TrayStatus{QStringLiteral(":/sync36.png"), toolTip};
    }
    // Slovenian on purpose, as it always was: the source text of its translations.
    if (state.netState == QLatin1String("offline") || state.netState == QLatin1String("logout")) {
        toolTip += QCoreApplication::translate("DialogCld", "Internetna povezava je prekinjena");
        return TrayStatus{QStringLiteral(":/offline36.png"), toolTip};
    }
    return std::nullopt;
}
