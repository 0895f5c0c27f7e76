#include "update/uicontroller.h"

#include "update/updatedialog.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QProgressDialog>
#include <QtDebug>

// The texts are Slovenian in the source, name endings included: "%1e", "%1a".

namespace qtsparkle
{

namespace
{

/// Modal, but without an event loop of its own: the check and its objects go on while it stands there.
void showBox(QMessageBox::Icon icon, const QString& title, const QString& text, QMessageBox::StandardButton button,
             QWidget* parent)
{
    auto* box = new QMessageBox(icon, title, text, button, parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    box->open();
}

} // namespace

UiController::UiController(bool quiet, QObject* parent, QWidget* parent_widget)
    : QObject(parent)
    , m_quiet(quiet)
    , m_parentWidget(parent_widget)
{
}

UiController::~UiController()
{
    delete m_progress;
}

void UiController::SetNetworkAccessManager(QNetworkAccessManager* network)
{
    m_network = network;
}

void UiController::SetIcon(const QIcon& icon)
{
    m_icon = icon;
}

void UiController::SetVersion(const QString& version)
{
    m_version = version;
}

void UiController::CheckStarted()
{
    if (m_quiet)
        return;
    m_progress = new QProgressDialog(m_parentWidget);
    m_progress->setAutoClose(false);
    m_progress->setAutoReset(false);
    m_progress->setRange(0, 0);
    m_progress->setCancelButton(nullptr);
    m_progress->setWindowTitle(tr("Preverjam za posodobitve"));
    m_progress->setLabelText(tr("Preverjam za posodobitve %1...").arg(QCoreApplication::applicationName()));
    m_progress->setMinimumSize(m_progress->sizeHint());
    m_progress->show();
}

void UiController::UpdateAvailable(AppCastPtr appcast)
{
    hideProgress();
    auto* dialog = new UpdateDialog(m_parentWidget);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->SetNetworkAccessManager(m_network);
    dialog->SetIcon(m_icon);
    dialog->SetVersion(m_version);
    dialog->ShowUpdate(appcast);
    connect(dialog, SIGNAL(destroyed()), this, SLOT(deleteLater()));
}

void UiController::UpToDate()
{
    hideProgress();
    if (!m_quiet) {
        showBox(QMessageBox::Information, tr("Novih različic ni na voljo"),
                tr("Nameščeno imaš najnovejšo različico ") + QCoreApplication::applicationName() + tr("a."),
                QMessageBox::Ok, m_parentWidget);
    }
    deleteLater();
}

void UiController::CheckFailed(QString reason)
{
    qWarning().noquote() << "Update check failed:" << reason;
    hideProgress();
    if (!m_quiet) {
        showBox(QMessageBox::Warning, tr("Preverjanje za posodobitve ni uspelo"), reason, QMessageBox::Close,
                m_parentWidget);
    }
    deleteLater();
}

void UiController::hideProgress()
{
    if (m_progress)
        m_progress->hide();
}

} // namespace qtsparkle
