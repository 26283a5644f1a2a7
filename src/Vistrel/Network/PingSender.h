#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <memory>

namespace VistrelKit {

class ApplicationConfigWrapper;
class MessageSender;

/// Keeps a visit alive: one keep-alive report per second through the session's sender.
class VISTREL_AUTOTEST_EXPORT PingSender : public QObject
{
    Q_OBJECT
public:
    explicit PingSender(ApplicationConfigWrapper *applicationConfig, QObject *parent = nullptr);

    /// Starts pinging through sender (on the GUI thread, after this call returns). A running
    /// timer is replaced.
    void start(MessageSender *sender);
    /// Stops the timer, also one that a start() has not created yet.
    void stop();
    bool isRunning() const { return m_timer && m_timer->isActive(); }
    double pingInterval() const { return m_pingInterval; }

private:
    void ping();

    const double m_pingInterval = 1.0;
    ApplicationConfigWrapper *m_applicationConfig;
    QPointer<MessageSender> m_sender;
    std::unique_ptr<QTimer> m_timer;
    quint64 m_stopCount = 0;
};

} // namespace VistrelKit
