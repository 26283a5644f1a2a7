#include "Network/Xhr/XhrMessageSender.h"

#include "Api/HttpUtil.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/JsonUtils.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/Xhr/XhrSender.h"

#include <QDeadlineTimer>
#include <QPointer>

#include <algorithm>

#include <utility>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
bool isScreenshot(const ProtoMessage &report)
{
    return report.screenshotevent_size() > 0;
}

// A channel request failed when nothing came back, or an error status: a service that
// restarted and forgot the visit answers 404 until the channel is opened again.
bool failed(const std::optional<HttpResponse> &response, const std::optional<NetworkError> &error)
{
    if (error) {
        Log::error(u"Request failed"_s);
        return true;
    }
    if (response && response->statusCode >= 400) {
        Log::error(u"Request failed: HTTP %1"_s.arg(response->statusCode));
        return true;
    }
    return false;
}

// A keep-alive: the time and nothing else.
bool isPing(const ProtoMessage &report)
{
    return !isScreenshot(report) && report.clickevent_size() == 0 && !report.has_pagechange() &&
           !report.has_tag() && report.usertag_size() == 0;
}
} // namespace

XhrMessageSender::XhrMessageSender(ApplicationConfigWrapper *applicationConfig,
                                   InitSender *initSender, OrvaneAPI *orvaneAPI, HttpUtil *httpUtil,
                                   BidirectionalMessageParser *parser, ScreenPlatform *screen,
                                   QObject *parent)
    : MessageSender(applicationConfig, initSender, orvaneAPI, screen, parent)
    , m_httpUtil(httpUtil)
    , m_parser(parser)
{
    m_flushTimer.setSingleShot(true);
    // Reports appended while a POST is in flight are dropped with its queue. Coarse timers wake on
    // shared boundaries, so a coarse flush would fire just before the once-a-second ping and
    // screen-name ticks and lose their reports often; a precise one lands between them.
    m_flushTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_flushTimer, &QTimer::timeout, this, &XhrMessageSender::flushQueue);
    m_retryTimer.setSingleShot(true);
    connect(&m_retryTimer, &QTimer::timeout, this, &XhrMessageSender::open);
    m_readTimer.setSingleShot(true);
    connect(&m_readTimer, &QTimer::timeout, this, &XhrMessageSender::readPendingCommands);
}

void XhrMessageSender::start(const QString &url, Callback, Callback)
{
    m_screenName = url;
    m_url = XhrSender::buildUrl(m_applicationConfig->config(), url);
    m_stopped = false;
    ++m_generation;
    m_retryTimer.stop();
    m_retryDelayMs = FirstRetryDelayMs;
    m_flushWhenRead = false; // the new loop starts with the GET
    open();
}

void XhrMessageSender::open()
{
    if (m_stopped)
        return;
    QPointer<XhrMessageSender> self(this);
    m_httpUtil->get(*m_url,
                    [self, generation = m_generation](const std::optional<QByteArray> &,
                                                      const std::optional<HttpResponse> &response,
                                                      const std::optional<NetworkError> &error) {
                        if (!self || generation != self->m_generation)
                            return;
                        if (failed(response, error)) {
                            self->onFailure();
                            return;
                        }
                        self->onOpened();
                    });
}

void XhrMessageSender::onOpened()
{
    m_retryDelayMs = FirstRetryDelayMs;
    if (std::exchange(m_connectionLost, false)) {
        // What was captured during the outage is history; only the present screen matters.
        keepNewestScreenshotOnly();
        reportDrops();
        Log::debug(u"Connection back"_s);
        Q_EMIT connectionRestored();
    }
    m_currentInterval = m_queueSendingInterval;
    flushQueue();
}

void XhrMessageSender::onFailure()
{
    if (m_stopped)
        return;
    if (!std::exchange(m_connectionLost, true)) {
        Log::warning(u"Connection lost; reports are held while it is retried"_s);
        Q_EMIT connectionLost();
    }
    Log::debug(u"Retry in %1 ms"_s.arg(m_retryDelayMs));
    m_retryTimer.start(m_retryDelayMs);
    m_retryDelayMs = qMin(m_retryDelayMs * 2, MaxRetryDelayMs);
}

void XhrMessageSender::stop()
{
    MessageSender::stop();
    // An armed flush still runs once; its scheduling step then ends the loop.
    m_stopped = true;
    m_retryTimer.stop();
    m_connectionLost = false;
    reportDrops();
}

void XhrMessageSender::send(const QString &, const ProtoMessage &message,
                            ErrorCompletion completion)
{
    m_queue.append(message);
    m_queueBytes += qint64(message.ByteSizeLong());
    if (m_queueBytes > visitSizeThreshold())
        enforceBudget();
    completion(std::nullopt);
}

void XhrMessageSender::enforceBudget()
{
    // Oldest first: screenshots (never the newest), then pings; what the user did stays.
    const bool firstDrop = m_droppedScreenshots == 0 && m_droppedPings == 0;
    dropOldest(isScreenshot, m_droppedScreenshots, true);
    dropOldest(isPing, m_droppedPings, true);
    if (firstDrop && (m_droppedScreenshots > 0 || m_droppedPings > 0)) {
        Log::warning(u"Reports held over %1 bytes: the oldest screenshots are dropped"_s.arg(
            visitSizeThreshold()));
    }
}

void XhrMessageSender::keepNewestScreenshotOnly()
{
    dropOldest(isScreenshot, m_droppedScreenshots, false);
}

void XhrMessageSender::dropOldest(bool (*droppable)(const ProtoMessage &), qint64 &counter,
                                  bool whileOverBudget)
{
    const auto newest = std::find_if(m_queue.crbegin(), m_queue.crend(), isScreenshot);
    const qsizetype newestScreenshot = m_queue.crend() - newest - 1; // -1: none
    qsizetype index = 0;
    // removeIf visits the reports in order, oldest first.
    m_queue.removeIf([&](const ProtoMessage &report) {
        const bool newest = index++ == newestScreenshot;
        const bool drop = (!whileOverBudget || m_queueBytes > visitSizeThreshold()) && !newest &&
                          droppable(report);
        if (drop) {
            m_queueBytes -= qint64(report.ByteSizeLong());
            ++counter;
        }
        return drop;
    });
}

void XhrMessageSender::clearQueue()
{
    m_queue.clear();
    m_queueBytes = 0;
}

void XhrMessageSender::reportDrops()
{
    if (m_droppedScreenshots == 0 && m_droppedPings == 0)
        return;
    Log::warning(u"Dropped %1 screenshots and %2 pings held while the service was unreachable"_s
                     .arg(m_droppedScreenshots)
                     .arg(m_droppedPings));
    m_droppedScreenshots = 0;
    m_droppedPings = 0;
}

void XhrMessageSender::updateInterval()
{
    const auto &faster = m_applicationConfig->config().vistrelConfig.increasedPollingFrequency;
    m_currentInterval =
        faster.value_or(false) ? m_increasedQueueSendingInterval : m_queueSendingInterval;
}

void XhrMessageSender::scheduleNextFlush()
{
    updateInterval();
    if (m_stopped)
        return;
    // Everything runs on the GUI thread, so the timer is armed right here.
    m_flushTimer.start(std::chrono::milliseconds(qRound(m_currentInterval * 1000)));
}

void XhrMessageSender::flushQueue()
{
    if (m_queue.isEmpty() && m_liveScreen.hasExpired()) {
        scheduleNextFlush();
        return;
    }
    if (!m_url)
        qFatal("The report queue was flushed before the sender was started");

    ProtoMessageList list;
    list.mutable_messages()->Reserve(int(m_queue.size()));
    for (const ProtoMessage &report : std::as_const(m_queue)) {
        *list.add_messages() = report;
        if (report.screenshotevent_size() > 0)
            m_liveScreen.setRemainingTime(LiveScreenMs);
    }
    std::string bytes;
    if (!list.SerializePartialToString(&bytes)) {
        Log::warning(u"Cannot serialize data; Discard messages in queue"_s);
        clearQueue();
        scheduleNextFlush();
        return;
    }

    QPointer<XhrMessageSender> self(this);
    // An empty post of a live screen carried nothing, so it drops nothing either.
    const bool carried = !m_queue.isEmpty();
    // The service reads protocol buffer bytes whatever the content type says.
    m_httpUtil->post(
        *m_url, QByteArray(bytes.data(), qsizetype(bytes.size())),
        [self, generation = m_generation, carried](const std::optional<QByteArray> &body,
                                                   const std::optional<HttpResponse> &response,
                                                   const std::optional<NetworkError> &error) {
            if (!self)
                return;
            const bool current = generation == self->m_generation;
            if (failed(response, error)) {
                // The queue is kept for the retry.
                if (current)
                    self->onFailure();
                return;
            }
            // This also drops the reports queued while the POST was in flight: each
            // cycle starts from an empty queue, as the service expects. A reply to
            // an earlier start leaves the new loop alone.
            if (current && carried)
                self->clearQueue();
            if (body && !self->processReply(*body))
                Log::warning(u"Cannot parse message"_s);
            // A reply still being read holds the next flush back: the service
            // cannot pile up commands faster than the app carries them out.
            if (current) {
                if (self->hasPendingCommands())
                    self->m_flushWhenRead = true;
                else
                    self->scheduleNextFlush();
            }
        });
}

bool XhrMessageSender::processReply(const QByteArray &body)
{
    auto reply = JsonUtils::parse(body);
    if (!reply)
        return false;
    if (!reply->is_array())
        return true;
    PendingReply pending;
    for (Json &element : *reply) {
        if (!element.is_string())
            break;
        pending.texts.push_back(std::move(element.get_ref<std::string &>()));
    }
    if (!pending.texts.empty())
        m_pendingReplies.push_back(std::move(pending));
    readPendingCommands();
    return true;
}

void XhrMessageSender::readPendingCommands()
{
    const QDeadlineTimer slice(MainQueue::SliceMs, Qt::PreciseTimer);
    while (!m_pendingReplies.empty()) {
        PendingReply &reply = m_pendingReplies.front();
        if (reply.next >= reply.texts.size()) {
            m_pendingReplies.pop_front();
            continue;
        }
        if (slice.hasExpired()) {
            m_readTimer.start(0);
            return;
        }
        const std::string text = std::move(reply.texts[reply.next++]);
        const auto commands = JsonUtils::parse(QByteArray(text.data(), qsizetype(text.size())));
        // A text that is not JSON, not an array, or holds something else than an object ends
        // its reply.
        bool endOfReply = !commands || !commands->is_array();
        if (!commands)
            Log::warning(u"Cannot parse message"_s);
        if (!endOfReply) {
            for (const Json &command : *commands) {
                if (!command.is_object()) {
                    endOfReply = true;
                    break;
                }
                m_parser->parse(command);
            }
        }
        if (endOfReply)
            m_pendingReplies.pop_front();
    }
    if (std::exchange(m_flushWhenRead, false))
        scheduleNextFlush();
}

} // namespace VistrelKit
