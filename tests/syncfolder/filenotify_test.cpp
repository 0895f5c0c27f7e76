#include "syncfolder/filenotify.h"

#include "tests/support/test.h"

#include <QtEndian>

#include <cstring>
#include <memory>

namespace
{

QByteArray number(quint32 value)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian(value, bytes.data());
    return bytes;
}

QByteArray entry(quint32 next, quint32 action, const QString& name)
{
    QByteArray bytes = number(next) + number(action) + number(static_cast<quint32>(name.size()) * 2);
    for (const QChar unit : name) {
        bytes += static_cast<char>(unit.cell());
        bytes += static_cast<char>(unit.row());
    }
    return bytes;
}

/// Decodes from a block of exactly this size, so that reading past it is noticed by a memory checker.
QStringList decoded(const QByteArray& bytes)
{
    const auto size = static_cast<std::size_t>(bytes.size());
    const std::unique_ptr<char[]> block(new char[size]);
    std::memcpy(block.get(), bytes.constData(), size);
    QStringList found;
    const QVector<FileNotification> entries = decodeFileNotifications(block.get(), size);
    for (const FileNotification& each : entries)
        found << QString::number(each.action) + QLatin1Char(':') + each.name;
    return found;
}

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

class FileNotifyTest final : public Test
{
    Q_OBJECT

private slots:
    void entriesComeInTheirOrder();
    void entriesMayBePadded();
    void zeroedBufferIsOneEntryWithoutName();
    void namesKeepEveryUnit();
    void brokenBufferEndsTheWalk_data();
    void brokenBufferEndsTheWalk();
    void everyCutAndEveryDamagedByteIsSurvived();
};

void FileNotifyTest::entriesComeInTheirOrder()
{
    const QByteArray first = entry(16, 4, text("ab"));
    const QByteArray second = entry(14, 5, text("c"));
    QCOMPARE(decoded(first + second + entry(0, 1, text("d\\e"))),
             QStringList({text("4:ab"), text("5:c"), text("1:d\\e")}));
}

void FileNotifyTest::entriesMayBePadded()
{
    const QByteArray first = entry(20, 1, text("abc")) + QByteArray(2, 'x');
    QCOMPARE(decoded(first + entry(0, 2, text("d")) + QByteArray(100, 'x')), QStringList({text("1:abc"), text("2:d")}));
}

void FileNotifyTest::zeroedBufferIsOneEntryWithoutName()
{
    QCOMPARE(decoded(QByteArray(16384, '\0')), QStringList(text("0:")));
}

void FileNotifyTest::namesKeepEveryUnit()
{
    const QString name = text("\u00fc \u65e5\u672c \U0001f4c1") + QChar(0xd800) + QChar(0) + QLatin1Char('x');
    QCOMPARE(decoded(entry(0, 3, name)), QStringList(text("3:") + name));
}

void FileNotifyTest::brokenBufferEndsTheWalk_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("expected");
    const QByteArray good = entry(14, 1, text("a"));
    const QStringList one{text("1:a")};

    QTest::newRow("nothing") << QByteArray() << QStringList();
    QTest::newRow("half a header") << QByteArray(11, '\0') << QStringList();
    QTest::newRow("next one outside") << entry(15, 1, text("a")) << one;
    QTest::newRow("next one far outside") << entry(0xffffffff, 1, text("a")) << one;
    QTest::newRow("next one at the end") << good << one;
    QTest::newRow("next one with half a header") << good + QByteArray(11, '\0') << one;
    QTest::newRow("next one inside this one") << entry(12, 1, text("a")) + QByteArray(99, '\0') << one;
    QTest::newRow("next one just behind the start") << entry(1, 1, text("a")) + QByteArray(99, '\0') << one;
    QTest::newRow("name one byte too long") << number(0) + number(1) + number(3) + QByteArray(2, 'x') << QStringList();
    QTest::newRow("name far too long") << number(0) + number(1) + number(0xfffffffe) << QStringList();
    QTest::newRow("second name too long") << good + number(0) + number(1) + number(2) << one;
    QTest::newRow("odd name length") << number(0) + number(1) + number(3) + QByteArray("a\0b", 3) << one;
}

void FileNotifyTest::brokenBufferEndsTheWalk()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, expected);
    QCOMPARE(decoded(bytes), expected);
}

void FileNotifyTest::everyCutAndEveryDamagedByteIsSurvived()
{
    const QByteArray whole = entry(18, 1, text("abc")) + entry(16, 2, text("de")) + entry(0, 3, text("f"));
    for (int size = 0; size <= whole.size(); ++size)
        QVERIFY(decoded(whole.left(size)).size() <= 3);
    for (int at = 0; at < whole.size(); ++at) {
        for (int value = 0; value < 256; ++value) {
            QByteArray damaged = whole;
            damaged[at] = static_cast<char>(value);
            // An entry takes twelve bytes at least, and no two overlap.
            QVERIFY(decoded(damaged).size() <= whole.size() / 12);
        }
    }
}

QTEST_GUILESS_MAIN(FileNotifyTest)
#include "filenotify_test.moc"
