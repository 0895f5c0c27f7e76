#include "engine/engineconfig.h"

#include "tests/support/test.h"

#include <QHostAddress>
#include <QTemporaryDir>

namespace
{

Machine machine()
{
    Machine machine;
    machine.addresses = QStringList{QStringLiteral("10.0.0.5"), QStringLiteral("192.168.1.7")};
    machine.movies = QStringLiteral("C:/Users/Ana/Videos");
    machine.music = QStringLiteral("C:/Users/Ana/Music");
    machine.documents = QStringLiteral("C:/Users/Ana/Documents");
    machine.temp = QStringLiteral("C:/Temp");
    return machine;
}

QStringList writtenDirs(const EngineConfig& config, const Machine& on)
{
    return config.toMap(on).value(QStringLiteral("dirs")).toStringList();
}

EngineConfig readFrom(const QVariantMap& file, const Machine& on = machine())
{
    EngineConfig config;
    config.read(file, on);
    return config;
}

QVariantMap dirsFile(const QStringList& dirs)
{
    return {{QStringLiteral("dirs"), dirs}};
}

} // namespace

class EngineConfigTest final : public Test
{
    Q_OBJECT

private slots:
    void keysAreExactlyTheOnesTheEngineKnows()
    {
        QStringList keys = EngineConfig().toMap(machine()).keys();
        QCOMPARE(keys.join(u' '),
                 QStringLiteral("appname autodiscovery dirs encdir encthreads homefolder homepath itunes itunespath "
                                "locips organization password port srvip statedir syncfolders synchome system tmpdir "
                                "upnp version webacc"));
    }

    void hostAndAddressesAreWrittenAsTheyStand()
    {
        EngineConfig config;
        config.synchome = QStringLiteral("sync.orvel.example");
        config.srvip = QStringLiteral("192.168.1.7");
        const QVariantMap map = config.toMap(machine());
        QCOMPARE(map.value(QStringLiteral("synchome")), QVariant(QStringLiteral("sync.orvel.example")));
        QCOMPARE(map.value(QStringLiteral("srvip")), QVariant(QStringLiteral("192.168.1.7")));
        QCOMPARE(map.value(QStringLiteral("locips")), QVariant(machine().addresses));
    }

    void switchesOfTheFileAreReadAndWritten_data()
    {
        QTest::addColumn<QString>("key");
        for (const char* key : {"itunes", "webacc", "upnp", "autodiscovery"})
            QTest::newRow(key) << QString::fromLatin1(key);
    }
    void switchesOfTheFileAreReadAndWritten()
    {
        QFETCH(QString, key);
        for (const bool value : {true, false})
            QCOMPARE(readFrom({{key, value}}).toMap(machine()).value(key), QVariant(value));
        QCOMPARE(readFrom({{key, QStringLiteral("false")}}).toMap(machine()).value(key), QVariant(false));
        QCOMPARE(readFrom({{key, 1}}).toMap(machine()).value(key), QVariant(true));
    }

    void systemIsAlwaysWinAndTheFormatTwelve()
    {
        const QVariantMap map = EngineConfig().toMap(machine());
        QCOMPARE(map.value(QStringLiteral("system")), QVariant(QStringLiteral("WIN")));
        QCOMPARE(map.value(QStringLiteral("version")), QVariant(12));
        QCOMPARE(map.value(QStringLiteral("encthreads")), QVariant(2));
    }

    void computerWithoutUsableAddressHasEmptyAddressAndEmptyList()
    {
        Machine offline = machine();
        offline.addresses.clear();
        const EngineConfig config = readFrom({{QStringLiteral("srvip"), QStringLiteral("10.0.0.5")}}, offline);
        QCOMPARE(config.srvip, QString());
        QCOMPARE(config.toMap(offline).value(QStringLiteral("locips")).toStringList(), QStringList());
    }

    void savedAddressStillPresentIsKeptThoughNotFirst()
    {
        QCOMPARE(readFrom({{QStringLiteral("srvip"), QStringLiteral("192.168.1.7")}}).srvip,
                 QStringLiteral("192.168.1.7"));
    }

    void savedAddressThatIsGoneGivesWayToTheFirst()
    {
        QCOMPARE(readFrom({{QStringLiteral("srvip"), QStringLiteral("172.16.0.1")}}).srvip, QStringLiteral("10.0.0.5"));
    }

    void loopbackSelfAssignedAndIpv6AreNotUsable_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("usable");
        QTest::newRow("loopback") << "127.0.0.1" << false;
        QTest::newRow("self-assigned") << "169.254.3.4" << false;
        QTest::newRow("ipv6") << "fe80::1" << false;
        QTest::newRow("private") << "192.168.1.1" << true;
        QTest::newRow("looks like loopback") << "12.70.0.1" << true;
    }
    void loopbackSelfAssignedAndIpv6AreNotUsable()
    {
        QFETCH(QString, address);
        QFETCH(bool, usable);
        QCOMPARE(Machine::isUsable(QHostAddress(address)), usable);
    }

    void portBelow1024BecomesDefault()
    {
        const EngineConfig config = readFrom({{QStringLiteral("port"), 80}});
        QCOMPARE(config.port, 1554);
        QCOMPARE(config.toMap(machine()).value(QStringLiteral("port")).toInt(), 1554);
        QCOMPARE(readFrom({{QStringLiteral("port"), 1023}}).port, 1554);
        QCOMPARE(readFrom({{QStringLiteral("port"), 1024}}).port, 1024);
        QCOMPARE(readFrom({}).port, 1554);
    }

    void ofTwoEmptyDirsEntriesOneStaysInMemoryAndNoneIsWritten()
    {
        const EngineConfig config = readFrom(dirsFile({QString(), QString(), QStringLiteral("D:/Media")}));
        QCOMPARE(config.dirs, (QStringList{QString(), QStringLiteral("D:/Media")}));
        QCOMPARE(writtenDirs(config, machine()), QStringList{QStringLiteral("D:\\Media")});
    }

    void videosFolderIsAPlaceholderInMemoryAndAPathInTheFile()
    {
        const QString videos = QStringLiteral("C:\\Users\\Ana\\Videos");
        const EngineConfig config = readFrom(dirsFile({QStringLiteral("E:\\x"), videos, videos}));
        QCOMPARE(config.dirs, (QStringList{QStringLiteral("E:\\x"), EngineConfig::myVideos, videos}));
        QCOMPARE(writtenDirs(config, machine()), (QStringList{QStringLiteral("E:\\x"), videos, videos}));
    }

    void videosFolderFallsBackToDocuments()
    {
        for (const char* movies : {"", "/"}) {
            Machine without = machine();
            without.movies = QLatin1String(movies);
            EngineConfig config;
            config.dirs = QStringList{EngineConfig::myVideos};
            QCOMPARE(writtenDirs(config, without), QStringList{QStringLiteral("C:\\Users\\Ana\\Documents")});
        }
    }

    void computerWithoutAnyVideosPlaceWritesNoneAndKeepsTheEntries()
    {
        Machine without = machine();
        without.movies.clear();
        without.documents.clear();
        EngineConfig config;
        config.dirs = QStringList{EngineConfig::myVideos, QStringLiteral("D:/x")};
        QCOMPARE(writtenDirs(config, without), QStringList{QStringLiteral("D:\\x")});
        EngineConfig fresh;
        fresh.setFirstRunDefaults(without);
        QVERIFY(fresh.dirs.isEmpty());
    }

    void computerWithoutMusicHasNoItunesKey()
    {
        Machine silent = machine();
        silent.music.clear();
        QVERIFY(!EngineConfig().toMap(silent).contains(QStringLiteral("itunespath")));
        QCOMPARE(EngineConfig().toMap(machine()).value(QStringLiteral("itunespath")).toString(),
                 QStringLiteral("C:\\Users\\Ana\\Music\\iTunes\\iTunes Music Library.xml"));
    }

    void encoderDirectoryDefaultsUnderMoviesOrToDocumentsItself()
    {
        EngineConfig config;
        config.setFirstRunDefaults(machine());
        QCOMPARE(config.encdir, QStringLiteral("C:\\Users\\Ana\\Videos\\Emit\\"));
        Machine without = machine();
        without.movies.clear();
        config.setFirstRunDefaults(without);
        QCOMPARE(config.encdir, QStringLiteral("C:\\Users\\Ana\\Documents\\"));
    }

    void encoderDirectoryThatIsGoneFallsBackToTheDefault()
    {
        const QTemporaryDir present;
        QCOMPARE(readFrom({{QStringLiteral("encdir"), present.path()}}).encdir, present.path());
        for (const QString& gone : {present.path() + QStringLiteral("/none"), QString()}) {
            QCOMPARE(readFrom({{QStringLiteral("encdir"), gone}}).encdir,
                     QStringLiteral("C:\\Users\\Ana\\Videos\\Emit\\"));
        }
    }

    void firstRunAddsTheVideosFolderOnce()
    {
        EngineConfig config;
        config.setFirstRunDefaults(machine());
        config.setFirstRunDefaults(machine());
        QCOMPARE(config.dirs, QStringList{EngineConfig::myVideos});
        QVERIFY(!config.itunes);
    }

    void musicLibraryIsFoundOnFirstRun()
    {
        const QTemporaryDir music;
        writeFile(music.path() + QStringLiteral("\\iTunes\\iTunes Music Library.xml"), "x");
        Machine withLibrary = machine();
        withLibrary.music = music.path();
        EngineConfig config;
        config.setFirstRunDefaults(withLibrary);
        QVERIFY(config.itunes);
        QFile::remove(music.path() + QStringLiteral("\\iTunes\\iTunes Music Library.xml"));
    }

    void switchesAreLeftAloneWhenTheFileIsSilent()
    {
        const EngineConfig silent = readFrom({});
        QVERIFY(silent.autodiscovery);
        QVERIFY(!silent.upnp);
        const EngineConfig said = readFrom({{QStringLiteral("autodiscovery"), false}, {QStringLiteral("upnp"), true}});
        QVERIFY(!said.autodiscovery);
        QVERIFY(said.upnp);
    }

    void encoderThreadsOfTheFileAreNotReadBack()
    {
        QCOMPARE(readFrom({{QStringLiteral("encthreads"), 9}}).encthreads, 2);
    }

    void temporaryDirectoryCarriesTheApplicationName()
    {
        EngineConfig config;
        config.appname = QStringLiteral("Orvel Storage");
        QCOMPARE(config.toMap(machine()).value(QStringLiteral("tmpdir")).toString(),
                 QStringLiteral("C:/Temp/Orvel Storage"));
    }

    void membersOfTheWrongTypeReadAsTheirEmptyValue()
    {
        QVariantMap file;
        for (const QString& key : EngineConfig().toMap(machine()).keys())
            file.insert(key, QVariantMap{{QStringLiteral("a"), QVariantList{1}}});
        const EngineConfig config = readFrom(file);
        QCOMPARE(config.port, 1554);
        QCOMPARE(config.homepath, QString());
        QVERIFY(config.dirs.isEmpty());
        QVERIFY(!config.webacc);
    }
};

QTEST_GUILESS_MAIN(EngineConfigTest)
#include "engineconfig_test.moc"
