#include "LocalService.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QMetaEnum>
#include <QTcpSocket>

using namespace Qt::StringLiterals;

namespace VistrelService {

namespace {
QString methodName(QHttpServerRequest::Method method)
{
    const char *key = QMetaEnum::fromType<QHttpServerRequest::Method>().valueToKey(int(method));
    return key ? QString::fromLatin1(key).toUpper() : u"UNKNOWN"_s;
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
{}

LocalService::~LocalService() = default;

quint16 LocalService::start(const QHostAddress &address, quint16 port)
{
    m_port = listen(address, port);
    return m_port;
}

QString LocalService::hostAndPort() const
{
    return u"127.0.0.1:"_s + QString::number(m_port);
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

bool LocalService::waitForRequests(const QString &path, int count, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (requests(path).size() < count) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
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

    const auto canned = m_canned.constFind(cannedKey(recorded.method, recorded.path));
    if (canned != m_canned.constEnd() && canned->dropConnection) {
        recorded.status = 0;
        m_requests.append(recorded);
        Q_EMIT requestRecorded(recorded);
        socket->abort();
        return true;
    }

    Reply reply;
    if (canned != m_canned.constEnd())
        reply = Reply{canned->status, canned->body, canned->contentType};
    else
        reply = route(recorded);
    recorded.status = reply.status;
    m_requests.append(recorded);
    Q_EMIT requestRecorded(recorded);

    QHttpServerResponder responder = makeResponder(request, socket);
    responder.write(reply.body, reply.contentType,
                    static_cast<QHttpServerResponder::StatusCode>(reply.status));
    return true;
}

void LocalService::missingHandler(const QHttpServerRequest &request, QTcpSocket *socket)
{
    // handleRequest() answers everything; this is only reached if that ever changes.
    makeResponder(request, socket).write(QHttpServerResponder::StatusCode::NotFound);
}

LocalService::Reply LocalService::route(const RecordedRequest &request)
{
    const QString &path = request.path;
    const QString &method = request.method;
    if (method == u"POST"_s && path == u"/api/in/im/c"_s)
        return Reply{200, m_monitoringConfig};
    if (method == u"GET"_s && path == u"/api/in/i18n"_s)
        return Reply{200, m_strings};
    if (method == u"DELETE"_s && path == u"/api/ix/m"_s)
        return Reply{200, {}};
    return Reply{404, QByteArrayLiteral("{\"error\":\"no such endpoint\"}")};
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
