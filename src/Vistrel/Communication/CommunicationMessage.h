#pragma once

#include "Communication/CommunicationChannel.h"
#include "Core/JsonUtils.h"
#include "Core/Result.h"

#include <Vistrel/vistrel_export.h>

namespace VistrelKit {

/// One message on a channel: {"channel": "COQS", "payload": "4"}.
struct VISTREL_PRIVATE_EXPORT CommunicationMessage
{
    CommunicationChannel channel = CommunicationChannel::SCB;
    QString payload;

    Json toJson() const;
    /// Fails on anything but an object with a known "channel" and a string "payload".
    static Result<CommunicationMessage> fromJson(const Json &json);

    friend bool operator==(const CommunicationMessage &, const CommunicationMessage &) = default;
};

} // namespace VistrelKit
