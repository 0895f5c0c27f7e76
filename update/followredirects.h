#pragma once

#include <QByteArray>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>

namespace qtsparkle
{

/// Follows the redirects of a download, five at the most, and bounds what comes in the end.
///
/// It owns the reply that it is given and those that follow, and has no parent: whoever takes the result
/// calls deleteLater(), and who does not wait for it any more deletes it, which ends the download. Nobody has
/// to when none comes any more. GUI thread, like the replies.
class FollowRedirects final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(FollowRedirects)

public:
    /// No feed and no notes are anywhere near as large; a body that never ends stops here.
    static constexpr qint64 maximumBody = Q_INT64_C(8) * 1024 * 1024; // bytes

    /// How long a download may bring nothing; its network manager has to be told.
    static constexpr int silenceTimeout = 30000; // ms

    /// Whether an address is http or https: a feed can lead nowhere else.
    static bool IsWeb(const QUrl& url);

    explicit FollowRedirects(QNetworkReply* reply);
    ~FollowRedirects() override;

    /// The current reply, the last one of the chain; null after the limit was reached.
    QNetworkReply* reply() const;
    /// What the last reply has brought, up to maximumBody bytes. Takes it: a second call gives nothing.
    QByteArray takeBody();
    /// Whether there would have been more than that.
    bool isTruncated() const;
    /// Whether the last reply redirects to somewhere off the web: its body is not what was asked for.
    bool ledOffTheWeb() const;

signals:
    /// The chain has ended, by success or by failure: neither is judged here.
    void Finished();
    void RedirectLimitReached();

private slots:
    void FinishedSlot();
    void ReadSlot();
    void ReplyDestroyed();

private:
    void follow(QNetworkReply* reply);
    static QUrl targetOf(const QNetworkReply& reply);
    static bool isRedirect(const QNetworkReply& reply);

    QPointer<QNetworkReply> m_reply;
    int m_redirects = 0;
    QByteArray m_kept;
    bool m_truncated = false;
};

} // namespace qtsparkle
