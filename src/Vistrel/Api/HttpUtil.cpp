#include "Api/HttpUtil.h"

#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"

#include <QNetworkReply>
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
{
    m_manager.setTransferTimeout(TimeoutMs);
}

QNetworkRequest HttpUtil::buildRequest(const QString &url) const
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.scheme().isEmpty())
        qFatal("Cannot build a request for the URL \"%s\"", qPrintable(url));
    QNetworkRequest request(parsed);
    request.setTransferTimeout(TimeoutMs);
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

void HttpUtil::send(QNetworkReply *reply, Completion completion)
{
    // The transfer time-out only fires when data stops coming, so the size needs its own limit.
    auto tooLarge = std::make_shared<bool>(false);
    connect(reply, &QNetworkReply::downloadProgress, this,
            [reply, tooLarge](qint64 bytesReceived, qint64 bytesTotal) {
                if (*tooLarge || qMax(bytesReceived, bytesTotal) <= MaxReplyBytes)
                    return;
                *tooLarge = true;
                reply->abort();
            });
    connect(reply, &QNetworkReply::finished, this,
            [reply, tooLarge, completion = std::move(completion)] {
                reply->deleteLater();
                // The whole body may have arrived before the abort took effect: it is dropped
                // all the same.
                if (*tooLarge) {
                    completion(std::nullopt, std::nullopt,
                               NetworkError(QNetworkReply::OperationCanceledError,
                                            u"Reply larger than %1 bytes"_s.arg(MaxReplyBytes)));
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
                // An empty body counts as no body: callers tell "nothing came" from "something
                // bad came".
                completion(body.isEmpty() ? std::nullopt : std::optional<QByteArray>(body),
                           response, std::nullopt);
            });
}

} // namespace VistrelKit
