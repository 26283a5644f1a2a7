#include "Network/PingSender.h"

#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Network/MessageSender.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

PingSender::PingSender(ApplicationConfigWrapper *applicationConfig, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
{}

void PingSender::start(MessageSender *sender)
{
    QPointer<PingSender> self(this);
    QPointer<MessageSender> target(sender);
    // A stop() before the timer exists cancels it.
    MainQueue::async([self, target, stops = m_stopCount] {
        if (!self || self->m_stopCount != stops)
            return;
        self->m_sender = target;
        self->m_timer = std::make_unique<QTimer>();
        self->m_timer->setInterval(std::chrono::milliseconds(qRound(self->m_pingInterval * 1000)));
        connect(self->m_timer.get(), &QTimer::timeout, self, &PingSender::ping);
        self->m_timer->start();
    });
}

void PingSender::stop()
{
    ++m_stopCount;
    m_timer.reset();
}

void PingSender::ping()
{
    Log::debug(u"Execute ping interval task"_s);
    if (!m_sender)
        return;
    const qint64 startTime = m_applicationConfig->config().vistrelConfig.startTime.value_or(0);
    m_sender->sendPing(startTime, [](const std::optional<Error> &error) {
        if (error)
            Log::warning(u"Ping sending failed: "_s + error->description());
    });
}

} // namespace VistrelKit
