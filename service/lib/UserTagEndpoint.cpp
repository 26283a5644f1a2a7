#include "UserTagEndpoint.h"

#include "ServiceLog.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace VistrelService {

namespace {
HttpReply fail(int status, const QString &message)
{
    qCInfo(lcVistrelService) << "User tag refused:" << status << message;
    return HttpReply{
        status, QJsonDocument(QJsonObject{{u"error"_s, message}}).toJson(QJsonDocument::Compact)};
}

// Every key the device sends has one type; a wrong one is a fault on its side.
QString typeError(const QJsonObject &user)
{
    for (const QString &key :
         {u"id"_s, u"firstname"_s, u"lastname"_s, u"email"_s, u"assignedUser"_s}) {
        if (user.contains(key) && !user.value(key).isString())
            return u"\"%1\" is not a string"_s.arg(key);
    }
    if (user.contains(u"tags"_s)) {
        const QJsonValue tags = user.value(u"tags"_s);
        if (!tags.isArray())
            return u"\"tags\" is not an array"_s;
        for (const QJsonValue &tag : tags.toArray()) {
            if (!tag.isString())
                return u"\"tags\" holds something that is not a string"_s;
        }
    }
    return {};
}
} // namespace

HttpReply UserTagEndpoint::handle(const RecordedRequest &request)
{
    const QString visitorId = request.path.mid(Prefix.size());
    if (visitorId.isEmpty() || visitorId.contains(u'/'))
        return fail(404, u"no visitor id in the path"_s);
    if (request.method != u"POST"_s)
        return fail(405, u"method not allowed"_s);
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(request.body, &error);
    if (error.error != QJsonParseError::NoError)
        return fail(400, u"body is not JSON: "_s + error.errorString());
    if (!document.isObject())
        return fail(400, u"body is not a JSON object"_s);
    if (const QString fault = typeError(document.object()); !fault.isEmpty())
        return fail(400, fault);

    const QString tenantId = request.queryValue(u"tId"_s);
    m_records.removeIf([&](const TaggedUser &record) {
        return record.tenantId == tenantId && record.visitorId == visitorId;
    });
    m_records.append(
        TaggedUser{tenantId, visitorId, request.body, document.object(), request.time});
    if (m_records.size() > MaxRecords)
        m_records.removeFirst();
    return HttpReply{200, QByteArrayLiteral("{}")};
}

std::optional<TaggedUser> UserTagEndpoint::newest(const QString &visitorId) const
{
    for (auto it = m_records.crbegin(); it != m_records.crend(); ++it) {
        if (it->visitorId == visitorId)
            return *it;
    }
    return std::nullopt;
}

std::optional<TaggedUser> UserTagEndpoint::find(const QString &tenantId,
                                                const QString &visitorId) const
{
    if (visitorId.isEmpty())
        return std::nullopt;
    for (auto it = m_records.crbegin(); it != m_records.crend(); ++it) {
        if (it->tenantId == tenantId &&
            (it->visitorId == visitorId || it->user.value(u"id"_s).toString() == visitorId))
            return *it;
    }
    return std::nullopt;
}

} // namespace VistrelService
