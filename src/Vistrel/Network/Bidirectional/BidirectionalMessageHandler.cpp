#include "Network/Bidirectional/BidirectionalMessageHandler.h"

#include "Core/Log.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

BidirectionalMessageHandler::BidirectionalMessageHandler(
    ApplicationConfigWrapper *applicationConfig, UIStrings *uiStrings, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_uiStrings(uiStrings)
{}

void BidirectionalMessageHandler::handle(const BidirectionalMessage &message)
{
    Log::debug(u"Handle message: "_s + message.toString());
}

} // namespace VistrelKit
