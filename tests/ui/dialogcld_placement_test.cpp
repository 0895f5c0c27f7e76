#include "shell/placement.h"
#include "shell/placementbookmarks.h"
#include "tests/ui/windowtest.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>

#ifdef Q_OS_WIN
#include "shell/placement_win.h"
#include "shell/placementfiles.h"
#else
#include "shell/placementfiles.h"
#endif

namespace
{

#ifdef Q_OS_WIN

const QString key = QStringLiteral("HKEY_CURRENT_USER\\Software\\Orvel Window Test\\Shell Folders");

void installShell()
{
    placement::windowsShell() = {key, false};
    QSettings folders(key, QSettings::NativeFormat);
    const auto add = [&](const char* value, const char* name) {
        const QString path = testHome() + QLatin1Char('/') + QLatin1String(name);
        QDir().mkpath(path);
        folders.setValue(QLatin1String(value), QDir::toNativeSeparators(path));
    };
    add("Startup", "startup");
    add("{BFB9D5E0-C6A9-404C-B2B2-AE6DB6AF4968}", "links");
}

void uninstallShell()
{
    QSettings(key, QSettings::NativeFormat).clear();
}

QString startupEntry()
{
    return testHome() + QStringLiteral("/startup/Orvel Storage.lnk");
}

/// Where the links in the sidebar lead to.
QStringList linkedFolders()
{
    QStringList folders;
    const QDir links(testHome() + QStringLiteral("/links"));
    for (const QFileInfo& link : links.entryInfoList({QStringLiteral("*.lnk")}, QDir::AllEntries | QDir::System))
        folders << QDir::fromNativeSeparators(link.symLinkTarget());
    return folders;
}

bool startsThisProgram()
{
    return QFileInfo(QFile::symLinkTarget(startupEntry())) == QFileInfo(QCoreApplication::applicationFilePath());
}

/// From now on no link can be saved.
void spoilLinks()
{
    QVERIFY(QDir(testHome() + QStringLiteral("/links")).removeRecursively());
}

bool hasIcon(const QDir& root)
{
    return readFile(root.filePath(QStringLiteral("desktop.ini"))) ==
           placement::desktopIni(QCoreApplication::arguments().value(0));
}

#else

/// KDE's, because what it reads can be seen in the folder; the program of GIO does nothing here.
void installShell()
{
    const QString bin = testHome() + QStringLiteral("/bin");
    writeFile(bin + QStringLiteral("/gio"), "#!/bin/sh\n");
    QFile::setPermissions(bin + QStringLiteral("/gio"), QFile::ReadOwner | QFile::ExeOwner);
    static const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(bin) + ':' + path);
    qputenv("XDG_CURRENT_DESKTOP", "KDE");
}

void uninstallShell()
{
}

QString startupEntry()
{
    return testHome() + QStringLiteral("/config/autostart/Orvel Storage.desktop");
}

/// Where the links in the sidebar lead to.
QStringList linkedFolders()
{
    QStringList folders;
    for (const QByteArray& line : readFile(testHome() + QStringLiteral("/config/gtk-3.0/bookmarks")).split('\n')) {
        if (!line.isEmpty())
            folders << placement::folderOfUrl(QString::fromUtf8(line.left(line.indexOf(' '))));
    }
    return folders;
}

bool startsThisProgram()
{
    return readFile(startupEntry()).contains(QCoreApplication::applicationFilePath().toUtf8());
}

/// From now on no link can be saved: a file stands where the directory of theirs would.
void spoilLinks()
{
    writeFile(testHome() + QStringLiteral("/config/gtk-3.0"), "");
}

bool hasIcon(const QDir& root)
{
    return readFile(root.filePath(QStringLiteral(".directory"))).contains("Icon=");
}

#endif

QDir rootAt(const char* path)
{
    const QDir root(testHome() + QLatin1Char('/') + QLatin1String(path));
    root.mkpath(QStringLiteral("."));
    return root;
}

QString linkTo(const QDir& root)
{
    return placement::Links().linkTo(root);
}

/// What somebody else does: the link that @p root would have, made by him.
void makeLink(const QDir& root)
{
    placement::Links links;
    QVERIFY(links.create(links.linkTo(root), root, QString()));
}

} // namespace

class DialogCldPlacementTest final : public WindowTest
{
    Q_OBJECT

protected:
    void setUp() override
    {
        WindowTest::setUp();
        installShell();
    }

    void tearDown() override
    {
        WindowTest::tearDown();
        uninstallShell();
    }

private:
    void report(QList<QDir> roots)
    {
        m_dialog->rootsChanged(roots);
    }

    static QString storedLink()
    {
        clientSettings().sync();
        return clientSettings().value(QStringLiteral("currentlink")).toString();
    }

    static int storedStartup()
    {
        clientSettings().sync();
        return clientSettings().value(QStringLiteral("runstartup"), -1).toInt();
    }

    /// The lines of the report in the log.
    static QStringList logOfReport()
    {
        static const QRegularExpression steps(QStringLiteral("^maindlg: (rootschanged|checkcreatelink|linkpath)"));
        return log().filter(steps);
    }

private slots:
    // The roots

    void reportLogsItsStepsInOrder()
    {
        create();
        const QDir one = rootAt("one");
        const QDir two = rootAt("two");
        makeLink(two);
        report({one, two});
        QCOMPARE(logOfReport(), (QStringList{QStringLiteral("maindlg: rootschanged  2"),
                                             QStringLiteral("maindlg: checkcreatelink for  ") + one.path(),
                                             QStringLiteral("maindlg: linkpath  %1 false").arg(linkTo(one)),
                                             QStringLiteral("maindlg: checkcreatelink for  ") + two.path(),
                                             QStringLiteral("maindlg: linkpath  %1 true").arg(linkTo(two))}));
    }

    void reportShowsTheLastRootInThePanel()
    {
        create();
        report({rootAt("one"), rootAt("two")});
        QCOMPARE(m_dialog->panel().folderCaption->text(), QStringLiteral("Orvel Storage is at:"));
        QCOMPARE(m_dialog->panel().folderPath->text(), rootAt("two").path());
    }

    void everyRootGetsItsIcon()
    {
        create();
        report({rootAt("one"), rootAt("two")});
        QVERIFY(hasIcon(rootAt("one")));
        QVERIFY(hasIcon(rootAt("two")));
    }

    void linkIsMadeAndRemembered()
    {
        create();
        const QDir root = rootAt("Orvel 100% 's'");
        report({root});
        QCOMPARE(linkedFolders(), QStringList{root.path()});
        QCOMPARE(storedLink(), linkTo(root));
    }

    void movedRootLeavesNoLinkBehind()
    {
        create();
        report({rootAt("before")});
        report({rootAt("after")});
        QCOMPARE(linkedFolders(), QStringList{rootAt("after").path()});
        QCOMPARE(storedLink(), linkTo(rootAt("after")));
    }

    void rootMovedUnderTheSameNameTakesItsLinkAlong()
    {
        create();
        report({rootAt("one/Orvel Storage")});
        clearLog();
        report({rootAt("two/Orvel Storage")}); // the old link is gone before this looks for its own
        QVERIFY(logOfReport().last().endsWith(QLatin1String(" false")));
        QCOMPARE(linkedFolders(), QStringList{rootAt("two/Orvel Storage").path()});
    }

    void linkIsMadeAnewAtEveryReport()
    {
        create();
        report({rootAt("one")});
        {
            placement::Links links; // by the user's hand
            links.remove(links.linkTo(rootAt("one")));
        }
        QCOMPARE(linkedFolders(), QStringList());
        report({rootAt("one")});
        QCOMPARE(linkedFolders(), QStringList{rootAt("one").path()});
    }

    void linkIsRememberedBeyondTheEndOfTheProgram()
    {
        create();
        report({rootAt("before")});
        create();
        report({rootAt("after")});
        QCOMPARE(linkedFolders(), QStringList{rootAt("after").path()});
    }

    void secondRootOfTheSameNameFindsTheLinkAndDoesNotOverwriteIt()
    {
        create();
        const QDir first = rootAt("one/Orvel Storage");
        const QDir second = rootAt("two/Orvel Storage");
        report({first, second});
        QCOMPARE(linkedFolders(), QStringList{first.path()});
        QCOMPARE(storedLink(), linkTo(first));
        QCOMPARE(logOfReport().last(), QStringLiteral("maindlg: linkpath  %1 true").arg(linkTo(second)));
    }

    void linkThatCouldNotBeSavedIsRememberedAllTheSame()
    {
        create();
        spoilLinks();
        report({rootAt("one")});
        QCOMPARE(linkedFolders(), QStringList());
        QCOMPARE(storedLink(), linkTo(rootAt("one")));
    }

    void linkThatSomebodyElseMadeIsNotOverwritten()
    {
        create();
        makeLink(rootAt("theirs/Orvel Storage"));
        report({rootAt("ours/Orvel Storage")});
        QCOMPARE(linkedFolders(), QStringList{rootAt("theirs/Orvel Storage").path()});
    }

    void linkThatIsThereIsRememberedWhenNoneWas()
    {
        create();
        makeLink(rootAt("one"));
        report({rootAt("one")});
        QCOMPARE(storedLink(), linkTo(rootAt("one")));
        QCOMPARE(linkedFolders(), QStringList{rootAt("one").path()});
    }

    void linkThatIsThereIsNotRememberedInTheLastOnesPlace()
    {
        create();
        report({rootAt("one")});
        makeLink(rootAt("theirs"));
        report({rootAt("theirs")});
        QCOMPARE(storedLink(), linkTo(rootAt("one")));
        QCOMPARE(linkedFolders(), QStringList{rootAt("theirs").path()});
    }

    void lastOfSeveralLinksIsTheOneRemembered()
    {
        create();
        report({rootAt("one"), rootAt("two")});
        QCOMPARE(storedLink(), linkTo(rootAt("two")));
        report({});
        QCOMPARE(linkedFolders(), QStringList{rootAt("one").path()});
    }

    void emptyReportOnlyRemovesTheLink()
    {
        create();
        report({rootAt("one")});
        clearLog();
        report({});
        QCOMPARE(linkedFolders(), QStringList());
        QCOMPARE(logOfReport(), QStringList{QStringLiteral("maindlg: rootschanged  0")});
        QVERIFY(!storedLink().isEmpty());
    }

    void rootThatIsGoneIsNotMade()
    {
        create();
        const QDir gone(testHome() + QStringLiteral("/gone"));
        report({gone});
        QVERIFY(!gone.exists());
    }

    void engineReportsItsRootsThroughTheRegistry()
    {
        create();
        const QDir root = rootAt("Orvel Storage");
        writeFile(m_dialog->server().stateDir() + QStringLiteral("/0.json"),
                  "[{\"path\":\"" + testHome().toUtf8() + "\",\"name\":\"Orvel Storage\"}]");
        say("{\"what\":\"rootschanged\"}");
        EVENTUALLY_EQUAL(linkedFolders(), QStringList{root.path()});
        QCOMPARE(m_dialog->panel().folderPath->text(), root.path());
    }

    // The startup

    void startupEntryExistsExactlyWhileTheBoxIsChecked()
    {
        create();
        QVERIFY(m_dialog->panel().startup->isChecked());
        QVERIFY(QFileInfo::exists(startupEntry()));
        QCOMPARE(storedStartup(), 1);

        m_dialog->panel().startup->setChecked(false);
        QVERIFY(!QFileInfo::exists(startupEntry()));
        QCOMPARE(storedStartup(), 0);
        QCOMPARE(log().last(), QStringLiteral("maindlg: Toggle startup  false"));

        m_dialog->panel().startup->setChecked(true);
        QVERIFY(QFileInfo::exists(startupEntry()));
        QCOMPARE(storedStartup(), 1);
        QCOMPARE(log().last(), QStringLiteral("maindlg: Toggle startup  true"));
    }

    void startupEntryThatIsThereIsReplaced()
    {
        create();
        QVERIFY(QFile::remove(startupEntry()));
        writeFile(startupEntry(), "something else");
        QVERIFY(!startsThisProgram());
        m_dialog->toggleStartUp(true);
        QVERIFY(startsThisProgram());
    }

    void turningStartupOffWithoutAnEntryStillStoresZero()
    {
        create();
        QVERIFY(QFile::remove(startupEntry()));
        m_dialog->toggleStartUp(false);
        QCOMPARE(storedStartup(), 0);
        QVERIFY(!QFileInfo::exists(startupEntry()));
    }

    void laterStartDoesNotTouchTheStartupEntry()
    {
        preset("runstartup", 1);
        create();
        QVERIFY(m_dialog->panel().startup->isChecked());
        QVERIFY(!QFileInfo::exists(startupEntry()));
    }

#ifndef Q_OS_WIN
    void startupEntryNamesTheProgramAndItsIcon()
    {
        create();
        const QString icon = m_dialog->server().stateDir() + QStringLiteral("/orvel.png");
        QVERIFY(readFile(icon).startsWith("\x89PNG"));
        QCOMPARE(readFile(startupEntry()), placement::autostartEntry(QStringLiteral("Orvel Storage"),
                                                                     QCoreApplication::applicationFilePath(), icon));
    }
#endif
};

QTEST_MAIN(DialogCldPlacementTest)
#include "dialogcld_placement_test.moc"
