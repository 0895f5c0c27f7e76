#include "ui/webpages.h"

#include <QCoreApplication>

namespace webpages
{

QUrl homepage(const QString& webSite)
{
    return QUrl(QStringLiteral("https://") + webSite + QCoreApplication::translate("DialogCld", "/kesta/vse"));
}

QUrl orderPage(const QString& webSite)
{
    return QUrl(QStringLiteral("https://") + webSite + QCoreApplication::translate("DialogCld", "/narocanje-kesta"));
}

QUrl help(const QString& webSite)
{
    return QUrl(QStringLiteral("http://") + webSite + QCoreApplication::translate("DialogCld", "/kesta/pomoc"));
}

QUrl folder(const QString& path)
{
    // An absolute path begins with a slash of its own on Unix; both systems get three of them.
    return QUrl::fromLocalFile(path);
}

QUrl item(const QString& serverHost, const QList<quint64>& ids, const QString& action)
{
    if (ids.size() < 2)
        return {};
    QString folders = QStringLiteral("/");
    for (const quint64 id : ids.mid(1, ids.size() - 2))
        folders += QString::number(id) + QLatin1Char('/');
    return QUrl(QStringLiteral("http://") + serverHost + QCoreApplication::translate("DialogCld", "/datoteke/vse") +
                folders + QLatin1Char('#') + action + QLatin1Char('=') + QString::number(ids.last()));
}

QUrl updateFeed(const QString& serverHost)
{
    const QString replacement = qEnvironmentVariable("ORVEL_UPDATE_FEED");
    if (!replacement.isEmpty())
        return QUrl(replacement);
    return QUrl(QStringLiteral("http://") + serverHost + QStringLiteral("/sync/clientversionxml?os=win&app=orvel"));
}

} // namespace webpages
