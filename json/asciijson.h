#pragma once

#include <QByteArray>

/// The same JSON text with every character beyond ASCII, and a zero character, as an escape: for readers of single
/// bytes. @p json is UTF-8.
QByteArray asciiJson(const QByteArray& json);
