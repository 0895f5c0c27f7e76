#pragma once

#include <QList>
#include <QString>
#include <QUrl>

/// The addresses that the client opens. Hosts are without a scheme.
namespace webpages
{

QUrl homepage(const QString& webSite);
QUrl orderPage(const QString& webSite);
QUrl help(const QString& webSite);
/// The sync folder in the file manager; @p path is its full path.
QUrl folder(const QString& path);
/// The share or versions page of an item: @p ids leads from the account's root down to the item, and
/// @p action is "share" or "versions". Empty with fewer than two ids.
QUrl item(const QString& serverHost, const QList<quint64>& ids, const QString& action);

/// The update feed of the server; the variable ORVEL_UPDATE_FEED in the environment replaces it whole.
QUrl updateFeed(const QString& serverHost);

} // namespace webpages
