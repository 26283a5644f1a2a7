#pragma once

#include "AgentCommand.h"
#include "Report.h"
#include "Transport.h"
#include "Visit.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUrlQuery>

#include <memory>
#include <vector>

namespace VistrelService {

/// Every visit the service has seen, in order of first sight. Visits are never removed, so the
/// pointers handed out stay valid for the registry's life. An open visit that neither sends
/// nor opens anything for longer than the silence timeout is ended, and resumed if it speaks
/// again: a killed app never deletes its visit.
class VisitRegistry : public QObject
{
    Q_OBJECT
public:
    /// Five of the device's one-second pings.
    static constexpr int DefaultSilenceTimeoutMs = 5000;

    explicit VisitRegistry(QObject *parent = nullptr);
    ~VisitRegistry() override;

    /// 0 never ends a visit for silence.
    void setSilenceTimeout(int ms);
    int silenceTimeout() const { return m_silenceTimeoutMs; }

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
    /// Queues for the visit's next delivery and returns the command's id; an unknown visit is
    /// created pending, so commands can wait for a device that has not connected yet.
    qint64 queueCommand(const QString &visitId, AgentCommand command);
    /// A command id for a command that travels another way (a channel message).
    qint64 reserveCommandId() { return ++m_lastCommandId; }
    /// Hands over (and forgets) the visit's queued commands.
    QList<AgentCommand> takeCommands(const QString &visitId, Transport via);

Q_SIGNALS:
    void visitOpened(const QString &visitId);
    void visitEnded(const QString &visitId);
    void reportReceived(const QString &visitId, qsizetype index);
    void commandQueued(const QString &visitId, const VistrelService::AgentCommand &command);
    void commandDelivered(const QString &visitId, const VistrelService::AgentCommand &command,
                          VistrelService::Transport transport);

private:
    Visit *findMutable(const QString &visitId) const;
    Visit &ensure(const QString &visitId);
    /// The conversation of the newest other visit with the same visitor or session id.
    QString conversationFor(const Visit &visit) const;
    /// Runs the silence check while a visit is open (it stops itself when none is).
    void watchSilence();
    void endSilentVisits();

    std::vector<std::unique_ptr<Visit>> m_visits;
    QHash<QString, Visit *> m_byId;
    qint64 m_lastCommandId = 0;
    int m_silenceTimeoutMs = DefaultSilenceTimeoutMs;
    QTimer m_silenceCheck;
};

} // namespace VistrelService
