#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

namespace VistrelKit {

/// Where the kit's service lives. Reached through Orvane::configuration().
class VISTREL_EXPORT OrvaneConfiguration
{
public:
    /// The service host ("host" or "host:port") every service URL is built on.
    QString server() const { return m_server; }
    /// Base URL of static content: "<HttpProtocol>://<CdnHostname>/cdn" from the config file.
    QString cdnPath() const { return m_cdnPath; }
    QString cdnPattern() const { return m_cdnPattern; }

    /// Uses another service host, and recomputes cdnPath() from the config file.
    void setServer(const QString &hostname);
    /// Recomputes cdnPath() from the config file; the argument is not used (kept for
    /// compatibility with the service's other kits).
    void setCdnServer(const QString &hostname);

private:
    friend class Orvane;
    OrvaneConfiguration();
    void recomputeCdnPath();

    const QString m_cdnPattern;
    QString m_cdnPath;
    QString m_server;
};

} // namespace VistrelKit
