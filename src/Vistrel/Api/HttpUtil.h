#pragma once

#include "Api/HttpResponse.h"
#include "Core/NetworkError.h"

#include <Vistrel/vistrel_export.h>

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QObject>

#include <functional>
#include <optional>

namespace VistrelKit {

class ApplicationConfigWrapper;

/// The kit's only HTTP client. Every request carries the session id header; replies are handed
/// over raw. An HTTP error status is a reply, not an error: only transport failures are errors.
class VISTREL_PRIVATE_EXPORT HttpUtil : public QObject
{
    Q_OBJECT
public:
    /// body: absent when the reply had no body (or none arrived); response: absent when no HTTP
    /// reply arrived; error: set on transport failures only.
    using Completion = std::function<void(const std::optional<QByteArray> &body,
                                          const std::optional<HttpResponse> &response,
                                          const std::optional<NetworkError> &error)>;

    /// Every request ends within this time from its start, however slowly its reply trickles.
    static constexpr int TimeoutMs = 60000;
    /// Replies above this (the service's own request limit) are aborted as transport errors,
    /// so a huge or endless body cannot exhaust memory.
    static constexpr qint64 MaxReplyBytes = 16 * 1024 * 1024;

    explicit HttpUtil(ApplicationConfigWrapper *applicationConfig, QObject *parent = nullptr);

    /// A GET request with the session header. The URL must parse: anything else is a
    /// programming error and stops the process.
    QNetworkRequest buildRequest(const QString &url) const;
    /// Sets the session id header (empty before a visit, never left out); the WebSocket
    /// handshake carries it too.
    void addSessionHeader(QNetworkRequest &request) const;

    void post(const QString &url, const QByteArray &body, Completion completion);
    void get(const QString &url, Completion completion);
    void deleteResource(const QString &url, Completion completion);

    /// The total time a request may take (TimeoutMs unless a test shortens it).
    int timeoutMs() const { return m_timeoutMs; }
    void setTimeoutMs(int timeoutMs) { m_timeoutMs = timeoutMs; }

    /// Whether a reply that says it succeeded brought less than its Content-Length announced:
    /// Qt may report a connection closed mid-body as a success. Encoded bodies are checked by
    /// their decoder, not here.
    static bool isCutShort(const QList<QPair<QByteArray, QByteArray>> &headers, qsizetype bodySize);

    QString ssidHeaderName() const { return m_ssidHeaderName; }
    QString cookieHeaderName() const { return m_cookieHeaderName; }
    QString setCookieHeaderName() const { return m_setCookieHeaderName; }
    std::optional<QString> stickyCookie() const { return m_stickyCookie; }

private:
    void send(QNetworkReply *reply, Completion completion);

    // Held for the service's cookie scheme; no request reads them.
    std::optional<QString> m_stickyCookie;
    const QString m_setCookieHeaderName;
    const QString m_cookieHeaderName;
    const QString m_ssidHeaderName;
    ApplicationConfigWrapper *m_applicationConfig;
    int m_timeoutMs = TimeoutMs;
    QNetworkAccessManager m_manager;
};

} // namespace VistrelKit
