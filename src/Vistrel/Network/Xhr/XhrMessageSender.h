#pragma once

#include "Network/MessageSender.h"

#include <QDeadlineTimer>
#include <QList>
#include <QTimer>

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace VistrelKit {

class BidirectionalMessageParser;
class HttpUtil;

/// The HTTP transport: reports are queued and posted in batches, one ProtoMessageList per flush,
/// every 0.1 s (0.03 s with increased polling frequency) plus the time of the POST. Each reply
/// carries the agent's commands.
///
/// A failed GET or POST does not end the session: the channel is reopened after 1 s, then after
/// twice as long each time up to 30 s, until it opens or the sender stops. Meanwhile the queue
/// is held to visitSizeThreshold() bytes by dropping its oldest screenshots (then pings), never
/// clicks, page changes or tags; once back, only the newest screenshot goes out with the rest.
///
/// While the screen is live (a screenshot went out within LiveScreenMs), a flush with nothing
/// queued still posts an empty list, so an agent's command waits at most one flush interval
/// plus a round trip; on a still screen an empty queue posts nothing. Such a post carried
/// nothing, so its reply does not empty the queue.
class VISTREL_AUTOTEST_EXPORT XhrMessageSender : public MessageSender
{
    Q_OBJECT
public:
    static constexpr int LiveScreenMs = 1000;

    XhrMessageSender(ApplicationConfigWrapper *applicationConfig, InitSender *initSender,
                     OrvaneAPI *orvaneAPI, HttpUtil *httpUtil, BidirectionalMessageParser *parser,
                     ScreenPlatform *screen, QObject *parent = nullptr);

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

    /// Whether the channel failed and is being retried.
    bool isConnectionLost() const { return m_connectionLost; }
    /// The serialized size of the queued reports.
    qint64 queueBytes() const { return m_queueBytes; }
    /// The delay before the next reopening attempt.
    int retryDelayMs() const { return m_retryDelayMs; }

    /// Whether command texts of a reply are still waiting to be read.
    bool hasPendingCommands() const { return !m_pendingReplies.empty(); }

    static constexpr int FirstRetryDelayMs = 1000;
    static constexpr int MaxRetryDelayMs = 30000;

    /// Hands the command objects of a POST reply to the parser: a JSON array of strings, each the
    /// JSON text of an array of objects. Returns false when the body is not JSON. The strings are
    /// read in slices of MainQueue::SliceMs per turn of the event loop, the first one at once; a
    /// string that is not JSON logs "Cannot parse message" and ends its reply.
    bool processReply(const QByteArray &body);

Q_SIGNALS:
    /// The channel failed; reports are held (bounded) while it is retried.
    void connectionLost();
    /// The channel opened again after connectionLost().
    void connectionRestored();

private:
    void open();
    void onOpened();
    void onFailure();
    void flushQueue();
    void scheduleNextFlush();
    void enforceBudget();
    void keepNewestScreenshotOnly();
    /// Drops, oldest first, the reports droppable() accepts (never the newest screenshot), all of
    /// them or only while the queue is over budget, counting them in counter.
    void dropOldest(bool (*droppable)(const ProtoMessage &), qint64 &counter, bool whileOverBudget);
    void clearQueue();
    void reportDrops();
    void readPendingCommands();

    const double m_queueSendingInterval = 0.1;
    const double m_increasedQueueSendingInterval = 0.03;
    HttpUtil *m_httpUtil;
    BidirectionalMessageParser *m_parser;
    std::optional<QString> m_url;
    double m_currentInterval = 0;
    QList<ProtoMessage> m_queue;
    qint64 m_queueBytes = 0;
    bool m_stopped = true;
    bool m_connectionLost = false;
    int m_retryDelayMs = FirstRetryDelayMs;
    // Counts the starts: replies to requests of an earlier start only hand on their commands.
    quint64 m_generation = 0;
    // Dropped from the queue since the last report of drops.
    qint64 m_droppedScreenshots = 0;
    qint64 m_droppedPings = 0;
    // The command texts of replies not read yet; the next flush waits until they are, so at
    // most one reply's worth waits.
    struct PendingReply
    {
        std::vector<std::string> texts;
        size_t next = 0;
    };
    std::deque<PendingReply> m_pendingReplies;
    bool m_flushWhenRead = false;
    // Expired (the default) while the screen is still.
    QDeadlineTimer m_liveScreen;
    QTimer m_flushTimer;
    QTimer m_retryTimer;
    QTimer m_readTimer;
};

} // namespace VistrelKit
