#pragma once

#include "Core/JsonUtils.h"
#include "Core/Result.h"

#include <QSet>
#include <QStringList>

#include <source_location>

namespace VistrelKit {

/// The views the service declares private: tags (decimal text) and class names.
struct VISTREL_AUTOTEST_EXPORT IOSConfig
{
    QStringList blacklist;
    QStringList blacklistClasses;

    /// Decodes the "ios" object of the init reply; both keys are required arrays of strings.
    static Result<IOSConfig> fromJson(const Json &object);

    /// The tags of blacklist. An entry that is no decimal integer is logged from the caller,
    /// "Cannot convert tag to integer", once while it stays in warned: the lists are read at
    /// every capture.
    QSet<int> tags(QSet<QString> *warned,
                   std::source_location where = std::source_location::current()) const;
    /// blacklistClasses, each name once, in their order.
    QStringList classes() const;
    /// Logs from the caller that no class has this name ("Cannot convert class name to class"),
    /// once while it stays in warned.
    static void warnUnknownClass(const QString &className, QSet<QString> *warned,
                                 std::source_location where = std::source_location::current());

    bool operator==(const IOSConfig &other) const = default;
};

} // namespace VistrelKit
