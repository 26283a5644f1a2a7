#include "LocalService.h"

#include "QuickAckServer.h"
#include "ServiceLog.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QJsonDocument>
#include <QMetaEnum>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTcpSocket>
#include <QTimer>
#include <QWebSocket>

#include <algorithm>
#include <climits>
#include <memory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcVistrelService, "vistrel.service")

namespace VistrelService {

namespace {
QString methodName(QHttpServerRequest::Method method)
{
    const char *key = QMetaEnum::fromType<QHttpServerRequest::Method>().valueToKey(int(method));
    return key ? QString::fromLatin1(key).toUpper() : u"UNKNOWN"_s;
}

bool isWebSocketUpgrade(const QHttpServerRequest &request)
{
    return request.value(QByteArrayLiteral("upgrade")).compare("websocket", Qt::CaseInsensitive) ==
           0;
}

QString cannedKey(const QString &method, const QString &path)
{
    return method.toUpper() + u' ' + path;
}
} // namespace

LocalService::LocalService(QObject *parent)
    : QAbstractHttpServer(parent)
    , m_monitoringConfig(defaultMonitoringConfig())
    , m_strings(defaultStrings())
    , m_conversations(&m_registry, [this](const QString &visitId) { return deviceInit(visitId); })
    , m_xhr(&m_registry)
    , m_webSockets(&m_registry)
    , m_console(this)
    , m_chat(this)
{
    connect(&m_registry, &VisitRegistry::visitOpened, this, &LocalService::visitOpened);
    connect(&m_registry, &VisitRegistry::visitEnded, this, &LocalService::visitEnded);
    connect(&m_registry, &VisitRegistry::reportReceived, this, &LocalService::reportReceived);
    connect(&m_registry, &VisitRegistry::commandDelivered, this,
            [this](const QString &visitId, const AgentCommand &command, Transport via) {
                Q_EMIT commandDelivered(visitId, command.text, via);
            });
    connect(&m_webSockets, &WebSocketEndpoint::connected, this, &LocalService::webSocketConnected);
    connect(&m_webSockets, &WebSocketEndpoint::disconnected, this,
            &LocalService::webSocketDisconnected);
    connect(&m_webSockets, &WebSocketEndpoint::frameRejected, this,
            &LocalService::webSocketFrameRejected);
    connect(&m_channels, &ChannelEndpoint::polled, this, &LocalService::channelPolled);
    connect(&m_channels, &ChannelEndpoint::messageDelivered, this,
            &LocalService::channelMessageDelivered);
    connect(&m_chat, &ChatEndpoint::messagePosted, this, &LocalService::chatMessagePosted);
    m_webSockets.setMaxMessageSize(m_maxBodySize);
    connect(this, &QAbstractHttpServer::newWebSocketConnection, this,
            &LocalService::acceptWebSockets);
    connect(&m_conversations, &Conversations::changed, &m_consoleFeed,
            &ConsoleFeed::conversationChanged);
    connect(&m_channels, &ChannelEndpoint::polled, &m_consoleFeed, &ConsoleFeed::listChanged);
    connect(&m_chat, &ChatEndpoint::messagePosted, &m_consoleFeed, &ConsoleFeed::chatChanged);
    connect(&m_chat, &ChatEndpoint::messagesDelivered, &m_consoleFeed, &ConsoleFeed::chatChanged);
    connect(&m_conference, &ConferenceEndpoint::queueChanged, &m_consoleFeed,
            &ConsoleFeed::callsChanged);
    connect(&m_meetings, &MeetingEndpoint::meetingsChanged, &m_consoleFeed,
            &ConsoleFeed::callsChanged);
    connect(&m_channels, &ChannelEndpoint::messageDelivered, &m_conversations,
            [this](const QString &visitorId, const QString &channel) {
                m_conversations.channelMessageDelivered(visitorId, channel);
            });
    m_channels.setSupplier(
        [this](const ChannelPoller &poller) { return m_conference.messagesFor(poller); });
    connect(&m_meetings, &MeetingEndpoint::meetingJoined, &m_conference,
            &ConferenceEndpoint::meetingJoined);
    connect(&m_meetings, &MeetingEndpoint::meetingJoined, this, &LocalService::meetingJoined);
}

LocalService::~LocalService() = default;

quint16 LocalService::start(const QHostAddress &address, quint16 port)
{
    auto *server = new QuickAckServer(this);
    if (!server->listen(address, port)) {
        delete server;
        return 0;
    }
    bind(server);
    m_port = server->serverPort();
    return m_port;
}

quint16 LocalService::startTls(const QString &certificateFile, const QString &keyFile)
{
    QFile certificate(certificateFile);
    QFile key(keyFile);
    if (!certificate.open(QIODevice::ReadOnly) || !key.open(QIODevice::ReadOnly)) {
        qCWarning(lcVistrelService) << "Cannot read" << certificateFile << "or" << keyFile;
        return 0;
    }
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(QSslCertificate(certificate.readAll()));
    configuration.setPrivateKey(QSslKey(key.readAll(), QSsl::Rsa));
    if (configuration.localCertificate().isNull() || configuration.privateKey().isNull()) {
        qCWarning(lcVistrelService)
            << "No PEM certificate and RSA key in" << certificateFile << "and" << keyFile;
        return 0;
    }
    // A QSslServer hands over connections once their handshake is done, beside the plain port;
    // Qt 6.4's sslSetup() would put every port of the server on TLS.
    auto *server = new QSslServer(this);
    server->setSslConfiguration(configuration);
    if (!server->listen(QHostAddress::LocalHost, 0)) {
        delete server;
        return 0;
    }
    bind(server);
    m_tlsPort = server->serverPort();
    m_conference.setDomain(tlsHostAndPort());
    return m_tlsPort;
}

quint16 LocalService::startTlsFromDirectory(const QString &directory)
{
    return startTls(directory + u"/server.pem"_s, directory + u"/server.key"_s);
}

QString LocalService::tlsHostAndPort() const
{
    return u"localhost:"_s + QString::number(m_tlsPort);
}

QString LocalService::hostAndPort() const
{
    return u"127.0.0.1:"_s + QString::number(m_port);
}

QString LocalService::consoleUrl() const
{
    return u"http://"_s + hostAndPort() + u'/';
}

std::optional<QByteArray> LocalService::taggedUserBody(const QString &visitorId) const
{
    const std::optional<TaggedUser> record = m_userTags.newest(visitorId);
    return record ? std::optional<QByteArray>(record->body) : std::nullopt;
}

std::optional<DeviceInit> LocalService::deviceInit(const QString &visitId) const
{
    const auto found = m_inits.constFind(visitId);
    return found == m_inits.constEnd() ? std::nullopt : std::optional<DeviceInit>(*found);
}

void LocalService::setMonitoringConfig(const QString &tenantId, const QByteArray &json)
{
    if (json.isEmpty())
        m_tenantMonitoringConfigs.remove(tenantId);
    else
        m_tenantMonitoringConfigs.insert(tenantId, json);
}

void LocalService::setCannedReply(const QString &method, const QString &path,
                                  const CannedReply &reply)
{
    m_canned.insert(cannedKey(method, path), reply);
}

QList<RecordedRequest> LocalService::requests(const QString &path) const
{
    QList<RecordedRequest> matching;
    for (const RecordedRequest &request : m_requests) {
        if (request.path == path)
            matching.append(request);
    }
    return matching;
}

void LocalService::setMaxBodySize(qsizetype bytes)
{
    // Protobuf parses at most INT_MAX bytes at once.
    m_maxBodySize = std::clamp<qsizetype>(bytes, 0, INT_MAX);
    m_webSockets.setMaxMessageSize(m_maxBodySize);
}

bool LocalService::waitForRequests(const QString &path, int count, int timeoutMs)
{
    return waitFor([&] { return requests(path).size() >= count; }, timeoutMs);
}

qint64 LocalService::queueCommand(const QString &visitId, const QByteArray &jsonObject)
{
    if (!QJsonDocument::fromJson(jsonObject).isObject()) {
        qCWarning(lcVistrelService)
            << "Not queueing a command that is not a JSON object:" << jsonObject;
        return 0;
    }
    return m_registry.queueCommand(visitId, AgentCommand{jsonObject.trimmed(), false});
}

qint64 LocalService::queueCommand(const QString &visitId, const QJsonObject &command)
{
    return queueCommand(visitId, QJsonDocument(command).toJson(QJsonDocument::Compact));
}

void LocalService::queueRawCommand(const QString &visitId, const QByteArray &text)
{
    m_registry.queueCommand(visitId, AgentCommand{text, true});
}

bool LocalService::queueChannelMessage(const QString &visitorId, const QString &channel,
                                       const QString &payload)
{
    return m_channels.queueMessage(visitorId, channel, payload);
}

QList<ChannelMessage> LocalService::queuedChannelMessages(const QString &visitorId) const
{
    return m_channels.queuedMessages(visitorId);
}

void LocalService::clearChannelMessages()
{
    m_channels.clearQueue();
}

std::optional<ChannelPoller> LocalService::channelPoller(const QString &visitorId) const
{
    return m_channels.poller(visitorId);
}

bool LocalService::waitForChannelPolls(const QString &visitorId, int count, int timeoutMs)
{
    return waitFor(
        [&] {
            const auto poller = channelPoller(visitorId);
            return poller && poller->pollCount >= count;
        },
        timeoutMs);
}

bool LocalService::waitFor(const std::function<bool()> &condition, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        // Sleeps in the event loop until something happens or a short tick passes.
        QEventLoop loop;
        QTimer::singleShot(std::clamp<qint64>(deadline.remainingTime(), 0, 10), &loop,
                           &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

bool LocalService::waitForVisitOpen(const QString &visitId, int timeoutMs)
{
    return waitFor(
        [&] {
            const Visit *found = visit(visitId);
            return found && found->isOpen();
        },
        timeoutMs);
}

bool LocalService::waitForReports(const QString &visitId, int count, int timeoutMs)
{
    return waitForReports(
        visitId, [count](const QList<Report> &reports) { return reports.size() >= count; },
        timeoutMs);
}

bool LocalService::waitForReports(const QString &visitId,
                                  const std::function<bool(const QList<Report> &)> &predicate,
                                  int timeoutMs)
{
    return waitFor(
        [&] {
            const Visit *found = visit(visitId);
            return found && predicate(found->reports());
        },
        timeoutMs);
}

void LocalService::record(const RecordedRequest &request)
{
    m_requests.append(request);
    Q_EMIT requestRecorded(request);
}

bool LocalService::handleRequest(const QHttpServerRequest &request, QTcpSocket *socket)
{
    RecordedRequest recorded;
    recorded.method = methodName(request.method());
    recorded.path = request.url().path();
    recorded.query = request.query();
    recorded.headers = request.headers();
    recorded.body = request.body();
    recorded.time = QDateTime::currentDateTimeUtc();
    recorded.secure = qobject_cast<QSslSocket *>(socket) != nullptr;

    // Qt upgrades the connection once this returns true, so nothing may be written for it here;
    // returning false has Qt call missingHandler() and close the connection.
    if (isWebSocketUpgrade(request)) {
        const bool admitted = recorded.path == ConsoleFeed::Path ||
                              m_webSockets.admission() != WebSocketEndpoint::Admission::Refuse;
        recorded.status = admitted ? 101 : 503;
        record(recorded);
        return admitted;
    }

    const auto canned = m_canned.constFind(cannedKey(recorded.method, recorded.path));
    if (canned != m_canned.constEnd() && canned->dropConnection) {
        recorded.status = 0;
        record(recorded);
        socket->abort();
        return true;
    }

    HttpReply reply;
    if (recorded.body.size() > m_maxBodySize) {
        qCWarning(lcVistrelService) << "Refused a body of" << recorded.body.size() << "bytes for"
                                    << recorded.method << recorded.path;
        // Only its size is worth keeping.
        recorded.body.clear();
        reply = HttpReply::error(413, "body too large");
    } else if (canned != m_canned.constEnd()) {
        reply = *canned;
    } else {
        reply = route(recorded);
    }
    recorded.status = reply.status;
    record(recorded);

    if (canned != m_canned.constEnd() && canned->delivery != CannedReply::Delivery::Whole) {
        writeMisbehaving(*canned, socket);
        return true;
    }
    QHttpServerResponder responder = makeResponder(request, socket);
    const auto status = static_cast<QHttpServerResponder::StatusCode>(reply.status);
    if (reply.headers.isEmpty()) {
        responder.write(reply.body, reply.contentType, status);
        return true;
    }
    // write() takes its headers as a fixed list only: with extra ones, the reply is written
    // piece by piece as write() would.
    responder.writeStatusLine(status);
    responder.writeHeader(QByteArrayLiteral("Content-Type"), reply.contentType);
    responder.writeHeader(QByteArrayLiteral("Content-Length"),
                          QByteArray::number(reply.body.size()));
    for (const auto &[name, value] : std::as_const(reply.headers))
        responder.writeHeader(name, value);
    responder.writeBody(reply.body);
    return true;
}

void LocalService::acceptWebSockets()
{
    while (hasPendingWebSocketConnections()) {
        std::unique_ptr<QWebSocket> socket = nextPendingWebSocketConnection();
        if (!socket)
            break;
        if (socket->request().url().path() == ConsoleFeed::Path)
            m_consoleFeed.accept(socket.release());
        else
            m_webSockets.accept(socket.release());
    }
}

void LocalService::writeMisbehaving(const CannedReply &reply, QTcpSocket *socket)
{
    // Written by hand: the responder only writes whole replies.
    socket->write("HTTP/1.1 " + QByteArray::number(reply.status) +
                  " OK\r\nContent-Type: " + reply.contentType +
                  "\r\nContent-Length: " + QByteArray::number(reply.body.size()) + "\r\n\r\n");
    if (reply.delivery == CannedReply::Delivery::CutShort) {
        socket->write(reply.body.left(reply.body.size() / 2));
        socket->disconnectFromHost();
        return;
    }
    auto *timer = new QTimer(socket);
    auto sent = std::make_shared<qsizetype>(0);
    QObject::connect(timer, &QTimer::timeout, socket, [socket, timer, sent, body = reply.body] {
        if (*sent >= body.size()) {
            timer->stop();
            return;
        }
        socket->write(body.mid((*sent)++, 1));
    });
    timer->start(reply.trickleIntervalMs);
}

void LocalService::missingHandler(const QHttpServerRequest &request, QTcpSocket *socket)
{
    // Only refused WebSocket upgrades get here: handleRequest() answers everything else.
    makeResponder(request, socket).write(QHttpServerResponder::StatusCode::ServiceUnavailable);
}

HttpReply LocalService::route(const RecordedRequest &request)
{
    const QString &path = request.path;
    const QString &method = request.method;
    if (method == u"POST"_s && path == u"/api/in/im/c"_s) {
        // Over HTTP the share id travels only here; the console finds it by the visit id.
        const std::optional<DeviceInit> init = DeviceInit::fromBody(request.body, request.time);
        if (init && !init->visitId.isEmpty())
            m_inits.insert(init->visitId, *init);
        return HttpReply{200, init ? monitoringConfig(init->tenantId) : m_monitoringConfig};
    }
    if (method == u"GET"_s && path == u"/api/in/i18n"_s)
        return HttpReply{200, m_strings};
    if (path == XhrEndpoint::Path)
        return m_xhr.handle(request);
    if (path == ChannelEndpoint::Path)
        return m_channels.handle(request);
    if (ConsoleEndpoint::handles(path))
        return m_console.handle(request);
    if (ChatEndpoint::handles(path))
        return m_chat.handle(request);
    if (UserTagEndpoint::handles(path))
        return m_userTags.handle(request);
    if (ConferenceEndpoint::handles(path))
        return m_conference.handle(request);
    if (MeetingEndpoint::handles(path, request.secure))
        return m_meetings.handle(request);
    // Upgrades never get here: Qt hands them to the WebSocket endpoint.
    if (path == WebSocketEndpoint::Path)
        return HttpReply::error(426, "WebSocket only");
    return HttpReply::error(404, "no such endpoint");
}

QByteArray LocalService::defaultMonitoringConfig()
{
    return QByteArrayLiteral(R"({"shouldStartMonitoring":true,"htmlExists":false,"ip":"127.0.0.1",)"
                             R"("ios":{"blacklist":[],"blacklistClasses":[]},"storageType":"l",)"
                             R"("ignoreIp":false,"disableWebSocket":false,"chatActivated":true})");
}

QByteArray LocalService::defaultStrings()
{
    return QByteArrayLiteral(R"({"ui":{"mobile":{"connecting":"Connecting…","error":"Error",)"
                             R"("confirm":{"title":"Share your screen?",)"
                             R"("message":"An agent asks to see your screen to help you."}},)"
                             R"("confirm":{"accept":"Allow","decline":"Decline"}}})");
}

} // namespace VistrelService
