#include "Api/MobileInitDTO.h"

namespace VistrelKit {

Json MobileInitDTO::toJson() const
{
    Json object = Json::object();
    object["shareId"] = JsonUtils::fromQString(shareId);
    object["redirectId"] = JsonUtils::fromQString(redirectId);
    object["url"] = JsonUtils::fromQString(url);
    object["start"] = start;
    object["initialize"] = initialize;
    object["page"] = page.toJson();
    object["visitorId"] = JsonUtils::fromQString(visitorId);
    object["sessionId"] = JsonUtils::fromQString(sessionId);
    object["visitId"] = JsonUtils::fromQString(visitId);
    object["tenantId"] = JsonUtils::fromQString(tenantId);
    object["optIn"] = optIn;
    return object;
}

} // namespace VistrelKit
