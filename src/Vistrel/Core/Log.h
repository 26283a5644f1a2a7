#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

#include <functional>
#include <source_location>

namespace VistrelKit {

/// One line per event on standard output: "[LEVEL] Source: message".
/// The source is the calling file's name without directory and extension.
class VISTREL_EXPORT Log
{
public:
    using Listener = std::function<void(const QString &line)>;

    static void debug(const QString &message,
                      std::source_location where = std::source_location::current());
    static void warning(const QString &message,
                        std::source_location where = std::source_location::current());
    static void error(const QString &message,
                      std::source_location where = std::source_location::current());
    static void log(const QString &level, const QString &message, std::source_location where);

    /// Formats a line without printing it.
    static QString formatLine(const QString &level, const QString &message, const char *file);
    /// "src/Vistrel/Api/HttpUtil.cpp" -> "HttpUtil".
    static QString sourceName(const char *file);

    /// Sees every line after it is printed (used by tests and the demo). Pass {} to remove.
    static void setListener(Listener listener);
};

} // namespace VistrelKit
