#pragma once

#include "CannedReply.h"
#include "ChannelEndpoint.h"
#include "ChatEndpoint.h"
#include "ChatMessage.h"
#include "ConferenceEndpoint.h"
#include "ConsoleEndpoint.h"
#include "ConsoleFeed.h"
#include "Conversations.h"
#include "DeviceInit.h"
#include "HttpReply.h"
#include "Meeting.h"
#include "MeetingEndpoint.h"
#include "QueuedCustomer.h"
#include "RecordedRequest.h"
#include "Report.h"
#include "TaggedUser.h"
#include "Transport.h"
#include "UserTagEndpoint.h"
#include "Visit.h"
#include "VisitRegistry.h"
#include "WebSocketEndpoint.h"
#include "XhrEndpoint.h"

#include <QAbstractHttpServer>
#include <QHash>
#include <QHostAddress>
#include <QJsonObject>
#include <QList>

#include <functional>
#include <optional>

namespace VistrelService {

/// The service's side of every endpoint the kit calls, on loopback. Records every request it
/// gets and decodes every report, so tests assert on what really crossed the wire.
class LocalService : public QAbstractHttpServer
{
    Q_OBJECT
public:
    explicit LocalService(QObject *parent = nullptr);
    ~LocalService() override;

    /// Listens on address:port (0 picks a free port); returns the port, or 0 on failure.
    quint16 start(const QHostAddress &address = QHostAddress::LocalHost, quint16 port = 0);
    quint16 port() const { return m_port; }
    /// "127.0.0.1:<port>", as the kit's "Hostname" takes it.
    QString hostAndPort() const;

    /// Listens on a second loopback port over TLS with the PEM certificate and key (the files
    /// tests/tls/make-test-authority.sh makes); returns the port, or 0 on failure. The whole
    /// service answers there, and it alone serves the stand-in meeting's rooms.
    quint16 startTls(const QString &certificateFile, const QString &keyFile);
    /// startTls() with "server.pem" and "server.key" of the directory.
    quint16 startTlsFromDirectory(const QString &directory);
    quint16 tlsPort() const { return m_tlsPort; }
    /// "localhost:<TLS port>": the name the test certificate is made out to.
    QString tlsHostAndPort() const;

    /// The reply body of POST api/in/im/c (a MonitoringConfigDTO).
    void setMonitoringConfig(const QByteArray &json) { m_monitoringConfig = json; }
    QByteArray monitoringConfig() const { return m_monitoringConfig; }
    /// The reply body for init requests naming the tenant ("tId"), in place of the one above;
    /// empty json forgets it.
    void setMonitoringConfig(const QString &tenantId, const QByteArray &json);
    QByteArray monitoringConfig(const QString &tenantId) const
    {
        return m_tenantMonitoringConfigs.value(tenantId, m_monitoringConfig);
    }
    /// The reply body of GET api/in/i18n (a possibly nested object of strings).
    void setStrings(const QByteArray &json) { m_strings = json; }
    QByteArray strings() const { return m_strings; }

    /// Answers method + path (e.g. "GET", "/api/in/i18n") with reply instead of the endpoint:
    /// the request is recorded, the endpoint does not run (no visit, report or command changes).
    void setCannedReply(const QString &method, const QString &path, const CannedReply &reply);
    void clearCannedReplies() { m_canned.clear(); }

    /// Bodies and WebSocket messages above this answer 413 / close the connection (1009).
    void setMaxBodySize(qsizetype bytes);
    qsizetype maxBodySize() const { return m_maxBodySize; }

    /// What the newest init request (POST api/in/im/c) naming the visit id announced.
    std::optional<DeviceInit> deviceInit(const QString &visitId) const;

    /// The agent console's address, "http://127.0.0.1:<port>/".
    QString consoleUrl() const;

    QList<RecordedRequest> requests() const { return m_requests; }
    /// The requests to one path, in arrival order (WebSocket handshakes included).
    QList<RecordedRequest> requests(const QString &path) const;
    void clearRequests() { m_requests.clear(); }
    /// Runs the event loop until `count` requests to `path` arrived or timeoutMs passed.
    bool waitForRequests(const QString &path, int count, int timeoutMs = 5000);

    /// An open visit without a request or frame for this long is ended (0: never).
    void setSilenceTimeout(int ms) { m_registry.setSilenceTimeout(ms); }
    /// The visits grouped per device, with their time lines.
    const Conversations *conversations() const { return &m_conversations; }
    Conversations *conversations() { return &m_conversations; }
    /// The consoles following the service live.
    ConsoleFeed *consoleFeed() { return &m_consoleFeed; }

    /// Visits in order of first sight; the pointers live as long as the service.
    QList<const Visit *> visits() const { return m_registry.visits(); }
    const Visit *visit(const QString &visitId) const { return m_registry.find(visitId); }

    /// Queues one agent command object (its JSON text) for the visit's next delivery; an
    /// unknown visit is created pending. Returns the command's id (from 1), or 0, queueing
    /// nothing, if the text is not a JSON object.
    qint64 queueCommand(const QString &visitId, const QByteArray &jsonObject);
    qint64 queueCommand(const QString &visitId, const QJsonObject &command);
    /// Queues text exactly as it goes on the wire: the string element of an XHR reply, or the
    /// text of a WebSocket frame.
    void queueRawCommand(const QString &visitId, const QByteArray &text);

    /// Runs the event loop until condition holds or timeoutMs passed; returns the condition.
    bool waitFor(const std::function<bool()> &condition, int timeoutMs = 5000);
    bool waitForVisitOpen(const QString &visitId, int timeoutMs = 5000);
    /// Until the visit has at least `count` reports.
    bool waitForReports(const QString &visitId, int count, int timeoutMs = 5000);
    bool waitForReports(const QString &visitId,
                        const std::function<bool(const QList<Report> &)> &predicate,
                        int timeoutMs = 5000);

    /// Queues a message for the visitor's next channel poll (POST api/in/co) that listens on
    /// channel; each message is delivered once. Returns false, queueing nothing, for a channel
    /// name that is none of the eleven (CF C V VCB SCB S WC CO COQS NO JS).
    bool queueChannelMessage(const QString &visitorId, const QString &channel,
                             const QString &payload);
    /// The messages still waiting for the visitor, in queue order.
    QList<ChannelMessage> queuedChannelMessages(const QString &visitorId) const;
    /// Forgets every queued channel message.
    void clearChannelMessages();
    /// The devices that polled api/in/co, in order of first poll, and one of them by visitor id.
    QList<ChannelPoller> channelPollers() const { return m_channels.pollers(); }
    std::optional<ChannelPoller> channelPoller(const QString &visitorId) const;
    /// Until the visitor has polled at least `count` times in all.
    bool waitForChannelPolls(const QString &visitorId, int count, int timeoutMs = 5000);

    /// The reply body of POST cr/init/{tenant}/{customer}; empty goes back to the default, which
    /// sends the call to the stand-in meeting on tlsHostAndPort().
    void setCallSettings(const QByteArray &json) { m_conference.setCallSettings(json); }
    /// The tenant's video call queue: called customers (position 0) first, then the waiting.
    QList<QueuedCustomer> queue(const QString &tenantId) const
    {
        return m_conference.queue(tenantId);
    }
    /// The queue as the agent works it.
    ConferenceEndpoint *conference() { return &m_conference; }
    /// The calls the stand-in meeting page reported, in join order.
    QList<Meeting> meetings() const { return m_meetings.meetings(); }
    /// The page raises the close events at its next poll (about once a second).
    void endMeeting(const QString &room) { m_meetings.endMeeting(room); }

    /// Admission, drops and closes of WebSocket connections.
    WebSocketEndpoint *webSockets() { return &m_webSockets; }

    /// The web chat: its messages, and the agent's side of them.
    ChatEndpoint *chat() { return &m_chat; }
    const ChatEndpoint *chat() const { return &m_chat; }
    /// The reply body of GET api/in/wc/c/{chatId}, for every chat id.
    void setChatConfiguration(const QByteArray &json) { m_chat.setConfiguration(json); }
    /// The newest body POSTed to the user tag endpoint for the visitor id (whatever its "tId"),
    /// byte for byte, so its key order shows.
    std::optional<QByteArray> taggedUserBody(const QString &visitorId) const;
    /// The tenant's newest tag record for the visitor id, or for the user whose id it is.
    std::optional<TaggedUser> taggedUser(const QString &tenantId, const QString &visitorId) const
    {
        return m_userTags.find(tenantId, visitorId);
    }

    static QByteArray defaultMonitoringConfig();
    static QByteArray defaultStrings();

Q_SIGNALS:
    void requestRecorded(const VistrelService::RecordedRequest &request);
    void visitOpened(const QString &visitId);
    void visitEnded(const QString &visitId);
    void reportReceived(const QString &visitId, qsizetype index);
    void commandDelivered(const QString &visitId, const QByteArray &text,
                          VistrelService::Transport transport);
    /// A channel poll of the visitor was answered (after its messages were delivered).
    void channelPolled(const QString &visitorId);
    void channelMessageDelivered(const QString &visitorId, const QString &channel,
                                 const QString &payload);
    /// A chat message was posted by the agent, the visitor or the chat page.
    void chatMessagePosted(const QString &tenantId, const QString &visitorId,
                           const VistrelService::ChatMessage &message);
    void webSocketConnected(const QString &visitId);
    void webSocketDisconnected(const QString &visitId, QWebSocketProtocol::CloseCode code);
    void webSocketFrameRejected(const QString &visitId, const QString &reason);
    /// The stand-in meeting page opened a call in room.
    void meetingJoined(const QString &room);

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;
    static void writeMisbehaving(const CannedReply &reply, QTcpSocket *socket);

private:
    HttpReply route(const RecordedRequest &request);
    void acceptWebSockets();
    void record(const RecordedRequest &request);

    quint16 m_port = 0;
    quint16 m_tlsPort = 0;
    qsizetype m_maxBodySize = 16 * 1024 * 1024;
    QByteArray m_monitoringConfig;
    QHash<QString, QByteArray> m_tenantMonitoringConfigs;
    QByteArray m_strings;
    QHash<QString, CannedReply> m_canned;
    QList<RecordedRequest> m_requests;
    VisitRegistry m_registry;
    Conversations m_conversations;
    ConsoleFeed m_consoleFeed;
    XhrEndpoint m_xhr;
    WebSocketEndpoint m_webSockets;
    ChannelEndpoint m_channels;
    ConsoleEndpoint m_console;
    ChatEndpoint m_chat;
    UserTagEndpoint m_userTags;
    ConferenceEndpoint m_conference;
    MeetingEndpoint m_meetings;
    QHash<QString, DeviceInit> m_inits;
};

} // namespace VistrelService
