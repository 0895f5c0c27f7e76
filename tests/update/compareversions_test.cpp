#include "update/compareversions.h"

#include "tests/support/test.h"

#include <QRandomGenerator>
#include <QVector>

using qtsparkle::IsOlder;

namespace
{

struct Pair
{
    const char* kind;
    const char* older;
    const char* newer;
};

// clang-format off
const Pair ordered[] = {
    {"numbers", "0", "1"}, {"numbers", "1", "2"}, {"numbers", "9", "10"}, {"numbers", "10", "11"},
    {"numbers", "99", "100"}, {"numbers", "2", "10"}, {"numbers", "1", "20261121"}, {"numbers", "20261121", "20261122"},
    {"numbers", "2147483646", "2147483647"}, {"numbers", "1.2", "1.10"}, {"numbers", "1.9", "1.10"},
    {"numbers", "1.2", "1.9"}, {"numbers", "0.9.3", "0.9.4"}, {"numbers", "0.9.3", "0.10"}, {"numbers", "0.9.3", "1"},
    {"numbers", "0.9.3", "1.0"}, {"numbers", "0.9.9", "0.9.10"}, {"numbers", "1.0.0", "1.0.1"},
    {"numbers", "1.0.9", "1.1.0"}, {"numbers", "1.9.9", "2.0.0"}, {"numbers", "1.2.3.4", "1.2.3.5"},
    {"numbers", "1.2.3.4", "1.2.4.0"}, {"numbers", "10.0", "11.0"}, {"numbers", "1.99", "2.0"},
    {"numbers", "1.09", "1.10"}, {"numbers", "1.009", "1.10"}, {"numbers", "00", "01"}, {"numbers", "1.0.0.0.1", "1.0.0.0.2"},
    {"numbers", "3.1.4", "3.1.15"}, {"numbers", "5.15.8", "5.15.17"}, {"numbers", "5.9", "5.15"},

    {"longer by numbers", "1", "1.0"}, {"longer by numbers", "1", "1.1"}, {"longer by numbers", "1.0", "1.0.1"},
    {"longer by numbers", "1.0", "1.0.0"}, {"longer by numbers", "1.0.0", "1.0.0.0"}, {"longer by numbers", "2.0", "2.0.0.1"},
    {"longer by numbers", "0.9.3", "0.9.3.1"}, {"longer by numbers", "0", "0.0"}, {"longer by numbers", "1.2.3", "1.2.3.0"},
    {"longer by numbers", "1b", "1b1"}, {"longer by numbers", "1.0rc", "1.0rc1"}, {"longer by numbers", "1.0beta", "1.0beta2"},
    {"longer by numbers", "1.", "1.0"}, {"longer by numbers", "1..", "1..5"}, {"longer by numbers", "a", "a1"},
    {"longer by numbers", "r", "r0"}, {"longer by numbers", ".", ".1"}, {"longer by numbers", "1-", "1-1"},

    {"longer by a separator", "1", "1."}, {"longer by a separator", "1.0", "1.0."}, {"longer by a separator", "1.", "1.."},
    {"longer by a separator", ".", ".."}, {"longer by a separator", "a", "a."}, {"longer by a separator", "1.0b", "1.0b.1"},
    {"longer by a separator", "1.0rc1", "1.0rc1.1"}, {"longer by a separator", "a", "a.b"},
    {"longer by a separator", "2.0a", "2.0a."}, {"longer by a separator", "..", "..."},

    {"longer by text", "1a", "1"}, {"longer by text", "1.0a", "1.0"}, {"longer by text", "1.0rc", "1.0"},
    {"longer by text", "1.0rc1", "1.0"}, {"longer by text", "1.0rc9", "1.0"}, {"longer by text", "1.0beta", "1.0"},
    {"longer by text", "1.0alpha", "1.0"}, {"longer by text", "1.0-1", "1.0"}, {"longer by text", "1.0 beta", "1.0"},
    {"longer by text", "1.0+build", "1.0"}, {"longer by text", "1.0~rc1", "1.0"}, {"longer by text", "1.0_2", "1.0"},
    {"longer by text", "2.0b1", "2.0"}, {"longer by text", "0.9.3dev", "0.9.3"}, {"longer by text", "0.9.3-rc.1", "0.9.3"},
    {"longer by text", "1.a", "1."}, {"longer by text", ".a", "."}, {"longer by text", "..x", ".."},
    {"longer by text", "1 ", "1"}, {"longer by text", "1.0 ", "1.0"}, {"longer by text", "1.0\n", "1.0"},
    {"longer by text", "1b1c", "1b1"}, {"longer by text", "7z", "7"}, {"longer by text", "1.0(2)", "1.0"},

    {"text against text", "a", "b"}, {"text against text", "alpha", "beta"}, {"text against text", "beta", "rc"},
    {"text against text", "1.0alpha", "1.0beta"}, {"text against text", "1.0beta", "1.0rc"},
    {"text against text", "1.0a", "1.0b"}, {"text against text", "1.0a9", "1.0b1"}, {"text against text", "1.0b1", "1.0rc1"},
    {"text against text", "1.0alpha9", "1.0beta1"}, {"text against text", "1.0a", "1.0aa"},
    {"text against text", "1.0aa", "1.0b"}, {"text against text", "B", "a"}, {"text against text", "1.0RC", "1.0rc"},
    {"text against text", "1.0Beta", "1.0alpha"}, {"text against text", "1.0-a", "1.0a"},
    {"text against text", "1.0+a", "1.0-a"}, {"text against text", "1.0 a", "1.0-a"}, {"text against text", "1.0-a", "1.0_a"},
    {"text against text", "1.0_a", "1.0~a"}, {"text against text", "1.0dev", "1.0pre"}, {"text against text", "Z", "a"},
    {"text against text", "rel2", "sel1"}, {"text against text", "1.x", "1.y"}, {"text against text", "a.b", "a.c"},
    {"text against text", "a.b.c", "a.b.d"}, {"text against text", "1z", "1\xc4\x8d"}, {"text against text", "1c", "1\xc4\x8d"},
    {"text against text", "1\xc4\x8d", "1\xc5\xa1"}, {"text against text", "1\xc5\xa1", "1\xc5\xbe"},
    // U+1D7CE, a digit beyond 16 bits, is two units of text, and these sort before U+FF21.
    {"text against text", "\xf0\x9d\x9f\x8e", "\xef\xbc\xa1"},
    {"text against text", "v1.0", "w0.1"}, {"text against text", "V2", "v1"}, {"text against text", "1.0-rc", "1.0-rd"},

    {"number after equal text", "rc1", "rc2"}, {"number after equal text", "rc2", "rc10"},
    {"number after equal text", "1.0rc1", "1.0rc2"}, {"number after equal text", "1.0rc9", "1.0rc10"},
    {"number after equal text", "1.0b2", "1.0b10"}, {"number after equal text", "1.10b2", "1.10b3"},
    {"number after equal text", "1.0-1", "1.0-2"}, {"number after equal text", "1.0-9", "1.0-10"},
    {"number after equal text", "v1", "v2"}, {"number after equal text", "v1.9", "v1.10"},
    {"number after equal text", "rel2", "rel10"}, {"number after equal text", "1.0beta1", "1.0beta2"},
    {"number after equal text", "1.0 beta 2", "1.0 beta 11"}, {"number after equal text", "2a1", "2a2"},
    {"number after equal text", "a1b1", "a1b2"}, {"number after equal text", "a1b2", "a2b1"},

    {"text against a number", "a", "1"}, {"text against a number", "a", "0"}, {"text against a number", "rel2", "1"},
    {"text against a number", "z", "0"}, {"text against a number", "v2.0", "1.0"}, {"text against a number", "1.x", "1.0"},
    {"text against a number", "1.rc", "1.1"}, {"text against a number", "1.beta", "1.0.1"},
    {"text against a number", "2.a", "2.1"}, {"text against a number", "1.0.x", "1.0.0"}, {"text against a number", "-1", "0"},
    {"text against a number", "-1", "1"}, {"text against a number", "+1", "1"}, {"text against a number", " 1", "1"},
    {"text against a number", "a.1", "1.a"}, {"text against a number", "beta", "20261121"},
    {"text against a number", "1.-1", "1.0"}, {"text against a number", "1..b", "1..0"},

    {"text against a separator", "a", "."}, {"text against a separator", "1a", "1."}, {"text against a separator", "1.0rc", "1.0.1"},
    {"text against a separator", "1.0beta", "1.0.0"}, {"text against a separator", "1b", "1.0"},
    {"text against a separator", "1b9", "1.0"}, {"text against a separator", "1-2", "1.1"}, {"text against a separator", "rc.1", ".1"},
    {"text against a separator", "1.0a.9", "1.0.0"}, {"text against a separator", "1.a", "1.."},
    {"text against a separator", "2rc1", "2.0rc1"}, {"text against a separator", "1 .0", "1.0"},
    {"text against a separator", "0.9.3b", "0.9.3.1"},

    {"separator against a number", ".", "1"}, {"separator against a number", ".", "0"}, {"separator against a number", ".1", "0"},
    {"separator against a number", ".9", "1"}, {"separator against a number", "1..", "1.0"},
    {"separator against a number", "1..9", "1.0"}, {"separator against a number", "1..2", "1.1"},
    {"separator against a number", "a.", "a0"}, {"separator against a number", "a.1", "a0.1"},
    {"separator against a number", "1.0b.", "1.0b1"}, {"separator against a number", "1.0rc.5", "1.0rc1"},
    {"separator against a number", "...", "..1"}, {"separator against a number", ".1", "1."},

    {"empty", "", "0"}, {"empty", "", "1"}, {"empty", "", "1.0"}, {"empty", "", "."}, {"empty", "", "0.0"},
    {"empty", "a", ""}, {"empty", "rel2", ""}, {"empty", "beta", ""}, {"empty", " ", ""}, {"empty", "-1", ""},
    {"empty", "v1.0", ""}, {"empty", "\xc4\x8d", ""}, {"empty", "", "\xd9\xa3"},

    // A number that no int holds counts as zero.
    {"huge numbers", "2147483648", "1"}, {"huge numbers", "99999999999999999999", "1"},
    {"huge numbers", "1.4294967296", "1.1"}, {"huge numbers", "1.4294967297", "1.1"},
    {"huge numbers", "99999999999", "2147483647"}, {"huge numbers", "1.99999999999", "1.99999999999.0"},

    // Digits of other scripts are numbers, not text, so that they are newer than text and separators.
    {"other digits", "a", "\xd9\xa3"}, {"other digits", ".", "\xd9\xa3"}, {"other digits", "1.0", "1.0.\xd9\xa3"},
    {"other digits", "1.x", "1.\xe0\xa5\xa9"}, {"other digits", "1.0\xc2\xbd", "1.0"}, {"other digits", "1\xc2\xb2", "1"},
    {"other digits", "1\xe2\x85\xa3", "1"},
};

const Pair equal[] = {
    {"same", "", ""}, {"same", "0", "0"}, {"same", "1", "1"}, {"same", "1.0", "1.0"}, {"same", "0.9.3", "0.9.3"},
    {"same", "1.0rc1", "1.0rc1"}, {"same", "a", "a"}, {"same", ".", "."}, {"same", "..", ".."}, {"same", "1.", "1."},
    {"same", "1.10b2", "1.10b2"}, {"same", "v1.0", "v1.0"}, {"same", "\xc4\x8d", "\xc4\x8d"}, {"same", "1.0-1", "1.0-1"},
    {"leading zeros", "1", "01"}, {"leading zeros", "1.0", "1.00"}, {"leading zeros", "0", "000"},
    {"leading zeros", "1.2", "01.02"}, {"leading zeros", "1.0rc1", "1.0rc01"}, {"leading zeros", "1.10", "1.010"},
    {"leading zeros", "2026.1.5", "2026.01.05"}, {"leading zeros", "1.0", "0000000000000001.0"},
    {"huge numbers", "0", "99999999999"}, {"huge numbers", "2147483648", "4294967296"},
    {"huge numbers", "1.2147483648", "1.0"},
};
// clang-format on

/// The same order said otherwise: versions as lists of keys that are compared one by one, where the end of
/// a version stands between text and what is not text.
struct Key
{
    int rank = 0; // 0 text, 1 the end, 2 separator, 3 number
    qint64 number = 0;
    QString text;
};

QVector<Key> keysOf(QString rest)
{
    QVector<Key> keys;
    while (!rest.isEmpty()) {
        Key key;
        int length = 1;
        if (rest.at(0) == QLatin1Char('.')) {
            key.rank = 2;
        } else {
            const bool number = rest.at(0).category() == QChar::Number_DecimalDigit;
            while (length < rest.size() && rest.at(length) != QLatin1Char('.') &&
                   (rest.at(length).category() == QChar::Number_DecimalDigit) == number)
                ++length;
            if (number) {
                key.rank = 3;
                for (int i = 0; i < length && key.number >= 0 && key.number <= INT_MAX; ++i)
                    key.number = key.number * 10 + (rest.at(i).unicode() - '0');
                if (key.number > INT_MAX)
                    key.number = 0;
            } else {
                key.text = rest.left(length);
            }
        }
        keys << key;
        rest.remove(0, length);
    }
    Key end;
    end.rank = 1;
    keys << end;
    return keys;
}

/// Negative, zero or positive.
int order(const QString& a, const QString& b)
{
    const QVector<Key> left = keysOf(a);
    const QVector<Key> right = keysOf(b);
    for (int i = 0; i < qMin(left.size(), right.size()); ++i) {
        if (left.at(i).rank != right.at(i).rank)
            return left.at(i).rank - right.at(i).rank;
        if (left.at(i).number != right.at(i).number)
            return left.at(i).number < right.at(i).number ? -1 : 1;
        if (left.at(i).text != right.at(i).text)
            return left.at(i).text < right.at(i).text ? -1 : 1;
    }
    return 0;
}

/// Versions of all kinds, strange ones among them, and so few pieces that pairs often begin alike.
class Versions final
{
public:
    QString next()
    {
        static const QStringList pieces{
            QStringLiteral("0"),  QStringLiteral("1"), QStringLiteral("01"),          QStringLiteral("9"),
            QStringLiteral("10"), QStringLiteral("."), QStringLiteral("."),           QStringLiteral("a"),
            QStringLiteral("rc"), QStringLiteral("B"), QStringLiteral("99999999999"), QStringLiteral("-"),
        };
        QString version;
        const int length = m_random.bounded(7);
        for (int i = 0; i < length; ++i)
            version += pieces.at(m_random.bounded(pieces.size()));
        return version;
    }

    /// Three numbers, as most programs have them.
    QString nextPlain()
    {
        return QStringLiteral("%1.%2.%3").arg(m_random.bounded(3)).arg(m_random.bounded(12)).arg(m_random.bounded(3));
    }

private:
    QRandomGenerator m_random{20261121}; // the same ones in every run
};

constexpr int rounds = 20000;

} // namespace

class CompareVersionsTest final : public Test
{
    Q_OBJECT

private:
    static void addRows(const Pair* pairs, int count)
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        for (int i = 0; i < count; ++i) {
            const Pair& pair = pairs[i];
            QTest::addRow("%d %s: '%s' and '%s'", i, pair.kind, pair.older, pair.newer)
                << QString::fromUtf8(pair.older) << QString::fromUtf8(pair.newer);
        }
    }

private slots:
    void firstIsOlderAndNeverTheOtherWayRound_data()
    {
        addRows(ordered, static_cast<int>(std::size(ordered)));
    }
    void firstIsOlderAndNeverTheOtherWayRound()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QVERIFY(IsOlder(a, b));
        QVERIFY(!IsOlder(b, a));
    }

    void neitherIsOlder_data()
    {
        addRows(equal, static_cast<int>(std::size(equal)));
    }
    void neitherIsOlder()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QVERIFY(!IsOlder(a, b));
        QVERIFY(!IsOlder(b, a));
    }

    void digitsOfOtherScriptsCountAsZero()
    {
        const QString three = QString::fromUtf8("1.\xd9\xa3");
        QVERIFY(IsOlder(three, QStringLiteral("1.1")));
        QVERIFY(!IsOlder(three, QStringLiteral("1.0")));
        QVERIFY(!IsOlder(QStringLiteral("1.0"), three));
    }

    void nullVersionIsAnEmptyOne()
    {
        QVERIFY(!IsOlder(QString(), QStringLiteral("")));
        QVERIFY(!IsOlder(QStringLiteral(""), QString()));
        QVERIFY(IsOlder(QString(), QStringLiteral("1")));
    }

    void veryLongVersionsAreCompared()
    {
        const QString stem = QStringLiteral("1.").repeated(50000);
        QVERIFY(IsOlder(stem + QStringLiteral("1"), stem + QStringLiteral("2")));
        QVERIFY(IsOlder(stem + QString(100000, u'a'), stem + QString(100001, u'a')));
    }

    void noVersionIsOlderThanItself()
    {
        Versions versions;
        for (int i = 0; i < rounds; ++i) {
            const QString a = versions.next();
            QVERIFY2(!IsOlder(a, a), qPrintable(a));
        }
    }

    void ofTwoVersionsAtMostOneIsOlder()
    {
        Versions versions;
        int comparable = 0;
        for (int i = 0; i < rounds; ++i) {
            const QString a = versions.next();
            const QString b = versions.next();
            const bool older = IsOlder(a, b);
            const bool newer = IsOlder(b, a);
            QVERIFY2(!older || !newer, qPrintable(a + u' ' + b));
            comparable += older || newer ? 1 : 0;
        }
        QVERIFY(comparable > rounds / 2); // the property was not kept by comparing nothing
    }

    void olderIsTransitiveAmongAllVersionsWhateverTheirKinds()
    {
        Versions versions;
        int chains = 0;
        for (int i = 0; i < rounds; ++i) {
            const QString a = versions.next();
            const QString b = versions.next();
            const QString c = versions.next();
            if (!IsOlder(a, b) || !IsOlder(b, c))
                continue;
            ++chains;
            QVERIFY2(IsOlder(a, c), qPrintable(a + u' ' + b + u' ' + c));
        }
        QVERIFY(chains > rounds / 20);
    }

    void versionsOfEqualRankTakeEachOthersPlace()
    {
        Versions versions;
        int pairs = 0;
        for (int i = 0; i < rounds; ++i) {
            const QString a = versions.next();
            const QString b = QString(a).replace(QLatin1String("1"), QLatin1String("01"));
            const QString c = versions.next();
            if (IsOlder(a, b) || IsOlder(b, a))
                continue;
            pairs += a != b ? 1 : 0;
            QVERIFY2(IsOlder(a, c) == IsOlder(b, c), qPrintable(a + u' ' + b + u' ' + c));
            QVERIFY2(IsOlder(c, a) == IsOlder(c, b), qPrintable(a + u' ' + b + u' ' + c));
        }
        QVERIFY(pairs > rounds / 20);
    }

    void threeNumbersAreOrderedLikeTheirValues()
    {
        Versions versions;
        for (int i = 0; i < rounds; ++i) {
            const QStringList a = versions.nextPlain().split(u'.');
            const QStringList b = versions.nextPlain().split(u'.');
            int wanted = 0;
            for (int part = 0; part < 3 && wanted == 0; ++part)
                wanted = a.at(part).toInt() - b.at(part).toInt();
            QCOMPARE(IsOlder(a.join(u'.'), b.join(u'.')), wanted < 0);
        }
    }

    void secondImplementationAgrees()
    {
        Versions versions;
        for (int i = 0; i < rounds; ++i) {
            const QString a = versions.next();
            const QString b = versions.next();
            QVERIFY2(IsOlder(a, b) == (order(a, b) < 0), qPrintable(a + u' ' + b));
        }
    }
};

QTEST_GUILESS_MAIN(CompareVersionsTest)
#include "compareversions_test.moc"
