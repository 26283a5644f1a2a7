#include "Conversations.h"

#include "Visit.h"
#include "VisitRegistry.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace VistrelService {

namespace {
QString text(const std::string &bytes)
{
    return QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
}

QJsonObject commandObject(const AgentCommand &command)
{
    return QJsonDocument::fromJson(command.text).object();
}

// Any number the agent or the device sent, however large: no rounding to an integer type.
QString tapText(double x, double y)
{
    return u"(%1, %2)"_s.arg(QString::number(x), QString::number(y));
}
} // namespace

Conversations::Conversations(VisitRegistry *registry, InitLookup initOf, QObject *parent)
    : QObject(parent)
    , m_registry(registry)
    , m_initOf(std::move(initOf))
{
    connect(registry, &VisitRegistry::visitOpened, this, &Conversations::visitOpened);
    connect(registry, &VisitRegistry::visitEnded, this, &Conversations::visitEnded);
    connect(registry, &VisitRegistry::reportReceived, this, &Conversations::reportReceived);
    connect(registry, &VisitRegistry::commandQueued, this, &Conversations::commandQueued);
    connect(registry, &VisitRegistry::commandDelivered, this, &Conversations::commandDelivered);
}

QList<const Visit *> Conversations::visitsOf(const QString &id) const
{
    QList<const Visit *> visits;
    for (const Visit *visit : m_registry->visits()) {
        if (visit->conversationId() == id)
            visits.append(visit);
    }
    return visits;
}

const Visit *Conversations::current(const QString &id) const
{
    return currentOf(visitsOf(id));
}

const Visit *Conversations::currentOf(const QList<const Visit *> &visits)
{
    const Visit *newestOpen = nullptr;
    for (const Visit *visit : visits) {
        if (visit->isOpen() && (!newestOpen || visit->openedAt() >= newestOpen->openedAt()))
            newestOpen = visit;
    }
    if (newestOpen)
        return newestOpen;
    return visits.isEmpty() ? nullptr : visits.constLast();
}

QString Conversations::ofVisitor(const QString &visitorId) const
{
    const QList<const Visit *> visits = m_registry->visits();
    for (auto it = visits.crbegin(); it != visits.crend(); ++it) {
        if ((*it)->visitorId() == visitorId && !(*it)->conversationId().isEmpty())
            return (*it)->conversationId();
    }
    return {};
}

QJsonArray Conversations::events(const QString &id, qint64 since, qint64 *next) const
{
    QJsonArray list;
    const auto log = m_logs.constFind(id);
    if (log == m_logs.constEnd()) {
        *next = 0;
        return list;
    }
    const qint64 end = log->first + qint64(log->events.size());
    for (qint64 cursor = std::max(since, log->first); cursor < end; ++cursor)
        list.append(log->events.at(size_t(cursor - log->first)));
    *next = end;
    return list;
}

QString Conversations::shareIdOf(const Visit &visit) const
{
    if (!visit.shareId().isEmpty())
        return visit.shareId();
    const std::optional<DeviceInit> init = m_initOf(visit.id());
    return init ? init->shareId : QString();
}

void Conversations::append(const QString &id, QJsonObject event)
{
    Log &log = m_logs[id];
    event.insert(u"seq"_s, log.first + qint64(log.events.size()));
    if (!event.contains(u"at"_s))
        event.insert(u"at"_s, QDateTime::currentMSecsSinceEpoch());
    log.events.push_back(std::move(event));
    while (log.events.size() > size_t(MaxEvents)) {
        log.events.pop_front();
        ++log.first;
    }
    Q_EMIT changed(id);
}

void Conversations::resolve(const QString &id, Awaits what, const QString &visitId,
                            const QString &text)
{
    QList<Pending> &pending = m_logs[id].pending;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QList<qint64> resolved;
    for (auto it = pending.begin(); it != pending.end();) {
        const bool expired =
            it->awaits == Awaits::Report && it->deliveredAt.msecsTo(now) > TapResultWindowMs;
        // One report answers one tap; a new visit answers every start still waiting.
        const bool matches =
            !expired && it->awaits == what &&
            (what == Awaits::NewVisit ? it->visitId != visitId : it->visitId == visitId) &&
            (what != Awaits::Report || resolved.isEmpty());
        if (matches)
            resolved.append(it->id);
        if (matches || expired)
            it = pending.erase(it);
        else
            ++it;
    }
    for (qint64 commandId : std::as_const(resolved)) {
        append(id, QJsonObject{{u"kind"_s, u"result"_s},
                               {u"visitId"_s, visitId},
                               {u"commandId"_s, commandId},
                               {u"text"_s, text}});
    }
}

void Conversations::visitOpened(const QString &visitId)
{
    const Visit *visit = m_registry->find(visitId);
    const QString id = visit->conversationId();
    if (!m_logs.contains(id)) {
        m_order.append(id);
        m_logs.insert(id, Log{});
    }
    const bool resumed = m_seen.contains(visitId);
    m_seen.insert(visitId, true);
    const QString shareId = shareIdOf(*visit);
    append(id, QJsonObject{{u"kind"_s, u"visit"_s},
                           {u"visitId"_s, visitId},
                           {u"shareId"_s, shareId},
                           {u"transport"_s, transportName(*visit->transport())},
                           {u"screen"_s, visit->url()},
                           {u"resumed"_s, resumed}});
    if (!resumed) {
        resolve(id, Awaits::NewVisit, visitId,
                shareId.isEmpty() ? u"New visit"_s : u"New visit, share id "_s + shareId);
    }
}

void Conversations::visitEnded(const QString &visitId)
{
    const Visit *visit = m_registry->find(visitId);
    const QString id = visit->conversationId();
    if (id.isEmpty())
        return;
    const bool deleted = visit->endReason() == Visit::EndReason::Deleted;
    append(id, QJsonObject{{u"kind"_s, u"ended"_s},
                           {u"visitId"_s, visitId},
                           {u"shareId"_s, shareIdOf(*visit)},
                           {u"reason"_s, deleted ? u"deleted"_s : u"silent"_s}});
    if (deleted)
        resolve(id, Awaits::End, visitId, u"Visit ended by the device"_s);
}

void Conversations::reportReceived(const QString &visitId, qsizetype index)
{
    const Visit *visit = m_registry->find(visitId);
    const QString id = visit->conversationId();
    if (id.isEmpty())
        return;
    const VistrelKit::ProtoMessage &message = visit->reports().at(index).message;
    const qint64 at = visit->reports().at(index).receivedAt.toMSecsSinceEpoch();
    const auto event = [&](const QString &kind, QJsonObject fields) {
        fields.insert(u"kind"_s, kind);
        fields.insert(u"visitId"_s, visitId);
        fields.insert(u"at"_s, at);
        fields.insert(u"time"_s, qint64(message.time()));
        append(id, std::move(fields));
    };
    if (message.has_pagechange()) {
        const QString screen = text(message.pagechange());
        event(u"page"_s, {{u"screen"_s, screen}});
        resolve(id, Awaits::Report, visitId, u"Page "_s + screen);
    }
    if (message.has_tag())
        event(u"tag"_s, {{u"tag"_s, text(message.tag())}});
    for (const VistrelKit::ProtoUserTag &tag : message.usertag())
        event(u"userTag"_s, {{u"user"_s, userJson(tag)}});
    for (const VistrelKit::ProtoClickEvent &click : message.clickevent()) {
        event(u"tap"_s, {{u"x"_s, double(click.x())}, {u"y"_s, double(click.y())}});
        resolve(id, Awaits::Report, visitId, u"Tap reported at "_s + tapText(click.x(), click.y()));
    }
    // A new screenshot adds nothing to the time line but changes the screen on display.
    if (message.screenshotevent_size() > 0)
        Q_EMIT changed(id);
}

void Conversations::commandQueued(const QString &visitId, const AgentCommand &command)
{
    const Visit *visit = m_registry->find(visitId);
    // Commands for a visit that has not opened yet belong to no conversation.
    if (visit->conversationId().isEmpty())
        return;
    append(visit->conversationId(),
           QJsonObject{{u"kind"_s, u"command"_s},
                       {u"visitId"_s, visitId},
                       {u"commandId"_s, command.id},
                       {u"text"_s, command.raw ? QString::fromUtf8(command.text)
                                               : describe(commandObject(command))}});
}

void Conversations::commandDelivered(const QString &visitId, const AgentCommand &command,
                                     Transport via)
{
    const Visit *visit = m_registry->find(visitId);
    const QString id = visit->conversationId();
    if (id.isEmpty())
        return;
    append(id, QJsonObject{{u"kind"_s, u"delivered"_s},
                           {u"visitId"_s, visitId},
                           {u"commandId"_s, command.id},
                           {u"transport"_s, transportName(via)}});
    const QJsonObject object = commandObject(command);
    const QJsonObject co = object.value(u"co"_s).toObject();
    Awaits awaits = Awaits::Nothing;
    if (object.contains(u"x"_s) && object.contains(u"y"_s))
        awaits = Awaits::Report;
    else if (object.value(u"a"_s) == u"c"_s)
        awaits = Awaits::End;
    else if (co.value(u"s"_s).toBool() || co.value(u"opt"_s).toBool())
        awaits = Awaits::NewVisit;
    if (awaits != Awaits::Nothing) {
        m_logs[id].pending.append(
            Pending{command.id, visitId, awaits, QDateTime::currentDateTimeUtc()});
    }
}

qint64 Conversations::channelMessageQueued(const QString &visitorId, const QString &channel)
{
    const QString id = ofVisitor(visitorId);
    if (id.isEmpty())
        return 0;
    const qint64 commandId = m_registry->reserveCommandId();
    m_channelCommands[visitorId].append({commandId, channel});
    append(id, QJsonObject{{u"kind"_s, u"command"_s},
                           {u"visitId"_s, current(id)->id()},
                           {u"commandId"_s, commandId},
                           {u"text"_s, u"Start co-browsing"_s}});
    return commandId;
}

void Conversations::channelMessageDelivered(const QString &visitorId, const QString &channel)
{
    // Most channel messages (the call queue's) are not the console's commands.
    const auto tracked = m_channelCommands.find(visitorId);
    if (tracked == m_channelCommands.end())
        return;
    QList<std::pair<qint64, QString>> &queued = *tracked;
    const auto found = std::find_if(queued.begin(), queued.end(), [&channel](const auto &entry) {
        return entry.second == channel;
    });
    if (found == queued.end())
        return;
    const qint64 commandId = found->first;
    queued.erase(found);
    if (queued.isEmpty())
        m_channelCommands.erase(tracked);
    const QString id = ofVisitor(visitorId);
    const QString visitId = current(id)->id();
    append(id, QJsonObject{{u"kind"_s, u"delivered"_s},
                           {u"visitId"_s, visitId},
                           {u"commandId"_s, commandId},
                           {u"transport"_s, u"poll"_s}});
    m_logs[id].pending.append(
        Pending{commandId, visitId, Awaits::NewVisit, QDateTime::currentDateTimeUtc()});
}

QJsonObject Conversations::userJson(const VistrelKit::ProtoUserTag &tag)
{
    QJsonArray labels;
    for (const std::string &label : tag.label())
        labels.append(text(label));
    return QJsonObject{{u"id"_s, text(tag.id())},
                       {u"email"_s, text(tag.email())},
                       {u"firstname"_s, text(tag.firstname())},
                       {u"lastname"_s, text(tag.lastname())},
                       {u"label"_s, labels},
                       {u"assignedUser"_s, text(tag.assigneduser())},
                       {u"mobileDeviceToken"_s, text(tag.mobiledevicetoken())}};
}

QString Conversations::describe(const QJsonObject &command)
{
    const QJsonObject co = command.value(u"co"_s).toObject();
    if (command.contains(u"x"_s) && command.contains(u"y"_s))
        return u"Tap at "_s +
               tapText(command.value(u"x"_s).toDouble(), command.value(u"y"_s).toDouble());
    if (command.value(u"a"_s) == u"c"_s)
        return u"Stop"_s;
    if (command.contains(u"d"_s))
        return u"Drawing"_s;
    if (co.contains(u"b"_s))
        return co.value(u"b"_s).toBool() ? u"Faster polling"_s : u"Normal polling"_s;
    if (co.value(u"opt"_s).toBool())
        return u"Ask for opt-in"_s;
    if (co.value(u"s"_s).toBool())
        return u"Restart session"_s;
    return QString::fromUtf8(QJsonDocument(command).toJson(QJsonDocument::Compact));
}

} // namespace VistrelService
