#pragma once

#include "AgentCommand.h"
#include "Report.h"
#include "Transport.h"
#include "Visit.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QUrlQuery>

#include <memory>
#include <vector>

namespace VistrelService {

/// Every visit the service has seen, in order of first sight. Visits are never removed, so the
/// pointers handed out stay valid for the registry's life.
class VisitRegistry : public QObject
{
    Q_OBJECT
public:
    explicit VisitRegistry(QObject *parent = nullptr);
    ~VisitRegistry() override;

    QList<const Visit *> visits() const;
    const Visit *find(const QString &visitId) const;

    /// Opens (or reopens) the visit, creating it if needed.
    Visit &open(const QString &visitId, Transport transport, const QUrlQuery &query);
    /// Returns false for an unknown visit.
    bool end(const QString &visitId);
    /// Records each message of list in order, stamped with the identifiers of carrier (whose own
    /// message is ignored). Returns false for an unknown visit.
    bool addReports(const QString &visitId, const VistrelKit::ProtoMessageList &list,
                    const Report &carrier);
    /// Queues for the visit's next delivery; an unknown visit is created pending, so commands
    /// can wait for a device that has not connected yet.
    void queueCommand(const QString &visitId, const AgentCommand &command);
    /// Hands over (and forgets) the visit's queued commands.
    QList<AgentCommand> takeCommands(const QString &visitId, Transport via);

Q_SIGNALS:
    void visitOpened(const QString &visitId);
    void visitEnded(const QString &visitId);
    void reportReceived(const QString &visitId, qsizetype index);
    void commandQueued(const QString &visitId);
    void commandDelivered(const QString &visitId, const QByteArray &text,
                          VistrelService::Transport transport);

private:
    Visit *findMutable(const QString &visitId) const;
    Visit &ensure(const QString &visitId);

    std::vector<std::unique_ptr<Visit>> m_visits;
    QHash<QString, Visit *> m_byId;
};

} // namespace VistrelService
