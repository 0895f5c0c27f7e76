#include "engine/engineconfig.h"

#include "json/json.h"

#include <QDir>
#include <QFileInfo>

namespace
{

constexpr int formatVersion = 12;
constexpr int defaultPort = 1554;
constexpr int firstUnprivilegedPort = 1024;

QString withBackslashes(QString path)
{
    return path.replace(QLatin1Char('/'), QLatin1Char('\\'));
}

QString videosLocation(const Machine& machine)
{
    const QString videos = withBackslashes(machine.movies);
    if (videos.isEmpty() || videos == QLatin1String("\\"))
        return withBackslashes(machine.documents);
    return videos;
}

QString defaultEncoderDirectory(const Machine& machine)
{
    const QString movies = withBackslashes(machine.movies);
    if (!movies.isEmpty())
        return movies + QLatin1String("\\Emit\\");
    return withBackslashes(machine.documents) + QLatin1Char('\\');
}

QString musicLibrary(const QString& musicLocation)
{
    return musicLocation + QLatin1String("\\iTunes\\iTunes Music Library.xml");
}

/// The saved address while the computer still has it, else its first one.
QString localAddress(const QString& saved, const Machine& machine)
{
    return machine.addresses.contains(saved) ? saved : machine.firstAddress();
}

QStringList readDirs(QStringList dirs, const QString& videos)
{
    if (videos.size() > 1) {
        const int position = dirs.indexOf(videos);
        if (position >= 0)
            dirs[position] = EngineConfig::myVideos;
    }
    // The step after a removal skips the entry that moved up; files in use were read like this ever since.
    for (int i = 0; i < dirs.size(); ++i) {
        if (dirs.at(i).isEmpty())
            dirs.removeAt(i);
    }
    return dirs;
}

QStringList writtenDirs(const QStringList& dirs, const QString& videos)
{
    QStringList written;
    for (const QString& entry : dirs) {
        const QString path = entry == EngineConfig::myVideos ? videos : withBackslashes(entry);
        if (!path.isEmpty())
            written << path;
    }
    return written;
}

} // namespace

const QString EngineConfig::myVideos = QStringLiteral("My Videos");

void EngineConfig::setFirstRunDefaults(const Machine& machine)
{
    itunes = QFileInfo::exists(musicLibrary(machine.music));
    encdir = defaultEncoderDirectory(machine);
    if (!videosLocation(machine).isEmpty() && !dirs.contains(myVideos))
        dirs << myVideos;
}

void EngineConfig::read(const QVariantMap& file, const Machine& machine)
{
    const auto value = [&file](const char* key) {
        return file.value(QLatin1String(key));
    };

    itunes = value("itunes").toBool();
    dirs = readDirs(value("dirs").toStringList(), videosLocation(machine));
    encdir = value("encdir").toString();
    if (encdir.isEmpty() || !QDir(encdir).exists())
        encdir = defaultEncoderDirectory(machine);
    homepath = value("homepath").toString();
    homefolder = value("homefolder").toString();
    webacc = value("webacc").toBool();
    password = value("password").toString();
    if (!value("autodiscovery").toString().isEmpty())
        autodiscovery = value("autodiscovery").toBool();
    if (!value("upnp").toString().isEmpty())
        upnp = value("upnp").toBool();
    port = value("port").toInt();
    if (port < firstUnprivilegedPort)
        port = defaultPort;
    srvip = localAddress(value("srvip").toString(), machine);
}

QVariantMap EngineConfig::toMap(const Machine& machine) const
{
    QVariantMap map{
        {QStringLiteral("syncfolders"), syncfolders},
        {QStringLiteral("homepath"), homepath},
        {QStringLiteral("homefolder"), homefolder},
        {QStringLiteral("autodiscovery"), autodiscovery},
        {QStringLiteral("password"), password},
        {QStringLiteral("webacc"), webacc},
        {QStringLiteral("dirs"), writtenDirs(dirs, videosLocation(machine))},
        {QStringLiteral("upnp"), upnp},
        {QStringLiteral("port"), port},
        {QStringLiteral("appname"), appname},
        {QStringLiteral("organization"), organization},
        {QStringLiteral("synchome"), synchome},
        // The engine reads backslash paths and keys off this value, also where the client runs elsewhere.
        {QStringLiteral("system"), QStringLiteral("WIN")},
        {QStringLiteral("tmpdir"), tmpdir(machine)},
        {QStringLiteral("itunes"), itunes},
        {QStringLiteral("encdir"), encdir},
        {QStringLiteral("locips"), machine.addresses},
        {QStringLiteral("statedir"), statedir},
        {QStringLiteral("srvip"), srvip},
        {QStringLiteral("version"), formatVersion},
        {QStringLiteral("encthreads"), encthreads},
    };
    if (!machine.music.isEmpty())
        map.insert(QStringLiteral("itunespath"), musicLibrary(withBackslashes(machine.music)));
    return map;
}

QByteArray EngineConfig::toJson(const Machine& machine) const
{
    return Json::serialize(toMap(machine)).replace('\0', "\\u0000");
}

QString EngineConfig::tmpdir(const Machine& machine) const
{
    return machine.temp + QLatin1Char('/') + appname;
}
