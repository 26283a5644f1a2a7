#include "Communication/CommunicationMessage.h"

#include "Core/StringError.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

Json CommunicationMessage::toJson() const
{
    Json json = Json::object();
    json["channel"] = JsonUtils::fromQString(VistrelKit::toString(channel));
    json["payload"] = JsonUtils::fromQString(payload);
    return json;
}

Result<CommunicationMessage> CommunicationMessage::fromJson(const Json &json)
{
    if (!json.is_object())
        return StringError(u"Message is not an object: "_s + JsonUtils::dumpText(json));
    const auto channel = json.find("channel");
    const auto payload = json.find("payload");
    if (channel == json.end() || !channel->is_string())
        return StringError(u"Message has no channel name: "_s + JsonUtils::dumpText(json));
    if (payload == json.end() || !payload->is_string())
        return StringError(u"Message has no string payload: "_s + JsonUtils::dumpText(json));
    const QString name = JsonUtils::toQString(*channel);
    const auto known = communicationChannelFromString(name);
    if (!known)
        return StringError(u"Unknown channel: "_s + name);
    return CommunicationMessage{*known, JsonUtils::toQString(*payload)};
}

} // namespace VistrelKit
