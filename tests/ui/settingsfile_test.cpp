#include "ui/settingsfile.h"

#include "tests/support/test.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

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
        forgetNames();
    }

private slots:
    void onlyWhatAKilledWriteLeavesIsRemoved()
    {
        QSettings settings;
        settings.setValue(QStringLiteral("runnum"), 1);
        settings.sync();
        const QFileInfo file(settings.fileName());
        const QString name = file.fileName();
        writeFile(file.filePath() + QStringLiteral(".lock"), QByteArray());
        writeFile(file.filePath() + QStringLiteral(".lock.rmlock"), QByteArray());
        writeFile(file.filePath() + QStringLiteral(".AbCdEf"), "half");
        writeFile(file.filePath() + QStringLiteral(".backup"), "the user's");
        writeFile(file.path() + QStringLiteral("/Other.conf.AbCdEf"), "another program's");
        settingsfile::tidy();
        QCOMPARE(file.dir().entryList(QDir::Files | QDir::Hidden, QDir::Name),
                 (QStringList{name, name + QStringLiteral(".backup"), QStringLiteral("Other.conf.AbCdEf")}));
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

    void missingDirectoryIsNone()
    {
        QCoreApplication::setOrganizationName(QStringLiteral("nobody"));
        settingsfile::tidy();
        QVERIFY(!QFileInfo(QSettings().fileName()).dir().exists());
    }
};

QTEST_GUILESS_MAIN(SettingsFileTest)
#include "settingsfile_test.moc"
