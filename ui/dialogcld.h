#pragma once

#include "ui/settingspanel.h"

#include <QBasicTimer>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QList>
#include <QPointer>
#include <QStringList>
#include <QSystemTrayIcon>

#include <memory>

class MyMenu;
class PickRacun;
class PipeCmdReader;
class QAction;
class ScaleFollower;
class ServerComm;
class ShareFolder;
class SyncFolder;

namespace qtsparkle
{
class Updater;
}

/// The application's one main window, normally hidden, and the owner of everything the user sees.
///
/// It turns the engine's state into the tray icon, its tool tip and the panel's widgets, and the user's
/// commands into calls on the engine link and the sync folder. Building it names the application: see the
/// constructor for what has to happen before and after that. Closing the window only hides it; while there
/// is no tray, it is minimised wherever it would be hidden, and hidden once a tray comes up soon after.
class DialogCld final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DialogCld)

public:
    explicit DialogCld(QWidget* parent = nullptr);
    ~DialogCld() override;

    void setVisible(bool visible) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

    const ServerComm& server() const;
    const SyncFolder& syncFolder() const;
    const QSystemTrayIcon& tray() const;
    const SettingsPanel& panel() const;

public slots:
    void rootsChanged(QList<QDir>& roots);
    void toggleStartUp(bool on);
    void menuClose();
    void manualUpdate();
    void menuShow();
    void disableSync();
    void trayActivated(QSystemTrayIcon::ActivationReason reason);
    void checkUpdate();
    void shellCommand(QString cmd, QString path);
    void shareFolder(QString user, QString path, int id);
    void shareClosed(ShareFolder* s);
    void srvStateChange();
    void srvDied();
    void aboutToDie();
    void doLogin();
    void changeRoot();
    void openHomepage();
    void openHomefolder();
    void openGuide();
    void openHelp();
    void openBuy();
    void guideClosed(int result);
    void spaceUsedChanged();
    void pathQueryResult(QString tag, QList<quint64> ids);
    void toggleAutoUpdate(bool on);
    void pickedRacun(QString id);
    void pickRacun(QStringList ids);

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    void createServer();
    void createCommandReader();
    void copyStatusIcons() const;
    void nameApplication();
    void createSyncFolder();
    void buildPanel(int runStartup);
    QString defaultRootPath() const;
    QString rootName() const;
    void greet(int runNumber);
    void createMenu();
    void createTray();
    void endTrayWatch();
    void setTrayIcon(const QString& resource);
    void warn(const QString& text);
    QAction* addAction(const QString& text, const char* slot);

    std::unique_ptr<ServerComm> m_server;
    std::unique_ptr<PipeCmdReader> m_commandReader;
    std::unique_ptr<SyncFolder> m_syncFolder; ///< before the server in destruction: it points there
    qtsparkle::Updater* m_updater = nullptr;
    SettingsPanel m_panel;
    QSystemTrayIcon* m_tray = nullptr;
    std::unique_ptr<ScaleFollower> m_scaleFollower;
    QString m_trayIcon; ///< resource path of the icon it shows
    QBasicTimer m_trayWatch;
    int m_trayLooks = 0; ///< that are left
    MyMenu* m_menu = nullptr;
    QAction* m_syncAction = nullptr;
    QAction* m_packageAction = nullptr;
    QAction* m_spaceAction = nullptr;
    QElapsedTimer m_sinceFolderClick; ///< the last tray click that opened the folder; the first counts from the epoch
    QPointer<PickRacun> m_picker;
    int m_loginAttempts = 0;
    bool m_awaitsAnswer = false;  ///< to a sign-in; what the engine repeats later must not move the cursor
    bool m_loginConfirms = false; ///< the button under the panel is "Confirm"
    bool m_syncStopped = false;   ///< by the user: the menu offers to continue
    bool m_quitting = false;
};
