#include "fuzz/slowjson.h"

#include "json/json.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace slowjson
{

namespace
{

/// What is still to be read; each step cuts something off its front.
struct Reader
{
    QString rest;
    int level = 0;
    bool ok = true;

    void skipBlanks()
    {
        while (!rest.isEmpty() && QStringLiteral(" \t\n\r").contains(rest.at(0)))
            rest.remove(0, 1);
    }

    bool next(QChar c)
    {
        skipBlanks();
        return !rest.isEmpty() && rest.at(0) == c;
    }

    bool takeWord(const QString& word)
    {
        if (!rest.startsWith(word))
            return false;
        rest.remove(0, word.size());
        return true;
    }

    QVariant fail()
    {
        ok = false;
        return {};
    }

    QVariant value()
    {
        skipBlanks();
        if (rest.isEmpty())
            return fail();
        const QChar c = rest.at(0);
        if (c == u'"')
            return string();
        if (c == u'-' || (c >= u'0' && c <= u'9'))
            return number();
        if (c == u'{' || c == u'[') {
            if (level == Json::maximumDepth)
                return fail();
            ++level;
            const QVariant result = c == u'{' ? object() : array();
            --level;
            return result;
        }
        if (takeWord(QStringLiteral("true")))
            return true;
        if (takeWord(QStringLiteral("false")))
            return false;
        if (takeWord(QStringLiteral("null")))
            return {};
        return fail();
    }

    /// Whether one of the words of which nothing but brackets, commas and colons remains stands next.
    bool atToken()
    {
        skipBlanks();
        if (rest.isEmpty())
            return false;
        const QChar c = rest.at(0);
        return QStringLiteral("{}[]:,\"-0123456789").contains(c) || rest.startsWith(QLatin1String("true")) ||
               rest.startsWith(QLatin1String("false")) || rest.startsWith(QLatin1String("null"));
    }

    QVariant object()
    {
        QVariantMap map;
        rest.remove(0, 1);
        for (;;) {
            if (!atToken()) {
                ok = false;
                return QVariantMap();
            }
            if (next(u',')) {
                rest.remove(0, 1);
                continue;
            }
            if (next(u'}')) {
                rest.remove(0, 1);
                return map;
            }
            const QString key = string().toString();
            if (!ok)
                return QVariantMap();
            if (!next(u':')) {
                ok = false;
                return QVariantMap();
            }
            rest.remove(0, 1);
            const QVariant member = value();
            if (!ok)
                return QVariantMap();
            map[key] = member;
        }
    }

    QVariant array()
    {
        QVariantList list;
        rest.remove(0, 1);
        for (;;) {
            if (!atToken()) {
                ok = false;
                return QVariantList();
            }
            if (next(u',')) {
                rest.remove(0, 1);
                continue;
            }
            if (next(u']')) {
                rest.remove(0, 1);
                return list;
            }
            const QVariant element = value();
            if (!ok)
                return QVariantList();
            list.append(element);
        }
    }

    QVariant string()
    {
        skipBlanks();
        rest.remove(0, 1); // whatever it is
        QString result;
        for (;;) {
            if (rest.isEmpty())
                return fail();
            const QChar c = rest.at(0);
            rest.remove(0, 1);
            if (c == u'"')
                return result;
            if (c != u'\\') {
                result += c;
                continue;
            }
            if (rest.isEmpty())
                return fail();
            const QChar escape = rest.at(0);
            rest.remove(0, 1);
            const int plain = QStringLiteral("\"\\/bfnrt").indexOf(escape);
            if (plain >= 0) {
                result += QStringLiteral("\"\\/\b\f\n\r\t").at(plain);
            } else if (escape == u'u') {
                if (rest.size() < 4)
                    return fail();
                result += QChar(static_cast<ushort>(rest.left(4).toInt(nullptr, 16)));
                rest.remove(0, 4);
            }
        }
    }

    QVariant number()
    {
        QString run;
        while (!rest.isEmpty() && QStringLiteral("0123456789+-.eE").contains(rest.at(0))) {
            run += rest.at(0);
            rest.remove(0, 1);
        }
        if (run.contains(u'.'))
            return run.toDouble();
        if (run.startsWith(u'-'))
            return run.toLongLong();
        return run.toULongLong();
    }
};

QByteArray quoted(const QString& text)
{
    QString result = QStringLiteral("\"");
    for (const QChar c : text) {
        const int escaped = QStringLiteral("\\\"\b\f\n\r\t").indexOf(c);
        if (escaped >= 0)
            result += QStringLiteral("\\") + QStringLiteral("\\\"bfnrt").at(escaped);
        else
            result += c;
    }
    return (result + u'"').toUtf8();
}

QByteArray joined(const QByteArray& open, const QList<QByteArray>& parts, const QByteArray& close)
{
    return open + ' ' + parts.join(", ") + ' ' + close;
}

QByteArray write(const QVariant& value, int level)
{
    const int type = value.userType();
    if (!value.isValid())
        return "null";
    if (type == QMetaType::QVariantList || type == QMetaType::QStringList) {
        QList<QByteArray> parts;
        const QVariantList list = value.toList();
        for (const QVariant& element : list) {
            parts << write(element, level + 1);
            if (parts.last().isNull())
                return {};
        }
        return level < Json::maximumDepth ? joined("[", parts, "]") : QByteArray();
    }
    if (type == QMetaType::QVariantMap) {
        QList<QByteArray> parts;
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it) {
            const QByteArray text = write(it.value(), level + 1);
            if (text.isNull())
                return {};
            parts << quoted(it.key()) + " : " + text;
        }
        return level < Json::maximumDepth ? joined("{", parts, "}") : QByteArray();
    }
    if (type == QMetaType::QString || type == QMetaType::QByteArray)
        return quoted(value.toString());
    if (type == QMetaType::Double) {
        const QByteArray text = QByteArray::number(value.toDouble(), 'g', 20);
        return text.contains('.') || text.contains('e') ? text : text + ".0";
    }
    if (type == QMetaType::Bool)
        return value.toBool() ? "true" : "false";
    if (type == QMetaType::ULongLong)
        return QByteArray::number(value.toULongLong());
    if (type == QMetaType::LongLong || type == QMetaType::Int)
        return QByteArray::number(value.toLongLong());
    return {};
}

bool comesBackText(const QString& text)
{
    return QString::fromUtf8(text.toUtf8()) == text;
}

} // namespace

QVariant parse(const QString& text, bool& ok)
{
    ok = true;
    if (text.isNull())
        return {};
    Reader reader{text};
    QVariant result = reader.value();
    ok = reader.ok;
    return result;
}

QByteArray serialize(const QVariant& value)
{
    return write(value, 0);
}

bool same(const QVariant& a, const QVariant& b)
{
    if (a.userType() != b.userType())
        return false;
    switch (a.userType()) {
    case QMetaType::QVariantMap: {
        const QVariantMap left = a.toMap();
        const QVariantMap right = b.toMap();
        if (left.keys() != right.keys())
            return false;
        for (auto it = left.begin(); it != left.end(); ++it) {
            if (!same(it.value(), right.value(it.key())))
                return false;
        }
        return true;
    }
    case QMetaType::QVariantList: {
        const QVariantList left = a.toList();
        const QVariantList right = b.toList();
        if (left.size() != right.size())
            return false;
        for (int i = 0; i < left.size(); ++i) {
            if (!same(left.at(i), right.at(i)))
                return false;
        }
        return true;
    }
    case QMetaType::Double:
        return a.toDouble() == b.toDouble() || (std::isnan(a.toDouble()) && std::isnan(b.toDouble()));
    default:
        return a == b;
    }
}

bool comesBack(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it) {
            if (!comesBackText(it.key()) || !comesBack(it.value()))
                return false;
        }
        return true;
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        return std::all_of(list.begin(), list.end(), comesBack);
    }
    case QMetaType::QString:
        return comesBackText(value.toString());
    case QMetaType::Double:
        return std::isfinite(value.toDouble()) && write(value, 0).contains('.');
    case QMetaType::LongLong:
        return value.toLongLong() < 0;
    default:
        return true;
    }
}

} // namespace slowjson
