#include "Conference.h"

#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Communication/Communication.h"
#include "ConferenceCallSettingsDTO.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QDateTime>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
constexpr double PollRate = 3000.0;

QString nowMillis()
{
    return QString::number(QDateTime::currentMSecsSinceEpoch());
}
} // namespace

Conference::Conference(OrvaneAPI *orvaneAPI, ApplicationConfigWrapper *applicationConfig,
                       Communication *communication, QObject *parent)
    : QObject(parent)
    , m_coStatusId(u"co-status"_s)
    , m_coQueueId(u"co-queue-id"_s)
    , m_orvaneAPI(orvaneAPI)
    , m_applicationConfig(applicationConfig)
    , m_communication(communication)
{}

QString Conference::roomName(const QString &tenantId, const QString &customerId)
{
    return tenantId + u"xovx"_s + customerId;
}

void Conference::join(const ConferenceProperties &properties)
{
    ApplicationConfig &config = m_applicationConfig->config();
    m_applicationConfig->newVisit(config.visitConfig.sessionId);
    config.visitConfig.customerId = properties.customerId;
    m_newCustomerDTO =
        NewCustomerFromConferenceDTO{properties.firstname, properties.lastname, properties.email,
                                     properties.phoneNumber, nowMillis()};
    if (!config.tenantId) {
        Log::error(u"Missing tenantId"_s);
        return;
    }
    if (!properties.customerId) {
        Log::error(u"Missing customerId"_s);
        return;
    }
    const QString url =
        m_orvaneAPI->buildUrl(u"cr/join/"_s + OrvaneAPI::pathSegment(*config.tenantId) + u'/' +
                              OrvaneAPI::pathSegment(*properties.customerId));
    m_orvaneAPI->httpUtil()->post(url, JsonUtils::dump(m_newCustomerDTO.toJson()),
                                  [](const std::optional<QByteArray> &,
                                     const std::optional<HttpResponse> &,
                                     const std::optional<NetworkError> &error) {
                                      if (error)
                                          Log::error(error->description());
                                      else
                                          Log::debug(u"joinConference successfull"_s);
                                  });
    registerPolls(*properties.customerId);
}

void Conference::registerPolls(const QString &customerId)
{
    const QString params = u"cId="_s + customerId + u"&joinedTimestamp="_s + nowMillis();
    // Call status is polled for the service's sake; its messages need no answer.
    m_communication->registerClient(RegisteredClient{m_coStatusId, CommunicationChannel::S,
                                                     PollRate, [](const CommunicationMessage &) {},
                                                     u"{}"_s, params});
    QPointer<Conference> self(this);
    m_communication->registerClient(
        RegisteredClient{m_coQueueId, CommunicationChannel::COQS, PollRate,
                         [self, customerId](const CommunicationMessage &message) {
                             if (self)
                                 self->onQueueMessage(customerId, message.payload);
                         },
                         QString(), params});
}

void Conference::onQueueMessage(const QString &customerId, const QString &payload)
{
    bool isNumber = false;
    const int position = payload.toInt(&isNumber);
    if (!isNumber)
        return;
    if (const auto callback = m_queueStatusDict.value(customerId))
        callback(position);
    Q_EMIT queuePositionChanged(customerId, position);
    // -1: the customer left the queue, nothing more to poll for.
    if (position == -1)
        removePolls();
}

void Conference::removePolls()
{
    m_communication->unregisterClient(m_coStatusId);
    m_communication->unregisterClient(m_coQueueId);
}

void Conference::setQueueStatusCallback(const QString &customerId, QueueCallback callback)
{
    m_queueStatusDict.insert(customerId, std::move(callback));
}

std::optional<ConferenceView::Options>
Conference::callOptions(const QString &tenantId, const ConferenceProperties &properties,
                        const ConferenceCallSettingsDTO &settings)
{
    const QUrl server(u"https://"_s + settings.domain.value_or(QString()) + u'/', QUrl::StrictMode);
    if (!server.isValid() || server.host().isEmpty())
        return std::nullopt;
    return ConferenceView::Options{
        server,           roomName(tenantId, properties.customerId.value_or(QString())),
        settings.token,   properties.displayName,
        properties.email, settings.subject()};
}

void Conference::start(ConferenceProperties properties)
{
    // The call is a widget (Qt WebEngine Widgets): a Qt Quick app has no window to put it on,
    // and the service must not hear of a call that cannot be shown.
    if (!qobject_cast<QApplication *>(QCoreApplication::instance())) {
        Log::error(u"Cannot open the call: it needs a QApplication"_s);
        return;
    }
    const std::optional<QString> tenantId = m_applicationConfig->config().tenantId;
    if (!tenantId) {
        Log::error(u"Missing tenantId"_s);
        return;
    }
    if (!properties.customerId) {
        Log::error(u"Missing customerId"_s);
        return;
    }
    const QString url =
        m_orvaneAPI->buildUrl(u"cr/init/"_s + OrvaneAPI::pathSegment(*tenantId) + u'/' +
                              OrvaneAPI::pathSegment(*properties.customerId));
    QPointer<Conference> self(this);
    m_orvaneAPI->httpUtil()->post(
        url, JsonUtils::dump(m_newCustomerDTO.toJson()),
        [self, tenant = *tenantId, properties](const std::optional<QByteArray> &body,
                                               const std::optional<HttpResponse> &,
                                               const std::optional<NetworkError> &error) mutable {
            if (!self)
                return;
            if (error) {
                Log::error(error->description());
                return;
            }
            const auto settings =
                OrvaneAPI::decode<ConferenceCallSettingsDTO>(body, u"ConferenceCallSettingsDTO"_s);
            if (!settings.isOk()) {
                Log::error(u"Could not receive conference settings"_s);
                return;
            }
            // The call is the one the service names.
            properties.customerId = settings.value().customerId;
            const auto options = callOptions(tenant, properties, settings.value());
            if (!options)
                return;
            MainQueue::async([self, options = *options] {
                if (self)
                    self->open(options);
            });
        });
}

void Conference::open(const ConferenceView::Options &options)
{
    QPointer<Conference> self(this);
    ViewUtils::withTopViewController([self, options](QWidget *top) {
        if (self)
            self->present(top, options);
    });
}

void Conference::present(QWidget *top, const ConferenceView::Options &options)
{
    if (m_view)
        m_view->deleteLater();
    auto *view = new ConferenceView(top, options);
    m_view = view;
    connect(view, &ConferenceView::terminated, this, &Conference::conferenceTerminated);
    view->setGeometry(top->rect());
    view->show();
    view->raise();
    Q_EMIT callStarted();
}

void Conference::conferenceTerminated()
{
    if (!m_view)
        return;
    const QPointer<ConferenceView> view = std::exchange(m_view, nullptr);
    MainQueue::async([view] {
        if (!view)
            return;
        ViewUtils::removeFromWindow(view);
    });
    removePolls();
    Q_EMIT callEnded();
}

} // namespace VistrelKit
