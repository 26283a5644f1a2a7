#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QString>

namespace VistrelKit {

/// Co-browsing as the host app sees it: a screen session plus a small on-screen widget that
/// shows the share id the user reads out to the agent. Reached through Orvane::coBrowsing().
///
/// An agent can also start co-browsing from the service: after Orvane::initConfig() the kit
/// listens for that request on its own.
///
/// \code
/// connect(Orvane::coBrowsing(), &OrvaneCoBrowsing::started, this, &Panel::showCoBrowsing);
/// Orvane::coBrowsing()->start(QStringLiteral("tenant"), QStringLiteral("token"));
/// ...
/// Orvane::coBrowsing()->stop();
/// \endcode
class VISTREL_EXPORT OrvaneCoBrowsing : public QObject
{
    Q_OBJECT
public:
    /// Shows the widget over the topmost window and starts a screen session for it, for the
    /// tenant given to Orvane::initConfig(). Failures are logged.
    void start();
    /// Sets tenant and token, then starts as above.
    void start(const QString &tenantId, const QString &token);
    /// Removes the widget and stops the screen session.
    void stop();
    /// Whether the co-browsing widget is on screen, that is, whether co-browsing is on (also
    /// when an agent started it).
    bool isShown() const;

Q_SIGNALS:
    /// Co-browsing is on: the widget shows the share id of its running session.
    void started();
    /// Co-browsing ended: by stop(), the widget's close button, an agent, or the session's stop.
    void ended();

private:
    friend class Orvane;
    OrvaneCoBrowsing() = default;
};

} // namespace VistrelKit
