#include "engine/enginedeaths.h"

void EngineDeaths::launched(qint64 now)
{
    m_launched = now;
}

qint64 EngineDeaths::died(qint64 now)
{
    if (now - m_launched >= minute) {
        m_count = 0;
        m_wait = 0;
    }
    qint64& fourBefore = m_deaths.at(static_cast<std::size_t>(m_count % followedAtOnce));
    if (m_wait != 0)
        m_wait = qMin(2 * m_wait, longestWait);
    else if (m_count >= followedAtOnce && now - fourBefore < minute)
        m_wait = firstWait;
    fourBefore = now;
    ++m_count;
    return m_wait;
}
