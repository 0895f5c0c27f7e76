// Any configuration file: what is kept of it can be used, and what is written is read back as the same.

#include "engine/engineconfig.h"
#include "fuzz/fuzz.h"
#include "json/json.h"

#include <QStandardPaths>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Machine machine;
    machine.addresses = QStringList{QStringLiteral("192.168.1.2"), QStringLiteral("10.0.0.7")};
    if (size % 3 != 0)
        machine.movies = QStringLiteral("/home/ana/Videos");
    if (size % 2 != 0)
        machine.music = QStringLiteral("/home/ana/Music");
    machine.documents = QStringLiteral("/home/ana");
    machine.temp = QStringLiteral("/tmp");

    bool ok = false;
    const QVariant file = Json::parse(QString::fromUtf8(fuzz::bytes(data, size).constData()), ok);
    if (!ok || file.userType() != QMetaType::QVariantMap)
        return 0;

    EngineConfig config;
    config.read(file.toMap(), machine);
    fuzz::require(config.port >= 1024, "port");
    fuzz::require(machine.addresses.contains(config.srvip), "address");
    const QByteArray written = config.toJson(machine);

    // Half of a surrogate pair does not outlive UTF-8; after one writing none is left.
    EngineConfig second;
    second.read(Json::parse(QString::fromUtf8(written), ok).toMap(), machine);
    fuzz::require(ok, "file that was written");
    const QByteArray rewritten = second.toJson(machine);
    EngineConfig third;
    third.read(Json::parse(QString::fromUtf8(rewritten), ok).toMap(), machine);
    fuzz::require(ok && third.toJson(machine) == rewritten, "file that was written twice");
    fuzz::require(second.password.toUtf8() == config.password.toUtf8(), "password");
    fuzz::require(second.homepath.toUtf8() == config.homepath.toUtf8(), "home");
    return 0;
}
