#include "tests/support/test.h"
#include "ui/guide.h"
#include "ui/traystatus.h"

#include <QLabel>
#include <QProcess>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>

namespace
{

struct Message
{
    QString context;
    QString source;
    bool numerus = false;
};

QList<Message> readMessages(const QString& path)
{
    QList<Message> messages;
    const QByteArray content = readFile(path);
    QXmlStreamReader reader(content);
    QString context;
    bool numerus = false;
    while (!reader.atEnd()) {
        if (!reader.readNextStartElement())
            continue;
        if (reader.name() == QLatin1String("name"))
            context = reader.readElementText();
        else if (reader.name() == QLatin1String("message"))
            numerus = reader.attributes().value(QStringLiteral("numerus")) == QLatin1String("yes");
        else if (reader.name() == QLatin1String("source"))
            messages << Message{context, reader.readElementText(), numerus};
    }
    return messages;
}

} // namespace

class TranslationTest final : public Test
{
    Q_OBJECT

    /// As the program loads them.
    static bool loadSlovenian(QTranslator& translator)
    {
        return translator.load(QLocale(QLocale::Slovenian, QLocale::AnyCountry), QStringLiteral(":/language"));
    }

    static QString translated(const QTranslator& translator, const Message& message, int n = -1)
    {
        return translator.translate(message.context.toUtf8().constData(), message.source.toUtf8().constData(), nullptr,
                                    n);
    }

private slots:
    void everySourceTextIsTranslatedInAllItsForms()
    {
        QTranslator slovenian;
        QVERIFY(loadSlovenian(slovenian));

        const QTemporaryDir scratch;
        const QString file = scratch.filePath(QStringLiteral("texts.ts"));
        QStringList arguments;
        for (const char* folder : {"app", "engine", "shell", "syncfolder", "ui", "update"})
            arguments << QStringLiteral(ORVEL_SOURCE_DIR "/") + QLatin1String(folder);
        arguments << QStringLiteral("-I" ORVEL_SOURCE_DIR) << QStringLiteral("-silent") << QStringLiteral("-extensions")
                  << QStringLiteral("cpp,h") << QStringLiteral("-ts") << file;
        QCOMPARE(QProcess::execute(QStringLiteral(ORVEL_LUPDATE), arguments), 0);

        const QList<Message> messages = readMessages(file);
        QVERIFY(messages.size() > 60);
        for (const Message& message : messages) {
            const QString name = message.context + QStringLiteral(": ") + message.source;
            if (!message.numerus) {
                QVERIFY2(!translated(slovenian, message).isEmpty(), qPrintable(name));
                continue;
            }
            for (const int n : {1, 2, 3, 4, 5, 100, 101, 102})
                QVERIFY2(!translated(slovenian, message, n).isEmpty(), qPrintable(name));
        }
    }

    void fourPluralFormsFollowTheNumber_data()
    {
        QTest::addColumn<int>("uploads");
        QTest::addColumn<QString>("line");
        QTest::newRow("one") << 1 << "1 datoteka se prenaša v oblak";
        QTest::newRow("two") << 2 << "2 datoteki se prenašata v oblak";
        QTest::newRow("three") << 3 << "3 datoteke se prenašajo v oblak";
        QTest::newRow("four") << 4 << "4 datoteke se prenašajo v oblak";
        QTest::newRow("five") << 5 << "5 datotek se prenaša v oblak";
        QTest::newRow("a hundred and two") << 102 << "102 datoteki se prenašata v oblak";
        QTest::newRow("eleven") << 11 << "11 datotek se prenaša v oblak";
    }
    void fourPluralFormsFollowTheNumber()
    {
        QFETCH(int, uploads);
        QFETCH(QString, line);
        QTranslator slovenian;
        QVERIFY(loadSlovenian(slovenian));
        QCoreApplication::installTranslator(&slovenian);
        EngineState state;
        state.netState = QStringLiteral("transferring");
        state.uploads = uploads;
        const QString toolTip = trayStatus(state, QStringLiteral("Orvel Storage"))->toolTip;
        QCoreApplication::removeTranslator(&slovenian);
        QCOMPARE(toolTip, QStringLiteral("Orvel Storage\n") + line + u'\n');
    }

    void namesThatFoldersAndSettingsBearAreNotTranslated()
    {
        QTranslator slovenian;
        QVERIFY(loadSlovenian(slovenian));
        for (const char* name : {"Orvel Storage", "Velmora d.d.", "/kesta/vse", "/datoteke/vse"})
            QCOMPARE(slovenian.translate("DialogCld", name), QString::fromUtf8(name));
    }

    void guideTellsItsLongerStoryInSlovenian()
    {
        QTranslator slovenian;
        QVERIFY(loadSlovenian(slovenian));
        QCoreApplication::installTranslator(&slovenian);
        const Guide guide(nullptr);
        QStringList texts;
        for (const auto* label : guide.findChildren<QLabel*>())
            texts << label->text();
        QCoreApplication::removeTranslator(&slovenian);
        QVERIFY(texts.contains(QStringLiteral("Korak 1 od 4")));
        QVERIFY(!texts.filter(QStringLiteral("posebna mapa na vašem računalniku")).isEmpty());
    }

    void englishTranslationLeavesTheSourceTextsStanding()
    {
        QTranslator english;
        QVERIFY(english.load(QStringLiteral(":/language-en")));
        QCoreApplication::installTranslator(&english);
        const Guide guide(nullptr);
        QStringList texts;
        for (const auto* label : guide.findChildren<QLabel*>())
            texts << label->text();
        QCoreApplication::removeTranslator(&english);
        QVERIFY(texts.contains(QStringLiteral("Step 1 of 4")));
        QVERIFY(texts.contains(QStringLiteral("Orvel Storage is a special folder on your computer.....")));
        QVERIFY(english.translate("DialogCld", "Login").isEmpty());
    }
};

QTEST_MAIN(TranslationTest)
#include "translation_test.moc"
