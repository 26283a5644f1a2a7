#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

#include <functional>

namespace VistrelKit {

/// The screen session as the host app sees it. Reached through Orvane::vistrel().
///
/// \code
/// Orvane::vistrel()->start(QStringLiteral("tenant"), QStringLiteral("token"));
/// ...
/// Orvane::vistrel()->stop();
/// \endcode
class VISTREL_EXPORT OrvaneVistrel
{
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
    /// onStart runs after each successful start, onStop after each stop.
    void registerCallbacks(std::function<void()> onStart, std::function<void()> onStop);

private:
    friend class Orvane;
    OrvaneVistrel() = default;
};

} // namespace VistrelKit
