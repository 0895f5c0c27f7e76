#pragma once

#include <QByteArray>
#include <QVariant>

/// Other parsers, each doing what the codec does: bytes into the same tree of values.
namespace foreign
{

QVariant rapidJson(const QByteArray& json);
QVariant simdJson(const QByteArray& json);
QVariant nlohmannJson(const QByteArray& json);

} // namespace foreign
