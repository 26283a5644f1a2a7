#pragma once

#include "HttpReply.h"
#include "Meeting.h"
#include "RecordedRequest.h"

#include <QList>
#include <QObject>

namespace VistrelService {

/// The stand-in meeting, served over TLS: "external_api.js" (the meeting's iframe API as the
/// kit's call page uses it), the meeting page at "/{room}", and "/meeting/…", where the page
/// reports its call and asks whether the agent ended it.
class MeetingEndpoint : public QObject
{
    Q_OBJECT
public:
    explicit MeetingEndpoint(QObject *parent = nullptr);

    /// Whether path is one of the meeting's; over TLS every other one-segment path is a room.
    static bool handles(const QString &path, bool secure);
    HttpReply handle(const RecordedRequest &request);

    /// In join order.
    QList<Meeting> meetings() const { return m_meetings; }
    /// Ends every open meeting in room; its page raises the close events at its next poll.
    void endMeeting(const QString &room);

Q_SIGNALS:
    void meetingJoined(const QString &room);
    /// A meeting was joined or ended.
    void meetingsChanged();

private:
    HttpReply joined(const QByteArray &body);
    HttpReply meetingState(const RecordedRequest &request, bool leave);

    QList<Meeting> m_meetings;
};

} // namespace VistrelService
