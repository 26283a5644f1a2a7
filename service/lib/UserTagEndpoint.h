#pragma once

#include "HttpReply.h"
#include "RecordedRequest.h"
#include "TaggedUser.h"

#include <QList>

#include <optional>

namespace VistrelService {

/// The user tag, POST "rest/v1/customerstatus/tag/byVisitor/{visitorId}?tId=": the device names
/// its user (id, names, e-mail, tags, assigned agent) for the service's customer record.
class UserTagEndpoint
{
public:
    static constexpr QStringView Prefix = u"/rest/v1/customerstatus/tag/byVisitor/";
    /// Records kept in all; the oldest go first.
    static constexpr qsizetype MaxRecords = 1000;

    static bool handles(const QString &path) { return path.startsWith(Prefix); }
    HttpReply handle(const RecordedRequest &request);

    /// The newest record of the visitor id, whatever the tenant.
    std::optional<TaggedUser> newest(const QString &visitorId) const;
    /// The tenant's record for the visitor id, or whose user id is the visitor id (a device
    /// takes its user's id as visitor id once it is tagged).
    std::optional<TaggedUser> find(const QString &tenantId, const QString &visitorId) const;

private:
    /// Oldest first; one per tenant and visitor.
    QList<TaggedUser> m_records;
};

} // namespace VistrelService
