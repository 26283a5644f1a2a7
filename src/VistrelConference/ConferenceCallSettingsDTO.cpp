#include "ConferenceCallSettingsDTO.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

Result<ConferenceCallSettingsDTO> ConferenceCallSettingsDTO::fromJson(const Json &object)
{
    const auto fail = [](const QString &why) {
        return StringError(u"Cannot decode ConferenceCallSettingsDTO: "_s + why);
    };
    if (!object.is_object())
        return fail(u"not a JSON object"_s);
    ConferenceCallSettingsDTO settings;
    const std::pair<const char *, std::optional<QString> *> fields[] = {
        {"customerId", &settings.customerId},
        {"token", &settings.token},
        {"appName", &settings.appName},
        {"domain", &settings.domain},
    };
    for (const auto &[key, field] : fields) {
        const auto it = object.find(key);
        if (it == object.end() || it->is_null())
            continue;
        if (!it->is_string())
            return fail(u"\"%1\" is not a string"_s.arg(QLatin1StringView(key)));
        *field = JsonUtils::toQString(*it);
    }
    const auto texts = object.find("i18n");
    if (texts != object.end() && !texts->is_null()) {
        if (!texts->is_object())
            return fail(u"\"i18n\" is not an object"_s);
        Texts decoded;
        for (const auto &[key, value] : texts->items()) {
            if (!value.is_null() && !value.is_string())
                return fail(u"\"i18n\" holds a value that is not a string"_s);
            decoded.append(
                {QString::fromStdString(key),
                 value.is_null() ? std::nullopt : std::optional(JsonUtils::toQString(value))});
        }
        settings.i18n = decoded;
    }
    return settings;
}

std::optional<QString> ConferenceCallSettingsDTO::subject() const
{
    if (!i18n)
        return std::nullopt;
    for (const auto &[key, text] : *i18n) {
        if (key == u"page.title"_s)
            return text;
    }
    return std::nullopt;
}

} // namespace VistrelKit
