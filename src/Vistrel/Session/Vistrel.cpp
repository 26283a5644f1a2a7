#include "Session/Vistrel.h"

#include "Api/HealthCheck.h"
#include "Api/InitSender.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/IdUtils.h"
#include "Core/Injection.h"
#include "Core/Log.h"
#include "Monitoring/ViewMonitor.h"
#include "Network/MessageSenderManager.h"
#include "Network/PingSender.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Screen/ScreenPlatform.h"

#include <QGuiApplication>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace VistrelKit {

Vistrel::Vistrel(InitSender *initSender, MessageSenderManager *messageSenderManager,
                 ViewMonitor *viewMonitor, ApplicationConfigWrapper *applicationConfig,
                 PingSender *pingSender, HealthCheck *healthCheck, ScreenPlatform *screen,
                 QObject *parent)
    : QObject(parent)
    , m_initSender(initSender)
    , m_messageSenderManager(messageSenderManager)
    , m_viewMonitor(viewMonitor)
    , m_applicationConfig(applicationConfig)
    , m_pingSender(pingSender)
    , m_healthCheck(healthCheck)
    , m_screen(screen)
{
    XhrMessageSender *sender = m_messageSenderManager->xhrSender();
    connect(sender, &XhrMessageSender::connectionLost, this, &Vistrel::connectionLost);
    connect(sender, &XhrMessageSender::connectionRestored, this, &Vistrel::connectionRestored);
}

void Vistrel::start(ErrorCompletion completion)
{
    start(std::nullopt, Origin::Host, std::move(completion));
}

void Vistrel::start(const std::optional<QString> &sessionId, ErrorCompletion completion)
{
    start(sessionId, Origin::CoBrowsing, std::move(completion));
}

void Vistrel::start(const std::optional<QString> &sessionId, Origin origin,
                    ErrorCompletion completion)
{
    if (m_isRunning) {
        const StringError error(u"Vistrel is already started"_s);
        Q_EMIT startFailed(error.description());
        completion(error);
        return;
    }
    m_isRunning = true;
    Log::debug(u"Start"_s);
    ApplicationConfig &config = m_applicationConfig->config();
    if (!sessionId)
        config.vistrelConfig.optIn = false;
    m_applicationConfig->newVisit(sessionId);
    config.vistrelConfig.newShareIdAndStartTime();
    Q_EMIT shareIdChanged(shareId());

    QPointer<Vistrel> self(this);
    // Monitoring is forced for co-browsing, whose agent is already waiting for the screen.
    const bool force = origin == Origin::CoBrowsing;
    // A transport error reaches the completion twice (the error, then "Data is nil"): the host
    // hears of the first.
    auto failureReported = std::make_shared<bool>(false);
    sessionStart(force, [self, origin, failureReported,
                         completion = std::move(completion)](const std::optional<Error> &error) {
        if (!self)
            return;
        if (error) {
            self->m_isRunning = false;
            if (!std::exchange(*failureReported, true))
                Q_EMIT self->startFailed(error->description());
        } else {
            // Only the host's start names the user and watches the background.
            if (origin == Origin::Host) {
                self->sendActiveUser();
                self->setUpBackgroundHandling();
            }
            self->m_startCallback();
            Q_EMIT self->started();
        }
        completion(error);
    });
}

void Vistrel::sessionStart(bool force, ErrorCompletion completion)
{
    Log::debug(u"Get init"_s);
    QPointer<Vistrel> self(this);
    // After a stop, what is left of this start must not bring the session up again: it would
    // run with isRunning false, out of reach of any later stop().
    const auto abandoned = [self, stops = m_stopCount] {
        return !self || self->m_stopCount != stops;
    };
    m_screen->withTopWindow([self, abandoned, force,
                             completion = std::move(completion)](QWindow *window) mutable {
        if (abandoned())
            return;
        Log::debug(u"Call init sender"_s);
        self->m_initSender->send(
            self->m_screen->viewName(window), true,
            [self, abandoned, force, completion](const Result<MonitoringConfigDTO> &reply) mutable {
                if (abandoned())
                    return;
                if (!reply.isOk()) {
                    completion(reply.error());
                    return;
                }
                const MonitoringConfigDTO config = reply.value();
                if (config.ignoreIp) {
                    Log::debug(u"Ignoring"_s);
                    return;
                }
                force = force || config.startMonitoringType == u"u"_s;
                self->m_screen->withTopWindow([self, abandoned, force, config,
                                               completion](QWindow *current) mutable {
                    if (abandoned())
                        return;
                    ApplicationConfig &app = self->m_applicationConfig->config();
                    app.vistrelConfig.storageType = config.storageType.value_or(u"l"_s);
                    app.chatAvailable = config.chatActivated;
                    Q_EMIT self->chatAvailabilityChanged(config.chatActivated.value_or(false));
                    app.vistrelConfig.iosConfig = config.ios;
                    const bool monitor = config.shouldStartMonitoring;
                    const QString name = self->m_screen->viewName(current);
                    const auto overHttp = [self, name, monitor, force, completion] {
                        XhrMessageSender *xhr = self->m_messageSenderManager->xhrSender();
                        xhr->start(name, nullptr, nullptr);
                        self->startStreaming(xhr, monitor, force, completion);
                    };
                    if (!self->m_webSocketPreferred || config.disableWebSocket.value_or(false)) {
                        overHttp();
                        return;
                    }
                    // Held before it opens, so that a stop() meanwhile closes it.
                    WebSocketMessageSender *socket =
                        self->m_messageSenderManager->webSocketSender();
                    self->m_messageSender = socket;
                    socket->start(
                        name,
                        [self, abandoned, socket, monitor, force, completion] {
                            if (!abandoned())
                                self->startStreaming(socket, monitor, force, completion);
                        },
                        [abandoned, overHttp] {
                            if (abandoned())
                                return;
                            Log::warning(u"Cannot open the WebSocket: reports go over HTTP"_s);
                            overHttp();
                        });
                });
            });
    });
}

void Vistrel::startStreaming(MessageSender *sender, bool shouldStartMonitoring, bool force,
                             ErrorCompletion completion)
{
    Log::debug(u"Selected message sender: "_s +
               Injection::unqualified(sender->metaObject()->className()));
    m_messageSender = sender;
    m_pingSender->start(sender);

    Log::debug(u"Should start monitoring: "_s + (shouldStartMonitoring ? u"true"_s : u"false"_s));
    if (!shouldStartMonitoring && !force) {
        completion(std::nullopt);
        return;
    }
    Log::debug(u"Should start or force is set"_s);
    setRecording(true);
    Log::debug(u"Start monitor"_s);
    m_viewMonitor->resetLastScreenshot();
    m_viewMonitor->start(sender, std::move(completion));
}

void Vistrel::stop()
{
    if (!m_isRunning) {
        Log::warning(u"Already stopped"_s);
        return;
    }
    ++m_stopCount;
    m_pingSender->stop();
    m_viewMonitor->stop();
    if (m_messageSender)
        m_messageSender->stop();
    m_healthCheck->setRunning(false);
    m_isRunning = false;
    setRecording(false);
    m_stopCallback();
    Q_EMIT stopped();
}

void Vistrel::setRecording(bool recording)
{
    const bool was = connected();
    m_applicationConfig->config().vistrelConfig.isRecordingStarted = recording;
    if (was != recording)
        Q_EMIT connectedChanged(recording);
}

void Vistrel::restart()
{
    stop();
    m_applicationConfig->config().visitConfig.visitId = IdUtils::newUuid();
    QPointer<Vistrel> self(this);
    // Whatever the outcome, the session counts as running again and sends a full screenshot.
    sessionStart(false, [self](const std::optional<Error> &error) {
        if (!self)
            return;
        self->m_isRunning = true;
        self->m_viewMonitor->resetLastScreenshot();
        // The host was told of the stop above; it hears of the session's return too.
        if (!error) {
            self->m_startCallback();
            Q_EMIT self->started();
        }
    });
}

bool Vistrel::connected() const
{
    return m_applicationConfig->config().vistrelConfig.isRecordingStarted.value_or(false);
}

QString Vistrel::shareId() const
{
    return m_applicationConfig->config().vistrelConfig.shareId.value_or(QString());
}

void Vistrel::tag(const QString &text, ErrorCompletion completion)
{
    if (!m_messageSender) {
        completion(StringError(u"Cannot tag session without message sender"_s));
        return;
    }
    m_messageSender->sendTag(text,
                             m_applicationConfig->config().vistrelConfig.startTime.value_or(0),
                             std::move(completion));
}

void Vistrel::registerCallbacks(Callback onStart, Callback onStop)
{
    m_startCallback = onStart ? std::move(onStart) : [] {};
    m_stopCallback = onStop ? std::move(onStop) : [] {};
}

void Vistrel::sendActiveUser()
{
    const ApplicationConfig &config = m_applicationConfig->config();
    if (config.activeUserTag && m_messageSender) {
        m_messageSender->sendUserTag(*config.activeUserTag,
                                     config.vistrelConfig.startTime.value_or(0),
                                     [](const std::optional<Error> &) {});
    }
}

bool Vistrel::isBackground(Qt::ApplicationState state)
{
    const QString platform = QGuiApplication::platformName();
    const bool mobile = platform == u"android"_s || platform == u"ios"_s;
    if (mobile)
        return state != Qt::ApplicationActive;
    return state == Qt::ApplicationHidden || state == Qt::ApplicationSuspended;
}

void Vistrel::setUpBackgroundHandling()
{
    if (m_closingIsSetup)
        return;
    m_closingIsSetup = true;
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
            &Vistrel::onApplicationStateChanged);
}

void Vistrel::onApplicationStateChanged(Qt::ApplicationState state)
{
    const bool background = isBackground(state);
    if (background == m_inBackground)
        return;
    m_inBackground = background;
    if (background)
        applicationWillResignActive();
    else
        applicationDidBecomeActive();
}

void Vistrel::applicationWillResignActive()
{
    Log::debug(u"App goes in background"_s);
    if (m_backgroundTimeoutTimer && !m_backgroundTimeoutTimer->isActive())
        m_backgroundTimeoutTimer->deleteLater(); // a dead timer from an earlier return
    auto *timer = new QTimer(this);
    timer->setSingleShot(true);
    connect(timer, &QTimer::timeout, this, [this, timer] { backgroundTimeoutFired(timer); });
    timer->start(qRound(m_backgroundTimeout * 1000));
    m_backgroundTimeoutTimer = timer;
}

void Vistrel::backgroundTimeoutFired(QTimer *timer)
{
    Log::debug(u"Timeout; Close sender"_s);
    if (m_messageSender)
        m_messageSender->stop();
    m_backgroundTimeoutTimer = nullptr;
    timer->deleteLater();
}

void Vistrel::applicationDidBecomeActive()
{
    if (m_backgroundTimeoutTimer) {
        // Back within the grace period: the transport is still open. The field keeps the dead
        // timer, so the next return also counts as "in time" until a new timer replaces it.
        m_backgroundTimeoutTimer->stop();
        return;
    }
    VisitConfig &visit = m_applicationConfig->config().visitConfig;
    visit.visitId = IdUtils::newUuid();
    visit.sessionId = IdUtils::newUuid();
    QPointer<Vistrel> self(this);
    m_screen->withTopWindow([self](QWindow *window) {
        if (!self)
            return;
        const QString name = self->m_screen->viewName(window);
        self->m_initSender->send(name, true,
                                 [self, name](const Result<MonitoringConfigDTO> &reply) {
                                     if (!self)
                                         return;
                                     if (!reply.isOk()) {
                                         Log::error(u"Cannot restart session after close: "_s +
                                                    reply.error().description());
                                         return;
                                     }
                                     if (!self->m_messageSender)
                                         return;
                                     self->m_messageSender->start(
                                         name,
                                         [self] {
                                             if (self)
                                                 self->m_viewMonitor->resetLastScreenshot();
                                             Log::debug(u"WebSocket reconnect success"_s);
                                         },
                                         [] { Log::warning(u"WebSocket reconnect failed"_s); });
                                 });
    });
}

} // namespace VistrelKit
