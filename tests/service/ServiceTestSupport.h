#pragma once

// Reports built with the kit's own generated classes, as the device puts them on the wire.
#include "Network/Message/ProtoMessages.h"

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QString>

#include <memory>

#include <initializer_list>

namespace ServiceTest {

inline VistrelKit::ProtoMessage ping(quint64 time)
{
    VistrelKit::ProtoMessage message;
    message.set_time(time);
    return message;
}

inline VistrelKit::ProtoMessage pageChange(const QString &screen, quint64 time = 1000)
{
    VistrelKit::ProtoMessage message = ping(time);
    message.set_pagechange(screen.toStdString());
    return message;
}

inline VistrelKit::ProtoMessage screenshot(const QByteArray &image, quint64 time = 1000)
{
    VistrelKit::ProtoMessage message = ping(time);
    message.add_screenshotevent()->set_image(image.toStdString());
    return message;
}

inline QByteArray listBytes(std::initializer_list<VistrelKit::ProtoMessage> messages)
{
    VistrelKit::ProtoMessageList list;
    for (const VistrelKit::ProtoMessage &message : messages)
        *list.add_messages() = message;
    const std::string bytes = list.SerializeAsString();
    return QByteArray(bytes.data(), qsizetype(bytes.size()));
}

struct HttpResult
{
    /// 0 when no reply came.
    int status = 0;
    QByteArray body;
    QByteArray contentType;
};

/// One request to the service at hostAndPort, waited for.
inline HttpResult sendHttp(QNetworkAccessManager &manager, const QString &hostAndPort,
                           const QByteArray &method, const QString &pathAndQuery,
                           const QByteArray &body = {},
                           const QByteArray &contentType = QByteArrayLiteral("application/json"))
{
    QNetworkRequest request(QUrl(QStringLiteral("http://") + hostAndPort + pathAndQuery));
    if (!contentType.isEmpty())
        request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    std::unique_ptr<QNetworkReply> reply(manager.sendCustomRequest(request, method, body));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    if (!finished.wait(10000))
        return {};
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll(),
            reply->header(QNetworkRequest::ContentTypeHeader).toByteArray()};
}

} // namespace ServiceTest
