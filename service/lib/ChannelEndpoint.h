#pragma once

#include "ChannelMessage.h"
#include "ChannelPoller.h"
#include "HttpReply.h"
#include "RecordedRequest.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QStringList>

#include <functional>
#include <optional>

namespace VistrelService {

/// The channel poll, POST "api/in/co": the device names the channels it listens on and the
/// messages it sends on them; the reply hands over the messages queued for its visitor on those
/// channels. Messages are queued per visitor id, not per visit: a device polls before it has one.
class ChannelEndpoint : public QObject
{
    Q_OBJECT
public:
    static constexpr QStringView Path = u"/api/in/co";

    /// The body of a poll, read strictly.
    struct Poll
    {
        QStringList channels;
        QList<ChannelMessage> messages;
        QString additionalProperties;
    };

    explicit ChannelEndpoint(QObject *parent = nullptr);

    /// The eleven channel names, case-sensitive.
    static const QStringList &channelNames();
    static bool isChannelName(const QString &name);
    /// The poll of body, or nothing and a one-line reason.
    static std::optional<Poll> readPoll(const QByteArray &body, QString *error = nullptr);
    /// The reply body: {"channels": [...], "messages": [...], "additionalProperties": ""}.
    static QByteArray encodeReply(const QStringList &channels,
                                  const QList<ChannelMessage> &messages);

    HttpReply handle(const RecordedRequest &request);

    /// Queues for the visitor's next poll that listens on channel; false, queueing nothing, for
    /// an unknown channel name.
    bool queueMessage(const QString &visitorId, const QString &channel, const QString &payload);
    QList<ChannelMessage> queuedMessages(const QString &visitorId) const;
    /// Forgets every queued message of every visitor.
    void clearQueue() { m_queues.clear(); }

    /// Messages made for each poll from the state of another endpoint (the video call's queue
    /// positions), delivered after the queued ones on the channels the poll listens on.
    using Supplier = std::function<QList<ChannelMessage>(const ChannelPoller &poller)>;
    void setSupplier(Supplier supplier) { m_supplier = std::move(supplier); }

    /// In order of first poll.
    QList<ChannelPoller> pollers() const { return m_pollers; }
    std::optional<ChannelPoller> poller(const QString &visitorId) const;

Q_SIGNALS:
    void polled(const QString &visitorId);
    void messageDelivered(const QString &visitorId, const QString &channel, const QString &payload);

private:
    ChannelPoller &pollerOf(const QString &visitorId);

    QList<ChannelPoller> m_pollers;
    QHash<QString, QList<ChannelMessage>> m_queues;
    Supplier m_supplier;
};

} // namespace VistrelService
