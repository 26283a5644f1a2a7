#include "MeetingEndpoint.h"

#include "ServiceLog.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace VistrelService {

namespace {
constexpr QStringView ScriptPath = u"/external_api.js";
constexpr QStringView Joined = u"/meeting/joined";
constexpr QStringView State = u"/meeting/state";
constexpr QStringView Left = u"/meeting/left";

HttpReply resource(const QString &name, const char *contentType)
{
    QFile file(u":/vistrel-meeting/"_s + name);
    if (!file.open(QIODevice::ReadOnly))
        return HttpReply::error(500, "meeting file missing from the build");
    return HttpReply{200, file.readAll(), QByteArray(contentType)};
}
} // namespace

MeetingEndpoint::MeetingEndpoint(QObject *parent)
    : QObject(parent)
{}

bool MeetingEndpoint::handles(const QString &path, bool secure)
{
    if (path == ScriptPath || path == Joined || path == State || path == Left)
        return true;
    // Browsers ask for a favicon on their own; it is no room.
    return secure && path.size() > 1 && path.lastIndexOf(u'/') == 0 && path != u"/favicon.ico"_s;
}

HttpReply MeetingEndpoint::handle(const RecordedRequest &request)
{
    const QString &path = request.path;
    const bool post = path == Joined || path == Left;
    if (request.method != (post ? u"POST"_s : u"GET"_s))
        return HttpReply::error(405, "method not allowed");
    if (path == ScriptPath)
        return resource(u"external_api.js"_s, "text/javascript; charset=utf-8");
    if (path == Joined)
        return joined(request.body);
    if (path == State || path == Left)
        return meetingState(request, path == Left);
    return resource(u"meeting.html"_s, "text/html; charset=utf-8");
}

void MeetingEndpoint::endMeeting(const QString &room)
{
    for (Meeting &meeting : m_meetings) {
        if (meeting.room == room)
            meeting.ended = true;
    }
    Q_EMIT meetingsChanged();
}

HttpReply MeetingEndpoint::joined(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonObject report = document.object();
    if (!document.isObject() || report.value(u"room"_s).toString().isEmpty())
        return HttpReply::error(400, "body is not an object with a room");
    Meeting meeting;
    meeting.room = report.value(u"room"_s).toString();
    meeting.jwt = report.value(u"jwt"_s).toString();
    meeting.displayName = report.value(u"displayName"_s).toString();
    meeting.email = report.value(u"email"_s).toString();
    if (report.value(u"subject"_s).isString())
        meeting.subject = report.value(u"subject"_s).toString();
    m_meetings.append(meeting);
    qCInfo(lcVistrelService) << "Meeting joined in room" << meeting.room;
    Q_EMIT meetingJoined(meeting.room);
    Q_EMIT meetingsChanged();
    // The page asks by this index, so a later call in the same room is another meeting.
    return HttpReply{200, QJsonDocument(QJsonObject{{u"id"_s, m_meetings.size() - 1}})
                              .toJson(QJsonDocument::Compact)};
}

HttpReply MeetingEndpoint::meetingState(const RecordedRequest &request, bool leave)
{
    bool valid = false;
    const qsizetype id = request.queryValue(u"id"_s).toLongLong(&valid);
    if (!valid || id < 0 || id >= m_meetings.size())
        return HttpReply::error(404, "unknown meeting");
    if (leave && !m_meetings.at(id).ended) {
        m_meetings[id].ended = true;
        Q_EMIT meetingsChanged();
    }
    return HttpReply{200, m_meetings.at(id).ended ? QByteArrayLiteral(R"({"ended":true})")
                                                  : QByteArrayLiteral(R"({"ended":false})")};
}

} // namespace VistrelService
