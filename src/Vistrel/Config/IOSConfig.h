#pragma once

#include "Core/JsonUtils.h"
#include "Core/Result.h"

#include <QStringList>

namespace VistrelKit {

/// The views the service declares private: tags (decimal text) and class names.
struct VISTREL_AUTOTEST_EXPORT IOSConfig
{
    QStringList blacklist;
    QStringList blacklistClasses;

    /// Decodes the "ios" object of the init reply; both keys are required arrays of strings.
    static Result<IOSConfig> fromJson(const Json &object);

    bool operator==(const IOSConfig &other) const = default;
};

} // namespace VistrelKit
