#include "ui/panelview.h"

#include <QCoreApplication>

namespace
{

QString bold(const QString& text)
{
    return QStringLiteral("<b>") + text + QStringLiteral("</b>");
}

PanelView loggedIn()
{
    PanelView view;
    view.heading = bold(QCoreApplication::translate("DialogCld", "Settings"));
    view.folderVisible = true;
    view.pickFolderVisible = true;
    view.updateVisible = true;
    view.loginEnabled = true;
    view.loginText = QCoreApplication::translate("DialogCld", "Confirm");
    view.loginConfirms = true;
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
    view.loginText = QCoreApplication::translate("DialogCld", "Login");
    if (!accountKnown)
        view.status = attempts > 0 ? QCoreApplication::translate("DialogCld", "Login unsuccessful.") : QString();
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
    view.loginText = QCoreApplication::translate("DialogCld", "Login");
    view.status = QCoreApplication::translate("DialogCld", "Disconnected from the cloud.");
    return view;
}

} // namespace

std::optional<PanelView> panelView(const QString& netState, bool accountKnown, int attempts,
                                   const QString& applicationName)
{
    const auto accountHeading = [&applicationName] {
        return bold(applicationName + QLatin1Char(' ') + QCoreApplication::translate("DialogCld", "account"));
    };
    if (netState == QLatin1String("ok"))
        return loggedIn();
    if (netState == QLatin1String("logout"))
        return loggedOut(accountKnown, attempts, accountHeading());
    if (netState == QLatin1String("offline"))
        return offline(accountKnown, accountHeading());
    return std::nullopt;
}
