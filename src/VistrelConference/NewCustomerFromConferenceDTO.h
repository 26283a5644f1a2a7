#pragma once

#include "Core/JsonUtils.h"

#include <Vistrel/vistrelconference_export.h>

#include <optional>

namespace VistrelKit {

/// The customer as join announces them to the service (and start sends again).
struct VISTREL_CONFERENCE_EXPORT NewCustomerFromConferenceDTO
{
    std::optional<QString> firstName;
    std::optional<QString> lastName;
    std::optional<QString> email;
    std::optional<QString> phoneNumber;
    /// Milliseconds since 1970, in decimal.
    std::optional<QString> joinedTimestamp;

    /// Keys in this order; absent fields are left out.
    Json toJson() const;

    bool operator==(const NewCustomerFromConferenceDTO &other) const = default;
};

} // namespace VistrelKit
