#pragma once

#include "AgentCommand.h"
#include "DeviceInit.h"
#include "Transport.h"

#include "Network/Message/ProtoMessages.h"

#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QStringList>

#include <deque>
#include <functional>
#include <optional>

namespace VistrelService {

class Visit;
class VisitRegistry;

/// The agent's view of the visits: a device's successive visits (a restart, a co-browsing start,
/// a new visitor id once its user is known keeps the session id) form one conversation, with one
/// time line. The time line holds each visit opening and ending, what the device reported (pages,
/// taps, tags, users) and the agent's commands, which go queued, then delivered (the device
/// fetched it), then, where the device reports back, the result.
class Conversations : public QObject
{
    Q_OBJECT
public:
    /// Time line events kept per conversation; the oldest go first.
    static constexpr int MaxEvents = 2000;
    /// How long after delivery a page change or tap counts as a tap command's result.
    static constexpr int TapResultWindowMs = 5000;

    using InitLookup = std::function<std::optional<DeviceInit>(const QString &visitId)>;

    Conversations(VisitRegistry *registry, InitLookup initOf, QObject *parent = nullptr);

    /// Conversation ids in order of first sight.
    QStringList ids() const { return m_order; }
    bool contains(const QString &id) const { return m_logs.contains(id); }
    /// The newest open visit of the conversation, else its newest visit.
    const Visit *current(const QString &id) const;
    /// The same among visits (a conversation's, in order of first sight).
    static const Visit *currentOf(const QList<const Visit *> &visits);
    /// The visit's share id: the WebSocket's "shrId", else (over HTTP) its init request's.
    QString shareIdOf(const Visit &visit) const;
    QList<const Visit *> visitsOf(const QString &id) const;
    /// The conversation of the newest visit of the visitor; empty when none.
    QString ofVisitor(const QString &visitorId) const;

    /// Events from cursor `since` on (at most MaxEvents); *next is the cursor after them.
    QJsonArray events(const QString &id, qint64 since, qint64 *next) const;

    /// The co-browsing start queued on the visitor's channel poll, as a command of the
    /// visitor's conversation; returns its id, or 0 when the visitor has no conversation yet.
    qint64 channelMessageQueued(const QString &visitorId, const QString &channel);
    void channelMessageDelivered(const QString &visitorId, const QString &channel);

    /// The event fields of a user tag, as the console shows them.
    static QJsonObject userJson(const VistrelKit::ProtoUserTag &tag);
    /// What the agent reads for a command object.
    static QString describe(const QJsonObject &command);

Q_SIGNALS:
    /// The conversation's time line, visits or current screen changed.
    void changed(const QString &id);

private:
    /// What a delivered command waits for.
    enum class Awaits { Nothing, Report, NewVisit, End };

    struct Pending
    {
        qint64 id = 0;
        QString visitId;
        Awaits awaits = Awaits::Nothing;
        QDateTime deliveredAt;
    };

    struct Log
    {
        std::deque<QJsonObject> events;
        /// Cursor of events.front().
        qint64 first = 0;
        QList<Pending> pending;
    };

    void visitOpened(const QString &visitId);
    void visitEnded(const QString &visitId);
    void reportReceived(const QString &visitId, qsizetype index);
    void commandQueued(const QString &visitId, const AgentCommand &command);
    void commandDelivered(const QString &visitId, const AgentCommand &command, Transport via);

    void append(const QString &id, QJsonObject event);
    void resolve(const QString &id, Awaits what, const QString &visitId, const QString &text);

    VisitRegistry *m_registry;
    InitLookup m_initOf;
    QStringList m_order;
    QHash<QString, Log> m_logs;
    /// Visit ids seen open, so a reopening is told from a new visit.
    QHash<QString, bool> m_seen;
    /// Channel messages queued per visitor: (command id, channel), oldest first.
    QHash<QString, QList<std::pair<qint64, QString>>> m_channelCommands;
};

} // namespace VistrelService
