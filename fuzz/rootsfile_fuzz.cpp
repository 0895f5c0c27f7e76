// Any roots file: it is read like the slow codec reads it, and picking a new place for the folder changes
// nothing of its first root but the place.

#include "engine/servercomm.h"
#include "fuzz/fuzz.h"
#include "fuzz/slowjson.h"
#include "syncfolder/syncfolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>

namespace
{

constexpr quint64 account = 5;

struct Folder
{
    Folder()
    {
        QCoreApplication::setOrganizationName(QStringLiteral("Velmora d.d."));
        QCoreApplication::setApplicationName(QStringLiteral("Orvel Storage"));
        QSettings().setValue(QStringLiteral("lastuid"), account);
        server = std::make_unique<ServerComm>(QStringLiteral("Orvel Storage"), QStringLiteral("Velmora d.d."), false);
        folder = std::make_unique<SyncFolder>(server.get(), nullptr);
        path = server->stateDir() + QStringLiteral("/%1.json").arg(account);
    }

    std::unique_ptr<ServerComm> server;
    std::unique_ptr<SyncFolder> folder;
    QString path;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder it;
    const QByteArray content = fuzz::bytes(data, size);
    QFile file(it.path);
    fuzz::require(file.open(QIODevice::WriteOnly) && file.write(content) == content.size(), "file of the test");
    file.close();

    const QVariantList roots = it.folder->readRoots();
    bool ok = false;
    const QVariant expected = slowjson::parse(QString::fromLatin1(content.constData()), ok);
    if (ok && !content.isEmpty())
        fuzz::require(slowjson::same(roots, expected.toList()), "roots");
    else
        fuzz::require(roots.isEmpty(), "no roots");
    it.folder->validRootPaths(account);

    QMetaObject::invokeMethod(it.folder.get(), "RootPicked",
                              Q_ARG(QString, QDir::homePath() + QStringLiteral("/\u0160kolje")));
    if (roots.isEmpty())
        return 0;
    const QVariantList picked = it.folder->readRoots();
    fuzz::require(picked.size() == 1, "one root");
    QVariantMap root = roots.first().toMap();
    root.insert(QStringLiteral("name"), QStringLiteral("\u0160kolje"));
    root.insert(QStringLiteral("path"), QDir::homePath());
    if (slowjson::comesBack(root))
        fuzz::require(slowjson::same(picked.first(), root), "picked root");
    return 0;
}
