#include "Api/OrvaneAPI.h"

#include "Api/ActiveUserDTO.h"
#include "Api/HttpUtil.h"
#include "Api/MobileInitDTO.h"
#include "Api/MonitoringConfigDTO.h"
#include "Api/WebChatConfigurationDTO.h"
#include "Config/ConstantUtils.h"
#include "Config/ServiceHost.h"

#include <QUrl>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace VistrelKit {

OrvaneAPI::OrvaneAPI(HttpUtil *httpUtil, ServiceHost *serviceHost, QObject *parent)
    : QObject(parent)
    , m_httpUtil(httpUtil)
    , m_serviceHost(serviceHost)
{}

QString OrvaneAPI::pathSegment(const QString &text)
{
    return QString::fromUtf8(QUrl::toPercentEncoding(text));
}

QString OrvaneAPI::buildUrl(const QString &path, const std::optional<QueryItems> &query) const
{
    const QString scheme = ConstantUtils::getProperty(u"HttpProtocol"_s).value_or(QString());
    const QString rest = u"//"_s + m_serviceHost->server() + u'/' + path;
    // Without a scheme the text still reads "://host/path": what follows the colon is parsed as
    // a network-path reference, and the request built from it stops in HttpUtil.
    QUrl url(scheme.isEmpty() ? rest : scheme + u':' + rest, QUrl::StrictMode);
    if (!url.isValid())
        qFatal("Cannot parse the service URL \"%s\"", qPrintable(scheme + u':' + rest));
    if (query) {
        QUrlQuery items;
        for (const auto &[key, value] : *query) {
            // A null value would drop the "=": every key goes out with its value, empty or not.
            const QString encoded = QString::fromUtf8(QUrl::toPercentEncoding(value));
            items.addQueryItem(QString::fromUtf8(QUrl::toPercentEncoding(key)),
                               encoded.isNull() ? u""_s : encoded);
        }
        url.setQuery(items);
    }
    if (!url.isValid())
        return {};
    const QString text = url.toString(QUrl::FullyEncoded);
    return scheme.isEmpty() ? u':' + text : text;
}

void OrvaneAPI::mobileInit(const MobileInitDTO &dto, Completion<MonitoringConfigDTO> completion)
{
    m_httpUtil->post(buildUrl(u"api/in/im/c"_s), JsonUtils::dump(dto.toJson()),
                     [completion = std::move(completion)](
                         const std::optional<QByteArray> &body, const std::optional<HttpResponse> &,
                         const std::optional<NetworkError> &error) {
                         // A transport error is reported, and then the body is looked at all the
                         // same.
                         if (error)
                             completion(*error);
                         completion(decode<MonitoringConfigDTO>(body, u"MonitoringConfigDTO"_s));
                     });
}

void OrvaneAPI::strings(const QString &languageCode, Completion<Json> completion)
{
    m_httpUtil->get(buildUrl(u"api/in/i18n"_s, QueryItems{{u"lang"_s, languageCode}}),
                    [completion = std::move(completion)](const std::optional<QByteArray> &body,
                                                         const std::optional<HttpResponse> &,
                                                         const std::optional<NetworkError> &error) {
                        if (error) {
                            completion(*error);
                            return;
                        }
                        if (!body) {
                            completion(StringError(u"data is nil"_s));
                            return;
                        }
                        const auto json = JsonUtils::parse(*body);
                        if (!json) {
                            completion(StringError(u"Cannot parse JSON"_s));
                            return;
                        }
                        if (!json->is_object()) {
                            completion(StringError(u"Cannot use response as dictionary"_s));
                            return;
                        }
                        completion(*json);
                    });
}

void OrvaneAPI::closeXhr(const QString &id, const QString &sessionId, const QString &tenantId,
                         const QString &visitorId, const QString &url, const QString &storageType,
                         Completion<VoidReply> completion)
{
    const QueryItems query{{u"id"_s, id},         {u"sId"_s, sessionId}, {u"tId"_s, tenantId},
                           {u"vId"_s, visitorId}, {u"url"_s, url},       {u"fsTy"_s, storageType}};
    m_httpUtil->deleteResource(
        buildUrl(u"api/ix/m"_s, query),
        [completion = std::move(completion)](const std::optional<QByteArray> &,
                                             const std::optional<HttpResponse> &,
                                             const std::optional<NetworkError> &error) {
            // The error is reported, and success follows in every case.
            if (error)
                completion(*error);
            completion(VoidReply{});
        });
}

void OrvaneAPI::webChatConfiguration(const QString &chatId,
                                     Completion<WebChatConfigurationDTO> completion)
{
    m_httpUtil->get(buildUrl(u"api/in/wc/c/"_s + pathSegment(chatId)),
                    [completion = std::move(completion)](const std::optional<QByteArray> &body,
                                                         const std::optional<HttpResponse> &,
                                                         const std::optional<NetworkError> &error) {
                        if (error) {
                            completion(*error);
                            return;
                        }
                        completion(
                            decode<WebChatConfigurationDTO>(body, u"WebChatConfigurationDTO"_s));
                    });
}

void OrvaneAPI::tagUser(const QString &visitorId, const QString &tenantId, const ActiveUser &user,
                        ErrorCompletion completion)
{
    m_httpUtil->post(buildUrl(u"rest/v1/customerstatus/tag/byVisitor/"_s + visitorId,
                              QueryItems{{u"tId"_s, tenantId}}),
                     JsonUtils::dump(ActiveUserDTO::toJson(user)),
                     [completion = std::move(completion)](
                         const std::optional<QByteArray> &, const std::optional<HttpResponse> &,
                         const std::optional<NetworkError> &error) {
                         completion(error ? std::optional<Error>(*error) : std::nullopt);
                     });
}

} // namespace VistrelKit
