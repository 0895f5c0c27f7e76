#include "base/log.h"
#include "engine/servercomm.h"
#include "syncfolder/syncfolder.h"
#include "ui/dialogcld.h"
#include "ui/pickracun.h"

#include <QLineEdit>
#include <QPushButton>
#include <QSettings>

void DialogCld::doLogin()
{
    ++m_loginAttempts;
    if (m_loginConfirms) {
        hide();
        return;
    }
    const QString& state = m_server->state().netState;
    const QString username = m_panel.username->text();
    ORVEL_LOG << "maindlg:"
              << "dologin " << state << username;
    m_syncFolder->AppActivated();
    if (state == QLatin1String("logout")) {
        m_server->login(username, m_panel.password->text());
        m_awaitsAnswer = true;
        QSettings().setValue(QStringLiteral("username"), username);
    } else if (state == QLatin1String("ok")) {
        m_server->logout();
    }
}

void DialogCld::pickRacun(QStringList ids)
{
    m_awaitsAnswer = false;
    delete m_picker;
    m_picker = new PickRacun(ids);
    m_picker->setWindowFlags(Qt::Tool | Qt::WindowStaysOnTopHint);
    m_picker->raise();
    m_picker->activateWindow();
    m_picker->show();
    connect(m_picker, SIGNAL(PickedRacun(QString)), this, SLOT(pickedRacun(QString)));
}

void DialogCld::pickedRacun(QString id)
{
    ORVEL_LOG << "maindlg:"
              << "Picked racun" << id;
    if (m_picker) {
        m_picker->close();
        m_picker->deleteLater(); // it is still emitting the signal that led here
        m_picker = nullptr;
    }
    m_server->login(m_panel.username->text(), m_panel.password->text(), id);
    m_awaitsAnswer = true;
}
