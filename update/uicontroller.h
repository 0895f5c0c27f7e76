#pragma once

#include "update/appcast.h"

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QString>

class QNetworkAccessManager;
class QProgressDialog;
class QWidget;

namespace qtsparkle
{

/// Shows the user what one check finds, and deletes itself when nothing is left to show.
class UiController final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UiController)

public:
    /// A @p quiet one shows nothing but an update. @p parent_widget is the parent of all it shows.
    UiController(bool quiet, QObject* parent, QWidget* parent_widget);
    ~UiController() override;

    /// Not owned; may be null.
    void SetNetworkAccessManager(QNetworkAccessManager* network);
    void SetIcon(const QIcon& icon);
    /// The version of the running program.
    void SetVersion(const QString& version);

public slots:
    void CheckStarted();
    void UpdateAvailable(AppCastPtr appcast);
    void UpToDate();
    void CheckFailed(QString reason);

private:
    void hideProgress();

    bool m_quiet;
    QWidget* m_parentWidget;
    QNetworkAccessManager* m_network = nullptr;
    QIcon m_icon;
    QString m_version;
    QPointer<QProgressDialog> m_progress; ///< its parent may take it first
};

} // namespace qtsparkle
