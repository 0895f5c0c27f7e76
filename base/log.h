#pragma once

#include <QLoggingCategory>
#include <QtDebug>

namespace base
{

inline const QLoggingCategory& log()
{
    return *QLoggingCategory::defaultCategory();
}

/// How a boolean stands in a log line.
inline const char* text(bool value)
{
    return value ? "true" : "false";
}

} // namespace base

/// One line of the log: debug level, category "default", items joined by one blank each, texts as they
/// stand (no quotes, no escapes). While the category is off, nothing to the right is evaluated.
#define ORVEL_LOG qCDebug(base::log).noquote() // NOLINT(cppcoreguidelines-macro-usage)
