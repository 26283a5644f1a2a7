#pragma once

#include "Communication/CommunicationMessageWrapper.h"
#include "Communication/RegisteredClient.h"

#include <Vistrel/vistrel_export.h>

#include <QMap>

#include <optional>

namespace VistrelKit {

/// The poll's listeners by id. Everything runs on the GUI thread, so no lock is needed.
class VISTREL_PRIVATE_EXPORT ClientRegistry
{
public:
    /// Adds the client, replacing one registered under the same id.
    void insert(const RegisteredClient &client) { m_clients.insert(client.id, client); }
    void remove(const QString &id) { m_clients.remove(id); }
    bool isEmpty() const { return m_clients.isEmpty(); }
    qsizetype size() const { return m_clients.size(); }
    bool contains(const QString &id) const { return m_clients.contains(id); }
    /// The client registered under id, or null.
    const RegisteredClient *client(const QString &id) const
    {
        const auto it = m_clients.constFind(id);
        return it == m_clients.cend() ? nullptr : &*it;
    }

    /// The smallest rate of all clients; nothing without clients.
    std::optional<double> smallestRate() const;
    /// The poll body: each channel once (in channel order), the non-empty payloads and the
    /// non-empty extra parameters of the clients in id order, concatenated without separator.
    CommunicationMessageWrapper pollBody() const;
    /// The callbacks of the clients on a channel, in id order. A copy: a callback may register
    /// or unregister clients while the others still run.
    QList<RegisteredClient::Callback> callbacksFor(CommunicationChannel channel) const;

private:
    // Ordered by id, so the poll body and the delivery order do not depend on hashing.
    QMap<QString, RegisteredClient> m_clients;
};

} // namespace VistrelKit
