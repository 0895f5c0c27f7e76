#include "ui/traystatus.h"

#include <QCoreApplication>

#include <tuple>

namespace
{

constexpr int bytesPerKilobyte = 1024;
constexpr int secondsPerMinute = 60;

QString transferLines(const EngineState& state)
{
    QString lines;
    if (state.uploads > 0) {
        lines += QString::number(state.uploads) +
                 QCoreApplication::translate("DialogCld", " files are uploading to the cloud", "", state.uploads) +
                 QLatin1Char('\n');
    }
    if (state.downloads > 0) {
        lines +=
            QString::number(state.downloads) +
            QCoreApplication::translate("DialogCld", " files are downloading from the cloud", "", state.downloads) +
            QLatin1Char('\n');
    }
    if (state.bps > 0) {
        lines += QStringLiteral("%1 kB/sec, ").arg(state.bps / bytesPerKilobyte) +
                 QCoreApplication::translate("DialogCld", "time remaining %1 min")
                     .arg(state.timeRemaining / secondsPerMinute);
    }
    return lines;
}

} // namespace

std::optional<TrayStatus> trayStatus(const EngineState& state, const QString& title)
{
    const QString head = title + QLatin1Char('\n');
    if (state.netState == QLatin1String("ok"))
        return TrayStatus{QStringLiteral(":/online36.png"),
                          head + QCoreApplication::translate("DialogCld", "Sync done")};
    if (state.netState == QLatin1String("transferring"))
        return TrayStatus{QStringLiteral(":/sync36.png"), head + transferLines(state)};
    // Slovenian on purpose, as it always was: the source text of its translations.
    if (state.netState == QLatin1String("offline") || state.netState == QLatin1String("logout"))
        return TrayStatus{QStringLiteral(":/offline36.png"),
                          head + QCoreApplication::translate("DialogCld", "Internetna povezava je prekinjena")};
    return std::nullopt;
}

bool haveSameTrayStatus(const EngineState& a, const EngineState& b)
{
    const auto shown = [](const EngineState& state) {
        return std::tie(state.netState, state.uploads, state.downloads, state.bps, state.timeRemaining);
    };
    return shown(a) == shown(b);
}
