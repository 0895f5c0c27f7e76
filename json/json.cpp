#include "json/json.h"

#include <QList>
#include <QStringList>

namespace Json
{

namespace
{

enum Token
{
    JsonTokenNone,
    JsonTokenCurlyOpen,
    JsonTokenCurlyClose,
    JsonTokenSquaredOpen,
    JsonTokenSquaredClose,
    JsonTokenColon,
    JsonTokenComma,
    JsonTokenString,
    JsonTokenNumber,
    JsonTokenTrue,
    JsonTokenFalse,
    JsonTokenNull
};

QVariant parseValue(const QString& json, int& index, bool& success, int depth);

bool isDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

bool isNumberCharacter(QChar c)
{
    switch (c.unicode()) {
    case '+':
    case '-':
    case '.':
    case 'e':
    case 'E':
        return true;
    default:
        return isDigit(c);
    }
}

void eatWhitespace(const QString& json, int& index)
{
    for (; index < json.size(); ++index) {
        switch (json.at(index).unicode()) {
        case ' ':
        case '\t':
        case '\n':
        case '\r':
            break;
        default:
            return;
        }
    }
}

bool standsAt(const QString& json, int index, QLatin1String word)
{
    return QStringView(json).mid(index).startsWith(word);
}

Token nextToken(const QString& json, int& index)
{
    eatWhitespace(json, index);
    if (index == json.size())
        return JsonTokenNone;

    const QChar c = json.at(index++);
    switch (c.unicode()) {
    case '{':
        return JsonTokenCurlyOpen;
    case '}':
        return JsonTokenCurlyClose;
    case '[':
        return JsonTokenSquaredOpen;
    case ']':
        return JsonTokenSquaredClose;
    case ':':
        return JsonTokenColon;
    case ',':
        return JsonTokenComma;
    case '"':
        return JsonTokenString;
    case '-':
        return JsonTokenNumber;
    default:
        if (isDigit(c))
            return JsonTokenNumber;
    }

    --index;
    if (standsAt(json, index, QLatin1String("true"))) {
        index += 4;
        return JsonTokenTrue;
    }
    if (standsAt(json, index, QLatin1String("false"))) {
        index += 5;
        return JsonTokenFalse;
    }
    if (standsAt(json, index, QLatin1String("null"))) {
        index += 4;
        return JsonTokenNull;
    }
    return JsonTokenNone;
}

Token lookAhead(const QString& json, int index)
{
    return nextToken(json, index);
}

int lastIndexOfNumber(const QString& json, int index)
{
    while (index < json.size() && isNumberCharacter(json.at(index)))
        ++index;
    return index - 1;
}

QVariant parseNumber(const QString& json, int& index)
{
    eatWhitespace(json, index);
    const int last = lastIndexOfNumber(json, index);
    const QString run = json.mid(index, last - index + 1);
    index = last + 1;

    if (run.contains(QLatin1Char('.')))
        return run.toDouble();
    if (run.startsWith(QLatin1Char('-')))
        return run.toLongLong();
    return run.toULongLong();
}

/// The character that an escape letter stands for; false for a letter that stands for none.
bool unescape(QChar letter, QChar& character)
{
    switch (letter.unicode()) {
    case '"':
    case '\\':
    case '/':
        character = letter;
        return true;
    case 'b':
        character = QLatin1Char('\b');
        return true;
    case 'f':
        character = QLatin1Char('\f');
        return true;
    case 'n':
        character = QLatin1Char('\n');
        return true;
    case 'r':
        character = QLatin1Char('\r');
        return true;
    case 't':
        character = QLatin1Char('\t');
        return true;
    default:
        return false;
    }
}

QVariant parseString(const QString& json, int& index, bool& success)
{
    constexpr int hexLength = 4;
    eatWhitespace(json, index);
    ++index; // the opening quote, or whatever stands in its place

    QString text;
    while (index < json.size()) {
        // Plain characters are appended by the run, not one by one.
        const int start = index;
        while (index < json.size() && json.at(index) != QLatin1Char('"') && json.at(index) != QLatin1Char('\\'))
            ++index;
        text.append(json.constData() + start, index - start);
        if (index == json.size())
            break;
        if (json.at(index++) == QLatin1Char('"'))
            return text.isNull() ? QString(QLatin1String("")) : text;

        if (index == json.size())
            break;
        const QChar letter = json.at(index++);
        QChar character;
        if (unescape(letter, character)) {
            text.append(character);
        } else if (letter == QLatin1Char('u')) {
            if (json.size() - index < hexLength)
                break;
            const int unit = json.midRef(index, hexLength).toInt(nullptr, 16);
            text.append(QChar(static_cast<ushort>(unit)));
            index += hexLength;
        }
    }
    success = false;
    return {};
}

QVariant parseObject(const QString& json, int& index, bool& success, int depth)
{
    QVariantMap map;
    nextToken(json, index);
    for (;;) {
        switch (lookAhead(json, index)) {
        case JsonTokenNone:
            success = false;
            return QVariantMap();
        case JsonTokenComma:
            nextToken(json, index);
            continue;
        case JsonTokenCurlyClose:
            nextToken(json, index);
            return map;
        default:
            break;
        }

        const QString key = parseString(json, index, success).toString();
        if (!success)
            return QVariantMap();
        if (nextToken(json, index) != JsonTokenColon) {
            success = false;
            return QVariantMap();
        }
        const QVariant value = parseValue(json, index, success, depth);
        if (!success)
            return QVariantMap();
        map.insert(key, value);
    }
}

QVariant parseArray(const QString& json, int& index, bool& success, int depth)
{
    QVariantList list;
    nextToken(json, index);
    for (;;) {
        switch (lookAhead(json, index)) {
        case JsonTokenNone:
            success = false;
            return QVariantList();
        case JsonTokenComma:
            nextToken(json, index);
            continue;
        case JsonTokenSquaredClose:
            nextToken(json, index);
            return list;
        default:
            break;
        }

        const QVariant value = parseValue(json, index, success, depth);
        if (!success)
            return QVariantList();
        list.append(value);
    }
}

/// @p depth counts the objects and arrays around the value.
QVariant parseValue(const QString& json, int& index, bool& success, int depth)
{
    switch (lookAhead(json, index)) {
    case JsonTokenString:
        return parseString(json, index, success);
    case JsonTokenNumber:
        return parseNumber(json, index);
    case JsonTokenCurlyOpen:
        if (depth < maximumDepth)
            return parseObject(json, index, success, depth + 1);
        break;
    case JsonTokenSquaredOpen:
        if (depth < maximumDepth)
            return parseArray(json, index, success, depth + 1);
        break;
    case JsonTokenTrue:
        nextToken(json, index);
        return true;
    case JsonTokenFalse:
        nextToken(json, index);
        return false;
    case JsonTokenNull:
        nextToken(json, index);
        return {};
    default:
        break;
    }
    success = false;
    return {};
}

QString sanitizeString(QString str)
{
    str.replace(QLatin1String("\\"), QLatin1String("\\\\"));
    str.replace(QLatin1String("\""), QLatin1String("\\\""));
    str.replace(QLatin1String("\b"), QLatin1String("\\b"));
    str.replace(QLatin1String("\f"), QLatin1String("\\f"));
    str.replace(QLatin1String("\n"), QLatin1String("\\n"));
    str.replace(QLatin1String("\r"), QLatin1String("\\r"));
    str.replace(QLatin1String("\t"), QLatin1String("\\t"));
    return QStringLiteral("\"%1\"").arg(str);
}

QByteArray join(const QList<QByteArray>& list, const QByteArray& sep)
{
    QByteArray joined;
    for (const QByteArray& element : list) {
        if (!joined.isEmpty())
            joined += sep;
        joined += element;
    }
    return joined;
}

QByteArray serializeValue(const QVariant& data, bool& success, int depth);

QByteArray serializeList(const QVariantList& list, bool& success, int depth)
{
    QList<QByteArray> elements;
    for (const QVariant& element : list) {
        const QByteArray text = serializeValue(element, success, depth);
        if (text.isNull()) {
            success = false;
            return {};
        }
        elements << text;
    }
    return "[ " + join(elements, ", ") + " ]";
}

template<typename Map>
QByteArray serializePairs(const Map& map, bool& success, int depth)
{
    QList<QByteArray> pairs;
    for (auto pair = map.cbegin(); pair != map.cend(); ++pair) {
        const QByteArray text = serializeValue(pair.value(), success, depth);
        if (text.isNull()) {
            success = false;
            return {};
        }
        pairs << sanitizeString(pair.key()).toUtf8() + " : " + text;
    }
    return "{ " + join(pairs, ", ") + " }";
}

QByteArray serializeDouble(double value)
{
    constexpr int significantDigits = 20;
    QByteArray text = QByteArray::number(value, 'g', significantDigits);
    if (!text.contains('.') && !text.contains('e'))
        text += ".0";
    return text;
}

QByteArray serializeScalar(const QVariant& data, bool& success)
{
    switch (data.userType()) {
    case QMetaType::QString:
    case QMetaType::QByteArray:
        return sanitizeString(data.toString()).toUtf8();
    case QMetaType::Double:
        return serializeDouble(data.toDouble());
    case QMetaType::Bool:
        return data.toBool() ? "true" : "false";
    case QMetaType::ULongLong:
        return QByteArray::number(data.toULongLong());
    default:
        break;
    }
    if (data.canConvert<qlonglong>())
        return QByteArray::number(data.toLongLong());
    if (data.canConvert<long>())
        return QString::number(data.value<long>(), 10).toUtf8();
    if (data.canConvert<QString>())
        return sanitizeString(data.toString()).toUtf8();
    success = false;
    return {};
}

/// @p depth counts the lists and maps around the value.
QByteArray serializeValue(const QVariant& data, bool& success, int depth)
{
    if (!data.isValid())
        return "null";
    switch (data.userType()) {
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
    case QMetaType::QVariantHash:
    case QMetaType::QVariantMap:
        if (depth == maximumDepth) {
            success = false;
            return {};
        }
        break;
    default:
        return serializeScalar(data, success);
    }
    switch (data.userType()) {
    case QMetaType::QVariantHash:
        return serializePairs(data.toHash(), success, depth + 1);
    case QMetaType::QVariantMap:
        return serializePairs(data.toMap(), success, depth + 1);
    default:
        return serializeList(data.toList(), success, depth + 1);
    }
}

} // namespace

QVariant parse(const QString& json, bool& success)
{
    success = true;
    if (json.isNull())
        return {};
    int index = 0;
    return parseValue(json, index, success, 0);
}

QVariant parse(const QString& json)
{
    bool ignored = true;
    return parse(json, ignored);
}

QByteArray serialize(const QVariant& data, bool& success)
{
    success = true;
    const QByteArray text = serializeValue(data, success, 0);
    return success ? text : QByteArray();
}

QByteArray serialize(const QVariant& data)
{
    bool ignored = true;
    return serialize(data, ignored);
}

} // namespace Json
