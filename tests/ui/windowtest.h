#pragma once

#include "engine/servercomm.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"
#include "ui/desktop.h"
#include "ui/dialogcld.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QLocale>
#include <QMenu>
#include <QSettings>
#include <QSignalSpy>

#include <memory>

/// The base of the main window's tests: a fresh installation with a fake engine, a window when asked for, and
/// a list in the browser's place.
class WindowTest : public Test
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
        m_engine = std::make_unique<FakeEngine>();
        QDir::setCurrent(m_engine->installDir());
        forgetNames();
        for (const char* scheme : {"https", "http", "file"})
            QDesktopServices::setUrlHandler(QLatin1String(scheme), this, "recordUrl");
        m_opened.clear();
        desktop::pretendTray(true);
        QLocale::setDefault(QLocale::c());
    }

    void tearDown() override
    {
        m_dialog.reset();
        m_engine.reset();
        clientSettings().clear();
        forgetNames();
        desktop::pretendTray({});
        for (const char* scheme : {"https", "http", "file"})
            QDesktopServices::unsetUrlHandler(QLatin1String(scheme));
    }

    static QSettings& clientSettings()
    {
        static QSettings settings(QStringLiteral("Velmora d.d."), QStringLiteral("Orvel Storage"));
        return settings;
    }

    static void preset(const char* key, const QVariant& value)
    {
        clientSettings().setValue(QLatin1String(key), value);
        clientSettings().sync();
    }

    DialogCld& create()
    {
        m_dialog.reset();
        forgetNames();
        m_dialog = std::make_unique<DialogCld>();
        return *m_dialog;
    }

    void say(const QByteArray& line)
    {
        EVENTUALLY(m_engine->isConnected());
        m_engine->say(line);
    }

    void sayState(const QByteArray& state, quint64 uid)
    {
        QSignalSpy changed(&m_dialog->server(), SIGNAL(netStateChanged()));
        say("{\"what\":\"networkstate\",\"state\":\"" + state + "\",\"uid\":" + QByteArray::number(uid) + "}");
        EVENTUALLY_EQUAL(changed.count(), 1);
    }

    /// The menu's entries, separators included.
    QAction* action(int position) const
    {
        return m_dialog->tray().contextMenu()->actions().value(position);
    }

    bool showsIcon(const QString& resource) const
    {
        const QSize size(36, 36);
        return m_dialog->tray().icon().pixmap(size).toImage() == QIcon(resource).pixmap(size).toImage();
    }

    bool engineReads(const QByteArray& bytes)
    {
        return QTest::qWaitFor([&] { return m_engine->input().contains(bytes); }, deadline());
    }

    std::unique_ptr<FakeEngine> m_engine;
    std::unique_ptr<DialogCld> m_dialog;
    QStringList m_opened;
};
