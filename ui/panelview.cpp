#include "ui/panelview.h"

#include <QCoreApplication>

namespace
{

QString tr(const char* text)
{
    return QCoreApplication::translate("DialogCld", text);
}

QString bold(const QString& text)
{
    return QStringLiteral("<b>") + text + QStringLiteral("</b>");
}

PanelView loggedIn()
{
    PanelView view;
    view.heading = bold(tr("Settings"));
    view.folderVisible = true;
    view.pickFolderVisible = true;
    view.updateVisible = true;
    view.loginEnabled = true;
    view.loginText = tr("Confirm");
    view.status = QString();
    return view;
}

PanelView loggedOut(bool accountKnown, int attempts, const QString& heading)
{
    PanelView view;
    view.heading = heading;
    view.credentialsVisible = true;
    view.credentialsEnabled = true;
    view.folderVisible = !accountKnown;
    view.pickFolderVisible = !accountKnown;
    view.loginEnabled = true;
    view.loginText = tr("Login");
    if (!accountKnown)
        view.status = attempts > 0 ? tr("Login unsuccessful.") : QString();
    return view;
}

PanelView offline(bool accountKnown, const QString& heading)
{
    PanelView view;
    view.heading = heading;
    view.credentialsVisible = true;
    view.pickFolderVisible = false;
    if (accountKnown)
        view.folderVisible = false;
    view.loginText = tr("Login");
    view.status = tr("Disconnected from the cloud.");
    return view;
}

} // namespace

std::optional<PanelView> panelView(const QString& netState, bool accountKnown, int attempts,
                                   const QString& applicationName)
{
    const QString accountHeading = bold(applicationName + QLatin1Char(' ') + tr("account"));
    if (netState == QLatin1String("ok"))
        return loggedIn();
    if (netState == QLatin1String("logout"))
        return loggedOut(accountKnown, attempts, accountHeading);
    if (netState == QLatin1String("offline"))
        return offline(accountKnown, accountHeading);
    return std::nullopt;
}
