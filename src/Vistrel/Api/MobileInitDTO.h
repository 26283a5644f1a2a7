#pragma once

#include "Api/PageProperties.h"
#include "Core/JsonUtils.h"

#include <Vistrel/vistrel_export.h>

#include <QString>

namespace VistrelKit {

/// The body of the init request, keys in the service's order.
struct VISTREL_AUTOTEST_EXPORT MobileInitDTO
{
    QString shareId;
    QString redirectId;
    QString url;
    qint64 start = 0;
    bool initialize = false;
    PageProperties page;
    QString visitorId;
    QString sessionId;
    QString visitId;
    QString tenantId;
    bool optIn = false;

    Json toJson() const;
};

} // namespace VistrelKit
