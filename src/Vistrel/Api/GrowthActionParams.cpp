#include "Api/GrowthActionParams.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

Result<GrowthActionParams> GrowthActionParams::fromJson(const Json &object)
{
    if (!object.is_object())
        return StringError(u"Cannot decode GrowthActionParams: not a JSON object"_s);
    GrowthActionParams params;
    const std::pair<const char *, std::optional<QString> *> fields[] = {
        {"color", &params.color},
        {"hint", &params.hint},
        {"title", &params.title},
        {"message", &params.message},
    };
    for (const auto &[key, field] : fields) {
        const auto it = object.find(key);
        if (it == object.end() || it->is_null())
            continue;
        if (!it->is_string())
            return StringError(u"Cannot decode GrowthActionParams: \"%1\" is not a string"_s.arg(
                QLatin1StringView(key)));
        *field = JsonUtils::toQString(*it);
    }
    return params;
}

Json GrowthActionParams::toJson() const
{
    Json object = Json::object();
    const std::pair<const char *, const std::optional<QString> *> fields[] = {
        {"color", &color},
        {"hint", &hint},
        {"title", &title},
        {"message", &message},
    };
    for (const auto &[key, field] : fields) {
        if (*field)
            object[key] = JsonUtils::fromQString(**field);
    }
    return object;
}

} // namespace VistrelKit
