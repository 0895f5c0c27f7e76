// Versions: none is older than itself, of two at most one is older, and the plain comparison agrees.

#include "fuzz/fuzz.h"
#include "update/compareversions.h"

#include <QStringList>

namespace
{

/// A dot, a run of digits or a run of anything else.
QStringList split(const QString& version)
{
    QStringList result;
    for (int i = 0; i < version.size(); ++i) {
        const QChar c = version.at(i);
        const QChar before = i > 0 ? version.at(i - 1) : QChar(u'.');
        if (c == u'.' || before == u'.' || c.isDigit() != before.isDigit())
            result << QString();
        result.last() += c;
    }
    return result;
}

enum Class
{
    Dot,
    Number,
    Text,
    Nothing
};

Class classOf(const QStringList& components, int i)
{
    if (i >= components.size())
        return Nothing;
    const QChar first = components.at(i).at(0);
    return first == u'.' ? Dot : first.isDigit() ? Number : Text;
}

/// Text sorts before the end, the end before a dot, a dot before a number.
int rank(Class c)
{
    return c == Text ? 0 : c == Nothing ? 1 : c == Dot ? 2 : 3;
}

bool isOlder(const QString& a, const QString& b)
{
    const QStringList left = split(a);
    const QStringList right = split(b);
    for (int i = 0; i < left.size() || i < right.size(); ++i) {
        const Class leftClass = classOf(left, i);
        const Class rightClass = classOf(right, i);
        if (leftClass != rightClass)
            return rank(leftClass) < rank(rightClass);
        if (leftClass == Number && left.at(i).toInt() != right.at(i).toInt())
            return left.at(i).toInt() < right.at(i).toInt();
        if (leftClass == Text && left.at(i) != right.at(i))
            return left.at(i) < right.at(i);
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A zero byte divides the two.
    const QByteArrayList parts = fuzz::bytes(data, size).split('\0');
    const QString a = QString::fromUtf8(parts.value(0));
    const QString b = QString::fromUtf8(parts.value(1));
    const bool older = qtsparkle::IsOlder(a, b);
    fuzz::require(older == isOlder(a, b), "plain comparison");
    fuzz::require(!older || !qtsparkle::IsOlder(b, a), "one of two");
    fuzz::require(!qtsparkle::IsOlder(a, a), "itself");
    return 0;
}
