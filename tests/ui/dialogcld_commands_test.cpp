#include "syncfolder/folderchooser.h"
#include "syncfolder/syncfolder.h"
#include "tests/ui/oneword.h"
#include "tests/ui/windowtest.h"
#include "ui/guide.h"
#include "ui/mymenu.h"
#include "ui/sharefolder.h"

#include <QFileDialog>
#include <QFocusEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTemporaryDir>

class DialogCldCommandsTest final : public WindowTest
{
    Q_OBJECT

    enum MenuEntry
    {
        OpenFolder = 0,
        OpenWebSite = 1,
        SyncSwitch = 2,
        ChangePackage = 4,
        Settings = 7,
        OpenGuide = 8,
        Help = 9,
        CheckForUpdates = 10
    };

    QString m_start; ///< where the folder chooser opened

    /// What the folder chooser looked like.
    struct
    {
        QString caption;
        QString directory;
        bool isModalToTheWindow = false;
        bool picksDirectories = false;
        bool showsDirectoriesOnly = false;
        bool mayBeTheDesktops = false;
    } m_chooser;

public slots:
    void inspectChooser()
    {
        auto* chooser = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (chooser == nullptr) {
            QTimer::singleShot(1, this, SLOT(inspectChooser())); // not shown yet
            return;
        }
        m_chooser.caption = chooser->windowTitle();
        m_chooser.directory = chooser->directory().path();
        m_chooser.isModalToTheWindow = chooser->isModal() && chooser->parent() == m_dialog.get();
        m_chooser.picksDirectories = chooser->fileMode() == QFileDialog::Directory;
        m_chooser.showsDirectoriesOnly = chooser->testOption(QFileDialog::ShowDirsOnly);
        m_chooser.mayBeTheDesktops = !chooser->testOption(QFileDialog::DontUseNativeDialog);
        chooser->reject();
    }

protected:
    void tearDown() override
    {
        folderchooser::setAsker({});
        WindowTest::tearDown();
    }

private:
    void answerWith(const QString& folder)
    {
        folderchooser::setAsker([=](QWidget* parent, const QString& caption, const QString& start) {
            Q_UNUSED(parent)
            Q_UNUSED(caption)
            m_start = start;
            return folder;
        });
    }

    /// The account's roots file with one root.
    void registerRoot(quint64 uid, const QString& parent, const QString& name)
    {
        writeFile(m_dialog->server().stateDir() + QStringLiteral("/%1.json").arg(uid),
                  "[{\"path\":\"" + parent.toUtf8() + "\",\"name\":\"" + name.toUtf8() + "\"}]");
    }

    QMessageBox* box() const
    {
        return m_dialog->findChild<QMessageBox*>();
    }

private slots:
    void webPagesOpenInTheBrowser()
    {
        create();
        action(OpenWebSite)->trigger();
        action(ChangePackage)->trigger();
        action(Help)->trigger();
        QCOMPARE(m_opened, (QStringList{QStringLiteral("https://www.orvel.example/kesta/vse"),
                                        QStringLiteral("https://www.orvel.example/narocanje-kesta"),
                                        QStringLiteral("http://www.orvel.example/kesta/pomoc")}));
    }

    void folderOpensWhereThePanelShowsIt()
    {
        create();
        QList<QDir> roots{QDir(QStringLiteral("/home/ana/Orvel Storage"))};
        m_dialog->rootsChanged(roots);
        action(OpenFolder)->trigger();
        QCOMPARE(m_opened, QStringList{QStringLiteral("file:///home/ana/Orvel Storage")});
    }

    void syncSwitchTogglesItsTextTheIconAndTheEngine()
    {
        create();
        sayState("ok", 7);
        action(SyncSwitch)->trigger();
        QCOMPARE(action(SyncSwitch)->text(), QStringLiteral("Continue sync"));
        QVERIFY(showsIcon(QStringLiteral(":/offline36.png")));
        QVERIFY(engineReads("\"cmd\" : \"syncenabled\", \"val\" : false"));
        action(SyncSwitch)->trigger();
        QCOMPARE(action(SyncSwitch)->text(), QStringLiteral("Stop sync"));
        QVERIFY(showsIcon(QStringLiteral(":/online36.png")));
        QVERIFY(engineReads("\"cmd\" : \"syncenabled\", \"val\" : true"));
    }

    void syncSwitchSwitchesBackWhateverItIsCalled()
    {
        const OneWord language({QStringLiteral("Stop sync"), QStringLiteral("Continue sync")});
        create();
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        for (int round = 0; round < 2; ++round) {
            m_engine->forgetInput();
            action(SyncSwitch)->trigger();
            QCOMPARE(action(SyncSwitch)->text(), OneWord::word());
            QVERIFY(engineReads("\"cmd\" : \"syncenabled\", \"val\" : false"));
            m_engine->forgetInput();
            action(SyncSwitch)->trigger();
            QVERIFY(engineReads("\"cmd\" : \"syncenabled\", \"val\" : true"));
        }
    }

    void settingsShowTheWindow()
    {
        create();
        QVERIFY(!m_dialog->isVisible());
        action(Settings)->trigger();
        QVERIFY(m_dialog->isVisible());
        QVERIFY(log().contains(QStringLiteral("maindlg: Menu show")));
    }

    void guideOpensAndIsClosedWhenItHasFinished()
    {
        preset("runnum", 1);
        create();
        action(OpenGuide)->trigger();
        const QPointer<Guide> guide = m_dialog->findChild<Guide*>();
        QVERIFY(guide && guide->isVisible());
        guide->close();
        QVERIFY(log().contains(QStringLiteral("maindlg: Cleanup guide")));
        EVENTUALLY(!guide);
    }

    void menuTellsTheLogWhatComesAndGoes()
    {
        MyMenu menu(nullptr);
        QEvent enter(QEvent::Enter);
        QEvent leave(QEvent::Leave);
        QFocusEvent focusOut(QEvent::FocusOut);
        QApplication::sendEvent(&menu, &enter);
        QApplication::sendEvent(&menu, &leave);
        QApplication::sendEvent(&menu, &focusOut);
        QCOMPARE(log(), (QStringList{QStringLiteral("Enter event"), QStringLiteral("Leave event"),
                                     QStringLiteral("Focus out event")}));
    }

    void autoUpdateSwitchIsStoredWhereTheUpdaterReadsIt()
    {
        create();
        m_dialog->toggleAutoUpdate(false);
        clientSettings().sync();
        QCOMPARE(clientSettings().value(QStringLiteral("QtSparkle/check_automatically")).toBool(), false);
        m_dialog->toggleAutoUpdate(true);
        clientSettings().sync();
        QCOMPARE(clientSettings().value(QStringLiteral("QtSparkle/check_automatically")).toBool(), true);
    }

    void updateCheckOfTheMenuOffersANewVersion()
    {
        const QByteArray feed = "<rss xmlns:s='http://www.andymatuschak.org/xml-namespaces/sparkle'><item>"
                                "<enclosure url='https://www.orvel.example/new.exe' s:version='9.9'/></item></rss>";
        const QByteArray before = qgetenv("ORVEL_UPDATE_FEED");
        qputenv("ORVEL_UPDATE_FEED", "data:text/xml," + feed.toPercentEncoding());
        create();
        qputenv("ORVEL_UPDATE_FEED", before);
        action(CheckForUpdates)->trigger();
        EVENTUALLY(m_dialog->findChild<QDialog*>(QStringLiteral("UpdateDialog")) != nullptr);
        auto* offer = m_dialog->findChild<QDialog*>(QStringLiteral("UpdateDialog"));
        QVERIFY(offer->isVisible());
        QCOMPARE(offer->findChild<QLabel*>(QStringLiteral("summary"))->text(),
                 QStringLiteral("Orvel Storage 9.9 je na voljo - ti imaš 0.9.3. Želiš prenesti najnovejšo različico?"));
        QTest::mouseClick(offer->findChild<QPushButton*>(QStringLiteral("install")), Qt::LeftButton);
        QCOMPARE(m_opened, QStringList{QStringLiteral("https://www.orvel.example/new.exe")});
    }

    // Changing the root

    void pickedPlaceThatHoldsTheFolderAlreadyIsRefused()
    {
        const QTemporaryDir place;
        QDir(place.path()).mkdir(QStringLiteral("Orvel Storage"));
        create().show();
        const QString before = m_dialog->panel().folderPath->text();
        answerWith(place.path());
        m_dialog->changeRoot();
        QVERIFY(box() && box()->isVisible());
        QVERIFY(box()->isModal());
        QCOMPARE(box()->windowTitle(), QStringLiteral("Error"));
        QCOMPARE(box()->text(), QStringLiteral("Folder named Orvel Storage already exists."));
        QCOMPARE(m_dialog->panel().folderPath->text(), before);
        QVERIFY(log().contains(QStringLiteral("maindlg: New path exists!")));
        box()->close();
    }

    void pickedPlaceTakesTheFolder()
    {
        const QTemporaryDir old;
        const QTemporaryDir place;
        create();
        registerRoot(7, old.path(), QStringLiteral("Orvel Storage"));
        writeFile(old.path() + QStringLiteral("/Orvel Storage/file"), "x");
        sayState("ok", 7);
        QList<QDir> roots{QDir(old.path() + QStringLiteral("/Orvel Storage"))};
        m_dialog->rootsChanged(roots);
        answerWith(place.path());
        m_dialog->changeRoot();
        const QString moved = place.path() + QStringLiteral("/Orvel Storage");
        EVENTUALLY_EQUAL(readFile(moved + QStringLiteral("/file")), QByteArray("x"));
        QCOMPARE(m_dialog->panel().folderPath->text(), moved);
        QVERIFY(log().contains(QStringLiteral("maindlg: change root")));
        QVERIFY(log().contains(QStringLiteral("maindlg: movedpath ") + place.path()));
        EVENTUALLY_EQUAL(m_engine->starts().size(), 2);
    }

    void placeThatCannotTakeTheFolderLeavesTheOldOneShownAndTheReason()
    {
        const QTemporaryDir old;
        create().show();
        registerRoot(7, old.path(), QStringLiteral("Orvel Storage"));
        const QString root = old.path() + QStringLiteral("/Orvel Storage");
        QVERIFY(QDir().mkpath(root));
        sayState("ok", 7);
        QList<QDir> roots{QDir(root)};
        m_dialog->rootsChanged(roots);
        answerWith(old.path() + QStringLiteral("/gone"));
        m_dialog->changeRoot();
        EVENTUALLY(box() && box()->isVisible());
        QCOMPARE(m_dialog->panel().folderPath->text(), root);
        const QString text = QStringLiteral("The folder could not be moved: ");
        QVERIFY2(box()->text().startsWith(text) && box()->text().size() > text.size(), qPrintable(box()->text()));
        QVERIFY(QFileInfo(root).isDir());
        box()->close();
    }

    void pickedPlaceBeforeTheFirstSignInIsKeptForTheEngine()
    {
        const QTemporaryDir place;
        create();
        answerWith(place.path());
        m_dialog->changeRoot();
        QCOMPARE(m_start, QDir::homePath());
        QCOMPARE(m_dialog->server().config().homepath, place.path());
        QCOMPARE(m_dialog->server().config().homefolder, QStringLiteral("Orvel Storage"));
        QCOMPARE(m_dialog->panel().folderPath->text(), place.path() + QStringLiteral("/Orvel Storage"));
        answerWith(QString());
        m_dialog->changeRoot();
        QCOMPARE(m_start, place.path());
    }

    void chooserIsTheDesktopsAndShowsDirectoriesOnly()
    {
        // The desktop's own could not be looked into; Qt's is what it was told to be.
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        create();
        QTimer::singleShot(0, this, SLOT(inspectChooser()));
        m_dialog->changeRoot();
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs, false);
        QCOMPARE(m_chooser.caption, QStringLiteral("Pick Orvel Storage folder"));
        QCOMPARE(m_chooser.directory, QDir::homePath());
        QVERIFY(m_chooser.isModalToTheWindow);
        QVERIFY(m_chooser.picksDirectories);
        QVERIFY(m_chooser.showsDirectoriesOnly);
        QVERIFY(m_chooser.mayBeTheDesktops);
        QVERIFY(log().contains(QStringLiteral("maindlg: openpath empty")));
    }

    void cancelledChooserChangesNothing()
    {
        create();
        const QString before = m_dialog->panel().folderPath->text();
        answerWith(QString());
        m_dialog->changeRoot();
        QCOMPARE(m_dialog->panel().folderPath->text(), before);
        QVERIFY(log().contains(QStringLiteral("maindlg: openpath empty")));
    }

    void withoutAShownFolderNothingIsAsked()
    {
        create();
        m_dialog->panel().folderPath->clear();
        m_start.clear();
        answerWith(QStringLiteral("/x"));
        m_dialog->changeRoot();
        QVERIFY(m_start.isEmpty());
    }

    // The shell's commands

    void websiteCommandOpensTheHomepage()
    {
        create();
        m_dialog->shellCommand(QStringLiteral("website"), QStringLiteral("/any"));
        QCOMPARE(m_opened, QStringList{QStringLiteral("https://www.orvel.example/kesta/vse")});
        QVERIFY(log().contains(QStringLiteral("maindlg: Shell command  website /any")));
    }

    void noCommandOpensAnAddressOfItsSender()
    {
        create();
        const QString address = QStringLiteral("http://sender.example/");
        for (const char* command : {"http://sender.example/", "open", "WEBSITE", "website ", ""})
            m_dialog->shellCommand(QLatin1String(command), address);
        QCOMPARE(m_opened, QStringList());
        m_dialog->shellCommand(QStringLiteral("website"), address);
        QCOMPARE(m_opened, QStringList{QStringLiteral("https://www.orvel.example/kesta/vse")});
    }

    void itemCommandsAskTheEngineAndOpenItsAnswer_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QByteArray>("ids");
        QTest::addColumn<QString>("address");
        QTest::newRow("share in the root")
            << "shareitem" << QByteArray("7,42") << "http://sync.orvel.example/datoteke/vse/#share=42";
        QTest::newRow("share deeper") << "shareitem" << QByteArray("7,10,11,42")
                                      << "http://sync.orvel.example/datoteke/vse/10/11/#share=42";
        QTest::newRow("versions") << "revs" << QByteArray("7,10,42")
                                  << "http://sync.orvel.example/datoteke/vse/10/#versions=42";
    }
    void itemCommandsAskTheEngineAndOpenItsAnswer()
    {
        QFETCH(QString, command);
        QFETCH(QByteArray, ids);
        QFETCH(QString, address);
        create();
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        m_dialog->shellCommand(command, QStringLiteral("/f"));
        QVERIFY(
            engineReads("{ \"cmd\" : \"pathquery\", \"path\" : \"/f\", \"what\" : \"" + command.toLatin1() + "\" }"));
        say("{\"what\":\"queryresult\",\"cmd\":\"" + command.toLatin1() + "\",\"idpath\":[" + ids + "]}");
        EVENTUALLY_EQUAL(m_opened, QStringList{address});
    }

    void unknownCommandsTagsAndShortAnswersOpenNothing()
    {
        create();
        m_dialog->shellCommand(QStringLiteral("Website"), QString());
        m_dialog->shellCommand(QString(), QString());
        m_dialog->pathQueryResult(QStringLiteral("other"), {1, 2, 3});
        m_dialog->pathQueryResult(QStringLiteral("shareitem"), {});
        m_dialog->pathQueryResult(QStringLiteral("revs"), {7});
        QVERIFY(m_opened.isEmpty());
        QVERIFY(log().contains(QStringLiteral("maindlg: Query result  other")));
    }

    // Sharing

    void sharingDialogIsServedAndDeleted()
    {
        create();
        EVENTUALLY(m_engine->input().endsWith("}\n"));
        const QPointer<ShareFolder> dialog(new ShareFolder(3, QStringLiteral("/f"), nullptr));
        connect(dialog, SIGNAL(newSharedFolder(QString, QString, int)), m_dialog.get(),
                SLOT(shareFolder(QString, QString, int)));
        connect(dialog, SIGNAL(shareClosed(ShareFolder*)), m_dialog.get(), SLOT(shareClosed(ShareFolder*)));
        connect(&m_dialog->server(), SIGNAL(shareFolderResult(int, bool, int)), dialog,
                SLOT(shareFolderResult(int, bool, int)));
        dialog->show();
        dialog->findChild<QLineEdit*>()->setText(QStringLiteral("bo@orvel.example"));
        auto* button = dialog->findChild<QPushButton*>();
        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(engineReads("\"cmd\" : \"sharefolder\", \"msgid\" : 3, \"path\" : \"/f\""));
        say("{\"what\":\"sharefolderresult\",\"msgid\":3,\"success\":true,\"msg\":0}");
        EVENTUALLY_EQUAL(button->text(), QStringLiteral("OK"));
        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(log().contains(QStringLiteral("maindlg: Deleting share dialog")));
        EVENTUALLY(!dialog);
    }
};

QTEST_MAIN(DialogCldCommandsTest)
#include "dialogcld_commands_test.moc"
