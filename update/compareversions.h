#pragma once

#include <QString>

namespace qtsparkle
{

/// Whether version @p a is older than version @p b. Numbers count as numbers ("1.9" is older than "1.10"),
/// and text after a version makes it an earlier one ("1.0rc" is older than "1.0"). Not every pair has an
/// order: when the kinds of two components differ, text is the older one.
bool IsOlder(const QString& a, const QString& b);

} // namespace qtsparkle
