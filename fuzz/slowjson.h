#pragma once

#include <QString>
#include <QVariant>

/// The codec once more, as plain as it can be written and with no eye to speed: what the real one is held to.
namespace slowjson
{

QVariant parse(const QString& text, bool& ok);
/// Null when the value has no form in JSON.
QByteArray serialize(const QVariant& value);

/// Whether both hold the same, types included.
bool same(const QVariant& a, const QVariant& b);

/// Whether the value comes back the same after being written and read. Not so: halves of surrogate pairs,
/// numbers beyond all bounds, numbers that are written with an exponent and no point, and a negative type
/// for a number that is not.
bool comesBack(const QVariant& value);

} // namespace slowjson
