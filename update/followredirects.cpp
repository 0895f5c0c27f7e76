#include "update/followredirects.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QUrl>

namespace qtsparkle
{

namespace
{

constexpr int redirectLimit = 5;

} // namespace

FollowRedirects::FollowRedirects(QNetworkReply* reply)
{
    follow(reply);
}

FollowRedirects::~FollowRedirects()
{
    if (m_reply)
        m_reply->deleteLater();
}

QNetworkReply* FollowRedirects::reply() const
{
    return m_reply;
}

QByteArray FollowRedirects::takeBody()
{
    if (m_reply && m_reply->isOpen() && !m_truncated) // one that was given up is closed
        m_kept = m_reply->readAll();
    return std::exchange(m_kept, QByteArray());
}

bool FollowRedirects::isTruncated() const
{
    return m_truncated;
}

void FollowRedirects::follow(QNetworkReply* reply)
{
    m_reply = reply;
    m_kept.clear();
    m_truncated = false;
    connect(reply, SIGNAL(finished()), this, SLOT(FinishedSlot()));
    connect(reply, SIGNAL(readyRead()), this, SLOT(ReadSlot()));
    connect(reply, SIGNAL(destroyed()), this, SLOT(ReplyDestroyed()));
}

bool FollowRedirects::ledOffTheWeb() const
{
    return m_reply && isRedirect(*m_reply) && !IsWeb(targetOf(*m_reply));
}

bool FollowRedirects::isRedirect(const QNetworkReply& reply)
{
    return reply.attribute(QNetworkRequest::RedirectionTargetAttribute).isValid();
}

QUrl FollowRedirects::targetOf(const QNetworkReply& reply)
{
    QUrl target = reply.attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl();
    if (target.scheme().isEmpty() || target.host().isEmpty()) {
        // Only the path is taken; the redirecting address keeps the rest, its query among it.
        QString path = target.path(QUrl::FullyEncoded);
        if (!path.isEmpty() && !path.startsWith(QLatin1Char('/')))
            path.prepend(QLatin1Char('/')); // without it there is no valid address
        target = reply.url();
        target.setPath(path, QUrl::StrictMode);
    }
    return target;
}

bool FollowRedirects::IsWeb(const QUrl& url)
{
    return url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
}

void FollowRedirects::FinishedSlot()
{
    if (!m_reply || sender() != m_reply)
        return;
    const bool isLimit = isRedirect(*m_reply) && m_redirects == redirectLimit;
    if (!isLimit && (!isRedirect(*m_reply) || ledOffTheWeb())) {
        emit Finished();
        return;
    }

    QNetworkReply* redirecting = m_reply;
    redirecting->deleteLater();
    if (isLimit) {
        m_reply = nullptr;
        emit RedirectLimitReached();
        return;
    }
    ++m_redirects;
    QNetworkRequest request(targetOf(*redirecting));
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         redirecting->request().attribute(QNetworkRequest::CacheLoadControlAttribute));
    follow(redirecting->manager()->get(request));
}

void FollowRedirects::ReadSlot()
{
    if (!m_reply || sender() != m_reply || m_reply->bytesAvailable() <= maximumBody)
        return;
    m_kept = m_reply->read(maximumBody);
    m_truncated = true;
    m_reply->abort(); // ends in FinishedSlot()
}

/// Nobody takes a result any more once the last reply is gone, as it is when its manager was destroyed.
void FollowRedirects::ReplyDestroyed()
{
    if (!m_reply)
        deleteLater();
}

} // namespace qtsparkle
