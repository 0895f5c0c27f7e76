#pragma once

#include "tests/support/httpserver.h"
#include "tests/support/test.h"
#include "update/updatedialog.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QProgressDialog>
#include <QSettings>

#include <memory>

/// The base of the update prompts' tests: an update server, a window to stand before, names, and a list in
/// the browser's place.
class PromptTest : public Test
{
    Q_OBJECT

public slots:
    void recordUrl(const QUrl& url)
    {
        m_opened << url.toString();
    }

protected:
    void setUp() override
    {
        QCoreApplication::setApplicationName(QStringLiteral("Orvel"));
        QCoreApplication::setApplicationVersion(QStringLiteral("1.9"));
        QCoreApplication::setOrganizationName(QStringLiteral("Velmora"));
        QSettings().clear();
        m_opened.clear();
        for (const char* scheme : schemes)
            QDesktopServices::setUrlHandler(QLatin1String(scheme), this, "recordUrl");
        m_server = std::make_unique<HttpServer>();
        m_parent = std::make_unique<QWidget>();
    }

    void tearDown() override
    {
        m_parent.reset();
        m_server.reset();
        for (const char* scheme : schemes)
            QDesktopServices::unsetUrlHandler(QLatin1String(scheme));
        QSettings().clear();
    }

    /// A feed of one version whose notes lie on the server at @p notes; no notes when it is empty.
    QByteArray feed(const QByteArray& version, const QString& notes = QString()) const
    {
        QByteArray link;
        if (!notes.isEmpty())
            link = "<s:releaseNotesLink>" + m_server->url(notes).toEncoded() + "</s:releaseNotesLink>";
        return "<rss xmlns:s=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><item>" + link +
               "<enclosure url=\"http://updates.example/orvel-" + version + ".exe\" s:version=\"" + version +
               "\"/></item></rss>";
    }

    void serveFeed(const QByteArray& version, const QString& notes = QString())
    {
        HttpServer::Answer answer;
        answer.body = feed(version, notes);
        m_server->serve(QStringLiteral("/feed"), answer);
    }

    void serveText(const QString& path, const QByteArray& body, const QByteArray& type)
    {
        HttpServer::Answer answer;
        answer.body = body;
        answer.contentType = type;
        m_server->serve(path, answer);
    }

    template<typename Widget>
    QVector<Widget*> windows() const
    {
        QVector<Widget*> found;
        const auto all = QApplication::topLevelWidgets();
        for (auto* widget : all) {
            auto* wanted = qobject_cast<Widget*>(widget);
            if (wanted != nullptr)
                found << wanted;
        }
        return found;
    }

    /// The only one of its kind; null when there is none or more than one.
    template<typename Widget>
    Widget* window() const
    {
        const QVector<Widget*> found = windows<Widget>();
        return found.size() == 1 ? found.first() : nullptr;
    }

    /// Whether any prompt exists, be it hidden.
    bool anyPrompt() const
    {
        return !windows<QDialog>().isEmpty();
    }

    static QVariant setting(const char* key)
    {
        return QSettings().value(QLatin1String("QtSparkle/") + QLatin1String(key));
    }

    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<QWidget> m_parent;
    QStringList m_opened;

private:
    static constexpr const char* schemes[] = {"http", "https", "file", "ftp", "mailto"};
};
