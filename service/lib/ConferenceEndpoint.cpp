#include "ConferenceEndpoint.h"

#include "ServiceLog.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace VistrelService {

ConferenceEndpoint::ConferenceEndpoint(QObject *parent)
    : QObject(parent)
{}

HttpReply ConferenceEndpoint::handle(const RecordedRequest &request)
{
    const QStringList segments = request.path.mid(Prefix.size()).split(u'/');
    if (segments.size() != 3 || segments.at(1).isEmpty() || segments.at(2).isEmpty() ||
        (segments.at(0) != u"join"_s && segments.at(0) != u"init"_s)) {
        return HttpReply::error(404, "no such endpoint");
    }
    if (request.method != u"POST"_s)
        return HttpReply::error(405, "method not allowed");
    if (segments.at(0) == u"join"_s)
        return join(segments.at(1), segments.at(2), request.body);
    return HttpReply{200, callSettings(segments.at(2))};
}

HttpReply ConferenceEndpoint::join(const QString &tenantId, const QString &customerId,
                                   const QByteArray &body)
{
    if (!QJsonDocument::fromJson(body).isObject()) {
        qCWarning(lcVistrelService)
            << "Refused a join of customer" << customerId << "whose body is not a JSON object";
        return HttpReply::error(400, "body is not a JSON object");
    }
    qsizetype index = 0;
    // A second join (a rejoin, or Qt's silent resend) keeps the customer's place.
    if (QList<Entry> *queue = entries(tenantId, customerId, &index)) {
        (*queue)[index].body = body;
    } else {
        if (!m_queues.contains(tenantId))
            m_tenantOrder.append(tenantId);
        m_queues[tenantId].append(Entry{customerId, body});
        m_left[tenantId].remove(customerId);
    }
    Q_EMIT queueChanged(tenantId);
    return HttpReply{200, QByteArrayLiteral("{}")};
}

QByteArray ConferenceEndpoint::callSettings(const QString &customerId) const
{
    if (!m_callSettings.isEmpty())
        return m_callSettings;
    const QJsonObject settings{
        {u"customerId"_s, customerId},
        {u"token"_s, TestToken.toString()},
        {u"appName"_s, u"Vistrel"_s},
        {u"domain"_s, m_domain},
        {u"i18n"_s, QJsonObject{{u"page.title"_s, u"Video call with your agent"_s}}},
    };
    return QJsonDocument(settings).toJson(QJsonDocument::Compact);
}

QList<QueuedCustomer> ConferenceEndpoint::queue(const QString &tenantId) const
{
    QList<QueuedCustomer> customers;
    int waiting = 0;
    for (const Entry &entry : m_queues.value(tenantId))
        customers.append(
            QueuedCustomer{entry.customerId, entry.body, entry.called ? 0 : ++waiting});
    std::stable_sort(
        customers.begin(), customers.end(),
        [](const QueuedCustomer &a, const QueuedCustomer &b) { return a.position < b.position; });
    return customers;
}

bool ConferenceEndpoint::move(const QString &tenantId, const QString &customerId, int steps)
{
    qsizetype index = 0;
    QList<Entry> *queue = entries(tenantId, customerId, &index);
    if (!queue || queue->at(index).called)
        return false;
    // Steps count waiting customers: the called ones keep their place in the list.
    while (steps != 0) {
        qsizetype next = index + (steps < 0 ? -1 : 1);
        while (next >= 0 && next < queue->size() && queue->at(next).called)
            next += steps < 0 ? -1 : 1;
        if (next < 0 || next >= queue->size())
            break;
        queue->swapItemsAt(index, next);
        index = next;
        steps += steps < 0 ? 1 : -1;
    }
    Q_EMIT queueChanged(tenantId);
    return true;
}

bool ConferenceEndpoint::remove(const QString &tenantId, const QString &customerId)
{
    qsizetype index = 0;
    QList<Entry> *queue = entries(tenantId, customerId, &index);
    if (!queue)
        return false;
    queue->removeAt(index);
    m_left[tenantId].insert(customerId);
    Q_EMIT queueChanged(tenantId);
    return true;
}

bool ConferenceEndpoint::call(const QString &tenantId, const QString &customerId)
{
    qsizetype index = 0;
    QList<Entry> *queue = entries(tenantId, customerId, &index);
    if (!queue)
        return false;
    (*queue)[index].called = true;
    Q_EMIT queueChanged(tenantId);
    return true;
}

void ConferenceEndpoint::meetingJoined(const QString &room)
{
    for (const QString &tenantId : std::as_const(m_tenantOrder)) {
        if (!room.startsWith(tenantId + u"xovx"_s))
            continue;
        const QString customerId = room.mid(tenantId.size() + 4);
        if (position(tenantId, customerId))
            remove(tenantId, customerId);
    }
}

QList<ChannelMessage> ConferenceEndpoint::messagesFor(const ChannelPoller &poll) const
{
    if (!poll.channels.contains(u"COQS"_s))
        return {};
    // Each client's parameters are appended without a separator, so a customer's id ends where
    // its "&joinedTimestamp=<digits>" begins.
    static const QRegularExpression Parameters(u"cId=(.*?)&joinedTimestamp=\\d+"_s);
    QStringList named;
    for (auto match = Parameters.globalMatch(poll.additionalProperties); match.hasNext();) {
        const QString customerId = match.next().captured(1);
        if (!named.contains(customerId))
            named.append(customerId);
    }
    // A poll without a tenant finds the customer in any queue.
    const QStringList tenants =
        poll.tenantId.isEmpty() ? m_tenantOrder : QStringList{poll.tenantId};
    QList<ChannelMessage> messages;
    for (const QString &customerId : std::as_const(named)) {
        for (const QString &tenantId : tenants) {
            std::optional<int> found = position(tenantId, customerId);
            if (!found && m_left.value(tenantId).contains(customerId))
                found = -1;
            if (found) {
                messages.append(ChannelMessage{u"COQS"_s, QString::number(*found)});
                break;
            }
        }
    }
    return messages;
}

QList<ConferenceEndpoint::Entry> *
ConferenceEndpoint::entries(const QString &tenantId, const QString &customerId, qsizetype *index)
{
    const auto queue = m_queues.find(tenantId);
    if (queue == m_queues.end())
        return nullptr;
    for (qsizetype i = 0; i < queue->size(); ++i) {
        if (queue->at(i).customerId == customerId) {
            *index = i;
            return &*queue;
        }
    }
    return nullptr;
}

std::optional<int> ConferenceEndpoint::position(const QString &tenantId,
                                                const QString &customerId) const
{
    for (const QueuedCustomer &customer : queue(tenantId)) {
        if (customer.customerId == customerId)
            return customer.position;
    }
    return std::nullopt;
}

} // namespace VistrelService
