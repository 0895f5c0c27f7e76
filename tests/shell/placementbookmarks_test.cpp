#include "shell/placementbookmarks.h"

#include "tests/support/test.h"

using namespace placement;

namespace
{

const QString folder = QStringLiteral("/home/ana/Orvel Storage");
const QString icon = QStringLiteral("/home/ana/orvel.png");

const QByteArray places = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                          "<!DOCTYPE xbel>\n"
                          "<xbel xmlns:bookmark=\"http://www.freedesktop.org/standards/desktop-bookmarks\">\n"
                          " <!-- <bookmark href=\"file:///home/ana/Orvel%20Storage\"/> -->\n"
                          " <bookmark href=\"file:///home/ana\">\n"
                          "  <title>Doma \xF0\x9F\x8F\xA0 &amp; <![CDATA[<bookmark>]]></title>\n"
                          "  <info><metadata owner=\"http://www.kde.org\"><ID>1/0</ID><bookmark/></metadata></info>\n"
                          " </bookmark>\n"
                          " <separator/>\n"
                          " <folder><bookmark href=\"file:///deep\"><title>Deep</title></bookmark></folder>\n"
                          " <bookmark href='trash:/'><title>Ko\xC5\xA1</title></bookmark>\n"
                          "</xbel>\n"
                          "<!-- end -->\n";

QByteArray addedTo(const QByteArray& gtk, const QString& path)
{
    Bookmarks bookmarks = Bookmarks::fromGtk(gtk);
    bookmarks.add(path, Bookmarks::gtkEntry(path));
    return bookmarks.content();
}

QByteArray removedFrom(const QByteArray& gtk, const QString& path)
{
    Bookmarks bookmarks = Bookmarks::fromGtk(gtk);
    bookmarks.remove(path);
    return bookmarks.content();
}

QByteArray addedToPlaces(const QByteArray& xbel, const QString& path)
{
    Bookmarks bookmarks = Bookmarks::fromPlaces(xbel);
    bookmarks.add(path, Bookmarks::placesEntry(path, icon));
    return bookmarks.content();
}

QByteArray removedFromPlaces(const QByteArray& xbel, const QString& path)
{
    Bookmarks bookmarks = Bookmarks::fromPlaces(xbel);
    bookmarks.remove(path);
    return bookmarks.content();
}

} // namespace

class PlacementBookmarksTest final : public Test
{
    Q_OBJECT

    static void addNames()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("url");
        QTest::newRow("blank") << "/home/a b" << QByteArray("file:///home/a%20b");
        QTest::newRow("quotes") << "/a'b\"c" << QByteArray("file:///a'b%22c");
        QTest::newRow("percent") << "/100%20" << QByteArray("file:///100%2520");
        QTest::newRow("not ASCII") << QStringLiteral("/\u010De\u0161nja") << QByteArray("file:///%C4%8De%C5%A1nja");
        QTest::newRow("question and number sign") << "/a?b#c" << QByteArray("file:///a%3Fb%23c");
        QTest::newRow("markup") << "/<a>&b;" << QByteArray("file:///%3Ca%3E&b%3B");
        QTest::newRow("line break") << "/a\nb" << QByteArray("file:///a%0Ab");
    }

private slots:
    void folderIsFoundAgainByItsAddress_data()
    {
        addNames();
    }
    void folderIsFoundAgainByItsAddress()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, url);
        QCOMPARE(folderUrl(path).toLatin1(), url);
        QCOMPARE(folderOfUrl(folderUrl(path)), path);
    }

    void addressThatIsNotLocalLeadsToNoFolder()
    {
        QCOMPARE(folderOfUrl(QStringLiteral("sftp://host/home")), QString());
        QCOMPARE(folderOfUrl(QStringLiteral("/home")), QString());
        QCOMPARE(folderOfUrl(QString()), QString());
    }

    // GTK's file

    void bookmarkIsALineWithAddressAndName()
    {
        QCOMPARE(addedTo("", folder), QByteArray("file:///home/ana/Orvel%20Storage Orvel Storage\n"));
    }

    void bookmarkOfAnyNameStandsInOneLineAndGoesAgain_data()
    {
        addNames();
    }
    void bookmarkOfAnyNameStandsInOneLineAndGoesAgain()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, url);
        const QByteArray added = addedTo("file:///x\n", path);
        QVERIFY2(added.startsWith("file:///x\n" + url + ' '), added.constData());
        QCOMPARE(added.count('\n'), 2);
        QVERIFY(Bookmarks::fromGtk(added).contains(path));
        QCOMPARE(removedFrom(added, path), QByteArray("file:///x\n"));
    }

    void bookmarkComesAfterALastLineWithoutAnEnd()
    {
        QCOMPARE(addedTo("file:///x", QStringLiteral("/y")), QByteArray("file:///x\nfile:///y y\n"));
    }

    void otherLinesStayByteForByte()
    {
        const QByteArray before = "\nfile:///home/ana/Slike Moje slike\r\nnonsense\n# \xFF\xFE\n\n";
        const QByteArray after = "sftp://host/a b c\nfile:///home/ana/Orvel%20Storage/inside\n";
        const QByteArray ours = "file:///home/ana/Orvel%20Storage Orvel Storage\n";
        QCOMPARE(removedFrom(before + ours + after, folder), before + after);
        QCOMPARE(addedTo(before + after, folder), before + after + ours);
        QCOMPARE(addedTo(before + after, QStringLiteral("/y")), before + after + "file:///y y\n");
    }

    void bookmarkIsFoundInAnyEncodingAndUnderAnyLabel_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("small hexadecimal digits") << QByteArray("file:///home/ana%2forvel%c4%8d");
        QTest::newRow("not encoded") << QByteArray("file:///home/ana/orvel\xC4\x8D");
        QTest::newRow("encoded without need") << QByteArray("file:///%68ome/ana/orvel%C4%8D");
        QTest::newRow("slash at the end") << QByteArray("file:///home/ana/orvel%C4%8D/");
        QTest::newRow("label") << QByteArray("file:///home/ana/orvel%C4%8D Moj oblak");
    }
    void bookmarkIsFoundInAnyEncodingAndUnderAnyLabel()
    {
        QFETCH(QByteArray, line);
        const QString path = QStringLiteral("/home/ana/orvel\u010D");
        QVERIFY(Bookmarks::fromGtk(line).contains(path));
        QCOMPARE(removedFrom("file:///a\n" + line + "\nfile:///b", path), QByteArray("file:///a\nfile:///b"));
    }

    void nameThatIsShownAlreadyCountsAsThere()
    {
        QVERIFY(Bookmarks::fromGtk("file:///elsewhere/Orvel%20Storage\n").contains(folder));
        QVERIFY(Bookmarks::fromGtk("sftp://host/x Orvel Storage\n").contains(folder));
        QVERIFY(!Bookmarks::fromGtk("file:///elsewhere/Orvel%20Storage Old\n").contains(folder));
        QVERIFY(!Bookmarks::fromGtk("file:///home/ana/Orvel\n").contains(folder));
    }

    void bookmarkThatWasJustAddedIsThere()
    {
        Bookmarks bookmarks = Bookmarks::fromGtk("");
        bookmarks.add(folder, Bookmarks::gtkEntry(folder));
        QVERIFY(bookmarks.contains(folder));
        QVERIFY(bookmarks.contains(QStringLiteral("/elsewhere/Orvel Storage")));
        bookmarks.remove(folder);
        QVERIFY(!bookmarks.contains(folder));
        QCOMPARE(bookmarks.content(), QByteArray(""));
    }

    void removedBookmarkComesBackWhereItStoodAndWithItsLabel()
    {
        const QByteArray content = "file:///a\nfile:///home/ana/Orvel%20Storage Moj oblak\nfile:///b\n";
        Bookmarks bookmarks = Bookmarks::fromGtk(content);
        bookmarks.remove(folder);
        QVERIFY(!bookmarks.contains(folder));
        bookmarks.add(folder, Bookmarks::gtkEntry(folder));
        QCOMPARE(bookmarks.content(), content);
    }

    void fileWithZeroBytesIsLeftAlone()
    {
        const Bookmarks bookmarks = Bookmarks::fromGtk(QByteArray("file:///a\0b\n", 12));
        QVERIFY(!bookmarks.isValid());
        QVERIFY(!bookmarks.contains(QStringLiteral("/a")));
    }

    // KDE's file

    void placeComesLastAndNothingElseChanges()
    {
        const QByteArray added = addedToPlaces(places, folder);
        const int at = places.indexOf("</xbel>");
        QVERIFY(added.startsWith(places.left(at) + " <bookmark href=\"file:///home/ana/Orvel%20Storage\">\n"));
        QVERIFY(added.endsWith(" </bookmark>\n" + places.mid(at)));
        QVERIFY(added.contains("<title>Orvel Storage</title>"));
        QVERIFY(added.contains("name=\"/home/ana/orvel.png\""));
        QCOMPARE(removedFromPlaces(added, folder), places);
    }

    void placeOfAnyNameIsFoundAgain_data()
    {
        addNames();
    }
    void placeOfAnyNameIsFoundAgain()
    {
        QFETCH(QString, path);
        const Bookmarks bookmarks = Bookmarks::fromPlaces(addedToPlaces(places, path));
        QVERIFY(bookmarks.isValid());
        QVERIFY(bookmarks.contains(path));
        QCOMPARE(removedFromPlaces(addedToPlaces(places, path), path), places);
    }

    void placesOfOthersAreReadButNotThoseInsideOfThem()
    {
        const Bookmarks bookmarks = Bookmarks::fromPlaces(places);
        QVERIFY(bookmarks.contains(QStringLiteral("/home/ana")));
        QVERIFY(bookmarks.contains(QStringLiteral("/elsewhere/Ko\u0161")));
        QVERIFY(bookmarks.contains(QStringLiteral("/Doma \U0001F3E0 & <bookmark>")));
        QVERIFY(!bookmarks.contains(QStringLiteral("/deep")));
        QVERIFY(!bookmarks.contains(folder)); // in a comment
    }

    void nameOfAPlaceIsItsOwnTitle()
    {
        const auto contains = [](const char* list) {
            return Bookmarks::fromPlaces(QByteArray("<xbel>") + list + "</xbel>").contains(folder);
        };
        QVERIFY(contains("<bookmark href=\"sftp://h/x\"><desc>x</desc><title>Orvel Storage</title></bookmark>"));
        QVERIFY(!contains("<bookmark href=\"sftp://h/x\"><desc>Orvel Storage</desc></bookmark>"));
        QVERIFY(!contains("<bookmark href=\"sftp://h/x\"/><folder><title>Orvel Storage</title></folder>"));
    }

    void removedPlaceTakesItsLinesAndNoOtherByte_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("place");
        QTest::addColumn<QByteArray>("after");
        const QByteArray xbel = "<xbel>\n";
        const QByteArray end = "</xbel>";
        const QByteArray place = "<bookmark href=\"file:///home/ana/Orvel%20Storage\"/>";
        QTest::newRow("line") << xbel << "\t " + place + " \n" << end;
        QTest::newRow("carriage returns") << QByteArray("<xbel>\r\n") << place + "\r\n" << QByteArray("</xbel>\r\n");
        QTest::newRow("between others") << xbel + " <bookmark href=\"file:///a\"/> " << place
                                        << " <bookmark href=\"file:///b\"/>\n" + end;
        QTest::newRow("last in its line") << xbel + "<bookmark href=\"file:///a\"/>" << place << "\n" + end;
        QTest::newRow("all in one line") << QByteArray("<xbel>") << place << end;
        QTest::newRow("after wide characters") << xbel + "<!-- \xC5\xA1 \xF0\x9F\x8F\xA0 -->\n" << place + "\n" << end;
        QTest::newRow("after references") << xbel + "<title>&lt;&#x161;&amp;</title>\n" << place + "\n" << end;
        QTest::newRow("angle bracket in an attribute") << xbel << "<bookmark note=\">\" " + place.mid(10) + "\n" << end;
    }
    void removedPlaceTakesItsLinesAndNoOtherByte()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, place);
        QFETCH(QByteArray, after);
        QCOMPARE(removedFromPlaces(before + place + after, folder), before + after);
    }

    void removedPlaceComesBackWhereItStood()
    {
        const QByteArray content = addedToPlaces(places, folder).replace("<title>Orvel", "<title>Moj");
        Bookmarks bookmarks = Bookmarks::fromPlaces(content);
        bookmarks.remove(folder);
        bookmarks.add(folder, Bookmarks::placesEntry(folder, icon));
        QCOMPARE(bookmarks.content(), content);
    }

    void placeFitsIntoAnEmptyListToo()
    {
        const QByteArray added = addedToPlaces("<xbel></xbel>", folder);
        QVERIFY(Bookmarks::fromPlaces(added).contains(folder));
    }

    void malformedPlacesAreLeftAlone_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("no XML") << QByteArray("file:///home\n");
        QTest::newRow("cut off") << places.left(places.indexOf("</xbel>"));
        QTest::newRow("tags that do not match") << QByteArray("<xbel><bookmark></xbel>");
        QTest::newRow("two documents") << places + places;
        QTest::newRow("another document") << QByteArray("<html></html>");
        QTest::newRow("closed at once") << QByteArray("<?xml version=\"1.0\"?>\n<xbel/>");
        QTest::newRow("not UTF-8") << QByteArray("<xbel><!-- \xE8 --></xbel>");
        QTest::newRow("another encoding") << QByteArray("<?xml version=\"1.0\" encoding=\"ISO-8859-2\"?><xbel></xbel>");
        QTest::newRow("entities of its own")
            << QByteArray("<!DOCTYPE xbel [<!ENTITY e \"<bookmark href='file:///x'/>\">]><xbel>&e;</xbel>");
        QTest::newRow("unknown entity") << QByteArray("<xbel>&e;</xbel>");
        QTest::newRow("zero byte") << QByteArray("<xbel>\0</xbel>", 14);
    }
    void malformedPlacesAreLeftAlone()
    {
        QFETCH(QByteArray, content);
        Bookmarks bookmarks = Bookmarks::fromPlaces(content);
        QVERIFY(!bookmarks.isValid());
        bookmarks.remove(folder);
        bookmarks.add(folder, Bookmarks::placesEntry(folder, icon));
        QVERIFY(!bookmarks.contains(folder));
        QCOMPARE(bookmarks.content(), QByteArray(""));
    }
};

QTEST_MAIN(PlacementBookmarksTest)
#include "placementbookmarks_test.moc"
