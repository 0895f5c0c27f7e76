#include "bench/foreign.h"
#include "bench/table.h"
#include "bench/topics.h"
#include "engine/engineconfig.h"
#include "json/json.h"

#include <QJsonDocument>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

constexpr int kibibyte = 1024;
constexpr int largeText = 32 * kibibyte;

struct Text
{
    QString name;
    QByteArray bytes;
};

QByteArray networkState()
{
    return "{\"what\":\"networkstate\",\"state\":\"transferring\",\"uid\":1001,\"bps\":2097152,\"uploads\":128,"
           "\"downloads\":64,\"timerem\":3600}";
}

QByteArray rootsFile()
{
    constexpr int count = 2000;
    QVariantList roots;
    for (int i = 0; i < count; ++i) {
        roots << QVariantMap{{QStringLiteral("name"), QStringLiteral("Orvel Storage %1").arg(i)},
                             {QStringLiteral("path"), QStringLiteral("/home/marjeta/Dokumenti/delo/%1").arg(i * 7919)}};
    }
    return Json::serialize(roots);
}

QByteArray configFile()
{
    const Machine machine = Machine::current();
    EngineConfig config;
    config.setFirstRunDefaults(machine);
    config.homepath = QStringLiteral("/home/marjeta");
    config.homefolder = QStringLiteral("Orvel Storage");
    config.statedir = QStringLiteral("/home/marjeta/.local/share/orvel");
    return Json::serialize(config.toMap(machine));
}

QByteArray changeReport()
{
    constexpr int count = 5000;
    QByteArray text = "{ \"cmd\" : \"pathschaned\", \"paths\" : [ ";
    for (int i = 0; i < count; ++i) {
        text += i == 0 ? "\"" : ", \"";
        text += "C:\\\\Users\\\\Marjeta \\u010cre\\u0161nar\\\\Orvel Storage\\\\Po\xc4\x8ditnice \xc5\xa1t. ";
        text += QByteArray::number(i) + "\\\\izvirniki\"";
    }
    return text + " ] }";
}

/// Folders in folders, each with what an index knows about it, of at least @p size bytes.
QByteArray nestedObjects(int size)
{
    constexpr int children = 4;
    int number = 0;
    const std::function<QByteArray(int)> folder = [&](int depth) {
        const QByteArray id = QByteArray::number(++number);
        QByteArray text = "{ \"children\" : { ";
        for (int i = 0; i < children && depth > 0; ++i)
            text += (i == 0 ? "\"mapa " : ", \"mapa ") + QByteArray::number(i) + "\" : " + folder(depth - 1);
        return text + " }, \"id\" : " + id + ", \"modified\" : 15300" + id + ", \"name\" : \"Fotografije " + id +
               "\", \"shared\" : false, \"state\" : \"synced\" }";
    };
    constexpr int depth = 4;
    QByteArray text = "{ ";
    for (int i = 0; text.size() < size; ++i)
        text += (i == 0 ? "\"koren " : ", \"koren ") + QByteArray::number(i) + "\" : " + folder(depth);
    return text + " }";
}

/// The floor: the same tree from values that are ready, each text as characters that must be copied.
QVariant rebuilt(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QVariantMap: {
        QVariantMap map;
        const auto& source = *static_cast<const QVariantMap*>(value.constData());
        for (auto pair = source.cbegin(); pair != source.cend(); ++pair)
            map.insert(QString(pair.key().constData(), pair.key().size()), rebuilt(pair.value()));
        return map;
    }
    case QMetaType::QVariantList: {
        QVariantList list;
        for (const QVariant& element : *static_cast<const QVariantList*>(value.constData()))
            list.append(rebuilt(element));
        return list;
    }
    case QMetaType::QString: {
        const auto& source = *static_cast<const QString*>(value.constData());
        return QString(source.constData(), source.size());
    }
    case QMetaType::Double:
        return value.toDouble();
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::ULongLong:
        return value.toULongLong();
    default:
        return {};
    }
}

/// Samples of @p work; small texts are taken many at a time.
template<typename Work>
std::function<double()> sampleOf(const Text& text, const Work& work)
{
    const int count = std::max(1, largeText / text.bytes.size());
    return [=, size = text.bytes.size()] {
        if (size >= largeText)
            bench::tidyHeap();
        return bench::timeOf(work, count);
    };
}

void require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

void measure(bench::Table& table, const Text& text)
{
    constexpr double seconds = 3;
    const QByteArray& bytes = text.bytes;
    const QString unicode = QString::fromUtf8(bytes);
    const QVariant tree = Json::parse(unicode);
    require(tree == rebuilt(tree), "The floor is another tree");

    QVector<std::function<double()>> samples{
        sampleOf(text, [&] { return Json::parse(unicode); }),
        sampleOf(text, [&] { return Json::parse(QString::fromUtf8(bytes)); }),
        sampleOf(text, [&] { return QJsonDocument::fromJson(bytes).toVariant(); }),
        sampleOf(text, [&] { return rebuilt(tree); }),
        sampleOf(text, [&] { return Json::serialize(tree); }),
        sampleOf(text, [&] { return QJsonDocument::fromVariant(tree).toJson(); }),
    };
    const int own = samples.size();
    const QVector<foreign::Parser> parsers = foreign::parsers();
    for (const foreign::Parser& parser : parsers) {
        require(tree == parser.parse(bytes), "The parsers do not agree");
        samples << sampleOf(text, [&] { return parser.parse(bytes); });
    }
    const auto figures = bench::medians(samples, seconds);
    const double parse = figures[0];
    const double parseBytes = figures[1];
    const QString parsing = QStringLiteral("parse ") + text.name;
    const QString fromBytes = parsing + QStringLiteral(", from UTF-8");
    table.faster(parsing, QStringLiteral("QJsonDocument"), parse, figures[2], 2.5);
    table.within(parsing, QStringLiteral("ready values"), parse, figures[3], QStringLiteral("s"), 1.3);
    table.shown(fromBytes, QStringLiteral("QJsonDocument"), parseBytes, figures[2]);
    for (int i = 0; i < parsers.size(); ++i)
        table.shown(fromBytes, parsers[i].name, parseBytes, figures[own + i]);
    table.faster(QStringLiteral("serialize ") + text.name, QStringLiteral("QJsonDocument"), figures[4], figures[5], 6);
}

void measureGrowth(bench::Table& table, const Text& small, const Text& large)
{
    constexpr double seconds = 5;
    const QString smallText = QString::fromUtf8(small.bytes);
    const QString largeUnicode = QString::fromUtf8(large.bytes);
    const QVariant smallTree = Json::parse(smallText);
    const QVariant largeTree = Json::parse(largeUnicode);
    const auto figures = bench::medians(
        {
            sampleOf(small, [&] { return Json::parse(smallText); }),
            sampleOf(large, [&] { return Json::parse(largeUnicode); }),
            sampleOf(small, [&] { return Json::serialize(smallTree); }),
            sampleOf(large, [&] { return Json::serialize(largeTree); }),
            sampleOf(small, [&] { return rebuilt(smallTree); }),
            sampleOf(large, [&] { return rebuilt(largeTree); }),
        },
        seconds);
    const QString reference = QStringLiteral("a byte of ") + small.name;
    const double smallSize = small.bytes.size();
    const double largeSize = large.bytes.size();
    const QString unit = QStringLiteral("s");
    table.within(QStringLiteral("parse a byte of ") + large.name, reference, figures[1] / largeSize,
                 figures[0] / smallSize, unit, 1.15);
    table.within(QStringLiteral("serialize a byte of ") + large.name, reference, figures[3] / largeSize,
                 figures[2] / smallSize, unit, 1.15);
    table.shown(QStringLiteral("ready values: a byte of ") + large.name, reference, figures[5] / largeSize,
                figures[4] / smallSize, unit);
}

} // namespace

void bench::codec(Table& table)
{
    keepHeap();
    const Text small{QStringLiteral("64 KiB of nested objects"), nestedObjects(64 * kibibyte)};
    const Text large{QStringLiteral("64 MiB of nested objects"), nestedObjects(64 * kibibyte * kibibyte)};
    measure(table, {QStringLiteral("a network state line"), networkState()});
    measure(table, {QStringLiteral("a roots file of 2,000"), rootsFile()});
    measure(table, {QStringLiteral("config.json"), configFile()});
    measure(table, {QStringLiteral("a report of 5,000 paths"), changeReport()});
    measure(table, large);
    measureGrowth(table, small, large);
}
