#pragma once

#include <Vistrel/InitConfiguration.h>
#include <Vistrel/vistrel_export.h>

#include <QString>

#include <functional>
#include <optional>

namespace VistrelKit {

class OrvaneCoBrowsing;
class OrvaneConference;
class OrvaneConfiguration;
class OrvaneUser;
class OrvaneVistrel;
class OrvaneWebChat;

/// The kit's entry point. Everything runs on the GUI thread of a QGuiApplication.
///
/// \code
/// Orvane::configuration()->setServer("assist.example.com");
/// Orvane::initConfig("tenant", "token");
/// \endcode
class VISTREL_EXPORT Orvane
{
public:
    Orvane() = delete;

    /// The service location settings (one instance per process).
    static OrvaneConfiguration *configuration();
    /// The screen session (one instance per process).
    static OrvaneVistrel *vistrel();

    /// Co-browsing: the screen session with its on-screen share id widget (one instance per
    /// process).
    static OrvaneCoBrowsing *coBrowsing();
    /// The service's web chat (one instance per process).
    static OrvaneWebChat *webChat();
    /// The app's user as the service knows it (one instance per process).
    static OrvaneUser *user();
    /// Video calls with an agent (one instance per process). Defined in the library
    /// Vistrel::Conference: link it to call these.
    static OrvaneConference *conference();
    /// The same object as conference().
    static OrvaneConference *conferenceInstance();
    /// Binds the kit to a tenant: stores tenant and token, renews the visitor and visit ids
    /// (keeping the session id) and starts listening for an agent's co-browsing request. Returns
    /// nothing when the kit's configuration is unavailable.
    static std::optional<InitConfiguration> initConfig(const QString &tenantId,
                                                       const QString &token);

    /// Reads the kit's config file from path instead of the built-in default. Call it before any
    /// other call of the kit. (The environment variable VISTREL_CONFIG does the same.)
    static void setConfigFile(const QString &path);

    /// Receives each of the kit's log lines: level ("DEBUG", "WARNING" or "ERROR"), source (the
    /// kit's class) and message. Messages may hold ids and texts from the network.
    using LogHandler =
        std::function<void(const QString &level, const QString &source, const QString &message)>;
    /// Routes the kit's log lines to handler instead of standard output, for instance into
    /// qCDebug() or the app's own log; a handler that does nothing silences the kit. An empty
    /// handler restores the default: one line "[LEVEL] Source: message" per event on standard
    /// output.
    static void setLogHandler(LogHandler handler);
};

} // namespace VistrelKit
