#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

class ApplicationConfigWrapper;
class OrvaneAPI;

/// Settings of a server health probe. Nothing runs the probe; the session clears isRunning.
class VISTREL_AUTOTEST_EXPORT HealthCheck : public QObject
{
    Q_OBJECT
public:
    HealthCheck(ApplicationConfigWrapper *applicationConfig, OrvaneAPI *orvaneAPI,
                QObject *parent = nullptr);

    /// "<scheme>://<hostname>/api/ic/h".
    QString url() const;
    QString urlPattern() const { return m_urlPattern; }
    int successResponseCode() const { return m_successResponseCode; }
    double retryDelay() const { return m_retryDelay; }
    bool isRunning() const { return m_isRunning; }
    void setRunning(bool running) { m_isRunning = running; }

private:
    const QString m_urlPattern;
    const int m_successResponseCode = 200;
    const double m_retryDelay = 1.0;
    ApplicationConfigWrapper *m_applicationConfig;
    OrvaneAPI *m_orvaneAPI;
    bool m_isRunning = false;
};

} // namespace VistrelKit
