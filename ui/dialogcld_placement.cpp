#include "base/log.h"
#include "engine/servercomm.h"
#include "shell/placement.h"
#include "ui/dialogcld.h"

#include <QCoreApplication>
#include <QSettings>

namespace
{

QString iconFile(const ServerComm& server)
{
    return placement::iconFile(QCoreApplication::arguments().value(0), server.stateDir());
}

} // namespace

void DialogCld::rootsChanged(QList<QDir>& roots)
{
    ORVEL_LOG << "maindlg:"
              << "rootschanged " << roots.size();
    const QString icon = iconFile(*m_server);
    QSettings settings;
    placement::Links links;
    const QString last = settings.value(QStringLiteral("currentlink")).toString();
    if (!last.isEmpty())
        links.remove(last); // a root that has moved leaves none behind

    for (const QDir& root : qAsConst(roots)) {
        m_panel.showFolder(root.path());
        ORVEL_LOG << "maindlg:"
                  << "checkcreatelink for " << root.path();
        placement::setFolderIcon(root, icon);
        const QString link = links.linkTo(root);
        const bool exists = links.exists(link);
        ORVEL_LOG << "maindlg:"
                  << "linkpath " << link << base::text(exists);
        const bool isOurs = exists ? !settings.contains(QStringLiteral("currentlink")) : links.create(link, root, icon);
        if (isOurs)
            settings.setValue(QStringLiteral("currentlink"), link);
    }
}

void DialogCld::toggleStartUp(bool on)
{
    ORVEL_LOG << "maindlg:"
              << "Toggle startup " << base::text(on);
    placement::setStartup(on, QCoreApplication::applicationName(), QCoreApplication::applicationFilePath(),
                          iconFile(*m_server));
    QSettings().setValue(QStringLiteral("runstartup"), on ? 1 : 0);
}
