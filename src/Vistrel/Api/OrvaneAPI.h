#pragma once

#include "Api/VoidReply.h"
#include "Core/JsonUtils.h"
#include "Core/Result.h"

#include <Vistrel/ActiveUser.h>
#include <Vistrel/vistrel_export.h>

#include <QList>
#include <QObject>
#include <QPair>

#include <functional>
#include <optional>

namespace VistrelKit {

class HttpUtil;
class ServiceHost;
struct MobileInitDTO;
struct MonitoringConfigDTO;
struct WebChatConfigurationDTO;

/// The service's operations: URLs, verbs and typed replies over HttpUtil.
class VISTREL_PRIVATE_EXPORT OrvaneAPI : public QObject
{
    Q_OBJECT
public:
    using QueryItems = QList<QPair<QString, QString>>;
    template<class T>
    using Completion = std::function<void(const Result<T> &result)>;

    OrvaneAPI(HttpUtil *httpUtil, ServiceHost *serviceHost, QObject *parent = nullptr);

    /// A reply body as the record T: "Data is nil" without one, "Cannot decode <typeName>: …"
    /// when it is no JSON, else what T::fromJson makes of it.
    template<class T>
    static Result<T> decode(const std::optional<QByteArray> &body, const QString &typeName)
    {
        if (!body)
            return StringError(QStringLiteral("Data is nil"));
        QString parseError;
        const auto json = JsonUtils::parse(*body, &parseError);
        if (!json)
            return StringError(QStringLiteral("Cannot decode ") + typeName + QStringLiteral(": ") +
                               parseError);
        return T::fromJson(*json);
    }

    HttpUtil *httpUtil() const { return m_httpUtil; }

    /// scheme "://" server "/" path, with the query items appended (percent-encoded). The scheme
    /// comes from the config file's "HttpProtocol", the server from OrvaneConfiguration.
    /// text percent-encoded as one path segment: an id from the host, whatever it holds, cannot
    /// make a URL that does not parse.
    static QString pathSegment(const QString &text);
    QString buildUrl(const QString &path,
                     const std::optional<QueryItems> &query = std::nullopt) const;

    /// POST "api/in/im/c". On a transport error the completion runs twice: the error, then
    /// "Data is nil" (callers rely on this).
    void mobileInit(const MobileInitDTO &dto, Completion<MonitoringConfigDTO> completion);
    /// GET "api/in/i18n?lang=": the reply's JSON object.
    void strings(const QString &languageCode, Completion<Json> completion);
    /// DELETE "api/ix/m?id=<visit>&sId=&tId=&vId=<visitor>&url=&fsTy=": on a transport error the
    /// completion gets the error, then always success.
    void closeXhr(const QString &id, const QString &sessionId, const QString &tenantId,
                  const QString &visitorId, const QString &url, const QString &storageType,
                  Completion<VoidReply> completion);
    /// POST "rest/v1/customerstatus/tag/byVisitor/<visitorId>?tId=" with the user as JSON.
    /// GET "api/in/wc/c/<chatId>" (the id percent-encoded as one path segment): the chat's texts
    /// and colour.
    void webChatConfiguration(const QString &chatId,
                              Completion<WebChatConfigurationDTO> completion);
    void tagUser(const QString &visitorId, const QString &tenantId, const ActiveUser &user,
                 ErrorCompletion completion);

private:
    HttpUtil *m_httpUtil;
    ServiceHost *m_serviceHost;
};

} // namespace VistrelKit
