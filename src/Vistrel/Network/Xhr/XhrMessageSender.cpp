#include "Network/Xhr/XhrMessageSender.h"

#include "Api/HttpUtil.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/JsonUtils.h"
#include "Core/Log.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/Xhr/XhrSender.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace VistrelKit {

XhrMessageSender::XhrMessageSender(ApplicationConfigWrapper *applicationConfig,
                                   InitSender *initSender, OrvaneAPI *orvaneAPI, HttpUtil *httpUtil,
                                   BidirectionalMessageParser *parser, QObject *parent)
    : MessageSender(applicationConfig, initSender, orvaneAPI, parent)
    , m_httpUtil(httpUtil)
    , m_parser(parser)
{
    m_flushTimer.setSingleShot(true);
    // Reports appended while a POST is in flight are dropped with its queue. Coarse timers wake on
    // shared boundaries, so a coarse flush would fire just before the once-a-second ping and
    // screen-name ticks and lose their reports often; a precise one lands between them.
    m_flushTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_flushTimer, &QTimer::timeout, this, &XhrMessageSender::flushQueue);
}

void XhrMessageSender::start(const QString &url, Callback, Callback)
{
    m_screenName = url;
    m_url = XhrSender::buildUrl(m_applicationConfig->config(), url);
    m_stopped = false;
    QPointer<XhrMessageSender> self(this);
    m_httpUtil->get(*m_url,
                    [self](const std::optional<QByteArray> &, const std::optional<HttpResponse> &,
                           const std::optional<NetworkError> &error) {
                        if (!self)
                            return;
                        if (error) {
                            Log::error(u"Request failed"_s);
                            return;
                        }
                        self->m_currentInterval = self->m_queueSendingInterval;
                        self->flushQueue();
                    });
}

void XhrMessageSender::stop()
{
    MessageSender::stop();
    // An armed flush still runs once; its scheduling step then ends the loop.
    m_stopped = true;
}

void XhrMessageSender::send(const QString &, const ProtoMessage &message,
                            ErrorCompletion completion)
{
    m_queue.append(message);
    completion(std::nullopt);
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
    if (m_queue.isEmpty()) {
        scheduleNextFlush();
        return;
    }
    if (!m_url)
        qFatal("The report queue was flushed before the sender was started");

    ProtoMessageList list;
    list.mutable_messages()->Reserve(int(m_queue.size()));
    for (const ProtoMessage &report : std::as_const(m_queue))
        *list.add_messages() = report;
    std::string bytes;
    if (!list.SerializePartialToString(&bytes)) {
        Log::warning(u"Cannot serialize data; Discard messages in queue"_s);
        m_queue.clear();
        scheduleNextFlush();
        return;
    }

    QPointer<XhrMessageSender> self(this);
    // The service reads protocol buffer bytes whatever the content type says.
    m_httpUtil->post(*m_url, QByteArray(bytes.data(), qsizetype(bytes.size())),
                     [self](const std::optional<QByteArray> &body,
                            const std::optional<HttpResponse> &,
                            const std::optional<NetworkError> &error) {
                         if (!self)
                             return;
                         if (error) {
                             // The queue is kept and the loop ends until the next start().
                             Log::error(u"Request failed"_s);
                             return;
                         }
                         // This also drops the reports queued while the POST was in flight: each
                         // cycle starts from an empty queue, as the service expects.
                         self->m_queue.clear();
                         self->scheduleNextFlush();
                         if (body && !self->processReply(*body))
                             Log::warning(u"Cannot parse message"_s);
                     });
}

bool XhrMessageSender::processReply(const QByteArray &body)
{
    const auto reply = JsonUtils::parse(body);
    if (!reply)
        return false;
    if (!reply->is_array())
        return true;
    for (const Json &element : *reply) {
        if (!element.is_string())
            return true;
        const auto &text = element.get_ref<const std::string &>();
        const auto commands = JsonUtils::parse(QByteArray(text.data(), qsizetype(text.size())));
        if (!commands)
            return false;
        if (!commands->is_array())
            return true;
        for (const Json &command : *commands) {
            if (!command.is_object())
                return true;
            m_parser->parse(command);
        }
    }
    return true;
}

} // namespace VistrelKit
