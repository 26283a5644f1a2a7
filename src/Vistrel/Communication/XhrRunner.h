#pragma once

#include "Communication/CommunicationMessage.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QTimer>

#include <functional>

namespace VistrelKit {

class ApplicationConfigWrapper;
class ClientRegistry;
class OrvaneAPI;

/// The channel poll: while running, posts the registered channels to "api/in/co" every
/// currentRate seconds and hands each message of the reply to its receiver.
class VISTREL_PRIVATE_EXPORT XhrRunner : public QObject
{
    Q_OBJECT
public:
    using Receiver = std::function<void(const CommunicationMessage &message)>;

    /// Replies larger than this are dropped unread: the channel carries short texts.
    static constexpr qsizetype MaxReplyBytes = 1024 * 1024;
    /// Consecutive failures tolerated before the runner stops itself.
    static constexpr qint64 MaxFailedAttempts = 10;

    XhrRunner(OrvaneAPI *orvaneAPI, ApplicationConfigWrapper *applicationConfig,
              const ClientRegistry *registry, Receiver receiver, QObject *parent = nullptr);

    /// Arms the next tick after currentRate seconds (re-arming a pending one: there is only ever
    /// one tick ahead). A tick polls when running and only waits for the next one otherwise.
    void scheduleNext();
    /// One poll now; it schedules the next tick when it is over.
    void poll();

    double currentRate() const { return m_currentRate; }
    void setCurrentRate(double seconds) { m_currentRate = seconds; }
    bool isRunning() const { return m_running; }
    void setRunning(bool running) { m_running = running; }
    qint64 failedAttempts() const { return m_failedAttempts; }
    /// Whether a tick is ahead.
    bool isScheduled() const { return m_timer.isActive(); }

private:
    void onReply(const std::optional<QByteArray> &body);
    void countFailure();
    void tick();

    double m_currentRate;
    qint64 m_failedAttempts = 0;
    OrvaneAPI *m_orvaneAPI;
    ApplicationConfigWrapper *m_applicationConfig;
    bool m_running = false;
    const ClientRegistry *m_registry;
    Receiver m_receiver;
    QTimer m_timer;
};

} // namespace VistrelKit
