#include "update/updatedialog.h"

#include "tests/support/metamethods.h"
#include "tests/update/prompttest.h"
#include "update/followredirects.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSpacerItem>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>
#include <QVBoxLayout>

using qtsparkle::AppCast;
using qtsparkle::UpdateDialog;

namespace
{

template<typename Layout>
QStringList itemsOf(const Layout& layout)
{
    QStringList names;
    for (int i = 0; i < layout.count(); ++i) {
        QLayoutItem* item = layout.itemAt(i);
        if (item->widget() != nullptr)
            names << item->widget()->objectName();
        else if (item->layout() != nullptr)
            names << item->layout()->objectName();
        else
            names << QStringLiteral("spacer");
    }
    return names;
}

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(u' ');
}

} // namespace

class UpdateDialogTest final : public PromptTest
{
    Q_OBJECT

    QPointer<UpdateDialog> m_dialog;

protected:
    void setUp() override
    {
        PromptTest::setUp();
        m_dialog = new UpdateDialog(m_parent.get());
        m_dialog->setAttribute(Qt::WA_DeleteOnClose);
        m_dialog->SetVersion(QStringLiteral("1.9"));
    }
    void tearDown() override
    {
        delete m_dialog;
        PromptTest::tearDown();
    }

private:
    template<typename Widget>
    Widget* child(const char* name) const
    {
        return m_dialog->findChild<Widget*>(QLatin1String(name));
    }
    QTextBrowser& notes() const
    {
        return *child<QTextBrowser>("release_notes");
    }

    void show(const QString& notesUrl = QString(), const QString& version = QStringLiteral("2.0"))
    {
        AppCastPtr appcast(new AppCast);
        appcast->version = version;
        appcast->download_url = QStringLiteral("http://updates.example/orvel.exe?a=1");
        appcast->release_notes_url = notesUrl;
        m_dialog->ShowUpdate(appcast);
    }

    /// Shows notes that the server gives, up to the moment when they have been taken.
    void showNotes(const QByteArray& body, const QByteArray& type)
    {
        serveText(QStringLiteral("/notes"), body, type);
        QNetworkAccessManager manager;
        m_dialog->SetNetworkAccessManager(&manager);
        show(m_server->url(QStringLiteral("/notes")).toString());
        EVENTUALLY_EQUAL(m_server->count(QStringLiteral("/notes")), 1);
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
    }

    /// Clicks the link that @p text shows.
    void clickLink(const QString& text)
    {
        QTextBrowser& browser = notes();
        QTextCursor cursor = browser.document()->find(text);
        QVERIFY(!cursor.isNull());
        cursor.setPosition(cursor.selectionStart() + 1);
        QTest::mouseClick(browser.viewport(), Qt::LeftButton, Qt::NoModifier, browser.cursorRect(cursor).center());
    }

private slots:
    void slotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(slotsOf(UpdateDialog::staticMetaObject),
                 (QStringList{QStringLiteral("ShowUpdate(AppCastPtr)"), QStringLiteral("ReleaseNotesReady()"),
                              QStringLiteral("Install()"), QStringLiteral("Skip()")}));
    }

    void windowHasItsNameTitleAndSize()
    {
        QCOMPARE(m_dialog->objectName(), QStringLiteral("UpdateDialog"));
        QCOMPARE(m_dialog->windowTitle(), QStringLiteral("Software Update"));
        QCOMPARE(m_dialog->size(), QSize(643, 475));
        QVERIFY(m_dialog->isHidden());
    }

    void widgetsAreMadeInTheirOrder()
    {
        QStringList names;
        for (const QObject* child : m_dialog->children()) {
            if (!child->objectName().isEmpty())
                names << child->objectName();
        }
        QCOMPARE(names, words("horizontalLayout_2 icon line title summary release_notes_label release_notes skip "
                              "later install"));
    }

    void widgetsStandInTheirPlaces()
    {
        auto* columns = qobject_cast<QHBoxLayout*>(m_dialog->layout());
        QVERIFY(columns);
        QCOMPARE(columns->objectName(), QStringLiteral("horizontalLayout_2"));
        QCOMPARE(itemsOf(*columns), words("verticalLayout_2 line verticalLayout"));
        QCOMPARE(itemsOf(*child<QVBoxLayout>("verticalLayout_2")), words("icon spacer"));
        QCOMPARE(itemsOf(*child<QVBoxLayout>("verticalLayout")),
                 words("title summary release_notes_label release_notes horizontalLayout"));
        QCOMPARE(itemsOf(*child<QHBoxLayout>("horizontalLayout")), words("skip spacer later install"));
    }

    void spacersHaveTheirSizesAndPolicies()
    {
        const QSpacerItem* vertical = child<QVBoxLayout>("verticalLayout_2")->itemAt(1)->spacerItem();
        QCOMPARE(vertical->sizeHint(), QSize(20, 40));
        QCOMPARE(vertical->sizePolicy(), QSizePolicy(QSizePolicy::Minimum, QSizePolicy::Expanding));
        const QSpacerItem* horizontal = child<QHBoxLayout>("horizontalLayout")->itemAt(1)->spacerItem();
        QCOMPARE(horizontal->sizeHint(), QSize(40, 20));
        QCOMPARE(horizontal->sizePolicy(), QSizePolicy(QSizePolicy::Expanding, QSizePolicy::Minimum));
    }

    void lineIsVerticalAndSunken()
    {
        QCOMPARE(child<QFrame>("line")->frameShape(), QFrame::VLine);
        QCOMPARE(child<QFrame>("line")->frameShadow(), QFrame::Sunken);
    }

    void fixedTextsAreToTheLetter()
    {
        QCOMPARE(child<QLabel>("release_notes_label")->text(), QStringLiteral("<b>Zgodovina sprememb:</b>"));
        QCOMPARE(child<QPushButton>("skip")->text(), QString::fromUtf8("Presko\xc4\x8di to verzijo"));
        QCOMPARE(child<QPushButton>("later")->text(), QStringLiteral("Opomni me kasneje"));
        QCOMPARE(child<QPushButton>("install")->text(), QStringLiteral("Namesti posodobitev"));
        QVERIFY(child<QLabel>("title")->wordWrap());
        QVERIFY(!child<QLabel>("summary")->wordWrap());
    }

    void installIsTheDefaultButton()
    {
        QVERIFY(child<QPushButton>("install")->isDefault());
        QVERIFY(!child<QPushButton>("later")->isDefault());
        QVERIFY(!child<QPushButton>("skip")->isDefault());
        show();
        QVERIFY(child<QPushButton>("install")->isDefault());
    }

    void titleAndSummaryNameBothVersions()
    {
        show();
        QCOMPARE(child<QLabel>("title")->text(),
                 QString::fromUtf8("<h3>Nova razli\xc4\x8dica Orvele je na voljo</h3>"));
        QCOMPARE(child<QLabel>("summary")->text(),
                 QString::fromUtf8("Orvel 2.0 je na voljo - ti ima\xc5\xa1 1.9. \xc5\xbd"
                                   "eli\xc5\xa1 prenesti najnovej\xc5\xa1o razli\xc4\x8dico?"));
        QVERIFY(m_dialog->isVisible());
        QVERIFY(!m_dialog->isModal());
    }

    void percentSignsInVersionsAreNotExpanded()
    {
        m_dialog->SetVersion(QStringLiteral("%1%2"));
        show(QString(), QStringLiteral("2%3"));
        QVERIFY(child<QLabel>("summary")->text().startsWith(
            QString::fromUtf8("Orvel 2%3 je na voljo - ti ima\xc5\xa1 %1%2. ")));
    }

    void versionIsShownAsTextNotAsMarkup()
    {
        show(QString(), QStringLiteral("2<b>0</b>"));
        QCOMPARE(child<QLabel>("summary")->textFormat(), Qt::PlainText);
    }

    void iconIsHiddenUntilOneIsSet()
    {
        show();
        QLabel* icon = child<QLabel>("icon");
        QVERIFY(!icon->isVisible());
        QPixmap picture(256, 256);
        picture.fill(Qt::red);
        m_dialog->SetIcon(QIcon(picture));
        QVERIFY(icon->isVisible());
        const QPixmap shown = icon->pixmap(Qt::ReturnByValue);
        QCOMPARE(shown.size() / shown.devicePixelRatio(), QSize(64, 64));
        QCOMPARE(QColor(shown.toImage().pixel(1, 1)), QColor(Qt::red));
        m_dialog->SetIcon(QIcon());
        QVERIFY(!icon->isVisible());
    }

    void notesAreHtmlOrTextByTheirContentType_data()
    {
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<bool>("html");
        QTest::newRow("html") << QByteArrayLiteral("text/html") << true;
        QTest::newRow("html with a charset") << QByteArrayLiteral("text/html; charset=utf-8") << true;
        QTest::newRow("html somewhere") << QByteArrayLiteral("x-text/html5") << true;
        QTest::newRow("plain") << QByteArrayLiteral("text/plain") << false;
        QTest::newRow("other case") << QByteArrayLiteral("Text/HTML") << false;
        QTest::newRow("xhtml") << QByteArrayLiteral("application/xhtml+xml") << false;
        QTest::newRow("none") << QByteArray() << false;
    }
    void notesAreHtmlOrTextByTheirContentType()
    {
        QFETCH(QByteArray, type);
        QFETCH(bool, html);
        showNotes("<b>Faster</b> &amp; smaller", type);
        QCOMPARE(notes().toPlainText(),
                 html ? QStringLiteral("Faster & smaller") : QStringLiteral("<b>Faster</b> &amp; smaller"));
    }

    void notesAreDecodedAsLatin1_data()
    {
        QTest::addColumn<QByteArray>("type");
        QTest::newRow("html") << QByteArrayLiteral("text/html; charset=utf-8");
        QTest::newRow("plain") << QByteArrayLiteral("text/plain; charset=utf-8");
    }
    void notesAreDecodedAsLatin1()
    {
        QFETCH(QByteArray, type);
        showNotes("\xe9 \xc4\x8d", type);
        QCOMPARE(notes().toPlainText(), QString::fromLatin1("\xe9 \xc4\x8d"));
    }

    void notesAreCutAtTheFirstZeroByte_data()
    {
        notesAreDecodedAsLatin1_data();
    }
    void notesAreCutAtTheFirstZeroByte()
    {
        QFETCH(QByteArray, type);
        showNotes(QByteArray("before\0after\0", 13), type);
        QCOMPARE(notes().toPlainText(), QStringLiteral("before"));
    }

    void notesAreFetchedThroughRedirectsAndWithoutACacheRule()
    {
        m_server->redirect(QStringLiteral("/moved"), "/notes");
        serveText(QStringLiteral("/notes"), "Faster", "text/plain");
        show(m_server->url(QStringLiteral("/moved?v=2")).toString());
        EVENTUALLY_EQUAL(notes().toPlainText(), QStringLiteral("Faster"));
        QCOMPARE(m_server->targets(), (QVector<QByteArray>{"/moved?v=2", "/notes?v=2"}));
        QVERIFY(!m_server->requests().first().headers.contains("cache-control"));
    }

    void notesThatAreRedirectedTooOftenStayEmpty()
    {
        QNetworkAccessManager manager;
        m_dialog->SetNetworkAccessManager(&manager);
        m_server->redirect(QStringLiteral("/circle"), "/circle");
        show(m_server->url(QStringLiteral("/circle")).toString());
        EVENTUALLY_EQUAL(m_server->count(QStringLiteral("/circle")), 6);
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
        QCOMPARE(notes().toPlainText(), QString());
        QVERIFY(m_dialog->isVisible());
    }

    void failedNotesShowWhateverTheServerSaid()
    {
        HttpServer::Answer answer;
        answer.status = 404;
        answer.body = "gone";
        answer.contentType = "text/plain";
        m_server->serve(QStringLiteral("/notes"), answer);
        show(m_server->url(QStringLiteral("/notes")).toString());
        EVENTUALLY_EQUAL(notes().toPlainText(), QStringLiteral("gone"));
    }

    void notesThatHangLeaveTheDialogUsable()
    {
        QNetworkAccessManager manager;
        manager.setTransferTimeout(1000);
        m_dialog->SetNetworkAccessManager(&manager);
        m_server->hang(QStringLiteral("/notes"));
        show(m_server->url(QStringLiteral("/notes")).toString());
        EVENTUALLY_EQUAL(m_server->count(QStringLiteral("/notes")), 1);
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
        QCOMPARE(notes().toPlainText(), QString());
        QVERIFY(m_dialog->isVisible());
    }

    void ownManagerGivesUpOnAServerThatHangs()
    {
        m_server->hang(QStringLiteral("/notes"));
        show(m_server->url(QStringLiteral("/notes")).toString());
        const auto* own = m_dialog->findChild<QNetworkAccessManager*>();
        QVERIFY(own);
        QCOMPARE(own->transferTimeout(), 30000);
    }

    void notesThatNeverEndShowWhatHasCome()
    {
        // A zero byte early on: megabytes of text need not be laid out to see that the download was cut.
        const QByteArray piece = QByteArray("beginning\0", 10) + QByteArray(512 * 1024, 'x');
        m_server->serveEndless(QStringLiteral("/notes"), "text/plain", piece);
        show(m_server->url(QStringLiteral("/notes")).toString());
        EVENTUALLY_EQUAL(notes().toPlainText(), QStringLiteral("beginning"));
#ifndef Q_OS_WIN // Wine tells a server late, or not at all, that its client has gone
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
        QVERIFY(m_server->endlessBytes() < 4 * qtsparkle::FollowRedirects::maximumBody);
#endif
    }

    void notesThatLieOffTheWebAreNotFetched_data()
    {
        QTest::addColumn<QString>("url");
        QTest::newRow("none") << QString();
        QTest::newRow("file") << QStringLiteral("file:///etc/passwd");
        QTest::newRow("data") << QStringLiteral("data:text/plain,hello");
        QTest::newRow("relative") << QStringLiteral("notes.html");
    }
    void notesThatLieOffTheWebAreNotFetched()
    {
        QFETCH(QString, url);
        QNetworkAccessManager manager;
        m_dialog->SetNetworkAccessManager(&manager);
        show(url);
        QVERIFY(manager.findChildren<QNetworkReply*>().isEmpty());
        QVERIFY(m_dialog->isVisible());
    }

    void notesLoadNothingByThemselves()
    {
        const QByteArray base = m_server->url(QString()).toEncoded();
        showNotes("<html><head><link rel=\"stylesheet\" href=\"" + base + "/style.css\"><style>@import url(" + base +
                      "/import.css);</style></head><body background=\"" + base + "/back.png\"><img src=\"" + base +
                      "/pixel.png\"><img src=\"/relative.png\">Faster</body></html>",
                  "text/html");
        QVERIFY(notes().toPlainText().contains(QLatin1String("Faster")));
        QVERIFY(!notes().grab().isNull());     // laid out and painted
        showNotes("<p>done</p>", "text/html"); // a request would have come before this one's
        QCOMPARE(m_server->targets(), (QVector<QByteArray>{"/notes", "/notes"}));
    }

    void pictureOfThisComputerIsNotShown()
    {
        QImage picture(10, 10, QImage::Format_RGB32);
        picture.fill(Qt::red);
        const QString path = testHome() + QStringLiteral("/tmp/picture.png");
        QVERIFY(picture.save(path));
        showNotes("<img src=\"" + QUrl::fromLocalFile(path).toEncoded() + "\">", "text/html");
        const QImage shown = notes().viewport()->grab().toImage();
        for (int y = 0; y < shown.height(); ++y) {
            for (int x = 0; x < shown.width(); ++x)
                QVERIFY(QColor(shown.pixel(x, y)) != QColor(Qt::red));
        }
    }

    void picturesLoseTheirNamesWhileTextAndOrderStay()
    {
        showNotes("<p>one<img src=\"//updates.example/share/a.png\">two<img src=\"b.png\"><img src=\"c.png\">three</p>",
                  "text/html");
        int pictures = 0;
        const QTextBlock block = notes().document()->firstBlock();
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextCharFormat format = it.fragment().charFormat();
            if (!format.isImageFormat())
                continue;
            pictures += it.fragment().length();
            QCOMPARE(format.toImageFormat().name(), QString());
        }
        QCOMPARE(pictures, 3);
        const QString object(QChar::ObjectReplacementCharacter);
        QCOMPARE(block.text(), QStringLiteral("one%1two%1%1three").arg(object));
    }

    void linkOpensInTheBrowserAndNotInTheBox()
    {
        showNotes("<p><a href=\"http://updates.example/all\">everything</a></p>", "text/html");
        clickLink(QStringLiteral("everything"));
        QCOMPARE(m_opened, QStringList{QStringLiteral("http://updates.example/all")});
        QCOMPARE(notes().toPlainText(), QStringLiteral("everything"));
    }

    void linkThatLeadsNowhereOnTheWebLeavesTheNotes_data()
    {
        QTest::addColumn<QByteArray>("link");
        QTest::newRow("relative") << QByteArrayLiteral("all.html");
        QTest::newRow("file") << QByteArrayLiteral("file:///etc/passwd");
        QTest::newRow("another program") << QByteArrayLiteral("smb://updates.example/orvel.exe");
        QTest::newRow("mail") << QByteArrayLiteral("mailto:ana@orvel.example");
        QTest::newRow("script") << QByteArrayLiteral("JavaScript:alert(1)");
        QTest::newRow("resource") << QByteArrayLiteral("qrc:/tls/server.crt");
    }
    void linkThatLeadsNowhereOnTheWebLeavesTheNotes()
    {
        QFETCH(QByteArray, link);
        showNotes("<p><a href=\"" + link + "\">everything</a></p>", "text/html");
        clickLink(QStringLiteral("everything"));
        QCOMPARE(notes().toPlainText(), QStringLiteral("everything"));
        QCOMPARE(m_opened, QStringList());
    }

    void linkWithinTheNotesScrollsThem()
    {
        showNotes("<p><a href=\"#end\">down</a></p>" + QByteArray("<p>line</p>").repeated(200) +
                      "<p><a name=\"end\">end</a></p>",
                  "text/html");
        QVERIFY(notes().verticalScrollBar()->value() == 0);
        clickLink(QStringLiteral("down"));
        QVERIFY(notes().verticalScrollBar()->value() > 0);
        QVERIFY(notes().toPlainText().contains(QLatin1String("down")));
        QCOMPARE(m_opened, QStringList());
    }

    void installOpensTheDownloadAddressAndCloses()
    {
        show();
        child<QPushButton>("install")->click();
        QCOMPARE(m_opened, QStringList{QStringLiteral("http://updates.example/orvel.exe?a=1")});
        EVENTUALLY(m_dialog.isNull());
        QVERIFY(!QSettings().contains(QStringLiteral("QtSparkle/skipped_version")));
        QCOMPARE(m_server->requests().size(), 0);
    }

    void installOpensNothingThatLiesOffTheWeb_data()
    {
        QTest::addColumn<QString>("address");
        QTest::newRow("file") << QStringLiteral("file:///bin/true");
        QTest::newRow("path") << QStringLiteral("/bin/true");
        QTest::newRow("share") << QStringLiteral("smb://updates.example/orvel.exe");
        QTest::newRow("script") << QStringLiteral("javascript:alert(1)");
        QTest::newRow("windows path") << QStringLiteral("C:/Windows/System32/calc.exe");
    }
    void installOpensNothingThatLiesOffTheWeb()
    {
        QFETCH(QString, address);
        const AppCastPtr appcast(new qtsparkle::AppCast);
        appcast->version = QStringLiteral("2.0");
        appcast->download_url = address;
        m_dialog->ShowUpdate(appcast);
        expectWarning(QStringLiteral("Update not opened: ") + QRegularExpression::escape(address));
        child<QPushButton>("install")->click();
        QCOMPARE(m_opened, QStringList());
        EVENTUALLY(m_dialog.isNull());
        QPointer<QMessageBox> box = window<QMessageBox>(); // stays when the dialog is gone
        QVERIFY(box);
        QVERIFY(box->isVisible());
        QVERIFY(box->parentWidget() == m_parent.get());
        QCOMPARE(box->icon(), QMessageBox::Warning);
        QCOMPARE(box->textFormat(), Qt::PlainText);
        QCOMPARE(box->windowTitle(), QString::fromUtf8("Posodobitve ni mogo\xc4\x8d"
                                                       "e namestiti"));
        QCOMPARE(box->text(), QStringLiteral("Naslov posodobitve ne vodi na splet:\n") + address);
        box->close();
        EVENTUALLY(box.isNull());
    }

    void installOpensAnEmptyAddressToo()
    {
        QDesktopServices::setUrlHandler(QString(), this, "recordUrl");
        const AppCastPtr appcast(new qtsparkle::AppCast);
        appcast->version = QStringLiteral("2.0");
        m_dialog->ShowUpdate(appcast);
        child<QPushButton>("install")->click();
        QDesktopServices::unsetUrlHandler(QString());
        QCOMPARE(m_opened, QStringList{QString()});
        EVENTUALLY(m_dialog.isNull());
        QVERIFY(!anyPrompt());
    }

    void skipStoresTheExactVersionAndCloses()
    {
        show(QString(), QStringLiteral(" 2.0-RC.1 "));
        child<QPushButton>("skip")->click();
        QCOMPARE(setting("skipped_version").toString(), QStringLiteral(" 2.0-RC.1 "));
        EVENTUALLY(m_dialog.isNull());
        QCOMPARE(m_opened, QStringList());
    }

    void laterClosesAndStoresNothing()
    {
        show();
        child<QPushButton>("later")->click();
        EVENTUALLY(m_dialog.isNull());
        QCOMPARE(QSettings().allKeys(), QStringList());
        QCOMPARE(m_opened, QStringList());
    }

    void closingByTheFrameStoresNothing()
    {
        show();
        m_dialog->close();
        EVENTUALLY(m_dialog.isNull());
        QCOMPARE(QSettings().allKeys(), QStringList());
    }

    void escapeClosesIt()
    {
        show();
        QTest::keyClick(m_dialog, Qt::Key_Escape);
        QVERIFY(m_dialog.isNull() || m_dialog->isHidden());
        EVENTUALLY(m_dialog.isNull());
    }

    void withoutAnUpdateTheButtonsOnlyClose()
    {
        m_dialog->QWidget::show();
        m_dialog->Install();
        QVERIFY(m_dialog->isHidden());
        m_dialog->QWidget::show();
        m_dialog->Skip();
        QCOMPARE(m_opened, QStringList());
        QCOMPARE(QSettings().allKeys(), QStringList());
    }

    void closingWhileTheNotesComeEndsTheDownloadOfASharedManager()
    {
        QNetworkAccessManager manager;
        m_dialog->SetNetworkAccessManager(&manager);
        m_server->hang(QStringLiteral("/notes"));
        show(m_server->url(QStringLiteral("/notes")).toString());
        EVENTUALLY_EQUAL(m_server->requests().size(), 1);
        m_dialog->close();
        EVENTUALLY(m_dialog.isNull());
        EVENTUALLY(manager.findChildren<QNetworkReply*>().isEmpty());
        EVENTUALLY_EQUAL(m_server->openConnections(), 0);
    }
};

QTEST_MAIN(UpdateDialogTest)
#include "updatedialog_test.moc"
