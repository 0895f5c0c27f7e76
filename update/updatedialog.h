#pragma once

#include "update/appcast.h"

#include <QDialog>
#include <QPointer>
#include <QString>

#include <memory>

class QIcon;
class QNetworkAccessManager;

namespace qtsparkle
{

class FollowRedirects;

/// Announces a new version, shows its release notes, and offers to install, skip or postpone it. "Install"
/// opens the download's address with the desktop's handler, or says that it does not lead to the web: nothing is
/// downloaded or run here.
class UpdateDialog final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UpdateDialog)

public:
    explicit UpdateDialog(QWidget* parent);
    ~UpdateDialog() override;

    /// Not owned; without one the dialog makes its own.
    void SetNetworkAccessManager(QNetworkAccessManager* network);
    /// A null icon hides the place of the picture.
    void SetIcon(const QIcon& icon);
    /// The version of the running program.
    void SetVersion(const QString& version);

public slots:
    void ShowUpdate(AppCastPtr appcast);
    void ReleaseNotesReady();
    void Install();
    void Skip();

private:
    struct Widgets;

    void refuse(const QString& wholeAddress) const;

    std::unique_ptr<Widgets> m_widgets;
    QNetworkAccessManager* m_network = nullptr;
    QString m_version;
    AppCastPtr m_appcast;
    QPointer<FollowRedirects> m_download; ///< of the notes; deletes itself when they were taken
};

} // namespace qtsparkle
