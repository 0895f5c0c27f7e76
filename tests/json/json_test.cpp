#include "json/json.h"

#include "tests/support/test.h"

#include <QDate>
#include <QPoint>
#include <QUrl>
#include <QVariant>

#include <limits>

namespace
{

QVariant parsed(const char* utf8, bool* success = nullptr)
{
    bool ok = false;
    const QVariant value = Json::parse(QString::fromUtf8(utf8), ok);
    if (success != nullptr)
        *success = ok;
    return value;
}

QByteArray nested(const char* open, const char* close, int depth)
{
    return QByteArray(open).repeated(depth) + QByteArray(close).repeated(depth);
}

} // namespace

class JsonTest final : public Test
{
    Q_OBJECT

private slots:
    void nullTextGivesAnInvalidValueAndSuccess()
    {
        bool ok = false;
        QVERIFY(!Json::parse(QString(), ok).isValid());
        QVERIFY(ok);
    }

    void textWithoutAValueFails_data()
    {
        QTest::addColumn<QString>("text");
        for (const char* text : {"", "   ", "\t\r\n", ".5", "+1", "e1", "}", "]", ":", ",", "tru", "nul", "fals", "t",
                                 "True", "\f1", "'a'"})
            QTest::newRow(text) << QString::fromUtf8(text);
    }
    void textWithoutAValueFails()
    {
        QFETCH(QString, text);
        bool ok = true;
        QVERIFY(!Json::parse(text, ok).isValid());
        QVERIFY(!ok);
    }

    void textAfterTheValueIsIgnored()
    {
        bool ok = false;
        const QVariant value = parsed("  {\"a\" : 1}  garbage", &ok);
        QVERIFY(ok);
        QCOMPARE(value.toMap(), (QVariantMap{{QStringLiteral("a"), 1ULL}}));
    }

    void theLastOfEqualKeysWins()
    {
        QCOMPARE(parsed("{\"a\":1,\"a\":2}").toMap().value(QStringLiteral("a")).toInt(), 2);
    }

    void commasAreNeitherRequiredNorCounted()
    {
        QCOMPARE(parsed("[1 2 3]").toList().size(), 3);
        QCOMPARE(parsed("[,1,,2,]").toList().size(), 2);
        bool ok = false;
        QVERIFY(parsed("{,,}", &ok).toMap().isEmpty());
        QVERIFY(ok);
        QCOMPARE(parsed("{\"a\":1 \"b\":2}", &ok).toMap().size(), 2);
        QVERIFY(ok);
    }

    void unfinishedArrayFailsAndYieldsAnEmptyList()
    {
        bool ok = true;
        const QVariant value = parsed("[1,2", &ok);
        QVERIFY(!ok);
        QCOMPARE(value.userType(), static_cast<int>(QMetaType::QVariantList));
        QVERIFY(value.toList().isEmpty());
    }

    void unfinishedObjectFailsAndYieldsAnEmptyMap_data()
    {
        QTest::addColumn<QString>("text");
        for (const char* text : {"{", "{\"a\":1", "{\"a\"", "{\"a\" 1}", "{\"a\":}", "{\"a", "{abc\":1}",
                                 "{\"a\":1,\"b\":[1,:]}", "{\"a\":{\"b\":[1}}", "{\"a\":1,\"b\":\"\\u00\"}"})
            QTest::newRow(text) << QString::fromUtf8(text);
    }
    void unfinishedObjectFailsAndYieldsAnEmptyMap()
    {
        QFETCH(QString, text);
        bool ok = true;
        const QVariant value = Json::parse(text, ok);
        QVERIFY(!ok);
        QCOMPARE(value.userType(), static_cast<int>(QMetaType::QVariantMap));
        QVERIFY(value.toMap().isEmpty());
    }

    void whateverStandsBeforeAKeyIsTakenForItsQuote_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("key");
        QTest::newRow("digit") << "{1a\":2}"
                               << "a";
        QTest::newRow("word") << "{true\":2}"
                              << "rue";
        QTest::newRow("bracket") << "{[a\":2}"
                                 << "a";
        QTest::newRow("colon") << "{:\":2}"
                               << "";
    }
    void whateverStandsBeforeAKeyIsTakenForItsQuote()
    {
        QFETCH(QString, text);
        QFETCH(QString, key);
        bool ok = false;
        QCOMPARE(Json::parse(text, ok).toMap(), (QVariantMap{{key, 2ULL}}));
        QVERIFY(ok);
    }

    void failureInsideAnArrayLeavesNothingOfWhatIsAroundIt_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("type");
        QTest::newRow("a map") << "{\"a\":1,\"b\":[2,:]}" << static_cast<int>(QMetaType::QVariantMap);
        QTest::newRow("a list") << "[1,{\"a\":[2,:]}]" << static_cast<int>(QMetaType::QVariantList);
    }
    void failureInsideAnArrayLeavesNothingOfWhatIsAroundIt()
    {
        QFETCH(QString, text);
        QFETCH(int, type);
        bool ok = true;
        const QVariant value = Json::parse(text, ok);
        QVERIFY(!ok);
        QCOMPARE(value.userType(), type);
        QVERIFY(value.toMap().isEmpty());
        QVERIFY(value.toList().isEmpty());
    }

    void numberTypeFollowsItsSpelling_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QVariant>("value");
        QTest::newRow("negative") << "-5" << QVariant(static_cast<qlonglong>(-5));
        QTest::newRow("positive") << "5" << QVariant(static_cast<qulonglong>(5));
        QTest::newRow("with a point") << "5.0" << QVariant(5.0);
        QTest::newRow("exponent without a point is 0") << "5e3" << QVariant(static_cast<qulonglong>(0));
        QTest::newRow("exponent with a point") << "5.5e3" << QVariant(5500.0);
        QTest::newRow("lone minus") << "-" << QVariant(static_cast<qlonglong>(0));
        QTest::newRow("run taken whole") << "1-2" << QVariant(static_cast<qulonglong>(0));
        QTest::newRow("two minuses") << "--" << QVariant(static_cast<qlonglong>(0));
        QTest::newRow("broken exponent") << "1e5e" << QVariant(static_cast<qulonglong>(0));
        QTest::newRow("largest") << "18446744073709551615" << QVariant(std::numeric_limits<qulonglong>::max());
        QTest::newRow("one too many") << "18446744073709551616" << QVariant(static_cast<qulonglong>(0));
        QTest::newRow("two points") << "1.2.3" << QVariant(0.0);
        QTest::newRow("point and exponent") << "1.e2" << QVariant(100.0);
        QTest::newRow("too large for a double") << "1.0e400" << QVariant(QStringLiteral("1.0e400").toDouble());
        QTest::newRow("too small for a double") << "-1.0e-400" << QVariant(QStringLiteral("-1.0e-400").toDouble());
        QTest::newRow("sign of an exponent") << "5.5e+1" << QVariant(55.0);
        QTest::newRow("signs in the run") << "1+1" << QVariant(static_cast<qulonglong>(0));
        QTest::newRow("capital exponent") << "1.5E1" << QVariant(15.0);
        QTest::newRow("leading zeros") << "00000000000000000000012" << QVariant(static_cast<qulonglong>(12));
        QTest::newRow("smallest") << "-9223372036854775808" << QVariant(std::numeric_limits<qlonglong>::min());
    }
    void numberTypeFollowsItsSpelling()
    {
        QFETCH(QString, text);
        QFETCH(QVariant, value);
        bool ok = false;
        const QVariant number = Json::parse(text, ok);
        QVERIFY(ok);
        QCOMPARE(number.userType(), value.userType());
        QCOMPARE(number, value);
    }

    void wordsAreRead()
    {
        QCOMPARE(parsed("[true,false,null]").toList(), (QVariantList{true, false, QVariant()}));
        bool ok = false;
        QVERIFY(!parsed("null", &ok).isValid());
        QVERIFY(ok);
    }

    void escapesAreRead_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("value");
        QTest::newRow("letters") << "\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"" << QStringLiteral("\"\\/\b\f\n\r\t");
        QTest::newRow("hexadecimal") << "\"\\u00e9\"" << QString(QChar(0xe9));
        QTest::newRow("surrogate pair") << "\"\\ud83d\\ude00\"" << QString::fromUtf8("\xf0\x9f\x98\x80");
        QTest::newRow("unknown is dropped") << "\"a\\qb\\xc\"" << QStringLiteral("abc");
        QTest::newRow("not hexadecimal is 0")
            << "\"a\\uzzzzb\"" << QStringLiteral("a") + QChar(0) + QStringLiteral("b");
        QTest::newRow("sign before hexadecimal digits") << "\"\\u+12a\"" << QString(QChar(0x12a));
        QTest::newRow("negative") << "\"\\u-001\"" << QString(QChar(0xffff));
        QTest::newRow("capital digits") << "\"\\uFF1A\"" << QString(QChar(0xff1a));
        QTest::newRow("raw line break") << "\"a\nb\"" << QStringLiteral("a\nb");
    }
    void escapesAreRead()
    {
        QFETCH(QString, text);
        QFETCH(QString, value);
        bool ok = false;
        QCOMPARE(Json::parse(text, ok).toString(), value);
        QVERIFY(ok);
    }

    void brokenStringsFail_data()
    {
        QTest::addColumn<QString>("text");
        for (const char* text : {"\"\\u00\"", "\"abc", "\"abc\\", "\"\\u1"})
            QTest::newRow(text) << QString::fromUtf8(text);
    }
    void brokenStringsFail()
    {
        QFETCH(QString, text);
        bool ok = true;
        QVERIFY(!Json::parse(text, ok).isValid());
        QVERIFY(!ok);
    }

    /// Long texts are read and written in blocks; what is special may stand anywhere in them.
    void specialCharactersAreFoundWhereverTheyStand_data()
    {
        QTest::addColumn<QString>("special");
        QTest::addColumn<QByteArray>("written");
        QTest::newRow("quote") << QStringLiteral("\"") << QByteArray("\\\"");
        QTest::newRow("backslash") << QStringLiteral("\\") << QByteArray("\\\\");
        QTest::newRow("line feed") << QStringLiteral("\n") << QByteArray("\\n");
        QTest::newRow("control character") << QStringLiteral("\x01") << QByteArray("\x01");
        QTest::newRow("zero") << QString(QChar(0)) << QByteArray("", 1);
        QTest::newRow("two bytes") << QString(QChar(0x10d)) << QByteArray("\xc4\x8d");
        QTest::newRow("three bytes") << QString(QChar(0x20ac)) << QByteArray("\xe2\x82\xac");
        QTest::newRow("high unit") << QString(QChar(0xff01)) << QByteArray("\xef\xbc\x81");
        QTest::newRow("four bytes") << QString::fromUtf8("\xf0\x9f\x98\x80") << QByteArray("\xf0\x9f\x98\x80");
        QTest::newRow("half a pair") << QString(QChar(0xd83d)) << QByteArray("?");
    }
    void specialCharactersAreFoundWhereverTheyStand()
    {
        QFETCH(QString, special);
        QFETCH(QByteArray, written);
        for (int length = 0; length < 40; ++length) {
            for (int at = 0; at <= length; ++at) {
                const QString text = QString(at, QLatin1Char('a')) + special + QString(length - at, QLatin1Char('z'));
                const QByteArray json = '"' + QByteArray(at, 'a') + written + QByteArray(length - at, 'z') + '"';
                QCOMPARE(Json::serialize(text), json);
                bool ok = false;
                const QVariant read = Json::parse(QString::fromUtf8(json.constData(), json.size()), ok);
                QVERIFY(ok);
                QCOMPARE(read.toString().toUtf8(), text.toUtf8());
            }
        }
    }

    void keysAreKeptApartInLongTexts()
    {
        QVariantList objects;
        for (int i = 0; i < 2000; ++i) {
            const QString number = QString::number(i * 7919 % 2000);
            objects << QVariantMap{{QStringLiteral("same"), number},
                                   {number, QStringLiteral("x")},
                                   {QStringLiteral("a\"") + number, 1ULL},
                                   {QString(), -1LL},
                                   {QString(40, QLatin1Char('k')) + number, 0.5}};
        }
        bool ok = false;
        QCOMPARE(Json::parse(QString::fromUtf8(Json::serialize(objects)), ok).toList(), objects);
        QVERIFY(ok);
    }

    void keysMayComeInAnyOrder()
    {
        QCOMPARE(parsed("{\"c\":1,\"a\":2,\"d\":3,\"b\":4,\"c\":5,\"d\":6}").toMap(),
                 (QVariantMap{{QStringLiteral("a"), 2ULL},
                              {QStringLiteral("b"), 4ULL},
                              {QStringLiteral("c"), 5ULL},
                              {QStringLiteral("d"), 6ULL}}));
    }

    void emptyStringIsAValue()
    {
        const QVariant value = parsed("\"\"");
        QCOMPARE(value.userType(), static_cast<int>(QMetaType::QString));
        QCOMPARE(Json::serialize(value), QByteArray("\"\""));
    }

    void nestingBeyondTheBoundFailsInsteadOfOverflowingTheStack_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("arrays") << nested("[", "]", 1000000);
        QTest::newRow("unclosed arrays") << QByteArray(1000000, '[');
        QTest::newRow("objects") << nested("{\"a\":", "}", 1000000);
        QTest::newRow("just too deep") << nested("[", "]", Json::maximumDepth + 1);
    }
    void nestingBeyondTheBoundFailsInsteadOfOverflowingTheStack()
    {
        QFETCH(QByteArray, text);
        bool ok = true;
        Json::parse(QString::fromLatin1(text), ok);
        QVERIFY(!ok);
    }

    void nestingUpToTheBoundIsReadAndWritten()
    {
        bool ok = false;
        const QVariant value = Json::parse(QString::fromLatin1(nested("[", "]", Json::maximumDepth)), ok);
        QVERIFY(ok);
        QVERIFY(!Json::serialize(value, ok).isNull());
        QVERIFY(ok);
        QVERIFY(Json::serialize(QVariantList{value}, ok).isNull());
        QVERIFY(!ok);
    }

    void layoutOfTheWrittenTextIsFixed()
    {
        const QVariantMap map{{QStringLiteral("b"), QVariantList{1, true}}, {QStringLiteral("a"), QStringLiteral("x")}};
        QCOMPARE(Json::serialize(map), QByteArray("{ \"a\" : \"x\", \"b\" : [ 1, true ] }"));
        QCOMPARE(Json::serialize(QVariantList()), QByteArray("[  ]"));
        QCOMPARE(Json::serialize(QVariantMap()), QByteArray("{  }"));
        QCOMPARE(Json::serialize(QStringList{QStringLiteral("a"), QStringLiteral("b")}),
                 QByteArray("[ \"a\", \"b\" ]"));
        QCOMPARE(Json::serialize(QVariantHash{{QStringLiteral("k"), 1}}), QByteArray("{ \"k\" : 1 }"));
    }

    void scalarsAreWritten_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("invalid") << QVariant() << QByteArray("null");
        QTest::newRow("empty text is not null") << QVariant(QString()) << QByteArray("\"\"");
        QTest::newRow("bytes") << QVariant(QByteArray("b")) << QByteArray("\"b\"");
        QTest::newRow("twenty digits") << QVariant(0.1) << QByteArray("0.10000000000000000555");
        QTest::newRow("half of the last digit")
            << QVariant(-103895366010551.890625) << QByteArray("-103895366010551.89063");
        QTest::newRow("whole double") << QVariant(5.0) << QByteArray("5.0");
        QTest::newRow("large double") << QVariant(1e20) << QByteArray("1e+20");
        QTest::newRow("true") << QVariant(true) << QByteArray("true");
        QTest::newRow("false") << QVariant(false) << QByteArray("false");
        QTest::newRow("int") << QVariant(-7) << QByteArray("-7");
        QTest::newRow("unsigned") << QVariant(std::numeric_limits<qulonglong>::max())
                                  << QByteArray("18446744073709551615");
        const double infinity = std::numeric_limits<double>::infinity();
        QTest::newRow("infinity") << QVariant(infinity) << QByteArray("inf.0");
        QTest::newRow("negative infinity") << QVariant(-infinity) << QByteArray("-inf.0");
        QTest::newRow("no number") << QVariant(std::numeric_limits<double>::quiet_NaN()) << QByteArray("nan.0");
        QTest::newRow("small double") << QVariant(1e-7) << QByteArray("9.9999999999999995475e-08");
        QTest::newRow("float is rounded") << QVariant(2.5F) << QByteArray("3");
        QTest::newRow("negative float") << QVariant(-7.25F) << QByteArray("-7");
        QTest::newRow("char") << QVariant::fromValue('A') << QByteArray("65");
        QTest::newRow("signed char") << QVariant::fromValue(static_cast<signed char>(-5)) << QByteArray("-5");
        QTest::newRow("unsigned char") << QVariant::fromValue(static_cast<uchar>(200)) << QByteArray("200");
        QTest::newRow("short") << QVariant::fromValue(static_cast<short>(-30000)) << QByteArray("-30000");
        QTest::newRow("unsigned short") << QVariant::fromValue(static_cast<ushort>(60000)) << QByteArray("60000");
        QTest::newRow("unsigned int") << QVariant(std::numeric_limits<uint>::max()) << QByteArray("4294967295");
        QTest::newRow("long") << QVariant::fromValue(std::numeric_limits<long>::min())
                              << QByteArray::number(static_cast<qlonglong>(std::numeric_limits<long>::min()));
        QTest::newRow("unsigned long") << QVariant::fromValue(4000000000UL) << QByteArray("4000000000");
        QTest::newRow("signed") << QVariant(std::numeric_limits<qlonglong>::min())
                                << QByteArray("-9223372036854775808");
        QTest::newRow("address") << QVariant(QUrl(QStringLiteral("http://a/b?c=\"d\"")))
                                 << QByteArray("\"http://a/b?c=%22d%22\"");
        QTest::newRow("bytes beyond ASCII") << QVariant(QByteArray("\xc4\x8d\"")) << QByteArray("\"\xc4\x8d\\\"\"");
        QTest::newRow("bytes that are no UTF-8") << QVariant(QByteArray("a\xffz")) << QByteArray("\"a\xef\xbf\xbdz\"");
        QTest::newRow("date") << QVariant(QDate(2020, 2, 29)) << QByteArray("\"2020-02-29\"");
        QTest::newRow("line break") << QVariant(QStringLiteral("line\nbreak")) << QByteArray("\"line\\nbreak\"");
        QTest::newRow("escapes") << QVariant(QStringLiteral("\\\"\b\f\n\r\t"))
                                 << QByteArray("\"\\\\\\\"\\b\\f\\n\\r\\t\"");
        QTest::newRow("not escaped") << QVariant(QString::fromUtf8("/\x01\xc4\x8d")) << QByteArray("\"/\x01\xc4\x8d\"");
        QTest::newRow("percent sign") << QVariant(QStringLiteral("%1 %2")) << QByteArray("\"%1 %2\"");
    }
    void scalarsAreWritten()
    {
        QFETCH(QVariant, value);
        QFETCH(QByteArray, text);
        bool ok = false;
        QCOMPARE(Json::serialize(value, ok), text);
        QVERIFY(ok);
    }

    void valueWithoutAJsonFormMakesTheWholeTextNull()
    {
        bool ok = true;
        QVERIFY(Json::serialize(QVariantList{1, QPoint(1, 2)}, ok).isNull());
        QVERIFY(!ok);
        QVERIFY(Json::serialize(QVariantMap{{QStringLiteral("a"), QVariantList{QPoint()}}}).isNull());
        QVERIFY(Json::serialize(QPoint()).isNull());
        ok = true;
        QVERIFY(Json::serialize(QVariantHash{{QStringLiteral("a"), QPoint()}}, ok).isNull());
        QVERIFY(!ok);
        QVERIFY(
            Json::serialize(QVariantList{QVariantHash{{QStringLiteral("a"), QVariantList{QPoint()}}}}, ok).isNull());
        QVERIFY(!ok);
    }

    void whatWasWrittenIsReadBack()
    {
        const QVariantMap map{
            {QStringLiteral("text"), QString::fromUtf8("a\\\"\n\t\xc4\x8d")},
            {QStringLiteral("list"), QVariantList{1ULL, -1LL, 0.5, true, QVariant(), QStringLiteral("")}},
            {QStringLiteral("map"), QVariantMap{{QStringLiteral("k"), QVariantMap()}}}};
        bool ok = false;
        QCOMPARE(Json::parse(QString::fromUtf8(Json::serialize(map)), ok).toMap(), map);
        QVERIFY(ok);
    }
};

QTEST_GUILESS_MAIN(JsonTest)
#include "json_test.moc"
