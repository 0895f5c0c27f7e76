#include "tests/support/test.h"

#include <QAbstractEventDispatcher>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QRegularExpression>
#include <QSettings>

#include <cstdio>

namespace
{

QMutex mutex; // the watcher logs from its own thread
QStringList logLines;
QStringList expectedWarnings;
QStringList unexpectedWarnings;

/// What the platforms say of themselves on every run.
const QStringList platformNoise{
    QStringLiteral("This plugin does not support propagateSizeHints\\(\\)"),
    QStringLiteral("This plugin does not support raise\\(\\)"),
    QStringLiteral("This plugin does not support grabbing the keyboard"),
    QStringLiteral(
        "QObject::connect: No such signal QPlatformNativeInterface::systemTrayWindowChanged\\(QScreen\\*\\)"),
    QStringLiteral("QPixmap::fromWinHICON\\(\\), failed to GetIconInfo\\(\\).*"), // Wine has no icons for boxes
    QStringLiteral("setGeometry: Unable to set geometry .*"), // Windows gives a window the size that it can have
    // What Windows says of a child that ends while something is written to it.
    QStringLiteral("QWindowsPipeWriter: asynchronous write failed\\..*"),
};

bool matches(const QString& pattern, const QString& text)
{
    const QRegularExpression whole(QRegularExpression::anchoredPattern(pattern),
                                   QRegularExpression::DotMatchesEverythingOption);
    return whole.match(text).hasMatch();
}

int indexOfMatch(const QStringList& patterns, const QString& text)
{
    for (int i = 0; i < patterns.size(); ++i) {
        if (matches(patterns.at(i), text))
            return i;
    }
    return -1;
}

void takeMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    Q_UNUSED(context)
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "%s\n", qPrintable(text));
        return;
    }
    if (qEnvironmentVariableIsSet("ORVEL_TEST_LOG"))
        std::fprintf(stderr, "%s\n", qPrintable(text));

    const QMutexLocker locker(&mutex);
    if (type == QtDebugMsg || type == QtInfoMsg) {
        logLines << text;
        return;
    }
    const int expected = indexOfMatch(expectedWarnings, text);
    if (expected >= 0)
        expectedWarnings.removeAt(expected);
    else if (indexOfMatch(platformNoise, text) < 0)
        unexpectedWarnings << text;
}

void emptyDirectory(const QString& path)
{
    const QDir dir(path);
    const auto entries = dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        if (entry.isDir() && !entry.isSymLink())
            QDir(entry.filePath()).removeRecursively();
        else
            QFile::remove(entry.filePath());
    }
}

void emptyHome()
{
    const QDir home(testHome());
    const QStringList kept{QStringLiteral("config"), QStringLiteral("data"), QStringLiteral("cache"),
                           QStringLiteral("runtime"), QStringLiteral("tmp")};
    const auto entries = home.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        if (kept.contains(entry.fileName()) && entry.fileName() != QLatin1String("tmp"))
            emptyDirectory(entry.filePath());
        else if (entry.fileName() != QLatin1String("tmp") && entry.isDir())
            QDir(entry.filePath()).removeRecursively();
    }
}

} // namespace

QStringList Test::log()
{
    const QMutexLocker locker(&mutex);
    QStringList lines = logLines;
    lines.detach(); // nothing is shared between threads without the lock
    return lines;
}

void Test::clearLog()
{
    const QMutexLocker locker(&mutex);
    logLines.clear();
}

void Test::expectWarning(const QString& pattern)
{
    const QMutexLocker locker(&mutex);
    expectedWarnings << pattern;
}

void Test::init()
{
    QDir::setCurrent(testHome());
    emptyHome();
    QSettings().clear();
    {
        const QMutexLocker locker(&mutex);
        logLines.clear();
        expectedWarnings.clear();
        unexpectedWarnings.clear();
    }
    qInstallMessageHandler(takeMessage);
    setUp();
}

void Test::cleanup()
{
    tearDown();
    QDir::setCurrent(testHome());
    qInstallMessageHandler(nullptr);
    const QMutexLocker locker(&mutex);
    QVERIFY2(unexpectedWarnings.isEmpty(), qPrintable(QStringLiteral("Qt warned: ") + unexpectedWarnings.join(u'\n')));
    QVERIFY2(expectedWarnings.isEmpty(),
             qPrintable(QStringLiteral("announced, but never said: ") + expectedWarnings.join(u'\n')));
}

int deadline()
{
    constexpr int base = 10000;
    static const double factor = qMax(1.0, qEnvironmentVariable("ORVEL_TEST_TIMEOUT_FACTOR").toDouble());
    return static_cast<int>(base * factor);
}

void forgetNames()
{
    QCoreApplication::setApplicationName(QString());
    QCoreApplication::setOrganizationName(QString());
}

QObjectList singleShots()
{
    QObjectList armed;
    const auto children = QAbstractEventDispatcher::instance()->findChildren<QObject*>();
    for (QObject* child : children) {
        if (qstrcmp(child->metaObject()->className(), "QSingleShotTimer") == 0)
            armed << child;
    }
    return armed;
}

int armedSingleShots()
{
    return singleShots().size();
}

QVector<int> singleShotDelays()
{
    QVector<int> delays;
    const QObjectList timers = singleShots();
    for (QObject* timer : timers) {
        const auto registered = QAbstractEventDispatcher::instance()->registeredTimers(timer);
        for (const QAbstractEventDispatcher::TimerInfo& info : registered)
            delays << info.interval;
    }
    return delays;
}

void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
