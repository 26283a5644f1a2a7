#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

namespace VistrelKit {

/// Where the kit's service lives. Reached through Orvane::configuration().
class VISTREL_EXPORT OrvaneConfiguration
{
public:
    /// The service host ("host" or "host:port") every service URL is built on.
    QString server() const;
    /// Base URL of static content: "<HttpProtocol>://<CdnHostname>/cdn" from the config file.
    QString cdnPath() const;
    QString cdnPattern() const;

    /// Uses another service host, and recomputes cdnPath() from the config file.
    void setServer(const QString &hostname);
    /// Recomputes cdnPath() from the config file; the argument is not used (kept for
    /// compatibility with the service's other kits).
    void setCdnServer(const QString &hostname);

private:
    friend class Orvane;
    OrvaneConfiguration() = default;
};

} // namespace VistrelKit
