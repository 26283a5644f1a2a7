#pragma once

#include "Config/ApplicationConfig.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

/// Owns the configuration tree. Services hold the wrapper, never a copy of its fields.
class VISTREL_PRIVATE_EXPORT ApplicationConfigWrapper : public QObject
{
    Q_OBJECT
public:
    /// Fills hostname and cdnPath from the kit's config file.
    explicit ApplicationConfigWrapper(QObject *parent = nullptr);

    ApplicationConfig &config() { return m_config; }
    const ApplicationConfig &config() const { return m_config; }

    /// New visitor and visit ids; the session id is the one given, or a new one.
    void newVisit(const std::optional<QString> &sessionId);
    /// Sets the hostname, and the CDN path too while that is unset.
    void setHostname(const QString &hostname);

private:
    ApplicationConfig m_config;
};

} // namespace VistrelKit
