// orvel_bench TOPIC FILE: measures one topic and adds its rows to the file; "table" prints the file.

#include "bench/table.h"
#include "bench/topics.h"

#include <QApplication>
#include <QLoggingCategory>

#include <cstdio>
#include <map>

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    const QString topic = QCoreApplication::arguments().value(1);
    const QString file = QCoreApplication::arguments().value(2);
    if (topic == QLatin1String("table"))
        return bench::Table::print(file) ? 0 : 1;

    const std::map<QString, void (*)(bench::Table&)> topics = {
        {QStringLiteral("codec"), bench::codec},       {QStringLiteral("watching"), bench::watching},
#ifndef Q_OS_WIN
        {QStringLiteral("batching"), bench::batching}, {QStringLiteral("event"), bench::engineEvent},
        {QStringLiteral("flood"), bench::flood},       {QStringLiteral("idle"), bench::idle},
        {QStringLiteral("others"), bench::others},     {QStringLiteral("pipe"), bench::pipe},
        {QStringLiteral("start"), bench::start},       {QStringLiteral("start-windows"), bench::startOnWindows},
#endif
    };
    const auto found = topics.find(topic);
    if (found == topics.end()) {
        std::fprintf(stderr, "No such topic: %s\n", qPrintable(topic));
        return 2;
    }
    bench::Table table;
    found->second(table);
    return table.appendTo(file) ? 0 : 1;
}
