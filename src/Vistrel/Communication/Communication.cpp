#include "Communication/Communication.h"

#include "Core/Log.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

Communication::Communication(OrvaneAPI *orvaneAPI, ApplicationConfigWrapper *applicationConfig,
                             QObject *parent)
    : QObject(parent)
    , m_runner(orvaneAPI, applicationConfig, &m_registry,
               [this](const CommunicationMessage &message) { deliver(message); })
{
    Log::debug(u"create"_s);
}

void Communication::registerClient(const RegisteredClient &client)
{
    m_registry.insert(client);
    updateRunner();
}

void Communication::unregisterClient(const QString &id)
{
    m_registry.remove(id);
    updateRunner();
}

void Communication::updateRunner()
{
    const std::optional<double> rate = m_registry.smallestRate();
    if (!rate) {
        m_runner.setRunning(false);
        return;
    }
    m_runner.setCurrentRate(*rate);
    if (!m_runner.isRunning()) {
        m_runner.setRunning(true);
        m_runner.scheduleNext();
    }
}

void Communication::deliver(const CommunicationMessage &message)
{
    const auto callbacks = m_registry.callbacksFor(message.channel);
    if (callbacks.isEmpty()) {
        Log::warning(u"No client listens on channel "_s + toString(message.channel) +
                     u"; message dropped"_s);
        return;
    }
    for (const auto &callback : callbacks)
        callback(message);
}

} // namespace VistrelKit
