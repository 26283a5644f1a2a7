#pragma once

#include <QString>

#include <optional>

namespace VistrelKit {

/// The identifiers of the current visit.
struct VisitConfig
{
    std::optional<QString> visitorId;
    std::optional<QString> visitId;
    std::optional<QString> sessionId;
    std::optional<QString> customerId;
};

} // namespace VistrelKit
