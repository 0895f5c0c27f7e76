#pragma once

#include <QObject>
#include <QUrl>

#include <memory>

class QEvent;
class QIcon;
class QNetworkAccessManager;
class QWidget;

namespace qtsparkle
{

/// Checks for new versions of the program: by itself at start, as the settings in the group "QtSparkle" say,
/// and whenever the user asks. Application name and version and the settings' names must be set before.
class Updater final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Updater)

public:
    /// @p parent owns the updater and is the parent of every dialog; its window icon becomes the updater's.
    Updater(const QUrl& appcast_url, QWidget* parent);
    ~Updater() override;

    /// Not owned; without one each check makes its own.
    void SetNetworkAccessManager(QNetworkAccessManager* network);
    void SetIcon(const QIcon& icon);
    /// The version of the running program, by default the application's.
    void SetVersion(const QString& version);

    bool event(QEvent* event) override;

public slots:
    /// A check that the user sees.
    void CheckNow();

private slots:
    void PermissionAnswered(int result);

private:
    struct Private;

    void AskPermission();
    void Check(bool quiet);

    std::unique_ptr<Private> m_private;
};

} // namespace qtsparkle
