#include "ui/account.h"

#include "base/log.h"
#include "engine/servercomm.h"

#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>

namespace
{

constexpr int editWidth = 220; // pixels, the least

} // namespace

Account::Account(ServerComm* server, QWidget* parent)
    : QWidget(parent)
    , m_server(server)
    , m_email(new QLineEdit(QSettings().value(QStringLiteral("username")).toString()))
    , m_password(new QLineEdit)
    , m_login(new QPushButton(tr("Login")))
    , m_status(new QLabel)
{
    m_password->setEchoMode(QLineEdit::Password);

    auto* emailCaption = new QLabel(tr("Email"));
    emailCaption->setBuddy(m_email);
    auto* passwordCaption = new QLabel(tr("Password"));
    passwordCaption->setBuddy(m_password);

    for (QLineEdit* edit : {m_email, m_password})
        edit->setMinimumWidth(editWidth);

    constexpr int statusRowSpan = 5;
    constexpr int statusColumnSpan = 2;
    auto* layout = new QGridLayout(this);
    layout->addWidget(emailCaption, 0, 0);
    layout->addWidget(m_email, 0, 1);
    layout->addWidget(passwordCaption, 1, 0);
    layout->addWidget(m_password, 1, 1);
    layout->addWidget(m_login, 2, 1);
    layout->addWidget(m_status, 3, 0, statusRowSpan, statusColumnSpan);

    connect(m_login, SIGNAL(pressed()), this, SLOT(doLogin()));
    connect(m_server, SIGNAL(netStateChanged()), this, SLOT(srvStateChange()));
}

void Account::srvStateChange()
{
    const QString& state = m_server->state().netState;
    ORVEL_LOG << "network state " << state;

    const auto show = [this](bool canEdit, bool canPress, const QString& button, const QString& status) {
        m_email->setEnabled(canEdit);
        m_password->setEnabled(canEdit);
        m_login->setEnabled(canPress);
        m_login->setText(button);
        m_status->setText(status);
    };
    if (state == QLatin1String("ok"))
        show(false, true, tr("Logout"), QString());
    else if (state == QLatin1String("logout"))
        show(true, true, tr("Login"), QString());
    else if (state == QLatin1String("offline"))
        show(false, false, tr("Login"), tr("Disconnected from server."));
}

void Account::doLogin()
{
    const QString& state = m_server->state().netState;
    ORVEL_LOG << state;
    if (state == QLatin1String("logout")) {
        m_server->login(m_email->text(), m_password->text());
        QSettings().setValue(QStringLiteral("username"), m_email->text());
    } else if (state == QLatin1String("ok")) {
        m_server->logout();
    }
}
