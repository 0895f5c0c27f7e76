#include "update/appcast.h"

#include "tests/support/test.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QSet>

using qtsparkle::AppCast;

namespace
{

/// Gives its bytes one at a time, as slow a source as there is.
class Trickle final : public QIODevice
{
public:
    explicit Trickle(const QByteArray& bytes)
        : m_bytes(bytes)
    {
        open(QIODevice::ReadOnly);
    }
    bool isSequential() const override
    {
        return true;
    }
    bool atEnd() const override
    {
        return m_position == m_bytes.size();
    }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        if (atEnd() || size == 0)
            return 0;
        *data = m_bytes.at(m_position++);
        return 1;
    }
    qint64 writeData(const char* /*data*/, qint64 /*size*/) override
    {
        return -1;
    }

private:
    QByteArray m_bytes;
    int m_position = 0;
};

QByteArray feed(const QString& name)
{
    QFile file(QStringLiteral(":/appcast/") + name + QStringLiteral(".xml"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no feed %s", qPrintable(name));
    return file.readAll();
}

bool load(AppCast& appcast, QByteArray bytes)
{
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    return appcast.Load(&buffer);
}

QStringList feeds()
{
    QStringList names;
    for (const QString& file : QDir(QStringLiteral(":/appcast")).entryList())
        names << QString(file).remove(QStringLiteral(".xml"));
    return names;
}

const char* const host = "http://updates.example/";

/// What every well-formed feed among the test data has to give.
struct Expected
{
    const char* name;
    const char* version;
    const char* download; // without the host
    const char* notes;    // without the host
};

// clang-format off
const Expected wellFormed[] = {
    {"one-item", "2.0", "orvel-2.0.exe", "notes/2.0.html"},
    {"line-ends-of-windows", "2.0", "orvel-2.0.exe", "notes/2.0.html"},
    {"newest-in-the-middle", "1.10", "orvel-1.10.exe", "notes/1.10.html"},
    {"newest-first", "3.0", "orvel-3.0.exe", "notes/3.0.html"},
    {"newest-last", "3.0", "orvel-3.0.exe", "notes/3.0.html"},
    {"release-beside-its-candidates", "2.0", "orvel-2.0.exe", "notes/2.0.html"},
    {"equal-versions", "2.0", "first.exe", "first.html"},
    {"letter-first", "", "", ""},
    {"letter-first-beside-a-number", "0.1", "orvel-0.1.exe", "notes/0.1.html"},
    {"empty-version", "", "", ""},
    {"no-items", "", "", ""},
    {"no-enclosure", "", "", ""},
    {"notes-after-the-enclosure", "2.0", "orvel.exe", ""},
    {"two-enclosures", "2.0", "first.exe", "notes.html"},
    {"enclosure-with-content", "2.0", "orvel.exe", "notes.html"},
    {"two-notes", "2.0", "orvel.exe", "last.html"},
    {"notes-in-another-namespace", "2.0", "orvel.exe", ""},
    {"notes-with-blanks-and-cdata", "2.0", "orvel.exe?a=1&b=2", "notes?a=1&b=2"},
    {"other-prefix", "2.0", "orvel.exe", "notes.html"},
    {"prefix-of-another-namespace", "", "", ""},
    {"attributes-in-other-namespaces", "2.0", "orvel.exe", ""},
    {"default-namespaces", "2.0", "orvel.exe", "notes.html"},
    {"item-as-the-root", "2.0", "orvel.exe", "notes.html"},
    {"item-deep-inside", "2.0", "orvel.exe", ""},
    {"item-within-an-item", "2.0", "outer.exe", ""},
    {"enclosure-inside-another-element", "2.0", "orvel.exe", ""},
    {"enclosure-outside-of-items", "", "", ""},
    {"enclosure-in-another-namespace", "2.0", "orvel.exe", ""},
    {"description-in-html", "2.0", "orvel.exe", "notes.html"},
    {"notes-of-the-winner-only", "2.0", "", ""},
    {"comments-and-instructions", "2.0", "orvel.exe", ""},
    {"own-entities", "2.0", "orvel.exe", "notes.html"},
    {"encoding-utf8-with-a-mark", "2.0\xc4\x8d", "orvel-\xc4\x8d.exe", "novosti-\xc4\x8d.html"},
    {"encoding-utf16", "2.0\xc4\x8d", "orvel-\xc4\x8d.exe", "novosti-\xc4\x8d.html"},
    {"encoding-latin2", "2.0\xc4\x8d", "orvel-\xc4\x8d.exe", "novosti-\xc4\x8d.html"},
    {"encoding-windows1250", "2.0\xc4\x8d", "orvel-\xc4\x8d.exe", "novosti-\xc4\x8d.html"},
};
// clang-format on

QString address(const char* rest)
{
    return *rest == '\0' ? QString() : QString::fromUtf8(QByteArray(host) + rest);
}

} // namespace

class AppCastTest final : public Test
{
    Q_OBJECT

private:
    static void addWellFormed(const char* leftOut = nullptr)
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("download");
        QTest::addColumn<QString>("notes");
        for (const Expected& expected : wellFormed) {
            if (leftOut != nullptr && QByteArray(expected.name).startsWith(leftOut))
                continue;
            QTest::newRow(expected.name) << QString::fromLatin1(expected.name) << QString::fromUtf8(expected.version)
                                         << address(expected.download) << address(expected.notes);
        }
    }

private slots:
    void everyFeedHasItsExpectation()
    {
        QSet<QString> expected{QStringLiteral("external-entity"), QStringLiteral("appcast.qrc")};
        for (const Expected& one : wellFormed)
            expected << QString::fromLatin1(one.name);
        for (const QString& name : feeds())
            QVERIFY2(expected.contains(name) || name.startsWith(QLatin1String("malformed-")), qPrintable(name));
    }

    void wellFormedFeedGivesItsNewestItem_data()
    {
        addWellFormed();
    }
    void wellFormedFeedGivesItsNewestItem()
    {
        QFETCH(QString, name);
        QFETCH(QString, download);
        AppCast appcast;
        QVERIFY(load(appcast, feed(name)));
        QTEST(appcast.version, "version");
        QCOMPARE(appcast.download_url.trimmed(), download);
        QTEST(appcast.release_notes_url, "notes");
        QCOMPARE(appcast.error_reason, QString());
    }

    void feedThatComesByteByByteGivesTheSame_data()
    {
        addWellFormed("encoding-"); // Qt tells the encoding by the first bytes that come together
    }
    void feedThatComesByteByByteGivesTheSame()
    {
        QFETCH(QString, name);
        Trickle trickle(feed(name));
        AppCast appcast;
        QVERIFY(appcast.Load(&trickle));
        QTEST(appcast.version, "version");
        QTEST(appcast.release_notes_url, "notes");
    }

    void itemsOfTheVersions12And110And19Choose110()
    {
        AppCast appcast;
        QVERIFY(load(appcast, feed(QStringLiteral("newest-in-the-middle"))));
        QCOMPARE(appcast.version, QStringLiteral("1.10"));
    }

    void itemWhoseVersionBeginsWithALetterOrIsEmptyNeverWins()
    {
        for (const char* name : {"letter-first", "empty-version"}) {
            AppCast appcast;
            QVERIFY(load(appcast, feed(QString::fromLatin1(name))));
            QVERIFY(appcast.version.isEmpty());
            QVERIFY(appcast.download_url.isEmpty());
        }
    }

    void downloadAddressIsTakenAsItStands()
    {
        AppCast appcast;
        QVERIFY(load(appcast, feed(QStringLiteral("notes-with-blanks-and-cdata"))));
        QCOMPARE(appcast.download_url, QStringLiteral(" http://updates.example/orvel.exe?a=1&b=2 "));
    }

    void malformedFeedFailsWithTheReadersReason_data()
    {
        QTest::addColumn<QString>("name");
        for (const QString& name : feeds()) {
            if (name.startsWith(QLatin1String("malformed-")))
                QTest::newRow(qPrintable(name)) << name;
        }
    }
    void malformedFeedFailsWithTheReadersReason()
    {
        QFETCH(QString, name);
        AppCast appcast;
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!load(appcast, feed(name)));
        QVERIFY(!appcast.error_reason.isEmpty());
        QVERIFY(clock.elapsed() < deadline());
    }

    void emptyBodyIsAPrematureEnd()
    {
        AppCast appcast;
        QVERIFY(!load(appcast, QByteArray()));
        QCOMPARE(appcast.error_reason, QStringLiteral("Premature end of document."));
    }

    void externalEntityIsNotRead()
    {
        AppCast appcast;
        load(appcast, feed(QStringLiteral("external-entity")));
        QCOMPARE(appcast.release_notes_url, QString());
    }

    void entityBombIsStoppedByTheReadersLimit()
    {
        AppCast appcast;
        QVERIFY(!load(appcast, feed(QStringLiteral("malformed-entity-bomb"))));
        QVERIFY2(appcast.error_reason.contains(QLatin1String("entity expansion limit")),
                 qPrintable(appcast.error_reason));
        QVERIFY(appcast.release_notes_url.size() < 100000);
    }

    void feedCutAtAnyByteFails_data()
    {
        QTest::addColumn<QString>("name");
        for (const char* name :
             {"newest-in-the-middle", "description-in-html", "own-entities", "encoding-utf16", "item-as-the-root"})
            QTest::newRow(name) << QString::fromLatin1(name);
    }
    void feedCutAtAnyByteFails()
    {
        QFETCH(QString, name);
        const QByteArray whole = feed(name);
        // Nothing but white space may be left out after the last tag.
        const int unit = name == QLatin1String("encoding-utf16") ? 2 : 1;
        const int complete = whole.lastIndexOf('>') + unit;
        for (int length = 0; length < whole.size(); ++length) {
            AppCast appcast;
            const bool loaded = load(appcast, whole.left(length));
            QVERIFY2(loaded == (length >= complete), qPrintable(QString::number(length)));
            QVERIFY(loaded == appcast.error_reason.isEmpty());
        }
    }

    void feedWithAnyByteReplacedNeitherCrashesNorHangs_data()
    {
        QTest::addColumn<int>("byte");
        for (const int byte : {0x00, 0x20, 0x22, 0x26, 0x3c, 0x3e, 0xff})
            QTest::addRow("%02x", byte) << byte;
    }
    void feedWithAnyByteReplacedNeitherCrashesNorHangs()
    {
        QFETCH(int, byte);
        const QByteArray whole = feed(QStringLiteral("one-item"));
        for (int i = 0; i < whole.size(); ++i) {
            QByteArray broken = whole;
            broken[i] = static_cast<char>(byte);
            AppCast appcast;
            const bool loaded = load(appcast, broken);
            QVERIFY2(loaded == appcast.error_reason.isEmpty(), qPrintable(QString::number(i)));
        }
    }

    void loadingAgainForgetsWhatWasLoadedBefore()
    {
        AppCast appcast;
        QVERIFY(load(appcast, feed(QStringLiteral("newest-first"))));
        QVERIFY(load(appcast, feed(QStringLiteral("notes-after-the-enclosure"))));
        QCOMPARE(appcast.version, QStringLiteral("2.0"));
        QCOMPARE(appcast.release_notes_url, QString());
        QVERIFY(!load(appcast, QByteArray()));
        QCOMPARE(appcast.version, QString());
        QCOMPARE(appcast.download_url, QString());
        QVERIFY(load(appcast, feed(QStringLiteral("one-item"))));
        QCOMPARE(appcast.error_reason, QString());
    }

    void megabyteOfJunkFails()
    {
        AppCast appcast;
        QByteArray junk;
        quint32 state = 20261121;
        while (junk.size() < 1024 * 1024) {
            state = state * 1664525U + 1013904223U;
            junk += static_cast<char>(state >> 24U);
        }
        QVERIFY(!load(appcast, junk));
        QVERIFY(!appcast.error_reason.isEmpty());
    }

    void megabyteOfDeeplyNestedElementsIsReadThrough()
    {
        const int depth = 100000;
        const QByteArray opened = QByteArray("<a>").repeated(depth);
        const QByteArray closed = QByteArray("</a>").repeated(depth);
        AppCast appcast;
        QVERIFY(load(appcast, opened + feed(QStringLiteral("item-as-the-root")) + closed));
        QCOMPARE(appcast.version, QStringLiteral("2.0"));
        QVERIFY(!load(appcast, opened));
        QVERIFY(load(appcast, "<item>" + opened + closed + "</item>"));
    }

    void megabyteOfItemsGivesTheNewest()
    {
        QByteArray text = "<rss xmlns:s=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">";
        for (int i = 1; i <= 20000; ++i)
            text += "<item><enclosure url=\"u\" s:version=\"1." + QByteArray::number(i) + "\"/></item>";
        AppCast appcast;
        QVERIFY(load(appcast, text + "</rss>"));
        QCOMPARE(appcast.version, QStringLiteral("1.20000"));
    }
};

QTEST_GUILESS_MAIN(AppCastTest)
#include "appcast_test.moc"
