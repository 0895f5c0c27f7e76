#include "ui/webpages.h"

#include <QCoreApplication>

namespace webpages
{

namespace
{

QString tr(const char* text)
{
    return QCoreApplication::translate("DialogCld", text);
}

} // namespace

QUrl homepage(const QString& webSite)
{
    return QUrl(tr("https://") + webSite + tr("/kesta/vse"));
}

QUrl orderPage(const QString& webSite)
{
    return QUrl(tr("https://") + webSite + tr("/narocanje-kesta"));
}

QUrl help(const QString& webSite)
{
    return QUrl(tr("http://") + webSite + tr("/kesta/pomoc"));
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
    return QUrl(QStringLiteral("http://") + serverHost + tr("/datoteke/vse") + folders + QLatin1Char('#') + action +
                QLatin1Char('=') + QString::number(ids.last()));
}

} // namespace webpages
