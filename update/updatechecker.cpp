#include "update/updatechecker.h"

#include "update/compareversions.h"
#include "update/followredirects.h"

#include <QBuffer>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QSettings>
#include <QUrl>

namespace qtsparkle
{

namespace
{

QString skippedVersion()
{
    return QSettings().value(QStringLiteral("QtSparkle/skipped_version")).toString();
}

} // namespace

UpdateChecker::UpdateChecker(QObject* parent)
    : QObject(parent)
{
}

UpdateChecker::~UpdateChecker()
{
    delete m_download;
}

void UpdateChecker::SetNetworkAccessManager(QNetworkAccessManager* network)
{
    m_network = network;
}

void UpdateChecker::SetVersion(const QString& version)
{
    m_version = version;
}

void UpdateChecker::Check(const QUrl& url, bool manual)
{
    if (m_inProgress)
        return;
    emit CheckStarted();
    if (m_network == nullptr) {
        m_ownNetwork = new QNetworkAccessManager(this);
        m_ownNetwork->setTransferTimeout(FollowRedirects::silenceTimeout);
        m_network = m_ownNetwork;
    }
    m_inProgress = true;
    m_manual = manual;

    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    m_download = new FollowRedirects(m_network->get(request));
    connect(m_download, SIGNAL(Finished()), this, SLOT(Finished()));
    connect(m_download, SIGNAL(RedirectLimitReached()), this, SLOT(RedirectLimitReached()));
}

void UpdateChecker::Finished()
{
    auto* redirects = qobject_cast<FollowRedirects*>(sender());
    if (redirects == nullptr)
        return;
    redirects->deleteLater();
    releaseNetwork();
    m_inProgress = false;
    if (redirects->isTruncated()) {
        emit CheckFailed(QStringLiteral("The update feed is too large"));
        return;
    }

    if (redirects->ledOffTheWeb()) {
        emit CheckFailed(QStringLiteral("The update feed redirects to an address off the web"));
        return;
    }

    const AppCastPtr appcast(new AppCast);
    QByteArray body = redirects->takeBody();
    QBuffer device(&body);
    device.open(QIODevice::ReadOnly);
    if (!appcast->Load(&device)) {
        emit CheckFailed(appcast->error_reason);
        return;
    }
    const bool skipped = !m_manual && skippedVersion() == appcast->version;
    if (IsOlder(m_version, appcast->version) && !skipped)
        emit UpdateAvailable(appcast);
    else
        emit UpToDate();
}

void UpdateChecker::RedirectLimitReached()
{
    if (auto* redirects = qobject_cast<FollowRedirects*>(sender()))
        redirects->deleteLater();
    releaseNetwork();
    emit CheckFailed(QStringLiteral("Redirect limit reached"));
}

/// A checker may stay as long as the program, while a manager holds a thread and open connections.
void UpdateChecker::releaseNetwork()
{
    if (!m_ownNetwork)
        return;
    m_ownNetwork->deleteLater(); // a result is still to be read from it
    m_ownNetwork = nullptr;
    m_network = nullptr;
}

} // namespace qtsparkle
