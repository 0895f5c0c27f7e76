#include "update/updatedialog.h"

#include "update/followredirects.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QIcon>
#include <QImage>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QPushButton>
#include <QSettings>
#include <QSpacerItem>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextImageFormat>
#include <QUrl>
#include <QVBoxLayout>
#include <QVector>
#include <QtDebug>

namespace qtsparkle
{

namespace
{

constexpr int initialWidth = 643;  // pixels
constexpr int initialHeight = 475; // pixels
constexpr int iconSize = 64;       // pixels

template<typename Widget>
Widget* named(Widget* widget, const char* name)
{
    widget->setObjectName(QLatin1String(name));
    return widget;
}

/// Whether a click would hand the address to some program other than the browser.
bool isForeign(const QString& link)
{
    const QUrl url(link);
    return !url.isRelative() && !FollowRedirects::IsWeb(url);
}

/// Fetches nothing, neither from the network nor from this computer: a picture in the notes must not tell its
/// maker who reads them. What it gives is empty but there, as Qt looks for a file in the place of nothing.
class NotesDocument final : public QTextDocument
{
public:
    explicit NotesDocument(QObject* parent)
        : QTextDocument(parent)
    {
    }

    /// Takes the addresses of links away that do not lead to the web.
    void forgetForeignLinks()
    {
        for (QTextBlock block = begin(); block.isValid(); block = block.next()) {
            QVector<QTextCursor> links;
            for (auto it = block.begin(); !it.atEnd(); ++it) {
                if (isForeign(it.fragment().charFormat().anchorHref()))
                    links << select(it.fragment());
            }
            for (QTextCursor& link : links) {
                QTextCharFormat plain;
                plain.setAnchorHref(QString());
                link.mergeCharFormat(plain);
            }
        }
    }

    /// Takes the pictures' names away. To be called before anything is laid out, which looks for their files.
    void forgetPictures()
    {
        QVector<QTextCursor> pictures;
        for (QTextBlock block = begin(); block.isValid(); block = block.next()) {
            for (auto it = block.begin(); !it.atEnd(); ++it) {
                const QTextFragment fragment = it.fragment();
                if (!fragment.charFormat().isImageFormat())
                    continue;
                pictures << select(fragment);
            }
        }
        for (QTextCursor& picture : pictures) {
            QTextImageFormat nameless;
            nameless.setName(QString());
            picture.mergeCharFormat(nameless);
        }
    }

protected:
    QVariant loadResource(int type, const QUrl& name) override
    {
        Q_UNUSED(name)
        if (type != QTextDocument::ImageResource)
            return QString(QLatin1String(""));
        QImage blank(1, 1, QImage::Format_ARGB32);
        blank.fill(Qt::transparent);
        return blank;
    }

private:
    QTextCursor select(const QTextFragment& fragment)
    {
        QTextCursor cursor(this);
        cursor.setPosition(fragment.position());
        cursor.setPosition(fragment.position() + fragment.length(), QTextCursor::KeepAnchor);
        return cursor;
    }
};

/// Keeps showing the notes, whichever link is clicked.
class NotesBrowser final : public QTextBrowser
{
public:
    void setSource(const QUrl& url) override
    {
        if (url.hasFragment() && url.adjusted(QUrl::RemoveFragment).isEmpty())
            scrollToAnchor(url.fragment());
    }

    void showHtml(const QString& html)
    {
        auto* document = new NotesDocument(this);
        document->setDefaultFont(this->document()->defaultFont());
        document->setHtml(html);
        document->forgetForeignLinks();
        document->forgetPictures();
        setDocument(document);
    }
};

} // namespace

struct UpdateDialog::Widgets
{
    QLabel* icon = nullptr;
    QLabel* title = nullptr;
    QLabel* summary = nullptr;
    QLabel* releaseNotesLabel = nullptr;
    NotesBrowser* releaseNotes = nullptr;
    QPushButton* skip = nullptr;
    QPushButton* later = nullptr;
    QPushButton* install = nullptr;

    explicit Widgets(QDialog* dialog);
    void buildIconColumn(QHBoxLayout* columns);
    void buildTextColumn(QHBoxLayout* columns);
    void buildButtons(QVBoxLayout* column);
    void setTexts(QDialog* dialog) const;
};

UpdateDialog::Widgets::Widgets(QDialog* dialog)
{
    dialog->setObjectName(QStringLiteral("UpdateDialog"));
    dialog->resize(initialWidth, initialHeight);
    auto* columns = named(new QHBoxLayout(dialog), "horizontalLayout_2");
    buildIconColumn(columns);
    auto* line = named(new QFrame, "line");
    line->setFrameShape(QFrame::VLine);
    line->setFrameShadow(QFrame::Sunken);
    columns->addWidget(line);
    buildTextColumn(columns);
    setTexts(dialog);
}

void UpdateDialog::Widgets::buildIconColumn(QHBoxLayout* columns)
{
    auto* column = named(new QVBoxLayout, "verticalLayout_2");
    columns->addLayout(column);
    icon = named(new QLabel, "icon");
    column->addWidget(icon);
    column->addItem(new QSpacerItem(20, 40, QSizePolicy::Minimum, QSizePolicy::Expanding));
}

void UpdateDialog::Widgets::buildTextColumn(QHBoxLayout* columns)
{
    auto* column = named(new QVBoxLayout, "verticalLayout");
    columns->addLayout(column);
    title = named(new QLabel, "title");
    title->setWordWrap(true);
    column->addWidget(title);
    summary = named(new QLabel, "summary");
    summary->setTextFormat(Qt::PlainText); // a version comes from the network
    column->addWidget(summary);
    releaseNotesLabel = named(new QLabel, "release_notes_label");
    column->addWidget(releaseNotesLabel);
    releaseNotes = named(new NotesBrowser, "release_notes");
    releaseNotes->setOpenExternalLinks(true); // in the browser, not in the box
    releaseNotesLabel->setBuddy(releaseNotes);
    column->addWidget(releaseNotes);
    buildButtons(column);
}

void UpdateDialog::Widgets::buildButtons(QVBoxLayout* column)
{
    auto* row = named(new QHBoxLayout, "horizontalLayout");
    column->addLayout(row);
    skip = named(new QPushButton, "skip");
    row->addWidget(skip);
    row->addItem(new QSpacerItem(40, 20, QSizePolicy::Expanding, QSizePolicy::Minimum));
    later = named(new QPushButton, "later");
    row->addWidget(later);
    install = named(new QPushButton, "install");
    install->setDefault(true);
    row->addWidget(install);
}

void UpdateDialog::Widgets::setTexts(QDialog* dialog) const
{
    dialog->setWindowTitle(QCoreApplication::translate("UpdateDialog", "Software Update"));
    releaseNotesLabel->setText(QStringLiteral("<b>") +
                               QCoreApplication::translate("UpdateDialog", "Zgodovina sprememb:") +
                               QStringLiteral("</b>"));
    skip->setText(QCoreApplication::translate("UpdateDialog", "Preskoči to verzijo"));
    later->setText(QCoreApplication::translate("UpdateDialog", "Opomni me kasneje"));
    install->setText(QCoreApplication::translate("UpdateDialog", "Namesti posodobitev"));
}

UpdateDialog::UpdateDialog(QWidget* parent)
    : QDialog(parent)
    , m_widgets(std::make_unique<Widgets>(this))
{
    m_widgets->icon->hide();
    connect(m_widgets->install, SIGNAL(clicked()), this, SLOT(Install()));
    connect(m_widgets->skip, SIGNAL(clicked()), this, SLOT(Skip()));
    connect(m_widgets->later, SIGNAL(clicked()), this, SLOT(close()));
}

UpdateDialog::~UpdateDialog()
{
    delete m_download;
}

void UpdateDialog::SetNetworkAccessManager(QNetworkAccessManager* network)
{
    m_network = network;
}

void UpdateDialog::SetIcon(const QIcon& icon)
{
    m_widgets->icon->setVisible(!icon.isNull());
    if (!icon.isNull())
        m_widgets->icon->setPixmap(icon.pixmap(iconSize));
}

void UpdateDialog::SetVersion(const QString& version)
{
    m_version = version;
}

void UpdateDialog::ShowUpdate(AppCastPtr appcast)
{
    m_appcast = appcast;
    const QString name = QCoreApplication::applicationName();
    m_widgets->title->setText(QStringLiteral("<h3>") + tr("Nova različica %1e je na voljo").arg(name) +
                              QStringLiteral("</h3>"));
    m_widgets->summary->setText(tr("%1 %2 je na voljo - ti imaš %3. Želiš prenesti najnovejšo različico?")
                                    .arg(name, appcast->version, m_version));
    show();

    if (m_network == nullptr) {
        m_network = new QNetworkAccessManager(this);
        m_network->setTransferTimeout(FollowRedirects::silenceTimeout);
    }
    const QUrl notes(appcast->release_notes_url);
    if (!FollowRedirects::IsWeb(notes))
        return;
    delete m_download;
    m_download = new FollowRedirects(m_network->get(QNetworkRequest(notes)));
    connect(m_download, SIGNAL(Finished()), this, SLOT(ReleaseNotesReady()));
}

void UpdateDialog::ReleaseNotesReady()
{
    auto* redirects = qobject_cast<FollowRedirects*>(sender());
    if (redirects == nullptr)
        return;
    redirects->deleteLater();
    const QString type = redirects->reply()->header(QNetworkRequest::ContentTypeHeader).toString();
    // Latin-1, up to the first zero byte.
    const QString notes = QString::fromLatin1(redirects->takeBody().constData());
    if (type.contains(QLatin1String("text/html")))
        m_widgets->releaseNotes->showHtml(notes);
    else
        m_widgets->releaseNotes->setPlainText(notes);
}

void UpdateDialog::Install()
{
    // Whatever else a feed may name (a file, another program's scheme) is not opened.
    if (m_appcast) {
        const QUrl download(m_appcast->download_url);
        if (download.isEmpty() || FollowRedirects::IsWeb(download))
            QDesktopServices::openUrl(download);
        else
            refuse(m_appcast->download_url);
    }
    close();
}

void UpdateDialog::refuse(const QString& wholeAddress) const
{
    constexpr int shown = 200; // characters; a feed may be long
    const QString address = wholeAddress.simplified().left(shown);
    qWarning().noquote() << "Update not opened:" << address;
    auto* box = new QMessageBox(QMessageBox::Warning, tr("Posodobitve ni mogoče namestiti"),
                                tr("Naslov posodobitve ne vodi na splet:") + QLatin1Char('\n') + address,
                                QMessageBox::Close, parentWidget());
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    box->open();
}

void UpdateDialog::Skip()
{
    if (m_appcast)
        QSettings().setValue(QStringLiteral("QtSparkle/skipped_version"), m_appcast->version);
    close();
}

} // namespace qtsparkle
