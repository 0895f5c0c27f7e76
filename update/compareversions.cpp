#include "update/compareversions.h"

#include <QStringList>

namespace qtsparkle
{

namespace
{

enum class Kind
{
    Separator,
    Number,
    Text
};

Kind kindOf(QChar c)
{
    if (c == QLatin1Char('.'))
        return Kind::Separator;
    return c.isDigit() ? Kind::Number : Kind::Text;
}

Kind kindOf(const QString& component)
{
    return kindOf(component.at(0));
}

/// Runs of one kind; every separator stands alone.
QStringList split(const QString& version)
{
    QStringList components;
    for (const QChar c : version) {
        const Kind kind = kindOf(c);
        if (!components.isEmpty() && kind != Kind::Separator && kind == kindOf(components.last()))
            components.last().append(c);
        else
            components.append(QString(c));
    }
    return components;
}

} // namespace

bool IsOlder(const QString& a, const QString& b)
{
    const QStringList left = split(a);
    const QStringList right = split(b);
    const int common = qMin(left.size(), right.size());
    for (int i = 0; i < common; ++i) {
        const Kind leftKind = kindOf(left.at(i));
        const Kind rightKind = kindOf(right.at(i));
        if (leftKind != rightKind) {
            if (rightKind == Kind::Text)
                return false;
            return leftKind == Kind::Text || leftKind == Kind::Separator;
        }
        if (leftKind == Kind::Number && left.at(i).toInt() != right.at(i).toInt())
            return left.at(i).toInt() < right.at(i).toInt();
        if (leftKind == Kind::Text && left.at(i) != right.at(i))
            return left.at(i) < right.at(i);
    }
    if (left.size() > common)
        return kindOf(left.at(common)) == Kind::Text;
    if (right.size() > common)
        return kindOf(right.at(common)) != Kind::Text;
    return false;
}

} // namespace qtsparkle
