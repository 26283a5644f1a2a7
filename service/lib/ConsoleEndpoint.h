#pragma once

#include "HttpReply.h"
#include "RecordedRequest.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QSize>
#include <QString>

namespace VistrelService {

class LocalService;
class Visit;

/// The agent console: its page at "/" and "/console/…", and its JSON API under "/console/api/":
/// the conversations (a device's visits) with their time lines, the visits and channel pollers,
/// each visit's screenshots and user, the agent's
/// commands, which go out through the service's command and channel queues, and the web chat
/// with the visit's visitor; and the video call queue with the calls of the stand-in meeting.
class ConsoleEndpoint
{
public:
    /// The kit sends screenshots at a third of the device's pixel size.
    static constexpr int ScreenshotScale = 3;
    /// Decoded PNG bytes of one drawing; larger ones are answered 413.
    static constexpr qsizetype MaxDrawingBytes = 2 * 1024 * 1024;
    /// Longest side of a drawing in pixels; larger ones are answered 413.
    static constexpr int MaxDrawingSide = 8192;
    /// Coordinates of a tap before the visit's first screenshot tells its size.
    static constexpr int MaxCoordinate = 100000;

    explicit ConsoleEndpoint(LocalService *service);

    static bool handles(const QString &path);
    HttpReply handle(const RecordedRequest &request);

private:
    /// What the console keeps of a visit's reports, brought up to date on demand.
    struct Digest
    {
        qsizetype scanned = 0;
        qsizetype screenshotIndex = -1;
        QSize screenshotSize;
        QString screen;
        /// Of the newest UserTag report; empty before one.
        QJsonObject user;
    };

    HttpReply asset(const RecordedRequest &request) const;
    HttpReply api(const RecordedRequest &request, const QStringList &segments);
    QJsonArray pollerList() const;
    HttpReply visitList();
    HttpReply conversationList();
    QJsonObject conversation(const QString &id);
    HttpReply events(const QString &conversationId, const RecordedRequest &request);
    HttpReply screenshot(const Visit &visit, const QString &indexText) const;
    HttpReply click(const Visit &visit, const QByteArray &body);
    HttpReply drawing(const Visit &visit, const QByteArray &body);
    HttpReply command(const Visit &visit, const QJsonObject &command);
    HttpReply coBrowse(const QString &visitorId);
    HttpReply chat(const Visit &visit, const RecordedRequest &request, const QString &what);
    HttpReply calls() const;
    HttpReply callAction(const QString &tenantId, const QString &customerId, const QString &action);

    const Digest &digest(const Visit &visit);
    QJsonObject summary(const Visit &visit);
    /// The visit's user: its newest UserTag report, else the tag record of its visitor.
    QJsonValue user(const Visit &visit);

    LocalService *m_service;
    QHash<QString, Digest> m_digests;
};

} // namespace VistrelService
