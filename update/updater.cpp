#include "update/updater.h"

#include "update/uicontroller.h"
#include "update/updatechecker.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QEvent>
#include <QIcon>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QWidget>

namespace qtsparkle
{

struct Updater::Private
{
    QWidget* parentWidget = nullptr;
    QNetworkAccessManager* network = nullptr;
    QIcon icon;
    QString version;
    QUrl appcastUrl;
    bool checkAutomatically = false;
    bool firstBoot = true;
    bool askedPermission = false;
    const QEvent::Type askPermissionEvent = static_cast<QEvent::Type>(QEvent::registerEventType(-1));
    const QEvent::Type automaticCheckEvent = static_cast<QEvent::Type>(QEvent::registerEventType(-1));
};

Updater::Updater(const QUrl& appcast_url, QWidget* parent)
    : QObject(parent)
    , m_private(std::make_unique<Private>())
{
    m_private->parentWidget = parent;
    if (parent != nullptr)
        m_private->icon = parent->windowIcon();
    m_private->version = QCoreApplication::applicationVersion();
    m_private->appcastUrl = appcast_url;

    QSettings settings;
    settings.beginGroup(QStringLiteral("QtSparkle"));
    m_private->checkAutomatically = settings.value(QStringLiteral("check_automatically"), false).toBool();
    m_private->firstBoot = settings.value(QStringLiteral("first_boot"), true).toBool();
    m_private->askedPermission = settings.value(QStringLiteral("asked_permission"), false).toBool();

    // Posted, so that nothing happens before the event loop runs.
    if (!m_private->askedPermission && !m_private->firstBoot)
        QCoreApplication::postEvent(this, new QEvent(m_private->askPermissionEvent));
    if (m_private->checkAutomatically)
        QCoreApplication::postEvent(this, new QEvent(m_private->automaticCheckEvent));
    if (m_private->firstBoot) {
        m_private->firstBoot = false;
        settings.setValue(QStringLiteral("first_boot"), false);
    }
}

Updater::~Updater() = default;

void Updater::SetNetworkAccessManager(QNetworkAccessManager* network)
{
    m_private->network = network;
}

void Updater::SetIcon(const QIcon& icon)
{
    m_private->icon = icon;
}

void Updater::SetVersion(const QString& version)
{
    m_private->version = version;
}

bool Updater::event(QEvent* event)
{
    if (event->type() == m_private->automaticCheckEvent) {
        Check(true);
        return true;
    }
    if (event->type() == m_private->askPermissionEvent) {
        AskPermission();
        return true;
    }
    return QObject::event(event);
}

void Updater::CheckNow()
{
    Check(false);
}

void Updater::Check(bool quiet)
{
    auto* controller = new UiController(quiet, this, m_private->parentWidget);
    controller->SetNetworkAccessManager(m_private->network);
    controller->SetIcon(m_private->icon);
    controller->SetVersion(m_private->version);

    auto* checker = new UpdateChecker(this);
    checker->SetNetworkAccessManager(m_private->network);
    checker->SetVersion(m_private->version);
    connect(checker, SIGNAL(CheckStarted()), controller, SLOT(CheckStarted()));
    connect(checker, SIGNAL(CheckFailed(QString)), controller, SLOT(CheckFailed(QString)));
    connect(checker, SIGNAL(UpdateAvailable(AppCastPtr)), controller, SLOT(UpdateAvailable(AppCastPtr)));
    connect(checker, SIGNAL(UpToDate()), controller, SLOT(UpToDate()));
    checker->Check(m_private->appcastUrl, !quiet);
}

void Updater::AskPermission()
{
    auto* box = new QMessageBox(QMessageBox::Question, tr("Check for updates automatically?"),
                                tr("Should %1 automatically check for updates?  You can always check for updates "
                                   "manually from the menu.")
                                    .arg(QCoreApplication::applicationName()),
                                QMessageBox::NoButton, m_private->parentWidget);
    box->addButton(tr("Check automatically"), QMessageBox::YesRole);
    box->addButton(tr("Don't check"), QMessageBox::NoRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, SIGNAL(finished(int)), this, SLOT(PermissionAnswered(int)));
    connect(qApp, SIGNAL(aboutToQuit()), box, SLOT(reject()));
    box->open();
}

void Updater::PermissionAnswered(int result)
{
    Q_UNUSED(result)
    const auto* box = qobject_cast<QMessageBox*>(sender());
    // Closed by its frame, or by the end of the program, counts as no.
    const QAbstractButton* clicked = box != nullptr ? box->clickedButton() : nullptr;
    const bool yes = clicked != nullptr && box->buttonRole(box->clickedButton()) == QMessageBox::YesRole;
    QSettings settings;
    settings.beginGroup(QStringLiteral("QtSparkle"));
    settings.setValue(QStringLiteral("asked_permission"), true);
    settings.setValue(QStringLiteral("check_automatically"), yes);
    m_private->checkAutomatically = yes;
    if (yes)
        Check(true);
}

} // namespace qtsparkle
