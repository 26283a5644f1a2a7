#include "Visit.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace VistrelService {

Visit::Visit(const QString &id)
    : m_id(id)
{}

void Visit::open(Transport transport, const QUrlQuery &query, const QDateTime &now)
{
    const auto value = [&query](const QString &key) {
        return query.queryItemValue(key, QUrl::FullyDecoded);
    };
    m_tenantId = value(u"tId"_s);
    m_sessionId = value(u"sId"_s);
    m_visitorId = value(u"vId"_s);
    m_url = value(u"url"_s);
    m_storageType = value(u"fsTy"_s);
    if (query.hasQueryItem(u"shrId"_s))
        m_shareId = value(u"shrId"_s);
    m_transport = transport;
    m_state = State::Open;
    m_endReason = EndReason::None;
    m_openedAt = now;
    m_lastContact = now;
}

void Visit::end(EndReason reason, const QDateTime &now)
{
    m_state = State::Ended;
    m_endReason = reason;
    m_endedAt = now;
}

void Visit::resume()
{
    m_state = State::Open;
    m_endReason = EndReason::None;
}

qsizetype Visit::addReport(Report report)
{
    m_lastReportTime = report.receivedAt;
    m_reports.append(std::move(report));
    return m_reports.size() - 1;
}

void Visit::queueCommand(AgentCommand command)
{
    m_commands.append(std::move(command));
}

QList<AgentCommand> Visit::takeCommands()
{
    return std::exchange(m_commands, {});
}

} // namespace VistrelService
