#include "bench/table.h"

#include "json/json.h"

#include <QFile>
#include <QLockFile>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>

#ifdef Q_OS_LINUX
#include <malloc.h>
#endif

namespace bench
{

namespace
{

constexpr int leastRounds = 5;

QVariantList readRows(const QString& path)
{
    QFile file(path);
    const QByteArray content = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    return Json::parse(QString::fromUtf8(content)).toList();
}

/// A duration with a unit that suits it, any other amount as it is.
QString spell(double value, const QString& unit)
{
    constexpr int digits = 4;
    if (unit != QLatin1String("s") || value == 0)
        return QString::number(value, 'g', digits) + QLatin1Char(' ') + unit;
    if (value < 1e-6)
        return QString::number(value * 1e9, 'g', digits) + QStringLiteral(" ns");
    if (value < 1e-3)
        return QString::number(value * 1e6, 'g', digits) + QStringLiteral(" us");
    if (value < 1)
        return QString::number(value * 1e3, 'g', digits) + QStringLiteral(" ms");
    return QString::number(value, 'g', digits) + QStringLiteral(" s");
}

} // namespace

void Table::add(const QString& work, const QString& reference, double ours, double theirs, const QString& unit,
                double ratio, const QString& goal, bool met)
{
    m_rows << QVariantMap{
        {QStringLiteral("work"), work}, {QStringLiteral("reference"), reference},
        {QStringLiteral("ours"), ours}, {QStringLiteral("theirs"), theirs},
        {QStringLiteral("unit"), unit}, {QStringLiteral("ratio"), std::isfinite(ratio) ? QVariant(ratio) : QVariant()},
        {QStringLiteral("goal"), goal}, {QStringLiteral("met"), goal.isEmpty() ? QVariant() : QVariant(met)}};
    std::fprintf(stderr, "  %s: %.3g to %.3g of %s\n", qPrintable(work), ours, theirs, qPrintable(reference));
}

void Table::faster(const QString& work, const QString& reference, double ours, double theirs, double goal)
{
    const double ratio = theirs / ours;
    add(work, reference, ours, theirs, QStringLiteral("s"), ratio, QStringLiteral(">= %1").arg(goal), ratio >= goal);
}

void Table::within(const QString& work, const QString& reference, double ours, double theirs, const QString& unit,
                   double goal)
{
    add(work, reference, ours, theirs, unit, ours / theirs, QStringLiteral("<= %1").arg(goal), ours <= goal * theirs);
}

void Table::atMost(const QString& work, const QString& reference, double ours, double theirs, const QString& unit,
                   double goal)
{
    add(work, reference, ours, theirs, unit, ours / theirs, QStringLiteral("<= %1 %2").arg(goal).arg(unit),
        ours <= goal);
}

void Table::shown(const QString& work, const QString& reference, double ours, double theirs, const QString& unit)
{
    add(work, reference, ours, theirs, unit, ours / theirs, QString(), true);
}

bool Table::appendTo(const QString& path) const
{
    QLockFile lock(path + QStringLiteral(".lock"));
    if (!lock.lock())
        return false;
    const QVariantList rows = readRows(path) + m_rows;
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(Json::serialize(rows)) > 0;
}

bool Table::print(const QString& path)
{
    const QVariantList rows = readRows(path);
    std::printf("| work | ours | reference | theirs | ratio | goal | |\n|---|---|---|---|---|---|---|\n");
    int missed = 0;
    for (const QVariant& element : rows) {
        const QVariantMap row = element.toMap();
        const auto text = [&row](const char* key) {
            return row.value(QLatin1String(key)).toString();
        };
        const auto amount = [&](const char* key) {
            return spell(row.value(QLatin1String(key)).toDouble(), text("unit"));
        };
        const QVariant met = row.value(QStringLiteral("met"));
        missed += met.isValid() && !met.toBool() ? 1 : 0;
        const QVariant ratio = row.value(QStringLiteral("ratio"));
        std::printf("| %s | %s | %s | %s | %s | %s | %s |\n", qPrintable(text("work")), qPrintable(amount("ours")),
                    qPrintable(text("reference")), qPrintable(amount("theirs")),
                    ratio.isValid() ? qPrintable(QString::number(ratio.toDouble(), 'g', 3)) : "",
                    qPrintable(text("goal")), met.isValid() ? (met.toBool() ? "met" : "**missed**") : "");
    }
    std::printf("\n%d rows, %d missed\n", rows.size(), missed);
    return !rows.isEmpty();
}

QVector<double> medians(const QVector<std::function<double()>>& samples, double seconds)
{
    QVector<QVector<double>> values(samples.size());
    const double start = wallTime();
    for (int round = 0; round < leastRounds || wallTime() - start < seconds; ++round) {
        for (int i = 0; i < samples.size(); ++i)
            values[i] << samples[i]();
    }
    QVector<double> result;
    for (const QVector<double>& figures : qAsConst(values))
        result << median(figures);
    return result;
}

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.value(values.size() / 2);
}

void keepHeap()
{
#ifdef Q_OS_LINUX
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
#endif
}

void tidyHeap()
{
    constexpr size_t largeBlock = 1U << 20U; // to get one, the heap joins its small ones
    void* volatile block = std::malloc(largeBlock);
    std::free(block);
}

double processorTime()
{
#ifdef Q_OS_WIN
    return wallTime(); // the other one goes by the millisecond there
#else
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
#endif
}

double wallTime()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace bench
