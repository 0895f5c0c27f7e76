#pragma once

#include "engine/servercomm.h"
#include "syncfolder/syncfolder.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"
#include "json/json.h"

#include <QSettings>
#include <QTemporaryDir>

#include <memory>

constexpr quint64 account = 1001;

inline QByteArray rootsJson(const QStringList& fullPaths)
{
    QVariantList roots;
    for (const QString& path : fullPaths) {
        const QFileInfo root(path);
        roots << QVariantMap{{QStringLiteral("path"), root.path()},
                             {QStringLiteral("name"), root.fileName()},
                             {QStringLiteral("kept"), QStringLiteral("as it is")}};
    }
    return Json::serialize(roots);
}

/// A registry over an engine link of its own, in an installation of its own.
class SyncFolderTest : public Test
{
    Q_OBJECT

protected:
    void setUp() override
    {
        m_engine = std::make_unique<FakeEngine>();
        QDir::setCurrent(m_engine->installDir());
        m_roots = std::make_unique<QTemporaryDir>();
        m_server = std::make_unique<ServerComm>(QStringLiteral("Orvel Storage"), QStringLiteral("V"), false);
        QCoreApplication::setApplicationName(QStringLiteral("Orvel Storage"));
        QCoreApplication::setOrganizationName(QStringLiteral("Velmora d.d."));
        QSettings().clear();
        clearLog();
    }

    void tearDown() override
    {
        m_folder.reset();
        m_server.reset();
        m_engine.reset();
        m_roots.reset();
        QSettings().clear();
        forgetNames();
    }

    SyncFolder& create()
    {
        m_folder = std::make_unique<SyncFolder>(m_server.get(), nullptr);
        connect(m_folder.get(), SIGNAL(pathsChanged(QStringList&)), this, SLOT(takePaths(QStringList&)));
        connect(m_folder.get(), SIGNAL(rootsChanged(QList<QDir>&)), this, SLOT(takeRoots(QList<QDir>&)));
        m_batches.clear();
        m_rootLists.clear();
        return *m_folder;
    }

    /// The registry of an account that was signed in before.
    SyncFolder& createForAccount()
    {
        QSettings().setValue(QStringLiteral("lastuid"), account);
        return create();
    }

    QString makeRoot(const QString& name) const
    {
        const QString path = m_roots->path() + u'/' + name;
        QDir().mkpath(path);
        return path;
    }

    QString rootsFile(quint64 uid = account) const
    {
        return m_server->stateDir() + QStringLiteral("/%1.json").arg(uid);
    }

    void writeRoots(const QStringList& fullPaths, quint64 uid = account) const
    {
        writeFile(rootsFile(uid), rootsJson(fullPaths));
    }

    void call(const char* slot)
    {
        QVERIFY(QMetaObject::invokeMethod(m_folder.get(), slot));
    }

    void pick(const QString& path)
    {
        QVERIFY(QMetaObject::invokeMethod(m_folder.get(), "RootPicked", Q_ARG(QString, path)));
    }

    void change(const QStringList& paths)
    {
        auto* handedOver = new QStringList(paths);
        QVERIFY(QMetaObject::invokeMethod(m_folder.get(), "extPathsChanged", Q_ARG(QStringList*, handedOver)));
    }

    /// Lets the engine say that @p uid is signed in.
    void signIn(quint64 uid)
    {
        EVENTUALLY(m_engine->isConnected());
        m_engine->say("{\"what\":\"networkstate\",\"state\":\"ok\",\"uid\":" + QByteArray::number(uid) + "}");
        EVENTUALLY_EQUAL(m_server->state().uid, uid);
    }

    std::unique_ptr<FakeEngine> m_engine;
    std::unique_ptr<ServerComm> m_server;
    std::unique_ptr<SyncFolder> m_folder;
    std::unique_ptr<QTemporaryDir> m_roots;
    QStringList m_batches; ///< each batch's paths, joined by blanks
    QList<QStringList> m_rootLists;

public slots:
    void takePaths(QStringList& paths)
    {
        m_batches << paths.join(u' ');
    }

    void takeRoots(QList<QDir>& roots)
    {
        QStringList paths;
        for (const QDir& root : qAsConst(roots))
            paths << root.path();
        m_rootLists << paths;
    }
};
