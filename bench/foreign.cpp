#include "bench/foreign.h"

#include <QString>

#include <nlohmann/json.hpp>
#include <rapidjson/reader.h>
#include <simdjson.h>

#include <cstdlib>
#include <string_view>
#include <vector>

namespace
{

QString text(std::string_view utf8)
{
    return QString::fromUtf8(utf8.data(), static_cast<int>(utf8.size()));
}

/// Builds the tree from what a parser meets, in its order.
class Builder
{
public:
    bool value(const QVariant& value)
    {
        if (m_open.empty()) {
            m_root = value;
        } else if (m_open.back().isMap) {
            m_open.back().map.insert(m_open.back().key, value);
        } else {
            m_open.back().list.append(value);
        }
        return true;
    }
    bool number(qint64 number)
    {
        return number < 0 ? value(static_cast<qlonglong>(number)) : value(static_cast<qulonglong>(number));
    }
    bool open(bool isMap)
    {
        m_open.emplace_back();
        m_open.back().isMap = isMap;
        return true;
    }
    bool key(std::string_view utf8)
    {
        m_open.back().key = text(utf8);
        return true;
    }
    bool close()
    {
        const Level level = std::move(m_open.back());
        m_open.pop_back();
        return level.isMap ? value(level.map) : value(level.list);
    }
    const QVariant& root() const
    {
        return m_root;
    }

private:
    struct Level
    {
        bool isMap = false;
        QVariantMap map;
        QVariantList list;
        QString key;
    };
    std::vector<Level> m_open;
    QVariant m_root;
};

struct RapidHandler : Builder
{
    using Size = rapidjson::SizeType;

    bool Null()
    {
        return value({});
    }
    bool Bool(bool b)
    {
        return value(b);
    }
    bool Int(int i)
    {
        return number(i);
    }
    bool Uint(unsigned u)
    {
        return value(static_cast<qulonglong>(u));
    }
    bool Int64(int64_t i)
    {
        return number(i);
    }
    bool Uint64(uint64_t u)
    {
        return value(static_cast<qulonglong>(u));
    }
    bool Double(double d)
    {
        return value(d);
    }
    bool RawNumber(const char* /*digits*/, Size /*size*/, bool /*copy*/)
    {
        return false;
    }
    bool String(const char* s, Size size, bool /*copy*/)
    {
        return value(text({s, size}));
    }
    bool StartObject()
    {
        return open(true);
    }
    bool Key(const char* s, Size size, bool /*copy*/)
    {
        return key({s, size});
    }
    bool EndObject(Size /*members*/)
    {
        return close();
    }
    bool StartArray()
    {
        return open(false);
    }
    bool EndArray(Size /*elements*/)
    {
        return close();
    }
};

struct NlohmannHandler : Builder
{
    bool null()
    {
        return value({});
    }
    bool boolean(bool b)
    {
        return value(b);
    }
    bool number_integer(int64_t i)
    {
        return number(i);
    }
    bool number_unsigned(uint64_t u)
    {
        return value(static_cast<qulonglong>(u));
    }
    bool number_float(double d, const std::string& /*spelling*/)
    {
        return value(d);
    }
    bool string(std::string& s)
    {
        return value(text(s));
    }
    bool binary(std::vector<uint8_t>& /*bytes*/)
    {
        return false;
    }
    bool start_object(size_t /*members*/)
    {
        return open(true);
    }
    bool key(std::string& s)
    {
        return Builder::key(s);
    }
    bool end_object()
    {
        return close();
    }
    bool start_array(size_t /*elements*/)
    {
        return open(false);
    }
    bool end_array()
    {
        return close();
    }
    bool parse_error(size_t /*at*/, const std::string& /*token*/, const std::exception& /*error*/)
    {
        return false;
    }
};

QVariant toVariant(const simdjson::dom::element& element)
{
    using Type = simdjson::dom::element_type;
    switch (element.type()) {
    case Type::OBJECT: {
        QVariantMap map;
        for (const auto& member : simdjson::dom::object(element))
            map.insert(text(member.key), toVariant(member.value));
        return map;
    }
    case Type::ARRAY: {
        QVariantList list;
        for (const auto& child : simdjson::dom::array(element))
            list.append(toVariant(child));
        return list;
    }
    case Type::STRING:
        return text(std::string_view(element));
    case Type::INT64: {
        const int64_t number = element;
        return number < 0 ? QVariant(static_cast<qlonglong>(number)) : QVariant(static_cast<qulonglong>(number));
    }
    case Type::UINT64:
        return static_cast<qulonglong>(uint64_t(element));
    case Type::DOUBLE:
        return double(element);
    case Type::BOOL:
        return bool(element);
    default:
        return {};
    }
}

QVariant rapidJson(const QByteArray& json)
{
    RapidHandler handler;
    rapidjson::StringStream stream(json.constData());
    rapidjson::Reader().Parse(stream, handler);
    return handler.root();
}

QVariant simdJson(const QByteArray& json)
{
    static simdjson::dom::parser parser; // it is meant to be kept
    simdjson::dom::element root;
    if (parser.parse(json.constData(), static_cast<size_t>(json.size())).get(root) != simdjson::SUCCESS)
        std::abort();
    return toVariant(root);
}

QVariant nlohmannJson(const QByteArray& json)
{
    NlohmannHandler handler;
    nlohmann::json::sax_parse(json.cbegin(), json.cend(), &handler);
    return handler.root();
}

} // namespace

QVector<foreign::Parser> foreign::parsers()
{
    return {{QStringLiteral("RapidJSON"), rapidJson},
            {QStringLiteral("simdjson"), simdJson},
            {QStringLiteral("nlohmann-json"), nlohmannJson}};
}
