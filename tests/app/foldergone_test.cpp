// The sync folder goes away in every way and at every moment, with the real local engine: nothing takes its place
// by itself, the cloud keeps everything, and the user's answer leads back to work.

#include "engine/servercomm.h"
#include "syncfolder/folderchooser.h"
#include "syncfolder/pickhomepath.h"
#include "syncfolder/syncfolder.h"
#include "tests/app/localengine.h"
#include "tests/app/trialdisk.h"
#include "tests/support/test.h"
#include "ui/dialogcld.h"

#include <QApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>

#include <memory>

class FolderGoneTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<LocalEngine> m_engine;
    std::unique_ptr<DialogCld> m_dialog;
    bool m_canMount = false;

protected:
    void setUp() override
    {
        m_engine = std::make_unique<LocalEngine>();
        QDir::setCurrent(m_engine->installDir());
        qputenv("ORVEL_LOCAL_POLL_MS", "100");
        QDir().mkpath(disk());
        QDir().mkpath(contentOfDisk());
        m_canMount = true;
        m_canMount = plugIn();
        writeFile(m_engine->installDir() + QStringLiteral("/config.json"),
                  "{\"homepath\":\"" + disk().toUtf8() + "\",\"homefolder\":\"Orvel Storage\"}");
    }

    void tearDown() override
    {
        m_dialog.reset();
        folderchooser::setAsker({});
        if (m_canMount)
            (void)unplug(true);
        m_engine.reset();
        qunsetenv("ORVEL_LOCAL_POLL_MS");
        qunsetenv("ORVEL_LOCAL_RATE");
        QSettings().clear();
        forgetNames();
    }

private:
    /// Where the disk is mounted, or at least seems to be.
    static QString disk()
    {
        return testHome() + QStringLiteral("/disk");
    }
    static QString unpluggedDisk()
    {
        return disk() + QStringLiteral(" on the table");
    }
    static QString contentOfDisk()
    {
        return testHome() + QStringLiteral("/content of the disk");
    }
    static QString folder(const QString& path = QString())
    {
        return disk() + QStringLiteral("/Orvel Storage") + (path.isEmpty() ? path : u'/' + path);
    }
    static QString cloud(const QString& path = QString())
    {
        return LocalEngine::cloud(LocalEngine::trialAccount, path);
    }

    void create()
    {
        m_dialog.reset();
        forgetNames();
        m_dialog = std::make_unique<DialogCld>();
        m_dialog->show();
    }

    bool reaches(const char* state) const
    {
        return QTest::qWaitFor([&] { return m_dialog->server().state().netState == QLatin1String(state); },
                               2 * deadline());
    }

    static bool holds(const QString& path, const QByteArray& content)
    {
        return QTest::qWaitFor([&] { return readFile(path) == content; }, 2 * deadline());
    }

    static PickHomepath* question()
    {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* found = qobject_cast<PickHomepath*>(widget);
            if (found != nullptr && found->isVisible())
                return found;
        }
        return nullptr;
    }

    static void press(int choice)
    {
        QTest::mouseClick(question()->findChildren<QPushButton*>().value(choice), Qt::LeftButton);
    }

    static QByteArray large()
    {
        return QByteArray(3000000, 'L');
    }

    static QString placeAfter(const QString& fate)
    {
        if (fate == QLatin1String("moved"))
            return disk() + QStringLiteral("/elsewhere/Orvel Storage");
        if (fate == QLatin1String("renamed"))
            return disk() + QString::fromUtf8("/Moj oblak \xc4\x8d");
        return folder();
    }

    void takeAway(const QString& fate, bool inUse)
    {
        if (fate == QLatin1String("unplugged")) {
            QVERIFY(unplug(inUse));
        } else if (fate == QLatin1String("deleted")) {
            const QString trash = disk() + QStringLiteral("/trash"); // as file managers do
            QVERIFY(QDir().rename(folder(), trash));
            QVERIFY(QTest::qWaitFor([&] { return QDir(trash).removeRecursively(); }, deadline()));
        } else {
            QDir().mkpath(disk() + QStringLiteral("/elsewhere"));
            QVERIFY(QDir().rename(folder(), placeAfter(fate)));
        }
        QVERIFY(!QFileInfo::exists(folder()));
    }

    /// Where mounting is not allowed, the directory that stands for the disk gets another name instead.
    bool plugIn() const
    {
        if (!m_canMount)
            return QDir().rename(unpluggedDisk(), disk());
        return trialdisk::plugIn(contentOfDisk(), disk());
    }

    /// As file managers do it, once nobody uses the disk any more; one in use can only be torn out.
    bool unplug(bool inUse) const
    {
        if (!m_canMount)
            return QDir().rename(disk(), unpluggedDisk());
        return QTest::qWaitFor([&] { return trialdisk::unplug(disk(), inUse); }, inUse ? 0 : deadline());
    }

    /// What was in the cloud before is still there.
    static void verifyCloud()
    {
        QCOMPARE(readFile(cloud(QStringLiteral("a.txt"))), QByteArray("a"));
        QCOMPARE(readFile(cloud(QStringLiteral("deep/in/b.txt"))), QByteArray("b"));
        QVERIFY(QFileInfo(cloud(QStringLiteral("empty"))).isDir());
    }

private slots:
    static void initTestCase()
    {
        trialdisk::keepToThisProgram();
    }

    void cloudKeepsAllAndTheAnswerLeadsBackToWork_data()
    {
        QTest::addColumn<QString>("fate");
        QTest::addColumn<QString>("moment");
        const QStringList fates{QStringLiteral("moved"), QStringLiteral("unplugged"), QStringLiteral("deleted"),
                                QStringLiteral("renamed")};
        const QStringList moments{QStringLiteral("before the start"), QStringLiteral("while running"),
                                  QStringLiteral("during a transfer")};
        for (int fate = 0; fate < fates.size(); ++fate) {
            for (int moment = 0; moment < moments.size(); ++moment) {
#ifdef Q_OS_WIN // each takes Wine its time: every fate and every moment, but not all of both
                if (moment != fate % moments.size())
                    continue;
#endif
                QTest::addRow("%s %s", qPrintable(fates.at(fate)), qPrintable(moments.at(moment)))
                    << fates.at(fate) << moments.at(moment);
            }
        }
    }
    void cloudKeepsAllAndTheAnswerLeadsBackToWork()
    {
        QFETCH(QString, fate);
        QFETCH(QString, moment);
        create();
        QVERIFY(reaches("logout"));
        m_dialog->panel().username->setText(QStringLiteral("trial@orvel.example"));
        m_dialog->panel().password->setText(QStringLiteral("trial"));
        QTest::mouseClick(m_dialog->panel().login, Qt::LeftButton);
        QVERIFY(reaches("ok"));
        writeFile(folder(QStringLiteral("a.txt")), "a");
        writeFile(folder(QStringLiteral("deep/in/b.txt")), "b");
        QDir().mkpath(folder(QStringLiteral("empty")));
        QVERIFY(holds(cloud(QStringLiteral("deep/in/b.txt")), "b"));
        EVENTUALLY(QFileInfo(cloud(QStringLiteral("empty"))).isDir());
        QVERIFY(reaches("ok"));

        if (moment == QLatin1String("during a transfer")) {
            qputenv("ORVEL_LOCAL_RATE", "1000000");
            create();
            QVERIFY(reaches("ok"));
            writeFile(cloud(QStringLiteral("coming.bin")), large());
            writeFile(folder(QStringLiteral("going.bin")), large());
            EVENTUALLY(m_dialog->server().state().uploads > 0 || m_dialog->server().state().downloads > 0);
        }
        if (moment == QLatin1String("before the start"))
            m_dialog.reset();
        takeAway(fate, moment == QLatin1String("during a transfer"));
        if (m_dialog)
            QVERIFY(reaches("offline"));
        verifyCloud();
        QVERIFY(!QFileInfo::exists(folder()));
        qunsetenv("ORVEL_LOCAL_RATE");

        if (m_dialog && fate == QLatin1String("unplugged")) {
            QVERIFY(plugIn());
            QVERIFY(reaches("ok"));
        } else {
            create();
            QVERIFY(question());
            QVERIFY(!m_dialog->server().running());
            QVERIFY(!QFileInfo::exists(folder()));
            verifyCloud();
            if (fate == QLatin1String("deleted")) {
                press(1);
            } else if (fate == QLatin1String("unplugged")) {
                question()->close();
                QVERIFY(plugIn());
                create();
                QVERIFY(!question());
            } else {
                folderchooser::setAsker([=](QWidget*, const QString&, const QString&) { return placeAfter(fate); });
                press(0);
            }
            EVENTUALLY(question() == nullptr);
            QVERIFY(reaches("ok"));
        }

        // Everything is on both sides, and what happens now goes both ways.
        verifyCloud();
        const QString place = placeAfter(fate) + u'/';
        QVERIFY(holds(place + QStringLiteral("a.txt"), "a"));
        QVERIFY(holds(place + QStringLiteral("deep/in/b.txt"), "b"));
        QVERIFY(QFileInfo(place + QStringLiteral("empty")).isDir());
        if (moment == QLatin1String("during a transfer")) {
            QVERIFY(holds(place + QStringLiteral("coming.bin"), large()));
            QVERIFY(holds(cloud(QStringLiteral("coming.bin")), large()));
            if (fate != QLatin1String("deleted"))
                QVERIFY(holds(cloud(QStringLiteral("going.bin")), large()));
        }
        writeFile(place + QStringLiteral("deep/new.txt"), "n");
        QVERIFY(holds(cloud(QStringLiteral("deep/new.txt")), "n"));
        writeFile(cloud(QStringLiteral("deep/newer.txt")), "m");
        QVERIFY(holds(place + QStringLiteral("deep/newer.txt"), "m"));
        QFile::remove(place + QStringLiteral("a.txt"));
        EVENTUALLY(!QFileInfo::exists(cloud(QStringLiteral("a.txt"))));
    }
};

QTEST_MAIN(FolderGoneTest)
#include "foldergone_test.moc"
