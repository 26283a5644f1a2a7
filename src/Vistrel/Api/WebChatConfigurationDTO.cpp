#include "Api/WebChatConfigurationDTO.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

Result<WebChatConfigurationDTO> WebChatConfigurationDTO::fromJson(const Json &object)
{
    if (!object.is_object())
        return StringError(u"Cannot decode WebChatConfigurationDTO: not a JSON object"_s);
    WebChatConfigurationDTO dto;
    const auto it = object.find("params");
    if (it == object.end() || it->is_null())
        return dto;
    const Result<GrowthActionParams> params = GrowthActionParams::fromJson(*it);
    if (!params.isOk())
        return params.error();
    dto.params = params.value();
    return dto;
}

Json WebChatConfigurationDTO::toJson() const
{
    Json object = Json::object();
    if (params)
        object["params"] = params->toJson();
    return object;
}

} // namespace VistrelKit
