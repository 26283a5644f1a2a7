#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QString>

namespace VistrelKit {

/// Where the service lives: the host every server call is built on and the base URL of static
/// content. Starts from the kit's config file; the host app changes it through
/// OrvaneConfiguration.
class VISTREL_AUTOTEST_EXPORT ServiceHost : public QObject
{
    Q_OBJECT
public:
    explicit ServiceHost(QObject *parent = nullptr);

    /// "host" or "host:port"; the config file's "Hostname", or "" without one.
    QString server() const { return m_server; }
    /// "<HttpProtocol>://<CdnHostname>/cdn" from the config file.
    QString cdnPath() const { return m_cdnPath; }
    QString cdnPattern() const { return m_cdnPattern; }

    /// Uses another host, and recomputes cdnPath() from the config file.
    void setServer(const QString &hostname);
    /// Recomputes cdnPath() from the config file; the argument is not used, as in the service's
    /// other kits.
    void setCdnServer(const QString &hostname);

private:
    void recomputeCdnPath();

    const QString m_cdnPattern;
    QString m_cdnPath;
    QString m_server;
};

} // namespace VistrelKit
