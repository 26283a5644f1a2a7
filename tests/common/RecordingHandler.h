#pragma once

#include "Network/Bidirectional/BidirectionalMessageHandler.h"

#include <QList>

/// A handler that only keeps every command the parser hands on, so transport tests see what
/// arrived without the device acting on it.
class RecordingHandler : public VistrelKit::BidirectionalMessageHandler
{
public:
    RecordingHandler()
        : BidirectionalMessageHandler(nullptr, nullptr)
    {}
    void handle(const VistrelKit::BidirectionalMessage &message) override
    {
        messages.append(message);
    }
    QList<VistrelKit::BidirectionalMessage> messages;
};
