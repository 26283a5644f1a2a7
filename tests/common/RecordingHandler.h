#pragma once

#include "Network/Bidirectional/BidirectionalMessageHandler.h"

#include <QList>

/// A handler that keeps every command the parser hands on (after the real handler's own steps).
class RecordingHandler : public VistrelKit::BidirectionalMessageHandler
{
public:
    RecordingHandler()
        : BidirectionalMessageHandler(nullptr, nullptr)
    {}
    void handle(const VistrelKit::BidirectionalMessage &message) override
    {
        BidirectionalMessageHandler::handle(message);
        messages.append(message);
    }
    QList<VistrelKit::BidirectionalMessage> messages;
};
