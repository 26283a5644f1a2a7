#pragma once

#include "ChannelMessage.h"
#include "ChannelPoller.h"
#include "HttpReply.h"
#include "QueuedCustomer.h"
#include "RecordedRequest.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QStringList>

namespace VistrelService {

/// The video call's endpoints: POST "cr/join/{tenant}/{customer}" puts the customer in the
/// tenant's queue, POST "cr/init/{tenant}/{customer}" answers the call's settings. The queue
/// positions reach the device as "COQS" messages on its channel poll.
class ConferenceEndpoint : public QObject
{
    Q_OBJECT
public:
    static constexpr QStringView Prefix = u"/cr/";
    /// The jwt of the default settings; the stand-in meeting takes any.
    static constexpr QStringView TestToken = u"vistrel-test-token";

    explicit ConferenceEndpoint(QObject *parent = nullptr);

    static bool handles(const QString &path) { return path.startsWith(Prefix); }
    HttpReply handle(const RecordedRequest &request);

    /// Where the default settings send the call: the stand-in meeting's "host:port".
    void setDomain(const QString &domain) { m_domain = domain; }
    /// Replaces the init reply for every customer; empty goes back to the default.
    void setCallSettings(const QByteArray &json) { m_callSettings = json; }
    QByteArray callSettings(const QString &customerId) const;

    /// Tenants with a queue, in order of first join.
    QStringList tenants() const { return m_tenantOrder; }
    /// The tenant's queue: the called customers (position 0) first, then the waiting ones.
    QList<QueuedCustomer> queue(const QString &tenantId) const;

    /// The agent's moves; each is false, changing nothing, for a customer not in the queue.
    bool move(const QString &tenantId, const QString &customerId, int steps);
    /// Takes the customer out of the queue: their next poll hears -1.
    bool remove(const QString &tenantId, const QString &customerId);
    /// Gives the customer position 0, which tells their device to open the call.
    bool call(const QString &tenantId, const QString &customerId);
    /// The customer's call opened in the room named tenant + "xovx" + customer: they leave the
    /// queue.
    void meetingJoined(const QString &room);

    /// The COQS messages for a poll: one per customer its additional parameters name ("cId=…").
    QList<ChannelMessage> messagesFor(const ChannelPoller &poll) const;

Q_SIGNALS:
    void queueChanged(const QString &tenantId);

private:
    struct Entry
    {
        QString customerId;
        QByteArray body;
        bool called = false;
    };

    HttpReply join(const QString &tenantId, const QString &customerId, const QByteArray &body);
    QList<Entry> *entries(const QString &tenantId, const QString &customerId, qsizetype *index);
    std::optional<int> position(const QString &tenantId, const QString &customerId) const;

    QString m_domain;
    QByteArray m_callSettings;
    QStringList m_tenantOrder;
    /// Per tenant, in join order.
    QHash<QString, QList<Entry>> m_queues;
    /// Per tenant, the customers who were in the queue and are no longer.
    QHash<QString, QSet<QString>> m_left;
};

} // namespace VistrelService
