#pragma once

#include <QList>
#include <QObject>
#include <QUrlQuery>
#include <QWebSocketProtocol>

#include <vector>

class QWebSocket;

namespace VistrelService {

class VisitRegistry;

/// The visit's message channel over WebSocket, "api/in/imws": binary frames carry a
/// ProtoMessageList up, text frames carry one agent command object each down.
class WebSocketEndpoint : public QObject
{
    Q_OBJECT
public:
    static constexpr QStringView Path = u"/api/in/imws";

    enum class Admission {
        Accept,
        /// LocalService answers the upgrade with 503: the device never sees the connection open.
        Refuse,
        /// Lets the connection open, then closes it at once with "going away" (1001).
        CloseOnOpen,
    };
    Q_ENUM(Admission)

    explicit WebSocketEndpoint(VisitRegistry *registry, QObject *parent = nullptr);
    ~WebSocketEndpoint() override;

    void setAdmission(Admission admission) { m_admission = admission; }
    Admission admission() const { return m_admission; }
    /// Larger messages close the connection with "too much data" (1009). At most INT_MAX, the
    /// most protobuf parses at once.
    void setMaxMessageSize(qint64 bytes);
    /// Takes over a socket the server upgraded; it must be on Path with a visit id.
    void accept(QWebSocket *socket);

    int connectionCount() const { return int(m_connections.size()); }
    int connectionCount(const QString &visitId) const;
    /// Aborts the visit's connections without a close frame, as a network failure would.
    /// Returns how many were dropped.
    int dropConnections(const QString &visitId);
    /// Closes the visit's connections with a close frame; returns how many.
    int closeConnections(const QString &visitId,
                         QWebSocketProtocol::CloseCode code = QWebSocketProtocol::CloseCodeNormal,
                         const QString &reason = {});

Q_SIGNALS:
    void connected(const QString &visitId);
    void disconnected(const QString &visitId, QWebSocketProtocol::CloseCode code);
    /// A binary frame decoded into reportCount reports.
    void frameReceived(const QString &visitId, int reportCount);
    void frameRejected(const QString &visitId, const QString &reason);

private:
    struct Connection
    {
        QWebSocket *socket = nullptr;
        QString visitId;
        QUrlQuery query;
    };

    void receiveBinary(QWebSocket *socket, const QByteArray &frame);
    void receiveText(QWebSocket *socket, const QString &frame);
    void forget(QWebSocket *socket);
    /// Sends the visit's queued commands on its newest connection, if it has one.
    void deliver(const QString &visitId);
    const Connection *find(const QWebSocket *socket) const;
    QList<QWebSocket *> socketsOf(const QString &visitId) const;

    VisitRegistry *m_registry;
    Admission m_admission = Admission::Accept;
    qint64 m_maxMessageSize = 16 * 1024 * 1024;
    std::vector<Connection> m_connections;
};

} // namespace VistrelService
