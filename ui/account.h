#pragma once

#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;
class ServerComm;

/// The sign-in form as a widget of its own.
class Account final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Account)

public:
    /// @p server is not owned and must outlive the form.
    Account(ServerComm* server, QWidget* parent);

private slots:
    void doLogin();
    void srvStateChange();

private:
    ServerComm* m_server;
    QLineEdit* m_email;
    QLineEdit* m_password;
    QPushButton* m_login;
    QLabel* m_status;
};
