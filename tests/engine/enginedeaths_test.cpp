#include "engine/enginedeaths.h"

#include "tests/support/test.h"

#include <QVector>

class EngineDeathsTest final : public Test
{
    Q_OBJECT

    /// The waits of an engine that lives for @p life ms each time.
    static QVector<qint64> waits(EngineDeaths& deaths, int count, qint64 life, qint64& now)
    {
        QVector<qint64> result;
        for (int i = 0; i < count; ++i) {
            deaths.launched(now);
            now += life;
            result << deaths.died(now);
            now += result.last();
        }
        return result;
    }

private slots:
    void fourDeathsAreFollowedAtOnceThenEachLaunchWaitsTwiceAsLongUpToAMinute()
    {
        EngineDeaths deaths;
        qint64 now = 5;
        QCOMPARE(waits(deaths, 13, 10, now),
                 (QVector<qint64>{0, 0, 0, 0, 1000, 2000, 4000, 8000, 16000, 32000, 60000, 60000, 60000}));
    }

    void deathsThatLieFurtherApartAreAllFollowedAtOnce()
    {
        EngineDeaths deaths;
        qint64 now = 0;
        QCOMPARE(waits(deaths, 100, 15000, now), QVector<qint64>(100, 0));
    }

    void fifthDeathWithinAMinuteWaitsWhereverTheMinuteBegins()
    {
        EngineDeaths deaths;
        qint64 now = 0;
        waits(deaths, 10, 20000, now);
        QCOMPARE(waits(deaths, 5, 100, now), (QVector<qint64>{0, 1000, 2000, 4000, 8000}));
    }

    void quietMinuteResets()
    {
        EngineDeaths deaths;
        qint64 now = 0;
        waits(deaths, 8, 10, now);
        QCOMPARE(waits(deaths, 1, EngineDeaths::minute - 1, now).last(), qint64(16000));
        QCOMPARE(waits(deaths, 1, EngineDeaths::minute, now).last(), qint64(0));
        QCOMPARE(waits(deaths, 5, 10, now), (QVector<qint64>{0, 0, 0, 1000, 2000}));
    }

    void waitOfAMinuteIsNoQuietOne()
    {
        EngineDeaths deaths;
        qint64 now = 0;
        waits(deaths, 20, 1, now);
        now += 10 * EngineDeaths::longestWait; // sync was off for a while
        QCOMPARE(waits(deaths, 1, 1, now).last(), EngineDeaths::longestWait);
    }
};

QTEST_GUILESS_MAIN(EngineDeathsTest)
#include "enginedeaths_test.moc"
