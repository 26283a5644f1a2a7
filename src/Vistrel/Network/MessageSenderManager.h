#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

class ApplicationConfigWrapper;
class HealthCheck;
class WebSocketMessageSender;
class XhrMessageSender;

/// Holds both transports. The session takes the HTTP one; the WebSocket one stands ready.
class VISTREL_AUTOTEST_EXPORT MessageSenderManager : public QObject
{
    Q_OBJECT
public:
    MessageSenderManager(WebSocketMessageSender *webSocketSender, XhrMessageSender *xhrSender,
                         ApplicationConfigWrapper *applicationConfig, HealthCheck *healthCheck,
                         QObject *parent = nullptr)
        : QObject(parent)
        , m_webSocketSender(webSocketSender)
        , m_xhrSender(xhrSender)
        , m_applicationConfig(applicationConfig)
        , m_healthCheck(healthCheck)
    {}

    WebSocketMessageSender *webSocketSender() const { return m_webSocketSender; }
    XhrMessageSender *xhrSender() const { return m_xhrSender; }
    ApplicationConfigWrapper *applicationConfig() const { return m_applicationConfig; }
    HealthCheck *healthCheck() const { return m_healthCheck; }

private:
    WebSocketMessageSender *const m_webSocketSender;
    XhrMessageSender *const m_xhrSender;
    ApplicationConfigWrapper *const m_applicationConfig;
    HealthCheck *const m_healthCheck;
};

} // namespace VistrelKit
