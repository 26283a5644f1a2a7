#include "Communication/ClientRegistry.h"

#include <limits>
#include <set>

namespace VistrelKit {

std::optional<double> ClientRegistry::smallestRate() const
{
    double rate = std::numeric_limits<double>::max();
    for (const RegisteredClient &client : m_clients)
        rate = std::min(rate, client.rate);
    if (m_clients.isEmpty())
        return std::nullopt;
    return rate;
}

CommunicationMessageWrapper ClientRegistry::pollBody() const
{
    CommunicationMessageWrapper body;
    std::set<CommunicationChannel> channels;
    for (const RegisteredClient &client : m_clients) {
        channels.insert(client.channel);
        if (!client.payload.isEmpty())
            body.messages.append(CommunicationMessage{client.channel, client.payload});
        body.additionalProperties += client.additionalParams;
    }
    body.channels = QList<CommunicationChannel>(channels.begin(), channels.end());
    return body;
}

QList<RegisteredClient::Callback> ClientRegistry::callbacksFor(CommunicationChannel channel) const
{
    QList<RegisteredClient::Callback> callbacks;
    for (const RegisteredClient &client : m_clients) {
        if (client.channel == channel)
            callbacks.append(client.callback);
    }
    return callbacks;
}

} // namespace VistrelKit
