#include "json/asciijson.h"

#include <QString>

QByteArray asciiJson(const QByteArray& json)
{
    QByteArray ascii;
    const QString text = QString::fromUtf8(json.constData(), json.size()); // zero bytes included
    for (const QChar c : text) {
        if (c.unicode() != 0 && c.unicode() < 0x80)
            ascii += static_cast<char>(c.unicode());
        else
            ascii += "\\u" + QByteArray::number(c.unicode(), 16).rightJustified(4, '0');
    }
    return ascii;
}
