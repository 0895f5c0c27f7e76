#pragma once

#include <QString>
#include <QVariantList>
#include <QVector>

#include <functional>

namespace bench
{

/// What was measured, row by row.
class Table final
{
public:
    /// Two durations of the same work; the ratio says how many times as fast ours is, and is to be at least
    /// @p goal.
    void faster(const QString& work, const QString& reference, double ours, double theirs, double goal);
    /// Two amounts, durations or else; ours may be at most @p goal times the reference.
    void within(const QString& work, const QString& reference, double ours, double theirs, const QString& unit,
                double goal);
    /// Ours may be at most @p goal, whatever the reference does.
    void atMost(const QString& work, const QString& reference, double ours, double theirs, const QString& unit,
                double goal);
    /// Two durations that are shown for comparison; no goal is set.
    void shown(const QString& work, const QString& reference, double ours, double theirs,
               const QString& unit = QStringLiteral("s"));

    /// Adds the rows to those that the file holds already.
    bool appendTo(const QString& path) const;
    static bool print(const QString& path);

private:
    void add(const QString& work, const QString& reference, double ours, double theirs, const QString& unit,
             double ratio, const QString& goal, bool met);

    QVariantList m_rows;
};

/// Each sample does its work once and returns the figure it got. They take turns, at least five times and
/// until the seconds are used up; the result is the median of each.
QVector<double> medians(const QVector<std::function<double()>>& samples, double seconds);

double median(QVector<double> values);

/// Seconds of processor time that this program has used; what else the computer does is not in them.
double processorTime();
/// Seconds on the wall.
double wallTime();

/// From now on the heap keeps what it has: who gets memory from the system, and when, would hide the rest.
void keepHeap();
/// A heap without holes, as what came before would be paid by whoever comes next.
void tidyHeap();

/// The processor time of @p work, a call, which is repeated @p count times; the results are destroyed outside.
template<typename Work>
double timeOf(const Work& work, int count)
{
    QVector<decltype(work())> results;
    results.reserve(count);
    const double start = processorTime();
    for (int i = 0; i < count; ++i)
        results.append(work());
    return (processorTime() - start) / count;
}

} // namespace bench
