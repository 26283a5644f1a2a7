#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QString>

#include <functional>

namespace VistrelKit {

/// The screen session as the host app sees it. Reached through Orvane::vistrel().
///
/// \code
/// connect(Orvane::vistrel(), &OrvaneVistrel::connectedChanged, this, &Panel::showConnected);
/// connect(Orvane::vistrel(), &OrvaneVistrel::startFailed, this, &Panel::showError);
/// Orvane::vistrel()->start(QStringLiteral("tenant"), QStringLiteral("token"));
/// ...
/// Orvane::vistrel()->stop();
/// \endcode
///
/// The signals come from the GUI thread, for starts and stops however they were asked for (by
/// the host, by co-browsing or by an agent).
class VISTREL_EXPORT OrvaneVistrel : public QObject
{
    Q_OBJECT
public:
    /// Starts streaming the app's screen for the tenant given to Orvane::initConfig().
    void start();
    /// Sets tenant and token, then starts.
    void start(const QString &tenantId, const QString &token);
    /// Stops streaming and ends the visit on the service.
    void stop();
    /// Whether the screen is being recorded right now.
    bool connected() const;
    /// The five-digit number the user reads out to an agent ("" before the first start).
    QString shareId() const;
    /// Attaches a free text tag to the session, for the agent to see.
    void tag(const QString &text);
    /// How the session's reports travel to the service and the agent's commands come back.
    enum class Transport {
        /// Reports posted every 0.1 s; the agent's commands ride on the replies (the default).
        Http,
        /// One WebSocket per visit: the agent's commands arrive at once. Used when the service
        /// allows it (its init reply does not say "disableWebSocket": true); when the connection
        /// cannot be opened the session streams over HTTP instead.
        WebSocket,
    };
    Q_ENUM(Transport)
    /// The transport for the next starts.
    void setTransport(Transport transport);
    Transport transport() const;
    /// onStart runs after each successful start, onStop after each stop (started() and
    /// stopped() tell the same).
    void registerCallbacks(std::function<void()> onStart, std::function<void()> onStop);

Q_SIGNALS:
    /// A session started (also a co-browsing one, or one restarted).
    void started();
    /// A start failed; error is the text the log shows too.
    void startFailed(const QString &error);
    /// The session stopped.
    void stopped();
    /// connected() changed.
    void connectedChanged(bool connected);
    /// A start drew a new share id.
    void shareIdChanged(const QString &shareId);
    /// The service stopped answering. The session stays up: it retries (after 1 s, then up to
    /// every 30 s) and holds what it records, within a size bound, until the service is back.
    /// (HTTP transport; a dropped WebSocket is reopened at once, without these signals.)
    void connectionLost();
    /// The service answers again; streaming resumed with the current screen.
    void connectionRestored();

private:
    friend class Orvane;
    OrvaneVistrel() = default;
};

} // namespace VistrelKit
