#include "bench/table.h"
#include "bench/topics.h"
#include "engine/servercomm.h"
#include "syncfolder/syncfolder.h"

#include <vector>

namespace
{

constexpr int listSize = 500;

/// Seconds from the first list to the end of the report, which the link writes out for the engine.
double gather(SyncFolder& folder, int paths)
{
    std::vector<QStringList*> lists;
    for (int i = 0; i < paths; ++i) {
        if (i % listSize == 0)
            lists.push_back(new QStringList);
        *lists.back() << QStringLiteral("/home/marjeta/Orvel Storage/Fotografije/%1/izvirniki").arg(i);
    }
    bench::tidyHeap();
    const double start = bench::processorTime();
    for (QStringList* list : lists)
        QMetaObject::invokeMethod(&folder, "extPathsChanged", Q_ARG(QStringList*, list));
    // The first timer only starts the second one when more has come meanwhile.
    QMetaObject::invokeMethod(&folder, "reportTimeout");
    if (lists.size() > 1)
        QMetaObject::invokeMethod(&folder, "reportTimeout");
    return bench::processorTime() - start;
}

} // namespace

void bench::batching(Table& table)
{
    constexpr int many = 262140;
    constexpr int few = many / 100;
    keepHeap();
    ServerComm server(QStringLiteral("Orvel Storage"), QStringLiteral("Velmora d.d."), false);
    SyncFolder folder(&server, nullptr);
    QObject::connect(&folder, SIGNAL(pathsChanged(QStringList&)), &server, SLOT(observedPathsChanged(QStringList&)));
    const auto figures = medians({[&] { return gather(folder, many); },
                                  [&] {
                                      return gather(folder, few);
                                  }},
                                 5);
    table.within(QStringLiteral("gather and report 262,140 paths, a path"), QStringLiteral("of 2,621"),
                 figures[0] / many, figures[1] / few, QStringLiteral("s"), 1.3);
    table.atMost(QStringLiteral("gather and report 262,140 paths"), QStringLiteral("2,621 paths"), figures[0],
                 figures[1], QStringLiteral("s"), 0.3);
}
