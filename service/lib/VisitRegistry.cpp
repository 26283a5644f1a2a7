#include "VisitRegistry.h"

#include <QDateTime>

namespace VistrelService {

VisitRegistry::VisitRegistry(QObject *parent)
    : QObject(parent)
{}

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
    Q_EMIT visitOpened(visitId);
    return visit;
}

bool VisitRegistry::end(const QString &visitId)
{
    Visit *visit = findMutable(visitId);
    if (!visit)
        return false;
    visit->end(QDateTime::currentDateTimeUtc());
    Q_EMIT visitEnded(visitId);
    return true;
}

bool VisitRegistry::addReports(const QString &visitId, const VistrelKit::ProtoMessageList &list,
                               const Report &carrier)
{
    Visit *visit = findMutable(visitId);
    if (!visit)
        return false;
    for (const VistrelKit::ProtoMessage &message : list.messages()) {
        Report report = carrier;
        report.message = message;
        const qsizetype index = visit->addReport(std::move(report));
        Q_EMIT reportReceived(visitId, index);
    }
    return true;
}

void VisitRegistry::queueCommand(const QString &visitId, const AgentCommand &command)
{
    ensure(visitId).queueCommand(command);
    Q_EMIT commandQueued(visitId);
}

QList<AgentCommand> VisitRegistry::takeCommands(const QString &visitId, Transport via)
{
    Visit *visit = findMutable(visitId);
    if (!visit)
        return {};
    const QList<AgentCommand> commands = visit->takeCommands();
    for (const AgentCommand &command : commands)
        Q_EMIT commandDelivered(visitId, command.text, via);
    return commands;
}

} // namespace VistrelService
