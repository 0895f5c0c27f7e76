#pragma once

#include <QtGlobal>

#include <array>

/// Tells how long the next launch of a dying engine waits, so that one that cannot live eats no core.
///
/// Four deaths within a minute are followed at once. From the fifth on each next launch waits, twice as long
/// each time, up to a minute; an engine that has lived for a minute ends that. All times in ms, of one clock
/// that only goes forward.
class EngineDeaths final
{
public:
    static constexpr qint64 minute = 60000;
    static constexpr qint64 firstWait = 1000;
    static constexpr qint64 longestWait = 60000;

    void launched(qint64 now);
    /// How long to wait from @p now until the next launch; 0 for not at all.
    qint64 died(qint64 now);

private:
    static constexpr int followedAtOnce = 4;

    qint64 m_launched = 0;
    std::array<qint64, followedAtOnce> m_deaths = {}; ///< the latest ones, each at its number modulo their count
    qint64 m_count = 0;                               ///< all since the engine lived for a minute
    qint64 m_wait = 0;                                ///< the last one; 0 while there was none
};
