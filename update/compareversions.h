#pragma once

#include <QString>

namespace qtsparkle
{

/// Whether version @p a is older than version @p b. Numbers count as numbers ("1.9" is older than "1.10"),
/// and text after a version makes it an earlier one ("1.0rc" is older than "1.0"). Where the kinds of two
/// components differ, text is older than a separator, and a separator older than a number. This orders all
/// versions; those that differ only in leading zeros rank equally. A number too large for an int counts as 0.
bool IsOlder(const QString& a, const QString& b);

} // namespace qtsparkle
