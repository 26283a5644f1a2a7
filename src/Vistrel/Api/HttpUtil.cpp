#include "Api/HttpUtil.h"

#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"

#include <QNetworkReply>
#include <QTimer>
#include <QUrl>

#include <memory>

using namespace Qt::StringLiterals;

namespace VistrelKit {

HttpUtil::HttpUtil(ApplicationConfigWrapper *applicationConfig, QObject *parent)
    : QObject(parent)
    , m_setCookieHeaderName(u"Set-Cookie"_s)
    , m_cookieHeaderName(u"Cookie"_s)
    , m_ssidHeaderName(u"X-OV-SSID"_s)
    , m_applicationConfig(applicationConfig)
{}

QNetworkRequest HttpUtil::buildRequest(const QString &url) const
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.scheme().isEmpty())
        qFatal("Cannot build a request for the URL \"%s\"", qPrintable(url));
    QNetworkRequest request(parsed);
    request.setTransferTimeout(m_timeoutMs);
    addSessionHeader(request);
    return request;
}

void HttpUtil::addSessionHeader(QNetworkRequest &request) const
{
    const auto &sessionId = m_applicationConfig->config().visitConfig.sessionId;
    // A null value would remove the header, and it must be sent even while it is empty.
    QByteArray ssid = sessionId.value_or(QString()).toUtf8();
    if (ssid.isNull())
        ssid = QByteArray("");
    request.setRawHeader(m_ssidHeaderName.toLatin1(), ssid);
}

void HttpUtil::post(const QString &url, const QByteArray &body, Completion completion)
{
    Log::debug(u"POST "_s + url);
    QNetworkRequest request = buildRequest(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    send(m_manager.post(request, body), std::move(completion));
}

void HttpUtil::get(const QString &url, Completion completion)
{
    Log::debug(u"GET "_s + url);
    send(m_manager.get(buildRequest(url)), std::move(completion));
}

void HttpUtil::deleteResource(const QString &url, Completion completion)
{
    Log::debug(u"DELETE "_s + url);
    send(m_manager.deleteResource(buildRequest(url)), std::move(completion));
}

bool HttpUtil::isCutShort(const QList<QPair<QByteArray, QByteArray>> &headers, qsizetype bodySize)
{
    std::optional<qint64> announced;
    for (const auto &[name, value] : headers) {
        if (name.compare("Content-Encoding", Qt::CaseInsensitive) == 0 &&
            value.trimmed().compare("identity", Qt::CaseInsensitive) != 0)
            return false;
        if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
            bool ok = false;
            const qint64 length = value.trimmed().toLongLong(&ok);
            if (ok)
                announced = length;
        }
    }
    return announced && bodySize < *announced;
}

void HttpUtil::send(QNetworkReply *reply, Completion completion)
{
    // The transfer time-out only fires when data stops coming: a reply that trickles needs a
    // total deadline, and a huge or endless one a size limit.
    enum class Abort { None, TooLarge, TooSlow };
    auto aborted = std::make_shared<Abort>(Abort::None);
    connect(reply, &QNetworkReply::downloadProgress, this,
            [reply, aborted](qint64 bytesReceived, qint64 bytesTotal) {
                if (*aborted != Abort::None || qMax(bytesReceived, bytesTotal) <= MaxReplyBytes)
                    return;
                *aborted = Abort::TooLarge;
                reply->abort();
            });
    QTimer::singleShot(m_timeoutMs, reply, [reply, aborted] {
        if (*aborted != Abort::None || reply->isFinished())
            return;
        *aborted = Abort::TooSlow;
        reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, aborted, completion = std::move(completion)] {
                reply->deleteLater();
                // The whole body may have arrived before the abort took effect: it is dropped
                // all the same.
                if (*aborted == Abort::TooLarge) {
                    completion(std::nullopt, std::nullopt,
                               NetworkError(QNetworkReply::OperationCanceledError,
                                            u"Reply larger than %1 bytes"_s.arg(MaxReplyBytes)));
                    return;
                }
                if (*aborted == Abort::TooSlow) {
                    completion(std::nullopt, std::nullopt,
                               NetworkError(QNetworkReply::TimeoutError,
                                            u"No whole reply within %1 ms"_s.arg(m_timeoutMs)));
                    return;
                }
                // Qt reports HTTP error statuses as content (2xx) or server (4xx) errors, 400
                // and 418 as a protocol error (302) and 407 as a proxy error (105); those are
                // replies. Everything else that failed never produced a whole reply.
                const int code = reply->error();
                const bool statusOnly = (code >= 201 && code <= 299) ||
                                        (code >= 401 && code <= 499) ||
                                        code == QNetworkReply::ProtocolInvalidOperationError ||
                                        code == QNetworkReply::ProxyAuthenticationRequiredError;
                const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
                if ((code != QNetworkReply::NoError && !statusOnly) || !status.isValid()) {
                    completion(std::nullopt, std::nullopt,
                               NetworkError(reply->error(), reply->errorString()));
                    return;
                }
                HttpResponse response;
                response.statusCode = status.toInt();
                response.headers = reply->rawHeaderPairs();
                const QByteArray body = reply->readAll();
                if (isCutShort(response.headers, body.size())) {
                    completion(std::nullopt, std::nullopt,
                               NetworkError(QNetworkReply::RemoteHostClosedError,
                                            u"Reply cut short after %1 bytes"_s.arg(body.size())));
                    return;
                }
                // An empty body counts as no body: callers tell "nothing came" from "something
                // bad came".
                completion(body.isEmpty() ? std::nullopt : std::optional<QByteArray>(body),
                           response, std::nullopt);
            });
}

} // namespace VistrelKit
