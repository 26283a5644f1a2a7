#pragma once

#include "Api/MobileInitDTO.h"
#include "Api/MonitoringConfigDTO.h"
#include "Api/OrvaneAPI.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

class ApplicationConfigWrapper;

/// Announces the device to the service and returns its monitoring settings.
class VISTREL_AUTOTEST_EXPORT InitSender : public QObject
{
    Q_OBJECT
public:
    InitSender(ApplicationConfigWrapper *applicationConfig, OrvaneAPI *orvaneAPI,
               QObject *parent = nullptr);

    /// Sends the init request for the screen named url. See OrvaneAPI::mobileInit() for the
    /// completion's double call on transport errors.
    void send(const QString &url, bool initialize,
              OrvaneAPI::Completion<MonitoringConfigDTO> completion);
    /// The request body, gathered from the live configuration.
    MobileInitDTO buildRequest(const QString &url, bool initialize) const;
    /// The primary screen's size; stops the process when there is no usable screen.
    static PageProperties screenSize();

private:
    ApplicationConfigWrapper *m_applicationConfig;
    OrvaneAPI *m_orvaneAPI;
};

} // namespace VistrelKit
