#include "Api/MonitoringConfigDTO.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {

class Decoder
{
public:
    explicit Decoder(const Json &object)
        : m_object(object)
    {}

    std::optional<QString> error() const { return m_error; }

    bool boolean(const char *key)
    {
        const Json *value = required(key);
        if (value && !value->is_boolean())
            fail(key, "a boolean");
        return value && value->is_boolean() && value->get<bool>();
    }

    QString string(const char *key)
    {
        const Json *value = required(key);
        if (value && !value->is_string())
            fail(key, "a string");
        return value ? JsonUtils::toQString(*value) : QString();
    }

    std::optional<bool> optionalBoolean(const char *key)
    {
        const Json *value = optional(key);
        if (!value)
            return std::nullopt;
        if (!value->is_boolean()) {
            fail(key, "a boolean");
            return std::nullopt;
        }
        return value->get<bool>();
    }

    std::optional<QString> optionalString(const char *key)
    {
        const Json *value = optional(key);
        if (!value)
            return std::nullopt;
        if (!value->is_string()) {
            fail(key, "a string");
            return std::nullopt;
        }
        return JsonUtils::toQString(*value);
    }

    const Json *required(const char *key)
    {
        const Json *value = optional(key);
        if (!value && !m_error)
            m_error = u"Cannot decode MonitoringConfigDTO: missing key \"%1\""_s.arg(
                QLatin1StringView(key));
        return value;
    }

    void fail(const char *key, const char *what)
    {
        if (!m_error)
            m_error = u"Cannot decode MonitoringConfigDTO: \"%1\" is not %2"_s.arg(
                QLatin1StringView(key), QLatin1StringView(what));
    }

    void fail(const QString &message)
    {
        if (!m_error)
            m_error = message;
    }

private:
    const Json *optional(const char *key) const
    {
        const auto it = m_object.find(key);
        return it == m_object.end() || it->is_null() ? nullptr : &*it;
    }

    const Json &m_object;
    std::optional<QString> m_error;
};

} // namespace

Result<MonitoringConfigDTO> MonitoringConfigDTO::fromJson(const Json &object)
{
    if (!object.is_object())
        return StringError(u"Cannot decode MonitoringConfigDTO: not a JSON object"_s);
    Decoder decoder(object);
    MonitoringConfigDTO dto;
    dto.shouldStartMonitoring = decoder.boolean("shouldStartMonitoring");
    dto.startMonitoringType = decoder.optionalString("startMonitoringType");
    dto.htmlExists = decoder.boolean("htmlExists");
    dto.ip = decoder.string("ip");
    if (const Json *ios = decoder.required("ios")) {
        const auto decoded = IOSConfig::fromJson(*ios);
        if (decoded.isOk())
            dto.ios = decoded.value();
        else
            decoder.fail(decoded.error().stringError()->message());
    }
    dto.storageType = decoder.optionalString("storageType");
    dto.ignoreIp = decoder.boolean("ignoreIp");
    dto.disableWebSocket = decoder.optionalBoolean("disableWebSocket");
    dto.chatActivated = decoder.optionalBoolean("chatActivated");
    if (const auto error = decoder.error())
        return StringError(*error);
    return dto;
}

Json MonitoringConfigDTO::toJson() const
{
    Json object = Json::object();
    object["shouldStartMonitoring"] = shouldStartMonitoring;
    if (startMonitoringType)
        object["startMonitoringType"] = JsonUtils::fromQString(*startMonitoringType);
    object["htmlExists"] = htmlExists;
    object["ip"] = JsonUtils::fromQString(ip);
    Json iosObject = Json::object();
    iosObject["blacklist"] = Json::array();
    for (const QString &tag : ios.blacklist)
        iosObject["blacklist"].push_back(JsonUtils::fromQString(tag));
    iosObject["blacklistClasses"] = Json::array();
    for (const QString &name : ios.blacklistClasses)
        iosObject["blacklistClasses"].push_back(JsonUtils::fromQString(name));
    object["ios"] = std::move(iosObject);
    if (storageType)
        object["storageType"] = JsonUtils::fromQString(*storageType);
    object["ignoreIp"] = ignoreIp;
    if (disableWebSocket)
        object["disableWebSocket"] = *disableWebSocket;
    if (chatActivated)
        object["chatActivated"] = *chatActivated;
    return object;
}

} // namespace VistrelKit
