#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

#include <functional>
#include <source_location>

namespace VistrelKit {

/// One line per event on standard output, "[LEVEL] Source: message", or to the host's handler.
/// The source is the calling file's name without directory and extension. A line repeated
/// within one turn of the running event loop is passed on once; the end of the turn adds
/// "(repeated N more times: message)": one reply cannot flood the log.
class VISTREL_PRIVATE_EXPORT Log
{
public:
    using Listener = std::function<void(const QString &line)>;
    using Handler =
        std::function<void(const QString &level, const QString &source, const QString &message)>;

    static void debug(const QString &message,
                      std::source_location where = std::source_location::current());
    static void warning(const QString &message,
                        std::source_location where = std::source_location::current());
    static void error(const QString &message,
                      std::source_location where = std::source_location::current());
    static void log(const QString &level, const QString &rawMessage, std::source_location where);

    /// Longer messages are cut, with their full size noted: text from the network can be long.
    static constexpr qsizetype MaxMessageLength = 2000;
    /// message as one line of at most MaxMessageLength characters: line breaks and other control
    /// characters written as escapes, so text from the network cannot start a line of its own.
    static QString oneLine(const QString &message);
    /// Formats a line without printing it.
    static QString formatLine(const QString &level, const QString &message, const char *file);
    /// "src/Vistrel/Api/HttpUtil.cpp" -> "HttpUtil".
    static QString sourceName(const char *file);

    /// Takes every event instead of standard output (the host's routing). Pass {} to remove.
    static void setHandler(Handler handler);
    /// Sees every line after it is printed or handled (used by tests). Pass {} to remove.
    static void setListener(Listener listener);
};

} // namespace VistrelKit
