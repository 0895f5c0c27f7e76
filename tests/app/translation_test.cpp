#include "syncfolder/folderchooser.h"
#include "tests/support/test.h"
#include "ui/guide.h"
#include "ui/traystatus.h"
#include "update/appcast.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QComboBox>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QTimer>
#include <QTranslator>
#include <QXmlStreamReader>

#include <memory>

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

enum Language
{
    Slovenian,
    English
};

/// The program's translation, loaded as the program does it, for as long as this lives.
class Translation final
{
    Q_DISABLE_COPY_MOVE(Translation)

public:
    explicit Translation(Language language)
    {
        const bool loaded = language == Slovenian ? m_translator.load(QLocale(QLocale::Slovenian, QLocale::AnyCountry),
                                                                      QStringLiteral(":/language"))
                                                  : m_translator.load(QStringLiteral(":/language-en"));
        if (!loaded)
            qFatal("no translation");
        QCoreApplication::installTranslator(&m_translator);
    }
    ~Translation()
    {
        QCoreApplication::removeTranslator(&m_translator);
    }

private:
    QTranslator m_translator;
};

/// What a menu says, joined by commas and without the shortcuts. The menu is destroyed.
QString textsOf(QMenu* menu)
{
    const std::unique_ptr<QMenu> owned(menu);
    QStringList texts;
    for (const QAction* action : owned->actions()) {
        if (!action->isSeparator())
            texts << action->text().section(u'\t', 0, 0);
    }
    return texts.join(QStringLiteral(", "));
}

/// What the dialog that asks for a folder says, in a fixed order.
QStringList textsOfFolderDialog()
{
    QStringList texts;
    QTimer::singleShot(0, qApp, [&] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr)
            return;
        for (const auto* label : dialog->findChildren<QLabel*>())
            texts << label->text();
        for (const auto* button : dialog->findChildren<QAbstractButton*>())
            texts << button->text() << button->toolTip() << button->accessibleName() << button->accessibleDescription();
        for (const auto* action : dialog->findChildren<QAction*>())
            texts << action->text();
        const auto* columns = dialog->findChild<QFileSystemModel*>();
        for (int column = 0; column < columns->columnCount(); ++column)
            texts << columns->headerData(column, Qt::Horizontal).toString();
        texts << columns->myComputer().toString();
        texts << dialog->findChild<QComboBox*>(QStringLiteral("fileTypeCombo"))->itemText(0);
        dialog->reject();
    });
    const QTemporaryDir start;
    folderchooser::ask(nullptr, QStringLiteral("?"), start.path());
    texts.removeAll(QString());
    return texts;
}

/// Why a feed of this text cannot be read.
QString complaintAbout(const QByteArray& feed)
{
    QBuffer device;
    device.setData(feed);
    device.open(QIODevice::ReadOnly);
    qtsparkle::AppCast appcast;
    return appcast.Load(&device) ? QString() : appcast.error_reason;
}

} // namespace

Q_DECLARE_METATYPE(Language)

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
    void everySourceTextIsTranslatedInAllItsForms_data()
    {
        const QStringList own{QStringLiteral("app"),        QStringLiteral("engine"), QStringLiteral("shell"),
                              QStringLiteral("syncfolder"), QStringLiteral("ui"),     QStringLiteral("update")};
        QTest::addColumn<QString>("translation");
        QTest::addColumn<QStringList>("folders");
        QTest::newRow("sl") << ":/language" << own + QStringList{QStringLiteral("resources/translations")};
        QTest::newRow("en") << ":/language-en" << own; // Qt's own texts are English
    }
    void everySourceTextIsTranslatedInAllItsForms()
    {
#ifdef Q_OS_WIN
        QSKIP("the program that reads the sources is not one of this system's");
#endif
        QFETCH(QString, translation);
        QFETCH(QStringList, folders);
        QTranslator translator;
        QVERIFY(translator.load(translation));

        const QTemporaryDir scratch;
        const QString file = scratch.filePath(QStringLiteral("texts.ts"));
        QStringList arguments;
        for (const QString& folder : qAsConst(folders))
            arguments << QStringLiteral(ORVEL_SOURCE_DIR "/") + folder;
        arguments << QStringLiteral("-I" ORVEL_SOURCE_DIR) << QStringLiteral("-silent") << QStringLiteral("-extensions")
                  << QStringLiteral("cpp,h") << QStringLiteral("-ts") << file;
        QCOMPARE(QProcess::execute(QStringLiteral(ORVEL_LUPDATE), arguments), 0);

        const QList<Message> messages = readMessages(file);
        QVERIFY(messages.size() > 60);
        for (const Message& message : messages) {
            const QString name = message.context + QStringLiteral(": ") + message.source;
            if (!message.numerus) {
                QVERIFY2(!translated(translator, message).isEmpty(), qPrintable(name));
                continue;
            }
            for (const int n : {1, 2, 3, 4, 5, 100, 101, 102})
                QVERIFY2(!translated(translator, message, n).isEmpty(), qPrintable(name));
        }
    }

    void pluralFormsFollowTheNumber_data()
    {
        QTest::addColumn<int>("uploads");
        QTest::addColumn<QString>("line");
        QTest::addColumn<Language>("language");
        QTest::newRow("one") << 1 << "1 datoteka se prenaša v oblak" << Slovenian;
        QTest::newRow("two") << 2 << "2 datoteki se prenašata v oblak" << Slovenian;
        QTest::newRow("three") << 3 << "3 datoteke se prenašajo v oblak" << Slovenian;
        QTest::newRow("four") << 4 << "4 datoteke se prenašajo v oblak" << Slovenian;
        QTest::newRow("five") << 5 << "5 datotek se prenaša v oblak" << Slovenian;
        QTest::newRow("a hundred and two") << 102 << "102 datoteki se prenašata v oblak" << Slovenian;
        QTest::newRow("eleven") << 11 << "11 datotek se prenaša v oblak" << Slovenian;
        QTest::newRow("one in English") << 1 << "1 file is being uploaded to the cloud" << English;
        QTest::newRow("two in English") << 2 << "2 files are being uploaded to the cloud" << English;
    }
    void pluralFormsFollowTheNumber()
    {
        QFETCH(int, uploads);
        QFETCH(QString, line);
        QFETCH(Language, language);
        const Translation translation(language);
        EngineState state;
        state.netState = QStringLiteral("transferring");
        state.uploads = uploads;
        const QString toolTip = trayStatus(state, QStringLiteral("Orvel Storage"))->toolTip;
        QCOMPARE(toolTip, QStringLiteral("Orvel Storage\n") + line + u'\n');
    }

    void namesThatFoldersAndSettingsBearAreNotTranslated()
    {
        for (const Language language : {Slovenian, English}) {
            const Translation translation(language);
            for (const char* name : {"Orvel Storage", "Velmora d.d.", "/kesta/vse", "/datoteke/vse"})
                QCOMPARE(QCoreApplication::translate("DialogCld", name), QString::fromUtf8(name));
        }
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

    void englishReadsLikeEnglish()
    {
        const Translation translation(English);
        const Guide guide(nullptr);
        QStringList texts;
        for (const auto* label : guide.findChildren<QLabel*>())
            texts << label->text();
        QVERIFY(texts.contains(QStringLiteral("Step 1 of 4")));
        QVERIFY(!texts.filter(QStringLiteral("travels to the cloud by itself")).isEmpty());
        for (const Message& message :
             readMessages(QStringLiteral(ORVEL_SOURCE_DIR "/resources/translations/orvel_en.ts"))) {
            const QString text = QCoreApplication::translate(message.context.toUtf8().constData(),
                                                             message.source.toUtf8().constData(), nullptr, 1);
            static const QRegularExpression unlikely(
                QStringLiteral("[\u010d\u0161\u017e\u010c\u0160\u017d]|accunt|posible|destop|\\.\\.\\.|  |[\"']"));
            QVERIFY2(!unlikely.match(text).hasMatch(), qPrintable(text));
        }
    }

    void guideShowsThePicturesOfItsLanguage_data()
    {
        QTest::addColumn<Language>("language");
        QTest::addColumn<QString>("pictures");
        QTest::newRow("sl") << Slovenian << ":/guide%1-sl.png";
        QTest::newRow("en") << English << ":/guide%1.png";
    }
    void guideShowsThePicturesOfItsLanguage()
    {
        QFETCH(Language, language);
        QFETCH(QString, pictures);
        const Translation translation(language);
        Guide guide(nullptr);
        for (int step = 1; step <= 4; ++step) {
            const QImage expected(pictures.arg(step));
            QVERIFY(!expected.isNull());
            int shown = 0;
            for (const auto* label : guide.findChildren<QLabel*>()) {
                if (!label->pixmap(Qt::ReturnByValue).isNull()) {
                    ++shown;
                    QCOMPARE(label->pixmap(Qt::ReturnByValue).toImage(), QPixmap(pictures.arg(step)).toImage());
                }
            }
            QCOMPARE(shown, 1);
            QVERIFY(QMetaObject::invokeMethod(&guide, "moveForward"));
        }
    }

    void guidesPicturesDifferInLanguageOnlyAndAreTwiceAsFineForFineScreens()
    {
        for (int step = 1; step <= 4; ++step) {
            const QImage english(QStringLiteral(":/guide%1.png").arg(step));
            const QImage slovenian(QStringLiteral(":/guide%1-sl.png").arg(step));
            QVERIFY(!english.isNull());
            QVERIFY(english != slovenian);
            QCOMPARE(slovenian.size(), english.size());
            QCOMPARE(QImage(QStringLiteral(":/guide%1@2x.png").arg(step)).size(), english.size() * 2);
            QCOMPARE(QImage(QStringLiteral(":/guide%1-sl@2x.png").arg(step)).size(), english.size() * 2);
        }
    }

    // What Qt itself says

    void buttonsOfMessageBoxesSpeakTheLanguage_data()
    {
        QTest::addColumn<Language>("language");
        QTest::addColumn<QString>("texts");
        QTest::newRow("sl") << Slovenian << "V redu, Prekliči, Zapri, &Da, &Ne";
        QTest::newRow("en") << English << "OK, Cancel, Close, &Yes, &No";
    }
    void buttonsOfMessageBoxesSpeakTheLanguage()
    {
        QFETCH(Language, language);
        QFETCH(QString, texts);
        const Translation translation(language);
        QStringList shown;
        for (const auto button :
             {QMessageBox::Ok, QMessageBox::Cancel, QMessageBox::Close, QMessageBox::Yes, QMessageBox::No}) {
            const QMessageBox box(QMessageBox::Information, QString(), QString(), button);
            shown << box.button(button)->text();
        }
        QCOMPARE(shown.join(QStringLiteral(", ")), texts);
    }

    void contextMenusSpeakTheLanguage_data()
    {
        QTest::addColumn<Language>("language");
        QTest::addColumn<QString>("lineEdit");
        QTest::addColumn<QString>("releaseNotes");
        QTest::newRow("sl") << Slovenian << "&Razveljavi, &Uveljavi, &Izreži, &Kopiraj, &Prilepi, Izbriši, Izberi vse"
                            << "&Kopiraj, Kopiraj &naslov povezave, Izberi vse";
        QTest::newRow("en") << English << "&Undo, &Redo, Cu&t, &Copy, &Paste, Delete, Select All"
                            << "&Copy, Copy &Link Location, Select All";
    }
    void contextMenusSpeakTheLanguage()
    {
        QFETCH(Language, language);
        QFETCH(QString, lineEdit);
        QFETCH(QString, releaseNotes);
        const Translation translation(language);
        QLineEdit edit;
        QCOMPARE(textsOf(edit.createStandardContextMenu()), lineEdit);
        QTextBrowser browser;
        QCOMPARE(textsOf(browser.createStandardContextMenu(QPoint())), releaseNotes);
    }

    void folderDialogSaysNothingInEnglish()
    {
#ifdef Q_OS_WIN
        QSKIP("the system's own dialog is shown there");
#endif
        QStringList english;
        {
            const Translation translation(English);
            english = textsOfFolderDialog();
        }
        QVERIFY(english.contains(QStringLiteral("&Choose")));
        QVERIFY(english.contains(QStringLiteral("Cancel")));
        QVERIFY(english.contains(QStringLiteral("Date Modified")));
        const Translation translation(Slovenian);
        const QStringList slovenian = textsOfFolderDialog();
        QVERIFY(slovenian.contains(QStringLiteral("&Izberi")));
        QCOMPARE(slovenian.size(), english.size());
        for (int i = 0; i < english.size(); ++i)
            QVERIFY2(slovenian.at(i) != english.at(i), qPrintable(english.at(i)));
    }

    void xmlReadersReasonsStayEnglish_data()
    {
        QTest::addColumn<QByteArray>("feed");
        QTest::addColumn<QString>("reason");
        QTest::newRow("empty") << QByteArray() << "Premature end of document.";
        QTest::newRow("no XML") << QByteArray("Sorry") << "Start tag expected.";
        QTest::newRow("web page") << QByteArray("<html><p></html>") << "Opening and ending tag mismatch.";
        QTest::newRow("two documents") << QByteArray("<a/><b/>") << "Extra content at end of document.";
        QTest::newRow("entity") << QByteArray("<a>&nbsp;</a>") << "Entity 'nbsp' not declared.";
        QTest::newRow("bytes") << QByteArray("<a>\xff\xfe</a>") << "Encountered incorrectly encoded content.";
        QTest::newRow("ampersand") << QByteArray("<a>&1</a>") << "Expected '#' or '[a-zA-Z]', but got '[0-9]'.";
    }
    void xmlReadersReasonsStayEnglish()
    {
        QFETCH(QByteArray, feed);
        QFETCH(QString, reason);
        const Translation translation(Slovenian);
        QCOMPARE(complaintAbout(feed), reason);
    }
};

QTEST_MAIN(TranslationTest)
#include "translation_test.moc"
