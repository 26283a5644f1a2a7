#pragma once

#include "Communication/CommunicationMessage.h"

#include <QString>

#include <functional>

namespace VistrelKit {

/// One listener of the poll: what it asks for and who receives the answers.
struct RegisteredClient
{
    using Callback = std::function<void(const CommunicationMessage &message)>;

    /// The registry key; registering the same id again replaces the client.
    QString id;
    CommunicationChannel channel = CommunicationChannel::SCB;
    /// Seconds between polls that this client wants; the runner follows the smallest.
    double rate = 0;
    /// Receives each message on the client's channel; may do nothing.
    Callback callback = [](const CommunicationMessage &) {};
    /// Sent on the channel with every poll when not empty.
    QString payload;
    /// Query-style text appended to the poll's "additionalProperties" when not empty.
    QString additionalParams;
};

} // namespace VistrelKit
