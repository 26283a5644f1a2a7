#include "Communication/XhrRunner.h"

#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Communication/ClientRegistry.h"
#include "Communication/CommunicationMessageWrapper.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"

#include <QPointer>

#include <limits>

using namespace Qt::StringLiterals;

namespace VistrelKit {

XhrRunner::XhrRunner(OrvaneAPI *orvaneAPI, ApplicationConfigWrapper *applicationConfig,
                     const ClientRegistry *registry, Receiver receiver, QObject *parent)
    : QObject(parent)
    , m_currentRate(std::numeric_limits<double>::max())
    , m_orvaneAPI(orvaneAPI)
    , m_applicationConfig(applicationConfig)
    , m_registry(registry)
    , m_receiver(std::move(receiver))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &XhrRunner::tick);
}

void XhrRunner::scheduleNext()
{
    // QTimer counts in int milliseconds; the "no rate yet" maximum becomes ~24 days.
    const double ms =
        std::clamp(m_currentRate * 1000.0, 0.0, double(std::numeric_limits<int>::max()));
    m_timer.start(int(ms));
}

void XhrRunner::tick()
{
    if (m_running)
        poll();
    else
        scheduleNext();
}

void XhrRunner::poll()
{
    Log::debug(u"Execute polling"_s);
    const ApplicationConfig &config = m_applicationConfig->config();
    const OrvaneAPI::QueryItems query{
        {u"tId"_s, config.tenantId.value_or(u""_s)},
        {u"vId"_s, config.visitConfig.visitorId.value_or(u""_s)},
        {u"sId"_s, config.visitConfig.sessionId.value_or(u""_s)},
    };
    // "cId" goes out as a bare key: buildUrl writes every key with "=".
    const QString url = m_orvaneAPI->buildUrl(u"api/in/co"_s, query) + u"&cId"_s;
    const QByteArray body = m_registry->pollBody().encode();
    QPointer<XhrRunner> self(this);
    m_orvaneAPI->httpUtil()->post(url, body,
                                  [self](const std::optional<QByteArray> &reply,
                                         const std::optional<HttpResponse> &,
                                         const std::optional<NetworkError> &error) {
                                      if (!self)
                                          return;
                                      if (error) {
                                          Log::error(u"Poll failed: "_s + error->description());
                                          self->countFailure();
                                      } else {
                                          self->onReply(reply);
                                      }
                                      self->scheduleNext();
                                  });
}

void XhrRunner::onReply(const std::optional<QByteArray> &body)
{
    m_failedAttempts = 0;
    if (!body) {
        // Counted after the reset above, so empty replies alone never reach the limit.
        Log::error(u"Poll failed wil nil response"_s);
        countFailure();
        return;
    }
    if (body->size() > MaxReplyBytes) {
        Log::error(u"Poll failed: reply of %1 bytes exceeds the %2 bytes a poll may return"_s
                       .arg(body->size())
                       .arg(MaxReplyBytes));
        countFailure();
        return;
    }
    const auto decoded = CommunicationMessageWrapper::decodeReply(*body);
    if (!decoded.isOk()) {
        Log::error(u"Poll failed: "_s + decoded.error().description());
        countFailure();
        return;
    }
    for (const QString &reason : decoded.value().droppedMessages)
        Log::warning(u"Dropped poll message: "_s + reason);
    for (const CommunicationMessage &message : decoded.value().messages)
        m_receiver(message);
}

void XhrRunner::countFailure()
{
    ++m_failedAttempts;
    if (m_failedAttempts > MaxFailedAttempts) {
        Log::warning(u"Exceed max retries. Stop"_s);
        m_running = false;
    }
}

} // namespace VistrelKit
