// Any configuration file: every setting is what the slow codec and the rules make of the file, every key of what
// is written is what the rules make of the settings, and what is written is read back as the same.

#include "engine/engineconfig.h"
#include "fuzz/fuzz.h"
#include "fuzz/slowjson.h"
#include "json/json.h"

#include <QFileInfo>

namespace
{

/// Each size of a file is read on another computer.
Machine machineFor(std::size_t size)
{
    Machine machine;
    if (size % 5 != 0)
        machine.addresses = QStringList{QStringLiteral("192.168.1.2"), QStringLiteral("10.0.0.7")};
    if (size % 3 != 0)
        machine.movies = size % 3 == 1 ? QStringLiteral("/home/ana/Videos") : QStringLiteral("/");
    if (size % 2 != 0)
        machine.music = QStringLiteral("/home/ana/Music");
    if (size % 7 != 0)
        machine.documents = QStringLiteral("/home/ana");
    machine.temp = QStringLiteral("/tmp");
    return machine;
}

/// What the file says nothing about can be told from what it denies.
EngineConfig beforeReading()
{
    EngineConfig config;
    config.homepath = QStringLiteral("/before");
    config.homefolder = QStringLiteral("before");
    config.password = QStringLiteral("before");
    config.dirs = QStringList{QStringLiteral("My Videos")};
    config.webacc = true;
    config.upnp = true;
    config.itunes = true;
    config.syncfolders = QStringList{QStringLiteral("Orvel Storage")};
    config.appname = QStringLiteral("Orvel Storage");
    config.organization = QStringLiteral("Velmora d.d.");
    config.synchome = QStringLiteral("sync.example.com");
    config.statedir = QStringLiteral("/home/ana/.local/share/orvel");
    return config;
}

QString backslashed(const QString& path)
{
    return path.split(u'/').join(u'\\');
}

QString videosOf(const Machine& machine)
{
    const bool isPlace = !machine.movies.isEmpty() && machine.movies != QLatin1String("/");
    return backslashed(isPlace ? machine.movies : machine.documents);
}

/// Of empty entries in a row every second one stays.
QStringList dirsOf(const QStringList& list, const QString& videos)
{
    QStringList result;
    bool hasVideos = false;
    bool removed = false;
    for (const QString& entry : list) {
        removed = entry.isEmpty() && !removed;
        if (removed)
            continue;
        const bool isVideos = !hasVideos && videos.size() > 1 && entry == videos;
        hasVideos = hasVideos || isVideos;
        result << (isVideos ? QStringLiteral("My Videos") : entry);
    }
    return result;
}

EngineConfig expectedAfter(const EngineConfig& before, const QVariantMap& file, const Machine& machine)
{
    const auto text = [&](const char* key) {
        return file[QLatin1String(key)].toString();
    };
    const auto truth = [&](const char* key) {
        return file[QLatin1String(key)].toBool();
    };
    EngineConfig config = before; // some settings are not read back

    config.homepath = text("homepath");
    config.homefolder = text("homefolder");
    config.password = text("password");
    config.webacc = truth("webacc");
    config.itunes = truth("itunes");
    config.autodiscovery = text("autodiscovery").isEmpty() ? before.autodiscovery : truth("autodiscovery");
    config.upnp = text("upnp").isEmpty() ? before.upnp : truth("upnp");
    config.dirs = dirsOf(file[QStringLiteral("dirs")].toStringList(), videosOf(machine));

    const int port = file[QStringLiteral("port")].toInt();
    config.port = port < 1024 ? 1554 : port;

    config.encdir = text("encdir");
    if (config.encdir.isEmpty() || !QFileInfo(config.encdir).isDir()) {
        if (machine.movies.isEmpty())
            config.encdir = backslashed(machine.documents) + QStringLiteral("\\");
        else
            config.encdir = backslashed(machine.movies) + QStringLiteral("\\Emit\\");
    }

    config.srvip = machine.addresses.isEmpty() ? QString() : machine.addresses.first();
    for (const QString& address : machine.addresses) {
        if (address == text("srvip"))
            config.srvip = address;
    }
    return config;
}

void requireSame(const EngineConfig& a, const EngineConfig& b)
{
    fuzz::require(a.syncfolders == b.syncfolders, "syncfolders");
    fuzz::require(a.homepath == b.homepath, "homepath");
    fuzz::require(a.homefolder == b.homefolder, "homefolder");
    fuzz::require(a.autodiscovery == b.autodiscovery, "autodiscovery");
    fuzz::require(a.password == b.password, "password");
    fuzz::require(a.webacc == b.webacc, "webacc");
    fuzz::require(a.dirs == b.dirs, "dirs");
    fuzz::require(a.upnp == b.upnp, "upnp");
    fuzz::require(a.port == b.port, "port");
    fuzz::require(a.appname == b.appname, "appname");
    fuzz::require(a.organization == b.organization, "organization");
    fuzz::require(a.synchome == b.synchome, "synchome");
    fuzz::require(a.itunes == b.itunes, "itunes");
    fuzz::require(a.encdir == b.encdir, "encdir");
    fuzz::require(a.statedir == b.statedir, "statedir");
    fuzz::require(a.srvip == b.srvip, "srvip");
    fuzz::require(a.encthreads == b.encthreads, "encthreads");
}

QVariantMap expectedFile(const EngineConfig& config, const Machine& machine)
{
    QVariantList dirs;
    for (const QString& entry : config.dirs) {
        const QString path = entry == QLatin1String("My Videos") ? videosOf(machine) : backslashed(entry);
        if (!path.isEmpty())
            dirs << path;
    }
    QVariantMap file;
    file[QStringLiteral("syncfolders")] = QStringList{QStringLiteral("Orvel Storage")};
    file[QStringLiteral("homepath")] = config.homepath;
    file[QStringLiteral("homefolder")] = config.homefolder;
    file[QStringLiteral("autodiscovery")] = config.autodiscovery;
    file[QStringLiteral("password")] = config.password;
    file[QStringLiteral("webacc")] = config.webacc;
    file[QStringLiteral("dirs")] = dirs;
    file[QStringLiteral("upnp")] = config.upnp;
    file[QStringLiteral("port")] = config.port;
    file[QStringLiteral("appname")] = QStringLiteral("Orvel Storage");
    file[QStringLiteral("organization")] = QStringLiteral("Velmora d.d.");
    file[QStringLiteral("synchome")] = QStringLiteral("sync.example.com");
    file[QStringLiteral("system")] = QStringLiteral("WIN");
    file[QStringLiteral("tmpdir")] = QStringLiteral("/tmp/Orvel Storage");
    if (!machine.music.isEmpty())
        file[QStringLiteral("itunespath")] = QStringLiteral(R"(\home\ana\Music\iTunes\iTunes Music Library.xml)");
    file[QStringLiteral("itunes")] = config.itunes;
    file[QStringLiteral("encdir")] = config.encdir;
    file[QStringLiteral("locips")] = machine.addresses;
    file[QStringLiteral("statedir")] = QStringLiteral("/home/ana/.local/share/orvel");
    file[QStringLiteral("srvip")] = config.srvip;
    file[QStringLiteral("version")] = 12;
    file[QStringLiteral("encthreads")] = 2;
    return file;
}

/// What is written after @p content was read; null when it holds no object.
QByteArray readAndWrite(const QByteArray& content, const Machine& machine)
{
    // A zero byte ends the text.
    const QString text = QString::fromUtf8(content.constData());
    bool ok = false;
    bool slowOk = false;
    const QVariant file = Json::parse(text, ok);
    const QVariant slowFile = slowjson::parse(text, slowOk);
    const bool isObject = slowOk && slowFile.userType() == QMetaType::QVariantMap;
    fuzz::require((ok && file.userType() == QMetaType::QVariantMap) == isObject, "object");
    if (!isObject)
        return {};

    EngineConfig config = beforeReading();
    config.read(file.toMap(), machine);
    const EngineConfig expected = expectedAfter(beforeReading(), slowFile.toMap(), machine);
    requireSame(config, expected);

    const QByteArray written = config.toJson(machine);
    fuzz::require(!written.contains('\0'), "zero byte");
    const QVariantMap found = slowjson::parse(QString::fromUtf8(written), ok).toMap();
    const QVariantMap wanted = expectedFile(expected, machine);
    fuzz::require(ok && found.keys() == wanted.keys(), "keys of the written file");
    for (auto it = wanted.begin(); it != wanted.end(); ++it) {
        // As text: half of a surrogate pair does not outlive UTF-8, and all integers look alike there.
        const QByteArray key = it.key().toLatin1();
        fuzz::require(slowjson::serialize(found[it.key()]) == slowjson::serialize(it.value()), key.constData());
    }
    fuzz::require(written == slowjson::serialize(wanted).replace('\0', "\\u0000"), "text of the written file");
    return written;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Machine machine = machineFor(size);
    const QByteArray written = readAndWrite(fuzz::bytes(data, size), machine);
    if (!written.isNull())
        fuzz::require(readAndWrite(written, machine) == written, "file that was written twice");
    return 0;
}
