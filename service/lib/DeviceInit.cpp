#include "DeviceInit.h"

#include "Core/JsonUtils.h"

using VistrelKit::Json;
using VistrelKit::JsonUtils;

namespace VistrelService {

std::optional<DeviceInit> DeviceInit::fromBody(const QByteArray &body, const QDateTime &receivedAt)
{
    const std::optional<Json> json = JsonUtils::parse(body);
    if (!json || !json->is_object())
        return std::nullopt;
    const auto text = [&json](const char *key) {
        const auto it = json->find(key);
        return it == json->end() ? QString() : JsonUtils::toQString(*it);
    };
    DeviceInit init;
    init.visitId = text("visitId");
    init.shareId = text("shareId");
    init.visitorId = text("visitorId");
    init.sessionId = text("sessionId");
    init.tenantId = text("tenantId");
    init.url = text("url");
    const auto optIn = json->find("optIn");
    init.optIn = optIn != json->end() && optIn->is_boolean() && optIn->get<bool>();
    init.receivedAt = receivedAt;
    return init;
}

} // namespace VistrelService
