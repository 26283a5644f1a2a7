#include "ConsoleEndpoint.h"

#include "ImageHeader.h"
#include "LocalService.h"
#include "ServiceLog.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <cmath>

using namespace Qt::StringLiterals;

namespace VistrelService {

namespace {
constexpr QStringView ApiPrefix = u"/console/api/";
const QByteArray PngDataPrefix = QByteArrayLiteral("data:image/png;base64,");

HttpReply jsonReply(int status, const QJsonObject &object)
{
    return HttpReply{status, QJsonDocument(object).toJson(QJsonDocument::Compact)};
}

// The agent's mistakes, not the device's: answered and noted, never a warning.
HttpReply fail(int status, const QString &message)
{
    qCInfo(lcVistrelService) << "Console refused a request:" << status << message;
    return jsonReply(status, QJsonObject{{u"error"_s, message}});
}

QJsonValue epochMs(const QDateTime &time)
{
    return time.isValid() ? QJsonValue(time.toMSecsSinceEpoch()) : QJsonValue();
}

QString text(const std::string &bytes)
{
    return QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
}

QString stateName(Visit::State state)
{
    switch (state) {
    case Visit::State::Pending:
        return u"pending"_s;
    case Visit::State::Open:
        return u"open"_s;
    case Visit::State::Ended:
        break;
    }
    return u"ended"_s;
}

std::optional<QJsonObject> readObject(const QByteArray &body, QString *error)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = u"body is not JSON: "_s + parseError.errorString();
        return std::nullopt;
    }
    if (!document.isObject()) {
        *error = u"body is not a JSON object"_s;
        return std::nullopt;
    }
    return document.object();
}

// A JSON number without a fraction, within what a coordinate could be.
std::optional<qint64> wholeNumber(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (!std::isfinite(number) || std::trunc(number) != number || std::abs(number) > 1e12)
        return std::nullopt;
    return qint64(number);
}

// The user as the console shows it, whichever way the service learnt of it.
QJsonObject consoleUser(const QJsonObject &from, const QString &source)
{
    QJsonObject user{{u"source"_s, source}};
    for (const QString &key :
         {u"id"_s, u"firstname"_s, u"lastname"_s, u"email"_s, u"assignedUser"_s}) {
        user.insert(key, from.value(key).toString());
    }
    user.insert(u"tags"_s, from.value(u"tags"_s).toArray());
    return user;
}

} // namespace

ConsoleEndpoint::ConsoleEndpoint(LocalService *service)
    : m_service(service)
{}

bool ConsoleEndpoint::handles(const QString &path)
{
    return path == u"/"_s || path == u"/console"_s || path.startsWith(u"/console/"_s);
}

HttpReply ConsoleEndpoint::handle(const RecordedRequest &request)
{
    if (request.path.startsWith(ApiPrefix))
        return api(request, request.path.mid(ApiPrefix.size()).split(u'/'));
    return asset(request);
}

HttpReply ConsoleEndpoint::asset(const RecordedRequest &request) const
{
    struct Asset
    {
        QStringView path;
        QStringView resource;
        const char *contentType;
    };
    static constexpr Asset Assets[] = {
        {u"/", u":/vistrel-console/index.html", "text/html; charset=utf-8"},
        {u"/console", u":/vistrel-console/index.html", "text/html; charset=utf-8"},
        {u"/console/", u":/vistrel-console/index.html", "text/html; charset=utf-8"},
        {u"/console/index.html", u":/vistrel-console/index.html", "text/html; charset=utf-8"},
        {u"/console/console.css", u":/vistrel-console/console.css", "text/css; charset=utf-8"},
        {u"/console/console.js", u":/vistrel-console/console.js", "text/javascript; charset=utf-8"},
    };
    for (const Asset &asset : Assets) {
        if (request.path != asset.path)
            continue;
        if (request.method != u"GET"_s)
            return fail(405, u"method not allowed"_s);
        QFile file(asset.resource.toString());
        if (!file.open(QIODevice::ReadOnly))
            return fail(500, u"console asset missing from the build"_s);
        return HttpReply{200, file.readAll(), QByteArray(asset.contentType)};
    }
    return fail(404, u"no such console page"_s);
}

HttpReply ConsoleEndpoint::api(const RecordedRequest &request, const QStringList &segments)
{
    const QString &method = request.method;
    if (segments == QStringList{u"visits"_s}) {
        if (method != u"GET"_s)
            return fail(405, u"method not allowed"_s);
        return visitList();
    }
    if (segments.at(0) == u"conversations"_s) {
        if (method != u"GET"_s)
            return fail(405, u"method not allowed"_s);
        if (segments.size() == 1)
            return conversationList();
        if (segments.size() != 3 || segments.at(2) != u"events"_s)
            return fail(404, u"no such console endpoint"_s);
        if (!m_service->conversations()->contains(segments.at(1)))
            return fail(404, u"unknown conversation"_s);
        return events(segments.at(1), request);
    }
    if (segments.size() == 3 && segments.at(0) == u"pollers"_s &&
        segments.at(2) == u"co-browse"_s) {
        if (method != u"POST"_s)
            return fail(405, u"method not allowed"_s);
        if (!m_service->channelPoller(segments.at(1)))
            return fail(404, u"unknown poller"_s);
        return coBrowse(segments.at(1));
    }
    // calls, calls/{tenant}/{customer}/{action}, meetings/{room}/end: the video calls.
    if (segments == QStringList{u"calls"_s}) {
        if (method != u"GET"_s)
            return fail(405, u"method not allowed"_s);
        return calls();
    }
    if (segments.at(0) == u"calls"_s || segments.at(0) == u"meetings"_s) {
        const bool call = segments.at(0) == u"calls"_s;
        if (segments.size() != (call ? 4 : 3) || (!call && segments.at(2) != u"end"_s))
            return fail(404, u"no such console endpoint"_s);
        if (method != u"POST"_s)
            return fail(405, u"method not allowed"_s);
        if (call)
            return callAction(segments.at(1), segments.at(2), segments.at(3));
        m_service->endMeeting(segments.at(1));
        return calls();
    }
    if (segments.size() < 2 || segments.size() > 4 || segments.at(0) != u"visits"_s)
        return fail(404, u"no such console endpoint"_s);

    // visits/{id}/chat, visits/{id}/chat/document: the chat with the visit's visitor.
    if (segments.value(2) == u"chat"_s) {
        const QString what = segments.value(3);
        if (!what.isEmpty() && what != u"document"_s)
            return fail(404, u"no such console endpoint"_s);
        // The chat reads with GET and posts with POST; a document is only sent.
        if (method != u"POST"_s && (method != u"GET"_s || !what.isEmpty()))
            return fail(405, u"method not allowed"_s);
        const Visit *visit = m_service->visit(segments.at(1));
        if (!visit || visit->state() == Visit::State::Pending)
            return fail(404, u"unknown visit"_s);
        if (visit->visitorId().isEmpty())
            return fail(409, u"visit has no visitor id"_s);
        return chat(*visit, request, what);
    }

    // visits/{id}, visits/{id}/{action}, visits/{id}/screenshots/{index}
    const QString action = segments.value(2);
    static const QStringList Reads = {QString(), u"screenshots"_s};
    static const QStringList Commands = {u"click"_s,  u"drawing"_s, u"stop"_s,     u"faster"_s,
                                         u"opt-in"_s, u"start"_s,   u"co-browse"_s};
    const bool read = Reads.contains(action);
    if ((!read && !Commands.contains(action)) ||
        (segments.size() == 4) != (action == u"screenshots"_s)) {
        return fail(404, u"no such console endpoint"_s);
    }
    if (method != (read ? u"GET"_s : u"POST"_s))
        return fail(405, u"method not allowed"_s);

    const Visit *visit = m_service->visit(segments.at(1));
    if (!visit || visit->state() == Visit::State::Pending)
        return fail(404, u"unknown visit"_s);
    if (action.isEmpty())
        return jsonReply(200, summary(*visit));
    if (action == u"screenshots"_s)
        return screenshot(*visit, segments.at(3));

    if (!visit->isOpen())
        return fail(409, u"visit is not open"_s);
    if (action == u"click"_s)
        return click(*visit, request.body);
    if (action == u"drawing"_s)
        return drawing(*visit, request.body);
    if (action == u"co-browse"_s) {
        if (visit->visitorId().isEmpty())
            return fail(409, u"visit has no visitor id"_s);
        return coBrowse(visit->visitorId());
    }
    static const QHash<QString, QJsonObject> Fixed = {
        {u"stop"_s, QJsonObject{{u"a"_s, u"c"_s}}},
        {u"faster"_s, QJsonObject{{u"co"_s, QJsonObject{{u"b"_s, true}}}}},
        {u"opt-in"_s, QJsonObject{{u"co"_s, QJsonObject{{u"opt"_s, true}}}}},
        {u"start"_s, QJsonObject{{u"co"_s, QJsonObject{{u"s"_s, true}}}}},
    };
    return command(*visit, Fixed.value(action));
}

QJsonArray ConsoleEndpoint::pollerList() const
{
    QSet<QString> liveVisitors;
    for (const Visit *visit : m_service->visits()) {
        if (visit->isOpen())
            liveVisitors.insert(visit->visitorId());
    }
    QJsonArray pollers;
    for (const ChannelPoller &poller : m_service->channelPollers()) {
        pollers.append(QJsonObject{
            {u"visitorId"_s, poller.visitorId},
            {u"tenantId"_s, poller.tenantId},
            {u"sessionId"_s, poller.sessionId},
            {u"channels"_s, QJsonArray::fromStringList(poller.channels)},
            {u"lastPollAt"_s, epochMs(poller.lastPollAt)},
            {u"pollCount"_s, poller.pollCount},
            {u"hasLiveVisit"_s, liveVisitors.contains(poller.visitorId)},
        });
    }
    return pollers;
}

HttpReply ConsoleEndpoint::visitList()
{
    QJsonArray visits;
    for (const Visit *visit : m_service->visits()) {
        if (visit->state() != Visit::State::Pending)
            visits.append(summary(*visit));
    }
    return jsonReply(200, QJsonObject{{u"visits"_s, visits}, {u"pollers"_s, pollerList()}});
}

HttpReply ConsoleEndpoint::conversationList()
{
    QJsonArray conversations;
    for (const QString &id : m_service->conversations()->ids())
        conversations.append(conversation(id));
    return jsonReply(
        200, QJsonObject{{u"conversations"_s, conversations}, {u"pollers"_s, pollerList()}});
}

QJsonObject ConsoleEndpoint::conversation(const QString &id)
{
    const Conversations *conversations = m_service->conversations();
    const QList<const Visit *> visits = conversations->visitsOf(id);
    QStringList shareIds;
    bool live = false;
    for (const Visit *visit : visits) {
        live = live || visit->isOpen();
        const QString shareId = conversations->shareIdOf(*visit);
        if (!shareId.isEmpty() && !shareIds.contains(shareId))
            shareIds.append(shareId);
    }
    return QJsonObject{{u"id"_s, id},
                       {u"state"_s, live ? u"live"_s : u"ended"_s},
                       {u"visitCount"_s, visits.size()},
                       {u"shareIds"_s, QJsonArray::fromStringList(shareIds)},
                       {u"startedAt"_s, epochMs(visits.constFirst()->openedAt())},
                       {u"visit"_s, summary(*Conversations::currentOf(visits))}};
}

HttpReply ConsoleEndpoint::events(const QString &id, const RecordedRequest &request)
{
    qint64 since = 0;
    if (request.query.hasQueryItem(u"since"_s)) {
        bool ok = false;
        since = request.queryValue(u"since"_s).toLongLong(&ok);
        if (!ok || since < 0)
            return fail(400, u"since is not a non-negative integer"_s);
    }
    qint64 next = 0;
    const QJsonArray events = m_service->conversations()->events(id, since, &next);
    return jsonReply(200, QJsonObject{{u"conversation"_s, conversation(id)},
                                      {u"next"_s, next},
                                      {u"events"_s, events}});
}

HttpReply ConsoleEndpoint::screenshot(const Visit &visit, const QString &indexText) const
{
    bool ok = false;
    const qsizetype index = indexText.toLongLong(&ok);
    if (!ok || index < 0 || index >= visit.reports().size() ||
        visit.reports().at(index).message.screenshotevent_size() == 0) {
        return fail(404, u"no such screenshot"_s);
    }
    const auto &events = visit.reports().at(index).message.screenshotevent();
    const std::string &image = events.at(events.size() - 1).image();
    return HttpReply{200, QByteArray(image.data(), qsizetype(image.size())),
                     QByteArrayLiteral("image/jpeg")};
}

HttpReply ConsoleEndpoint::click(const Visit &visit, const QByteArray &body)
{
    QString error;
    const std::optional<QJsonObject> object = readObject(body, &error);
    if (!object)
        return fail(400, error);
    const auto x = wholeNumber(object->value(u"x"_s));
    const auto y = wholeNumber(object->value(u"y"_s));
    if (!x || !y)
        return fail(400, u"x and y must both be whole numbers"_s);
    const Digest &known = digest(visit);
    const qint64 width = known.screenshotSize.isValid()
                             ? qint64(known.screenshotSize.width()) * ScreenshotScale
                             : MaxCoordinate;
    const qint64 height = known.screenshotSize.isValid()
                              ? qint64(known.screenshotSize.height()) * ScreenshotScale
                              : MaxCoordinate;
    if (*x < 0 || *y < 0 || *x >= width || *y >= height) {
        return fail(400, u"(%1, %2) is outside the screen of %3×%4 device pixels"_s.arg(*x)
                             .arg(*y)
                             .arg(width)
                             .arg(height));
    }
    return command(visit, QJsonObject{{u"x"_s, *x}, {u"y"_s, *y}});
}

HttpReply ConsoleEndpoint::drawing(const Visit &visit, const QByteArray &body)
{
    QString error;
    const std::optional<QJsonObject> object = readObject(body, &error);
    if (!object)
        return fail(400, error);
    const QJsonValue png = object->value(u"png"_s);
    if (!png.isString())
        return fail(400, u"png must be a string of base64 PNG data"_s);
    QByteArray data = png.toString().toLatin1();
    if (data.startsWith(PngDataPrefix))
        data.remove(0, PngDataPrefix.size());
    // Base64 grows by a third: what cannot fit the limit decoded is refused undecoded.
    if (data.size() > (MaxDrawingBytes + 2) / 3 * 4)
        return fail(413, u"drawing larger than %1 bytes"_s.arg(MaxDrawingBytes));
    const auto decoded =
        QByteArray::fromBase64Encoding(data, QByteArray::AbortOnBase64DecodingErrors);
    if (data.isEmpty() || data.size() % 4 != 0 || !decoded)
        return fail(400, u"png is not base64"_s);
    if (decoded.decoded.size() > MaxDrawingBytes)
        return fail(413, u"drawing larger than %1 bytes"_s.arg(MaxDrawingBytes));
    const std::optional<QSize> size = ImageHeader::pngSize(decoded.decoded);
    if (!size)
        return fail(400, u"drawing is not a PNG image"_s);
    if (size->width() > MaxDrawingSide || size->height() > MaxDrawingSide)
        return fail(413, u"drawing larger than %1 pixels a side"_s.arg(MaxDrawingSide));
    const QString url = QString::fromLatin1(PngDataPrefix + decoded.decoded.toBase64());
    return command(visit, QJsonObject{{u"d"_s, QJsonObject{{u"u"_s, url}}}});
}

HttpReply ConsoleEndpoint::command(const Visit &visit, const QJsonObject &command)
{
    const qint64 id = m_service->queueCommand(visit.id(), command);
    if (id == 0)
        return fail(500, u"command not queued"_s);
    return jsonReply(
        200, QJsonObject{{u"visitId"_s, visit.id()}, {u"commandId"_s, id}, {u"queued"_s, command}});
}

HttpReply ConsoleEndpoint::coBrowse(const QString &visitorId)
{
    const QString channel = u"SCB"_s;
    if (!m_service->queueChannelMessage(visitorId, channel, QString()))
        return fail(500, u"message not queued"_s);
    const qint64 id = m_service->conversations()->channelMessageQueued(visitorId, channel);
    return jsonReply(200, QJsonObject{{u"visitorId"_s, visitorId},
                                      {u"commandId"_s, id},
                                      {u"queued"_s, QJsonObject{{u"channel"_s, channel},
                                                                {u"payload"_s, QString()}}}});
}

HttpReply ConsoleEndpoint::chat(const Visit &visit, const RecordedRequest &request,
                                const QString &what)
{
    ChatEndpoint *chat = m_service->chat();
    const QString &tenantId = visit.tenantId();
    const QString &visitorId = visit.visitorId();
    if (request.method == u"POST"_s) {
        QString error;
        const std::optional<QJsonObject> object = readObject(request.body, &error);
        if (!object)
            return fail(400, error);
        if (what.isEmpty()) {
            const QString text = object->value(u"text"_s).toString().trimmed();
            if (text.isEmpty())
                return fail(400, u"text must be a non-empty string"_s);
            if (text.size() > ChatEndpoint::MaxTextLength)
                return fail(413,
                            u"text longer than %1 characters"_s.arg(ChatEndpoint::MaxTextLength));
            chat->sendAgentMessage(tenantId, visitorId, text);
        } else {
            const QString kind = object->value(u"kind"_s).toString();
            if (kind != u"pdf"_s && kind != u"png"_s)
                return fail(400, u"kind must be \"pdf\" or \"png\""_s);
            const auto documentKind = kind == u"pdf"_s ? ChatEndpoint::DocumentKind::Pdf
                                                       : ChatEndpoint::DocumentKind::Png;
            if (chat->sendAgentDocument(tenantId, visitorId, documentKind) < 0)
                return fail(500, u"the service cannot make documents"_s);
        }
    }
    QJsonArray messages;
    for (const ChatMessage &message : chat->messages(tenantId, visitorId))
        messages.append(ChatEndpoint::toJson(message));
    return jsonReply(200, QJsonObject{{u"tenantId"_s, tenantId},
                                      {u"visitorId"_s, visitorId},
                                      {u"messages"_s, messages}});
}

QJsonValue ConsoleEndpoint::user(const Visit &visit)
{
    const Digest &known = digest(visit);
    if (!known.user.isEmpty())
        return known.user;
    if (const auto tagged = m_service->taggedUser(visit.tenantId(), visit.visitorId()))
        return consoleUser(tagged->user, u"tag"_s);
    return QJsonValue();
}

const ConsoleEndpoint::Digest &ConsoleEndpoint::digest(const Visit &visit)
{
    Digest &digest = m_digests[visit.id()];
    const QList<Report> &reports = visit.reports();
    for (; digest.scanned < reports.size(); ++digest.scanned) {
        const VistrelKit::ProtoMessage &message = reports.at(digest.scanned).message;
        if (message.has_pagechange())
            digest.screen = text(message.pagechange());
        if (message.usertag_size() > 0) {
            QJsonObject user = Conversations::userJson(message.usertag(message.usertag_size() - 1));
            user.insert(u"tags"_s, user.take(u"label"_s));
            digest.user = consoleUser(user, u"report"_s);
        }
        if (message.screenshotevent_size() == 0)
            continue;
        const std::string &image =
            message.screenshotevent(message.screenshotevent_size() - 1).image();
        const auto size =
            ImageHeader::jpegSize(QByteArray::fromRawData(image.data(), qsizetype(image.size())));
        // A screenshot the browser could not show either does not replace the last good one.
        if (size) {
            digest.screenshotIndex = digest.scanned;
            digest.screenshotSize = *size;
        }
    }
    return digest;
}

QJsonObject ConsoleEndpoint::summary(const Visit &visit)
{
    const Digest &known = digest(visit);
    const QString shareId = m_service->conversations()->shareIdOf(visit);
    QJsonValue screenshot;
    if (known.screenshotIndex >= 0) {
        screenshot =
            QJsonObject{{u"index"_s, known.screenshotIndex},
                        {u"at"_s, epochMs(visit.reports().at(known.screenshotIndex).receivedAt)},
                        {u"width"_s, known.screenshotSize.width()},
                        {u"height"_s, known.screenshotSize.height()}};
    }
    return QJsonObject{
        {u"id"_s, visit.id()},
        {u"shareId"_s, shareId},
        {u"tenantId"_s, visit.tenantId()},
        {u"visitorId"_s, visit.visitorId()},
        {u"sessionId"_s, visit.sessionId()},
        {u"screen"_s, known.screen.isEmpty() ? visit.url() : known.screen},
        {u"transport"_s, visit.transport() ? transportName(*visit.transport()) : QString()},
        {u"state"_s, stateName(visit.state())},
        {u"endReason"_s, visit.endReason() == Visit::EndReason::Silent    ? u"silent"_s
                         : visit.endReason() == Visit::EndReason::Deleted ? u"deleted"_s
                                                                          : QString()},
        {u"conversationId"_s, visit.conversationId()},
        {u"openedAt"_s, epochMs(visit.openedAt())},
        {u"lastReportAt"_s, epochMs(visit.lastReportTime())},
        {u"reportCount"_s, visit.reports().size()},
        {u"screenshot"_s, screenshot},
        {u"user"_s, user(visit)},
    };
}

HttpReply ConsoleEndpoint::calls() const
{
    QJsonArray customers;
    ConferenceEndpoint *conference = m_service->conference();
    for (const QString &tenantId : conference->tenants()) {
        for (const QueuedCustomer &customer : conference->queue(tenantId)) {
            // The join body names the customer; one that is not an object was refused.
            const QJsonObject joined = QJsonDocument::fromJson(customer.body).object();
            QJsonObject item{{u"tenantId"_s, tenantId},
                             {u"customerId"_s, customer.customerId},
                             {u"position"_s, customer.position}};
            for (const QString &key :
                 {u"firstName"_s, u"lastName"_s, u"email"_s, u"phoneNumber"_s}) {
                item.insert(key, joined.value(key).toString());
            }
            customers.append(item);
        }
    }
    QJsonArray meetings;
    for (const Meeting &meeting : m_service->meetings()) {
        meetings.append(QJsonObject{
            {u"room"_s, meeting.room},
            {u"displayName"_s, meeting.displayName},
            {u"email"_s, meeting.email},
            {u"subject"_s, meeting.subject ? QJsonValue(*meeting.subject) : QJsonValue()},
            {u"ended"_s, meeting.ended}});
    }
    return jsonReply(200, QJsonObject{{u"customers"_s, customers}, {u"meetings"_s, meetings}});
}

HttpReply ConsoleEndpoint::callAction(const QString &tenantId, const QString &customerId,
                                      const QString &action)
{
    ConferenceEndpoint *conference = m_service->conference();
    bool done = false;
    if (action == u"up"_s)
        done = conference->move(tenantId, customerId, -1);
    else if (action == u"down"_s)
        done = conference->move(tenantId, customerId, 1);
    else if (action == u"remove"_s)
        done = conference->remove(tenantId, customerId);
    else if (action == u"start"_s)
        done = conference->call(tenantId, customerId);
    else
        return fail(404, u"no such console endpoint"_s);
    if (!done)
        return fail(404, u"customer not waiting in the queue"_s);
    return calls();
}

} // namespace VistrelService
