#include "Config/IOSConfig.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
std::optional<QStringList> stringList(const Json &object, const char *key)
{
    const auto it = object.find(key);
    if (it == object.end() || !it->is_array())
        return std::nullopt;
    QStringList list;
    list.reserve(qsizetype(it->size()));
    for (const Json &entry : *it) {
        if (!entry.is_string())
            return std::nullopt;
        list.append(JsonUtils::toQString(entry));
    }
    return list;
}
} // namespace

Result<IOSConfig> IOSConfig::fromJson(const Json &object)
{
    if (!object.is_object())
        return StringError(u"Cannot decode IOSConfig: not an object"_s);
    IOSConfig config;
    for (const auto &[key, target] : {std::pair{"blacklist", &config.blacklist},
                                      std::pair{"blacklistClasses", &config.blacklistClasses}}) {
        auto list = stringList(object, key);
        if (!list)
            return StringError(u"Cannot decode IOSConfig: \"%1\" must be an array of strings"_s.arg(
                QLatin1StringView(key)));
        *target = std::move(*list);
    }
    return config;
}

} // namespace VistrelKit
