#include "WebSocketEndpoint.h"

#include "ReportDecoder.h"
#include "ServiceLog.h"
#include "VisitRegistry.h"

#include <QDateTime>
#include <QWebSocket>

#include <algorithm>
#include <climits>

using namespace Qt::StringLiterals;

namespace VistrelService {

WebSocketEndpoint::WebSocketEndpoint(VisitRegistry *registry, QObject *parent)
    : QObject(parent)
    , m_registry(registry)
{
    connect(m_registry, &VisitRegistry::commandQueued, this, &WebSocketEndpoint::deliver);
}

WebSocketEndpoint::~WebSocketEndpoint()
{
    // The sockets are children and outlive this body; keep them from calling back into it.
    for (const Connection &connection : m_connections)
        connection.socket->disconnect(this);
}

void WebSocketEndpoint::setMaxMessageSize(qint64 bytes)
{
    m_maxMessageSize = std::clamp<qint64>(bytes, 0, INT_MAX);
}

int WebSocketEndpoint::connectionCount(const QString &visitId) const
{
    return int(socketsOf(visitId).size());
}

int WebSocketEndpoint::dropConnections(const QString &visitId)
{
    const QList<QWebSocket *> sockets = socketsOf(visitId);
    for (QWebSocket *socket : sockets)
        socket->abort();
    return int(sockets.size());
}

int WebSocketEndpoint::closeConnections(const QString &visitId, QWebSocketProtocol::CloseCode code,
                                        const QString &reason)
{
    const QList<QWebSocket *> sockets = socketsOf(visitId);
    for (QWebSocket *socket : sockets)
        socket->close(code, reason);
    return int(sockets.size());
}

void WebSocketEndpoint::accept(QWebSocket *socket)
{
    // LocalService recorded the handshake request already.
    socket->setParent(this);
    const QUrl url = socket->request().url();
    const QString path = url.path();
    const QUrlQuery query(url);
    const QString visitId = query.queryItemValue(u"id"_s, QUrl::FullyDecoded);
    const auto reject = [socket](QWebSocketProtocol::CloseCode code, const QString &reason) {
        connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
        // Qt still reads from the socket once the new-connection signal returns.
        QMetaObject::invokeMethod(
            socket, [socket, code, reason] { socket->close(code, reason); }, Qt::QueuedConnection);
    };
    if (path != Path) {
        qCWarning(lcVistrelService) << "WebSocket on unknown path" << path;
        reject(QWebSocketProtocol::CloseCodePolicyViolated, u"unknown path"_s);
        return;
    }
    if (visitId.isEmpty()) {
        qCWarning(lcVistrelService) << "WebSocket without a visit id";
        reject(QWebSocketProtocol::CloseCodePolicyViolated, u"missing id"_s);
        return;
    }
    if (m_admission == Admission::CloseOnOpen) {
        reject(QWebSocketProtocol::CloseCodeGoingAway, u"not accepting connections"_s);
        return;
    }

    socket->setMaxAllowedIncomingMessageSize(quint64(m_maxMessageSize));
    socket->setMaxAllowedIncomingFrameSize(quint64(m_maxMessageSize));
    connect(socket, &QWebSocket::binaryMessageReceived, this,
            [this, socket](const QByteArray &frame) { receiveBinary(socket, frame); });
    connect(socket, &QWebSocket::textMessageReceived, this,
            [this, socket](const QString &frame) { receiveText(socket, frame); });
    connect(socket, &QWebSocket::disconnected, this, [this, socket] { forget(socket); });
    m_connections.push_back(Connection{socket, visitId, query});

    m_registry->open(visitId, Transport::WebSocket, query);
    Q_EMIT connected(visitId);
    deliver(visitId);
}

void WebSocketEndpoint::receiveBinary(QWebSocket *socket, const QByteArray &frame)
{
    const Connection *connection = find(socket);
    if (!connection)
        return;
    const QString visitId = connection->visitId;
    ReportDecoder::Failure failure{};
    const auto list = ReportDecoder::decode(frame, &failure);
    if (!list) {
        qCWarning(lcVistrelService) << "Dropped a frame of" << frame.size() << "bytes from visit"
                                    << visitId << "as" << ReportDecoder::describe(failure);
        Q_EMIT frameRejected(visitId, QString::fromLatin1(ReportDecoder::describe(failure)));
        return;
    }
    m_registry->addReports(visitId, *list,
                           Report::stamp(visitId, Transport::WebSocket, connection->query,
                                         QDateTime::currentDateTimeUtc()));
    Q_EMIT frameReceived(visitId, list->messages_size());
}

void WebSocketEndpoint::receiveText(QWebSocket *socket, const QString &frame)
{
    const Connection *connection = find(socket);
    if (!connection)
        return;
    // Reports travel as binary frames only.
    qCWarning(lcVistrelService) << "Dropped a text frame of" << frame.size()
                                << "characters from visit" << connection->visitId;
    Q_EMIT frameRejected(connection->visitId, u"unexpected text frame"_s);
}

void WebSocketEndpoint::forget(QWebSocket *socket)
{
    const auto it = std::find_if(m_connections.begin(), m_connections.end(),
                                 [socket](const Connection &c) { return c.socket == socket; });
    if (it == m_connections.end())
        return;
    const QString visitId = it->visitId;
    m_connections.erase(it);
    socket->deleteLater();
    Q_EMIT disconnected(visitId, socket->closeCode());
}

void WebSocketEndpoint::deliver(const QString &visitId)
{
    // A socket we are closing stays listed until it is gone; it must not swallow commands.
    QWebSocket *newest = nullptr;
    for (QWebSocket *socket : socketsOf(visitId)) {
        if (socket->state() == QAbstractSocket::ConnectedState)
            newest = socket;
    }
    if (!newest)
        return;
    for (const AgentCommand &command : m_registry->takeCommands(visitId, Transport::WebSocket))
        newest->sendTextMessage(QString::fromUtf8(command.frameText()));
}

const WebSocketEndpoint::Connection *WebSocketEndpoint::find(const QWebSocket *socket) const
{
    for (const Connection &connection : m_connections) {
        if (connection.socket == socket)
            return &connection;
    }
    return nullptr;
}

QList<QWebSocket *> WebSocketEndpoint::socketsOf(const QString &visitId) const
{
    QList<QWebSocket *> sockets;
    for (const Connection &connection : m_connections) {
        if (connection.visitId == visitId)
            sockets.append(connection.socket);
    }
    return sockets;
}

} // namespace VistrelService
