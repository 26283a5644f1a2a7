#include "Communication/CommunicationMessageWrapper.h"

#include "Core/StringError.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

Json CommunicationMessageWrapper::toJson() const
{
    Json json = Json::object();
    Json names = Json::array();
    for (CommunicationChannel channel : channels)
        names.push_back(JsonUtils::fromQString(VistrelKit::toString(channel)));
    Json list = Json::array();
    for (const CommunicationMessage &message : messages)
        list.push_back(message.toJson());
    json["channels"] = std::move(names);
    json["messages"] = std::move(list);
    json["additionalProperties"] = JsonUtils::fromQString(additionalProperties);
    return json;
}

Result<CommunicationMessageWrapper::Decoded>
CommunicationMessageWrapper::decodeReply(const QByteArray &body)
{
    QString parseError;
    const std::optional<Json> json = JsonUtils::parse(body, &parseError);
    if (!json)
        return StringError(u"Cannot parse poll reply: "_s + parseError);
    if (!json->is_object())
        return StringError(u"Poll reply is not an object"_s);
    const auto messages = json->find("messages");
    if (messages == json->end() || !messages->is_array())
        return StringError(u"Poll reply has no \"messages\" array"_s);
    Decoded decoded;
    for (const Json &item : *messages) {
        Result<CommunicationMessage> message = CommunicationMessage::fromJson(item);
        if (message.isOk())
            decoded.messages.append(message.value());
        else
            decoded.droppedMessages.append(message.error().description());
    }
    return decoded;
}

} // namespace VistrelKit
