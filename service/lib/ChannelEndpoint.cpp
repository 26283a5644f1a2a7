#include "ChannelEndpoint.h"

#include "ServiceLog.h"

#include "Core/JsonUtils.h"

#include <QSet>

using namespace Qt::StringLiterals;
using VistrelKit::Json;
using VistrelKit::JsonUtils;

namespace VistrelService {

namespace {
HttpReply badRequest(const QString &reason)
{
    return HttpReply{400, reason.toUtf8(), QByteArrayLiteral("text/plain; charset=utf-8")};
}

bool readChannels(const Json &value, QStringList *channels, QString *error)
{
    if (!value.is_array()) {
        *error = u"\"channels\" is not an array"_s;
        return false;
    }
    for (const Json &item : value) {
        const QString name = JsonUtils::toQString(item);
        if (!item.is_string() || !ChannelEndpoint::isChannelName(name)) {
            *error = u"\"channels\" holds something that is not a channel name"_s;
            return false;
        }
        channels->append(name);
    }
    return true;
}

bool readMessages(const Json &value, QList<ChannelMessage> *messages, QString *error)
{
    if (!value.is_array()) {
        *error = u"\"messages\" is not an array"_s;
        return false;
    }
    for (const Json &item : value) {
        if (!item.is_object()) {
            *error = u"\"messages\" holds something that is not an object"_s;
            return false;
        }
        const auto channel = item.find("channel");
        const auto payload = item.find("payload");
        if (channel == item.end() || !channel->is_string() ||
            !ChannelEndpoint::isChannelName(JsonUtils::toQString(*channel))) {
            *error = u"a message has no known \"channel\""_s;
            return false;
        }
        if (payload == item.end() || !payload->is_string()) {
            *error = u"a message has no string \"payload\""_s;
            return false;
        }
        messages->append(
            ChannelMessage{JsonUtils::toQString(*channel), JsonUtils::toQString(*payload)});
    }
    return true;
}
} // namespace

ChannelEndpoint::ChannelEndpoint(QObject *parent)
    : QObject(parent)
{}

const QStringList &ChannelEndpoint::channelNames()
{
    static const QStringList names = {u"CF"_s, u"C"_s,  u"V"_s,    u"VCB"_s, u"SCB"_s, u"S"_s,
                                      u"WC"_s, u"CO"_s, u"COQS"_s, u"NO"_s,  u"JS"_s};
    return names;
}

bool ChannelEndpoint::isChannelName(const QString &name)
{
    return channelNames().contains(name, Qt::CaseSensitive);
}

std::optional<ChannelEndpoint::Poll> ChannelEndpoint::readPoll(const QByteArray &body,
                                                               QString *error)
{
    QString reason;
    const auto fail = [&](const QString &text) {
        if (error)
            *error = text;
        return std::nullopt;
    };
    QString parseError;
    const std::optional<Json> json = JsonUtils::parse(body, &parseError);
    if (!json)
        // The parser quotes what it read last, which may be megabytes of one string.
        return fail(u"body is not JSON: "_s + parseError.section(u'\n', 0, 0).left(160));
    if (!json->is_object())
        return fail(u"body is not a JSON object"_s);

    Poll poll;
    const auto channels = json->find("channels");
    if (channels == json->end())
        return fail(u"\"channels\" is missing"_s);
    if (!readChannels(*channels, &poll.channels, &reason))
        return fail(reason);
    const auto messages = json->find("messages");
    if (messages != json->end() && !readMessages(*messages, &poll.messages, &reason))
        return fail(reason);
    const auto additional = json->find("additionalProperties");
    if (additional != json->end()) {
        if (!additional->is_string())
            return fail(u"\"additionalProperties\" is not a string"_s);
        poll.additionalProperties = JsonUtils::toQString(*additional);
    }
    return poll;
}

QByteArray ChannelEndpoint::encodeReply(const QStringList &channels,
                                        const QList<ChannelMessage> &messages)
{
    Json names = Json::array();
    for (const QString &channel : channels)
        names.push_back(JsonUtils::fromQString(channel));
    Json list = Json::array();
    for (const ChannelMessage &message : messages) {
        Json item = Json::object();
        item["channel"] = JsonUtils::fromQString(message.channel);
        item["payload"] = JsonUtils::fromQString(message.payload);
        list.push_back(std::move(item));
    }
    Json reply = Json::object();
    reply["channels"] = std::move(names);
    reply["messages"] = std::move(list);
    reply["additionalProperties"] = "";
    return JsonUtils::dump(reply);
}

HttpReply ChannelEndpoint::handle(const RecordedRequest &request)
{
    if (request.method != u"POST"_s)
        return HttpReply::error(405, "method not allowed");
    const QString visitorId = request.queryValue(u"vId"_s);
    if (visitorId.isEmpty()) {
        qCWarning(lcVistrelService) << "Channel poll without a visitor id";
        return badRequest(u"missing vId"_s);
    }
    QString error;
    const std::optional<Poll> poll = readPoll(request.body, &error);
    if (!poll) {
        qCWarning(lcVistrelService) << "Refused a channel poll of" << request.body.size()
                                    << "bytes from visitor" << visitorId << "as" << error;
        return badRequest(error);
    }

    ChannelPoller &poller = pollerOf(visitorId);
    poller.tenantId = request.queryValue(u"tId"_s);
    poller.sessionId = request.queryValue(u"sId"_s);
    poller.channels = poll->channels;
    poller.messages = poll->messages;
    poller.additionalProperties = poll->additionalProperties;
    poller.lastPollAt = request.time;
    ++poller.pollCount;

    // Messages on channels this poll does not listen on wait for one that does.
    const QSet<QString> listening(poll->channels.cbegin(), poll->channels.cend());
    QList<ChannelMessage> delivered;
    const auto queue = m_queues.find(visitorId);
    if (queue != m_queues.end()) {
        QList<ChannelMessage> kept;
        for (const ChannelMessage &message : std::as_const(*queue))
            (listening.contains(message.channel) ? delivered : kept).append(message);
        if (kept.isEmpty())
            m_queues.erase(queue);
        else
            *queue = kept;
    }
    if (m_supplier) {
        for (const ChannelMessage &message : m_supplier(poller)) {
            if (listening.contains(message.channel))
                delivered.append(message);
        }
    }
    for (const ChannelMessage &message : std::as_const(delivered))
        Q_EMIT messageDelivered(visitorId, message.channel, message.payload);
    Q_EMIT polled(visitorId);
    return HttpReply{200, encodeReply(poll->channels, delivered)};
}

bool ChannelEndpoint::queueMessage(const QString &visitorId, const QString &channel,
                                   const QString &payload)
{
    if (!isChannelName(channel)) {
        qCWarning(lcVistrelService) << "Not queueing a message on unknown channel" << channel;
        return false;
    }
    m_queues[visitorId].append(ChannelMessage{channel, payload});
    return true;
}

QList<ChannelMessage> ChannelEndpoint::queuedMessages(const QString &visitorId) const
{
    return m_queues.value(visitorId);
}

std::optional<ChannelPoller> ChannelEndpoint::poller(const QString &visitorId) const
{
    for (const ChannelPoller &poller : m_pollers) {
        if (poller.visitorId == visitorId)
            return poller;
    }
    return std::nullopt;
}

ChannelPoller &ChannelEndpoint::pollerOf(const QString &visitorId)
{
    for (ChannelPoller &poller : m_pollers) {
        if (poller.visitorId == visitorId)
            return poller;
    }
    m_pollers.append(ChannelPoller{});
    m_pollers.last().visitorId = visitorId;
    return m_pollers.last();
}

} // namespace VistrelService
