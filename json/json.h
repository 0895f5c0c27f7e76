#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

/// The JSON codec of the engine link, the configuration and the roots files.
///
/// It reads a slightly looser grammar than standard JSON and writes a fixed layout; both are part of the
/// contract with the engine and with files already on disk. Objects are `QVariantMap` (the last of equal
/// keys wins), arrays `QVariantList`, strings `QString`, numbers `qlonglong` (negative), `qulonglong`
/// (other integers) or `double` (with a decimal point), "null" an invalid `QVariant`.
///
/// All functions are re-entrant and may be called from any thread. Nothing is thrown or logged.
namespace Json
{

/// Objects and arrays nested deeper than this fail to parse and to serialise, whoever sent them.
constexpr int maximumDepth = 1024;

/// Reads the first value of @p json; text after it is ignored. A null text gives an invalid value and
/// success; on failure @p success is false and the result is what the failing level had: an invalid
/// value, or an empty map or list.
QVariant parse(const QString& json, bool& success);
QVariant parse(const QString& json);

/// Writes @p data as UTF-8. When it holds something that has no JSON form, @p success is false and the
/// result is a null byte array.
QByteArray serialize(const QVariant& data, bool& success);
QByteArray serialize(const QVariant& data);

} // namespace Json
