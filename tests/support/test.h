#pragma once

#include "tests/support/testhome.h"

#include <QObject>
#include <QStringList>
#include <QtTest>

/// The base of every test class.
///
/// It keeps the log of each test function, fails one that Qt warned in without the test having announced
/// it, and gives each an empty home, fresh settings and a current directory of its own.
class Test : public QObject
{
    Q_OBJECT

public:
    /// The lines logged at debug level so far, in order.
    static QStringList log();
    static void clearLog();
    /// Announces a warning: the test fails when it does not come, and no longer when it does. @p pattern
    /// is a regular expression that has to match the whole text.
    static void expectWarning(const QString& pattern);

protected:
    virtual void setUp()
    {
    }
    virtual void tearDown()
    {
    }

private slots:
    void init();
    void cleanup();
};

/// The time in ms that a wait may take before the test gives up; the variable ORVEL_TEST_TIMEOUT_FACTOR
/// stretches it on slow computers.
int deadline();

/// Waits until the expression is true, with the event loop running, and fails the test past the deadline.
#define EVENTUALLY(expression) QTRY_VERIFY_WITH_TIMEOUT((expression), deadline())
#define EVENTUALLY_EQUAL(actual, expected)                                                                             \
    do {                                                                                                               \
        (void)QTest::qWaitFor([&] { return (actual) == (expected); }, deadline());                                     \
        QCOMPARE((actual), (expected));                                                                                \
    } while (false)

/// Takes back the names that a client gave to the application and its maker.
void forgetNames();

/// The QTimer::singleShot() calls of this thread that have not fired yet; each is destroyed when it has.
QObjectList singleShots();
int armedSingleShots();
/// The delay in ms of each of them.
QVector<int> singleShotDelays();

/// Writes a whole file, and its missing directories; fails the program when that is not possible.
void writeFile(const QString& path, const QByteArray& content);
/// Reads a whole file; a missing one gives a null byte array.
QByteArray readFile(const QString& path);
