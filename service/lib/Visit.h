#pragma once

#include "AgentCommand.h"
#include "Report.h"
#include "Transport.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUrlQuery>

#include <optional>

namespace VistrelService {

/// One visit as the service sees it, keyed by the visit id (the "id" query parameter).
class Visit
{
public:
    enum class State {
        /// Known only because commands were queued for it; no channel opened yet.
        Pending,
        /// A GET on the message channel or a WebSocket opened it.
        Open,
        /// The device deleted it or went silent; a later GET or WebSocket reopens it.
        Ended,
    };
    enum class EndReason {
        None,
        /// A DELETE on the message channel.
        Deleted,
        /// No request or frame for longer than the registry's silence timeout.
        Silent,
    };

    explicit Visit(const QString &id);

    const QString &id() const { return m_id; }
    const QString &tenantId() const { return m_tenantId; }
    const QString &sessionId() const { return m_sessionId; }
    const QString &visitorId() const { return m_visitorId; }
    /// Only a WebSocket carries it ("shrId").
    const QString &shareId() const { return m_shareId; }
    const QString &storageType() const { return m_storageType; }
    /// The screen name of the last opening request ("url").
    const QString &url() const { return m_url; }
    /// The transport that opened the visit last; absent while pending.
    std::optional<Transport> transport() const { return m_transport; }

    State state() const { return m_state; }
    bool isOpen() const { return m_state == State::Open; }
    QDateTime openedAt() const { return m_openedAt; }
    QDateTime endedAt() const { return m_endedAt; }
    EndReason endReason() const { return m_endReason; }
    /// Newest request or frame of the device for this visit (an empty one too).
    QDateTime lastContact() const { return m_lastContact; }
    /// The id of the first visit of the same device (same visitor or session id); the console
    /// shows such visits as one conversation. Set at the first opening.
    const QString &conversationId() const { return m_conversationId; }
    void setConversationId(const QString &id) { m_conversationId = id; }
    /// Arrival time of the newest report; null before the first.
    QDateTime lastReportTime() const { return m_lastReportTime; }

    const QList<Report> &reports() const { return m_reports; }
    const QList<AgentCommand> &pendingCommands() const { return m_commands; }

    /// Takes the identifiers from the opening request's query (keys tId, sId, vId, url, fsTy,
    /// and shrId when present).
    void open(Transport transport, const QUrlQuery &query, const QDateTime &now);
    void end(EndReason reason, const QDateTime &now);
    void touch(const QDateTime &now) { m_lastContact = now; }
    /// Reopens a visit that went silent, keeping its identifiers.
    void resume();
    /// Returns the report's index.
    qsizetype addReport(Report report);
    void queueCommand(AgentCommand command);
    /// Empties the queue: every command is delivered once.
    QList<AgentCommand> takeCommands();

private:
    QString m_id;
    QString m_tenantId;
    QString m_sessionId;
    QString m_visitorId;
    QString m_shareId;
    QString m_storageType;
    QString m_url;
    std::optional<Transport> m_transport;
    State m_state = State::Pending;
    QDateTime m_openedAt;
    QDateTime m_endedAt;
    EndReason m_endReason = EndReason::None;
    QDateTime m_lastContact;
    QString m_conversationId;
    QDateTime m_lastReportTime;
    QList<Report> m_reports;
    QList<AgentCommand> m_commands;
};

} // namespace VistrelService
