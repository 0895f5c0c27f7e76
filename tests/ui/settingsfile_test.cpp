#include "ui/settingsfile.h"

#include "tests/support/fulldisk.h"
#include "tests/support/test.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRect>
#include <QSettings>
#include <QTemporaryDir>

#include <sys/resource.h>
#include <unistd.h>

class SettingsFileTest final : public Test
{
    Q_OBJECT

protected:
    void setUp() override
    {
        QCoreApplication::setOrganizationName(QStringLiteral("Velmora d.d."));
        QCoreApplication::setApplicationName(QStringLiteral("Orvel Storage"));
    }

    void tearDown() override
    {
        QSettings::setDefaultFormat(QSettings::NativeFormat);
        forgetNames();
    }

private:
    static QVariant randomValue(QRandomGenerator& random)
    {
        const auto randomText = [&] {
            // What has a meaning to the file, is no ASCII, or is not even a whole character.
            static const QString odd = QString::fromUtf8("a0fF @\"\\,;=%/[]\n\t#()") +
                                       QString::fromUtf8("\xc4\x8d\xf0\x9f\x98\x80") + QChar(0x7f);
            QString text;
            for (int i = random.bounded(12); i > 0; --i)
                text += random.bounded(40) == 0 ? QChar(random.bounded(0x10000)) : odd.at(random.bounded(odd.size()));
            return text;
        };
        switch (random.bounded(10)) {
        case 0:
            return random.bounded(2) == 0;
        case 1:
            return random.generate64();
        case 2:
            return static_cast<int>(random.generate());
        case 3:
            return randomText().toUtf8();
        case 4:
            return QStringList{randomText(), randomText()};
        case 5:
            return QRect(1, -2, 3, 4);
        case 6:
            return QDateTime(QDate(2026, 11, 22), QTime(1, 2, 3, 4), Qt::UTC).addSecs(random.bounded(1000000));
        default:
            return randomText();
        }
    }

    static QVariantMap allOf(const QSettings& settings)
    {
        QVariantMap values;
        const QStringList keys = settings.allKeys();
        for (const QString& key : keys)
            values.insert(key, settings.value(key));
        return values;
    }

private slots:
    void onlyTheLockOfAKilledWriteIsRemoved()
    {
        QSettings settings;
        settings.setValue(QStringLiteral("runnum"), 1);
        settings.sync();
        const QFileInfo file(settings.fileName());
        const QString name = file.fileName();
        writeFile(file.filePath() + QStringLiteral(".lock"), QByteArray());
        writeFile(file.filePath() + QStringLiteral(".lock.rmlock"), QByteArray());
        writeFile(file.filePath() + QStringLiteral(".broken"), "the user's");
        writeFile(file.filePath() + QStringLiteral(".custom"), QByteArray());
        writeFile(file.path() + QStringLiteral("/Other.conf.lock"), QByteArray());
        settingsfile::tidy();
        QCOMPARE(file.dir().entryList(QDir::Files | QDir::Hidden, QDir::Name),
                 (QStringList{name, name + QStringLiteral(".broken"), name + QStringLiteral(".custom"),
                              QStringLiteral("Other.conf.lock")}));
        QVERIFY(readFile(file.filePath()).contains("runnum=1"));
    }

    void lockWithANameInItIsLeftToItsOwner()
    {
        const QString lock = QSettings().fileName() + QStringLiteral(".lock");
        writeFile(lock, "1234\nprogram\nanother computer\n");
        settingsfile::tidy();
        QVERIFY(QFileInfo::exists(lock));
        QVERIFY(QFile::remove(lock));
    }

    void settingsAreTheSameForEveryReaderAndWriter()
    {
        const QStringList keys{QStringLiteral("runnum"),
                               QStringLiteral("QtSparkle/skipped_version"),
                               QStringLiteral("General"),
                               QStringLiteral("General/deep/down"),
                               QString::fromUtf8("\xc4\x8d 1/%=;[]\"\n\xf0\x9f\x98\x80"),
                               QStringLiteral("1/a")};
        const QTemporaryDir directory;
        int copies = 0;
        // Under a new name, as readers remember what they read.
        const auto asRead = [&](const QString& file) {
            const QString copy = directory.filePath(QString::number(++copies));
            return QFile::copy(file, copy) ? allOf(QSettings(copy, QSettings::IniFormat)) : QVariantMap();
        };
        QRandomGenerator random(1);
        settingsfile::install();
        for (int i = 0; i < 500; ++i) {
            QSettings ours;
            QSettings plain(directory.filePath(QStringLiteral("plain%1").arg(i)), QSettings::IniFormat);
            ours.clear();
            for (const QString& key : keys) {
                const QVariant value = randomValue(random);
                ours.setValue(key, value);
                plain.setValue(key, value);
            }
            ours.sync();
            plain.sync();
            QCOMPARE(ours.status(), QSettings::NoError);
            const QVariantMap expected = asRead(plain.fileName());
            QCOMPARE(expected.size(), keys.size());
            const QVariantMap read = asRead(ours.fileName());
            QVERIFY2(read == expected, (readFile(ours.fileName()) + readFile(plain.fileName())).constData());

            // A time of its own, so that it is read.
            writeFile(ours.fileName(), readFile(plain.fileName()));
            QFile file(ours.fileName());
            QVERIFY(file.open(QIODevice::ReadWrite) &&
                    file.setFileTime(QDateTime::currentDateTime().addSecs(-1 - i), QFileDevice::FileModificationTime));
            file.close();
            ours.sync();
            QCOMPARE(allOf(ours), expected);
            ours.setValue(QStringLiteral("one more"), 1);
            ours.sync();
            QVariantMap more = expected;
            more.insert(QStringLiteral("one more"), QStringLiteral("1"));
            QCOMPARE(asRead(ours.fileName()), more);
        }
    }

    void settingsThatCouldNotBeReadAreLeftAsTheyAre()
    {
        const QString file = QSettings().fileName();
        const QByteArray before = "[General]\nlastuid=5\n";
        writeFile(file, before);
        settingsfile::install();
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        {
            // As many as it takes to open the file, and not to read it.
            const int next = dup(0);
            close(next);
            const rlimit few = {static_cast<rlim_t>(next) + 1, limit.rlim_max};
            setrlimit(RLIMIT_NOFILE, &few);
            const QSettings settings;
            setrlimit(RLIMIT_NOFILE, &limit);
            QCOMPARE(settings.value(QStringLiteral("lastuid")).toInt(), 0);
        }
        QSettings settings;
        settings.setValue(QStringLiteral("runnum"), 1);
        settings.sync();
        QCOMPARE(readFile(file), before);
        QCOMPARE(log().filter(QStringLiteral("Unable to write")).size(), 1);
    }

    void usualSettingsAreWrittenAsEverybodyWritesThem()
    {
        const auto written = [] {
            QSettings settings;
            settings.clear();
            settings.setValue(QStringLiteral("apppath"), QString::fromUtf8("/home/ana/Sli\xc4\x8d"
                                                                           "ice in/orvel"));
            settings.setValue(QStringLiteral("runnum"), 3);
            settings.setValue(QStringLiteral("username"), QStringLiteral("ana@example.com"));
            settings.setValue(QStringLiteral("QtSparkle/check_automatically"), true);
            settings.setValue(QStringLiteral("currentlink"), QStringLiteral("gtk, \"a\""));
            for (ushort code = ' '; code <= '~'; ++code) {
                if (code != '/' && code != '\\') // of which every reader makes a group
                    settings.setValue(QStringLiteral("key") + QChar(code), QString(QChar(code)) + QChar(code));
            }
            settings.sync();
            return readFile(settings.fileName());
        };
        const QByteArray plain = written();
        settingsfile::install();
        QVERIFY(plain.contains("runnum=3\n"));
        QCOMPARE(written(), plain);
    }

    void lineThatIsNoSettingCostsNoOther()
    {
        const QString file = QSettings().fileName();
        writeFile(file, "[General]\nlastuid=5\nno setting\n[QtSparkle]\nskipped_version=1.0\n");
        settingsfile::install();
        QSettings settings;
        QCOMPARE(settings.fileName(), file);
        QCOMPARE(settings.value(QStringLiteral("lastuid")).toInt(), 5);
        settings.setValue(QStringLiteral("runnum"), 1);
        settings.sync();
        for (const char* line : {"lastuid=5\n", "runnum=1\n", "skipped_version=1.0\n"})
            QVERIFY2(readFile(file).contains(line), line);
    }

    void fullDiskLeavesTheSettingsAsTheyAre_data()
    {
        QTest::addColumn<int>("room");
        for (const int room : {0, 1, 16, 64, 100, 160, 200})
            QTest::addRow("%d bytes", room) << room;
    }
    void fullDiskLeavesTheSettingsAsTheyAre()
    {
        QFETCH(int, room);
        settingsfile::install();
        QSettings settings;
        settings.setValue(QStringLiteral("lastuid"), 5);
        settings.setValue(QStringLiteral("username"), QString(300, u'x'));
        settings.sync();
        const QByteArray before = readFile(settings.fileName());
        settings.setValue(QStringLiteral("runnum"), 2);
        {
            const FullDisk full(static_cast<rlim_t>(room));
            settings.sync();
        }
        QCOMPARE(readFile(settings.fileName()), before);
        settings.sync();
        QVERIFY(readFile(settings.fileName()).contains("runnum=2\n"));
    }

    void missingDirectoryIsNone()
    {
        QCoreApplication::setOrganizationName(QStringLiteral("nobody"));
        settingsfile::tidy();
        QVERIFY(!QFileInfo(QSettings().fileName()).dir().exists());
    }
};

QTEST_GUILESS_MAIN(SettingsFileTest)
#include "settingsfile_test.moc"
