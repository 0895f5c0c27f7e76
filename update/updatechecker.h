#pragma once

#include "update/appcast.h"

#include <QObject>
#include <QPointer>
#include <QString>

class QNetworkAccessManager;
class QUrl;

namespace qtsparkle
{

class FollowRedirects;

/// Fetches and reads the update feed once, and says what came of it by exactly one of its last three signals.
/// Several checkers may work at once; they share nothing but the settings.
class UpdateChecker final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UpdateChecker)

public:
    explicit UpdateChecker(QObject* parent);
    ~UpdateChecker() override;

    /// Not owned; without one the checker makes its own for each check.
    void SetNetworkAccessManager(QNetworkAccessManager* network);
    /// The version of the running program.
    void SetVersion(const QString& version);

    /// Ignored while a check is in progress. A @p manual check offers a version that the user chose to skip.
    void Check(const QUrl& url, bool manual);

signals:
    void CheckStarted();
    void UpdateAvailable(AppCastPtr appcast);
    void UpToDate();
    void CheckFailed(QString reason);

private slots:
    void Finished();
    void RedirectLimitReached();

private:
    void releaseNetwork();

    QNetworkAccessManager* m_network = nullptr;
    QNetworkAccessManager* m_ownNetwork = nullptr; ///< the same one while a check runs, if nobody gave one
    QString m_version;
    bool m_inProgress = false;
    bool m_manual = false;
    QPointer<FollowRedirects> m_download; ///< deletes itself when its result was taken
};

} // namespace qtsparkle
