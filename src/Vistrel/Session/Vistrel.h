#pragma once

#include "Core/Error.h"
#include "Network/MessageSender.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>

namespace VistrelKit {

class ApplicationConfigWrapper;
class HealthCheck;
class InitSender;
class MessageSenderManager;
class PingSender;
class ScreenPlatform;
class ViewMonitor;

/// The screen session: runs the init handshake, takes a transport (HTTP, or the WebSocket when
/// the host prefers it and the service allows it), starts the ping and
/// the view monitor, closes the transport when the app stays in the background for 5 s and
/// opens a new visit when it comes back, and stops everything on request.
class VISTREL_AUTOTEST_EXPORT Vistrel : public QObject
{
    Q_OBJECT
public:
    using Callback = std::function<void()>;

    Vistrel(InitSender *initSender, MessageSenderManager *messageSenderManager,
            ViewMonitor *viewMonitor, ApplicationConfigWrapper *applicationConfig,
            PingSender *pingSender, HealthCheck *healthCheck, ScreenPlatform *screen,
            QObject *parent = nullptr);

    /// The host's start: a new visit, share id and start time, then the session start; on
    /// success the active user is sent and background handling is set up. "Vistrel is already
    /// started" and the session start's errors go to the completion.
    void start(ErrorCompletion completion);
    /// The start of a co-browsing session: the visit is rebuilt on sessionId (a new session
    /// when absent) and monitoring is forced; nothing more follows its success. "Vistrel is
    /// already started" and the session start's errors go to the completion.
    void start(const std::optional<QString> &sessionId, ErrorCompletion completion);
    /// The init handshake and what follows from its reply. force starts monitoring whatever the
    /// reply says. On a transport error the completion runs twice (the error, then "Data is nil").
    void sessionStart(bool force, ErrorCompletion completion);
    /// Ends the timers, the monitor and the transport (which deletes the visit on the service),
    /// then emits stopped().
    void stop();
    /// Stops and starts the session again on a new visit id; whatever the outcome it counts as
    /// running. (Co-browsing's restart comes here when co-browsing is off.)
    void restart();

    /// Whether the screen is being recorded.
    bool connected() const;
    QString shareId() const;
    /// Sends a free tag over the live transport; a failure goes to the completion.
    void tag(const QString &text, ErrorCompletion completion);
    /// Called after each successful start (a restart's too) and after each stop.
    void registerCallbacks(Callback onStart, Callback onStop);

    bool isRunning() const { return m_isRunning; }
    /// Whether the next starts stream over the WebSocket transport when the service's init reply
    /// does not say "disableWebSocket": true. HTTP stays the default, and takes over when the
    /// connection cannot be opened.
    void setWebSocketPreferred(bool preferred) { m_webSocketPreferred = preferred; }
    bool isWebSocketPreferred() const { return m_webSocketPreferred; }
    /// The transport chosen at the last start (kept after a stop).
    MessageSender *messageSender() const { return m_messageSender; }
    ViewMonitor *viewMonitor() const { return m_viewMonitor; }

    /// The app leaves the foreground: the transport closes unless it is back within 5 s.
    void applicationWillResignActive();
    /// The app is back: a transport closed meanwhile reopens on a new visit and session.
    void applicationDidBecomeActive();
    /// Whether an application state counts as the background on this platform: on Android and
    /// iOS any state but active; on desktop only hidden or suspended (an unfocused window is
    /// still in front of its user).
    static bool isBackground(Qt::ApplicationState state);

    double backgroundTimeout() const { return m_backgroundTimeout; }
    double tagCheckInterval() const { return m_tagCheckInterval; }

Q_SIGNALS:
    /// A start, a co-browsing start or a restart succeeded.
    void started();
    /// A start or a co-browsing start failed, with the error's text.
    void startFailed(const QString &error);
    /// The session stopped (co-browsing ends with it).
    void stopped();
    /// Whether the screen is recorded changed.
    void connectedChanged(bool connected);
    /// A start drew a new share id.
    void shareIdChanged(const QString &shareId);
    /// An init reply said whether the service offers chat.
    void chatAvailabilityChanged(bool available);
    /// The service stopped answering; the session retries and holds what it records.
    void connectionLost();
    /// The service answers again after connectionLost().
    void connectionRestored();

private:
    enum class Origin { Host, CoBrowsing };
    void start(const std::optional<QString> &sessionId, Origin origin, ErrorCompletion completion);
    void setRecording(bool recording);
    void setUpBackgroundHandling();
    void onApplicationStateChanged(Qt::ApplicationState state);
    void backgroundTimeoutFired(QTimer *timer);
    void sendActiveUser();
    // Takes sender for the session; monitoring starts when the reply asks for it or it is forced.
    void startStreaming(MessageSender *sender, bool shouldStartMonitoring, bool force,
                        ErrorCompletion completion);

    InitSender *m_initSender;
    MessageSenderManager *m_messageSenderManager;
    ViewMonitor *m_viewMonitor;
    ApplicationConfigWrapper *m_applicationConfig;
    QPointer<MessageSender> m_messageSender;
    PingSender *m_pingSender;
    HealthCheck *m_healthCheck;
    ScreenPlatform *m_screen;
    const double m_tagCheckInterval = 0.5;
    const double m_backgroundTimeout = 5.0;
    Callback m_startCallback = [] {};
    Callback m_stopCallback = [] {};
    bool m_isRunning = false;
    bool m_webSocketPreferred = false;
    // Counts the stops, so that a start still under way when one comes knows it is abandoned.
    quint64 m_stopCount = 0;
    bool m_closingIsSetup = false;
    bool m_inBackground = false;
    QPointer<QTimer> m_backgroundTimeoutTimer;
};

} // namespace VistrelKit
