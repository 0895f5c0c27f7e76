#include "shell/placementfiles.h"

#include "tests/support/test.h"

#include <QTextCodec>

using namespace placement;

class PlacementFilesTest final : public Test
{
    Q_OBJECT

    static QString text(const QByteArray& utf16)
    {
        return QTextCodec::codecForName("UTF-16")->toUnicode(utf16); // the mark tells the order of the bytes
    }

private slots:
    void desktopIniEndsOnlyTheLineOfTheIconWithCarriageReturn()
    {
        QCOMPARE(text(desktopIni(QStringLiteral("C:\\Orvel Storage\\orvel.exe"))),
                 QStringLiteral("[.ShellClassInfo]\nIconFile=C:\\Orvel Storage\\orvel.exe\r\nIconIndex=1\n"));
    }

    void desktopIniTakesAnyNameInUtf16WithAMark()
    {
        QVERIFY(desktopIni(QStringLiteral("x")).startsWith(QByteArray("\xff\xfe[\0.\0S\0", 8)));
        const QString program = QStringLiteral("C:\\Users\\Ma\u010Dek \u96f2\\orvel.exe");
        QVERIFY(text(desktopIni(program)).contains(QStringLiteral("\nIconFile=") + program + QStringLiteral("\r\n")));
    }

    void shortcutIsCalledAfterItsTarget()
    {
        QCOMPARE(shortcutPath(QStringLiteral("C:\\Users\\Ana\\Links"), QStringLiteral("Orvel Storage")),
                 QStringLiteral("C:\\Users\\Ana\\Links\\Orvel Storage.lnk"));
    }

    void shortcutGoesOnTheDesktopOnWindowsXpAndIntoLinksElsewhere()
    {
        QCOMPARE(shortcutPlace(true).folder, QStringLiteral("Desktop"));
        QCOMPARE(shortcutPlace(true).iconIndex, 1);
        QCOMPARE(shortcutPlace(false).folder, QStringLiteral("{BFB9D5E0-C6A9-404C-B2B2-AE6DB6AF4968}"));
        QCOMPARE(shortcutPlace(false).iconIndex, 0);
    }

    void autostartEntryStartsTheProgramInItsDirectory()
    {
        QCOMPARE(autostartEntry(QStringLiteral("Orvel Storage"), QStringLiteral("/opt/orvel/orvel"),
                                QStringLiteral("/home/ana/orvel.png")),
                 QByteArray("[Desktop Entry]\n"
                            "Type=Application\n"
                            "Name=Orvel Storage\n"
                            "Exec=env \"--chdir=/opt/orvel\" \"/opt/orvel/orvel\"\n"
                            "TryExec=/opt/orvel/orvel\n"
                            "Icon=/home/ana/orvel.png\n"
                            "Terminal=false\n"
                            "X-GNOME-Autostart-enabled=true\n"));
    }

    void autostartEntryWithoutAnIconNamesNone()
    {
        QVERIFY(!autostartEntry(QStringLiteral("x"), QStringLiteral("/x"), QString()).contains("Icon"));
    }

    void autostartEntryQuotesThePathOfTheProgram_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::addColumn<QByteArray>("quoted");
        QTest::addColumn<QByteArray>("plain");
        QTest::newRow("blank") << "/opt/a b" << QByteArray("/opt/a b") << QByteArray("/opt/a b");
        QTest::newRow("quote") << R"(/opt/"a")" << QByteArray(R"(/opt/\\"a\\")") << QByteArray(R"(/opt/"a")");
        QTest::newRow("dollar") << "/opt/$a`b" << QByteArray(R"(/opt/\\$a\\`b)") << QByteArray("/opt/$a`b");
#ifndef Q_OS_WIN // where it separates
        QTest::newRow("backslash") << R"(/opt/a\b)" << QByteArray(R"(/opt/a\\\\b)") << QByteArray(R"(/opt/a\\b)");
#endif
        QTest::newRow("field code") << "/opt/100%u" << QByteArray("/opt/100%%u") << QByteArray("/opt/100%u");
        QTest::newRow("not ASCII") << QStringLiteral("/opt/\u010D") << QByteArray("/opt/\xC4\x8D")
                                   << QByteArray("/opt/\xC4\x8D");
        QTest::newRow("line break adds no key")
            << "/opt/a\nHidden=true" << QByteArray(R"(/opt/a\nHidden=true)") << QByteArray(R"(/opt/a\nHidden=true)");
    }
    void autostartEntryQuotesThePathOfTheProgram()
    {
        QFETCH(QString, directory);
        QFETCH(QByteArray, quoted);
        QFETCH(QByteArray, plain);
        const QByteArray entry = autostartEntry(QStringLiteral("x"), directory + QStringLiteral("/orvel"), QString());
        const QList<QByteArray> lines = entry.split('\n');
        QVERIFY2(lines.contains("Exec=env \"--chdir=" + quoted + "\" \"" + quoted + "/orvel\""), entry.constData());
        QVERIFY2(lines.contains("TryExec=" + plain + "/orvel"), entry.constData());
    }

    void blankBeforeAValueIsKept()
    {
        QVERIFY(autostartEntry(QStringLiteral(" x"), QStringLiteral("/x"), QString()).contains("\nName=\\sx\n"));
    }
};

QTEST_MAIN(PlacementFilesTest)
#include "placementfiles_test.moc"
