#pragma once

#include <Vistrel/vistrelconference_export.h>

#include <QString>

#include <optional>

namespace VistrelKit {

/// The customer who joins a video call with an agent, as the host app knows them.
struct VISTREL_CONFERENCE_EXPORT ConferenceProperties
{
    /// The customer's id at the service; join() and start() need it.
    std::optional<QString> customerId;
    std::optional<QString> firstname;
    std::optional<QString> lastname;
    /// The name shown to the agent in the call.
    std::optional<QString> displayName;
    std::optional<QString> email;
    std::optional<QString> phoneNumber;

    bool operator==(const ConferenceProperties &other) const = default;
};

} // namespace VistrelKit
