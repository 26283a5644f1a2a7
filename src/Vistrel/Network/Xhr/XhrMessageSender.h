#pragma once

#include "Network/MessageSender.h"

#include <QList>
#include <QTimer>

#include <optional>

namespace VistrelKit {

class BidirectionalMessageParser;
class HttpUtil;

/// The HTTP transport: reports are queued and posted in batches, one ProtoMessageList per flush,
/// every 0.1 s (0.03 s with increased polling frequency) plus the time of the POST. Each reply
/// carries the agent's commands.
class VISTREL_AUTOTEST_EXPORT XhrMessageSender : public MessageSender
{
    Q_OBJECT
public:
    XhrMessageSender(ApplicationConfigWrapper *applicationConfig, InitSender *initSender,
                     OrvaneAPI *orvaneAPI, HttpUtil *httpUtil, BidirectionalMessageParser *parser,
                     QObject *parent = nullptr);

    /// Opens the channel with a GET; the flush loop starts when it succeeds. The callbacks are
    /// not used by this transport.
    void start(const QString &url, Callback onSuccess, Callback onError) override;
    /// Deletes the visit and ends the loop after the flush already armed.
    void stop() override;
    /// Queues the report; always succeeds.
    void send(const QString &url, const ProtoMessage &message, ErrorCompletion completion) override;

    /// Picks the interval from the configuration.
    void updateInterval();
    double currentInterval() const { return m_currentInterval; }
    qsizetype queueSize() const { return m_queue.size(); }
    bool isStopped() const { return m_stopped; }
    std::optional<QString> url() const { return m_url; }

    /// Hands the command objects of a POST reply to the parser: a JSON array of strings, each the
    /// JSON text of an array of objects. Returns false when the body or an element is not JSON.
    bool processReply(const QByteArray &body);

private:
    void flushQueue();
    void scheduleNextFlush();

    const double m_queueSendingInterval = 0.1;
    const double m_increasedQueueSendingInterval = 0.03;
    HttpUtil *m_httpUtil;
    BidirectionalMessageParser *m_parser;
    std::optional<QString> m_url;
    double m_currentInterval = 0;
    QList<ProtoMessage> m_queue;
    bool m_stopped = true;
    QTimer m_flushTimer;
};

} // namespace VistrelKit
