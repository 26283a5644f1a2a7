#pragma once

#include "CannedReply.h"
#include "RecordedRequest.h"

#include <QAbstractHttpServer>
#include <QHash>
#include <QHostAddress>
#include <QList>

#include <functional>

namespace VistrelService {

/// The service's side of every endpoint the kit calls, on loopback. Records every request it
/// gets, so tests assert on what really crossed the wire.
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

    /// The reply body of POST api/in/im/c (a MonitoringConfigDTO).
    void setMonitoringConfig(const QByteArray &json) { m_monitoringConfig = json; }
    QByteArray monitoringConfig() const { return m_monitoringConfig; }
    /// The reply body of GET api/in/i18n (a possibly nested object of strings).
    void setStrings(const QByteArray &json) { m_strings = json; }
    QByteArray strings() const { return m_strings; }

    /// Answers method + path (e.g. "GET", "/api/in/i18n") with reply, whatever the endpoint does.
    void setCannedReply(const QString &method, const QString &path, const CannedReply &reply);
    void clearCannedReplies() { m_canned.clear(); }

    QList<RecordedRequest> requests() const { return m_requests; }
    /// The requests to one path, in arrival order.
    QList<RecordedRequest> requests(const QString &path) const;
    void clearRequests() { m_requests.clear(); }
    /// Runs the event loop until `count` requests to `path` arrived or timeoutMs passed.
    bool waitForRequests(const QString &path, int count, int timeoutMs = 5000);

    static QByteArray defaultMonitoringConfig();
    static QByteArray defaultStrings();

Q_SIGNALS:
    void requestRecorded(const VistrelService::RecordedRequest &request);

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    struct Reply
    {
        int status = 200;
        QByteArray body;
        QByteArray contentType = QByteArrayLiteral("application/json");
    };

    Reply route(const RecordedRequest &request);

    quint16 m_port = 0;
    QByteArray m_monitoringConfig;
    QByteArray m_strings;
    QHash<QString, CannedReply> m_canned;
    QList<RecordedRequest> m_requests;
};

} // namespace VistrelService
