#pragma once

#include "Communication/ClientRegistry.h"
#include "Communication/RegisteredClient.h"
#include "Communication/XhrRunner.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

class ApplicationConfigWrapper;
class OrvaneAPI;

/// Owns the channel poll and its listeners: the poll runs exactly while someone listens, at the
/// rate of the most demanding listener, and each received message goes to the listeners of its
/// channel.
class VISTREL_PRIVATE_EXPORT Communication : public QObject
{
    Q_OBJECT
public:
    Communication(OrvaneAPI *orvaneAPI, ApplicationConfigWrapper *applicationConfig,
                  QObject *parent = nullptr);

    /// Adds (or replaces, by id) a listener and adjusts the poll.
    void registerClient(const RegisteredClient &client);
    /// Removes a listener (nothing when absent) and adjusts the poll.
    void unregisterClient(const QString &id);
    /// Polls at the smallest rate of the listeners, starting the loop if it was idle; without
    /// listeners the loop only idles.
    void updateRunner();

    XhrRunner *runner() { return &m_runner; }
    const ClientRegistry &registry() const { return m_registry; }

private:
    /// Hands a message to every listener of its channel, in id order.
    void deliver(const CommunicationMessage &message);

    ClientRegistry m_registry;
    XhrRunner m_runner;
};

} // namespace VistrelKit
