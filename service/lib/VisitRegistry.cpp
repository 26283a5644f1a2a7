#include "VisitRegistry.h"

#include <QDateTime>

#include <algorithm>

namespace VistrelService {

VisitRegistry::VisitRegistry(QObject *parent)
    : QObject(parent)
{
    m_silenceCheck.setInterval(500);
    connect(&m_silenceCheck, &QTimer::timeout, this, &VisitRegistry::endSilentVisits);
}

void VisitRegistry::setSilenceTimeout(int ms)
{
    m_silenceTimeoutMs = std::max(0, ms);
    if (m_silenceTimeoutMs == 0)
        m_silenceCheck.stop();
}

void VisitRegistry::watchSilence()
{
    if (m_silenceTimeoutMs > 0 && !m_silenceCheck.isActive())
        m_silenceCheck.start();
}

void VisitRegistry::endSilentVisits()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    bool anyOpen = false;
    for (const auto &visit : m_visits) {
        if (!visit->isOpen())
            continue;
        if (visit->lastContact().msecsTo(now) > m_silenceTimeoutMs) {
            visit->end(Visit::EndReason::Silent, now);
            Q_EMIT visitEnded(visit->id());
        } else {
            anyOpen = true;
        }
    }
    if (!anyOpen)
        m_silenceCheck.stop();
}

QString VisitRegistry::conversationFor(const Visit &visit) const
{
    for (auto it = m_visits.rbegin(); it != m_visits.rend(); ++it) {
        const Visit &other = **it;
        if (&other == &visit || other.conversationId().isEmpty())
            continue;
        if ((!visit.visitorId().isEmpty() && other.visitorId() == visit.visitorId()) ||
            (!visit.sessionId().isEmpty() && other.sessionId() == visit.sessionId())) {
            return other.conversationId();
        }
    }
    return visit.id();
}

VisitRegistry::~VisitRegistry() = default;

QList<const Visit *> VisitRegistry::visits() const
{
    QList<const Visit *> result;
    result.reserve(qsizetype(m_visits.size()));
    for (const auto &visit : m_visits)
        result.append(visit.get());
    return result;
}

const Visit *VisitRegistry::find(const QString &visitId) const
{
    return findMutable(visitId);
}

Visit *VisitRegistry::findMutable(const QString &visitId) const
{
    return m_byId.value(visitId, nullptr);
}

Visit &VisitRegistry::ensure(const QString &visitId)
{
    if (Visit *visit = findMutable(visitId))
        return *visit;
    m_visits.push_back(std::make_unique<Visit>(visitId));
    Visit *visit = m_visits.back().get();
    m_byId.insert(visitId, visit);
    return *visit;
}

Visit &VisitRegistry::open(const QString &visitId, Transport transport, const QUrlQuery &query)
{
    Visit &visit = ensure(visitId);
    visit.open(transport, query, QDateTime::currentDateTimeUtc());
    if (visit.conversationId().isEmpty())
        visit.setConversationId(conversationFor(visit));
    watchSilence();
    Q_EMIT visitOpened(visitId);
    return visit;
}

bool VisitRegistry::end(const QString &visitId)
{
    Visit *visit = findMutable(visitId);
    if (!visit)
        return false;
    visit->end(Visit::EndReason::Deleted, QDateTime::currentDateTimeUtc());
    Q_EMIT visitEnded(visitId);
    return true;
}

bool VisitRegistry::addReports(const QString &visitId, const VistrelKit::ProtoMessageList &list,
                               const Report &carrier)
{
    Visit *visit = findMutable(visitId);
    if (!visit)
        return false;
    if (visit->endReason() == Visit::EndReason::Silent) {
        visit->resume();
        watchSilence();
        Q_EMIT visitOpened(visitId);
    }
    // Per request, so that an empty list counts as contact too.
    visit->touch(carrier.receivedAt);
    for (const VistrelKit::ProtoMessage &message : list.messages()) {
        Report report = carrier;
        report.message = message;
        const qsizetype index = visit->addReport(std::move(report));
        Q_EMIT reportReceived(visitId, index);
    }
    return true;
}

qint64 VisitRegistry::queueCommand(const QString &visitId, AgentCommand command)
{
    command.id = ++m_lastCommandId;
    ensure(visitId).queueCommand(command);
    Q_EMIT commandQueued(visitId, command);
    return command.id;
}

QList<AgentCommand> VisitRegistry::takeCommands(const QString &visitId, Transport via)
{
    Visit *visit = findMutable(visitId);
    if (!visit)
        return {};
    const QList<AgentCommand> commands = visit->takeCommands();
    for (const AgentCommand &command : commands)
        Q_EMIT commandDelivered(visitId, command, via);
    return commands;
}

} // namespace VistrelService
