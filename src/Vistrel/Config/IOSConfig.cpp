#include "Config/IOSConfig.h"

#include "Core/Log.h"

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

void warnOnce(QSet<QString> *warned, const QString &key, const QString &message,
              std::source_location where)
{
    if (warned->contains(key))
        return;
    warned->insert(key);
    Log::log(u"WARNING"_s, message, where);
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

QSet<int> IOSConfig::tags(QSet<QString> *warned, std::source_location where) const
{
    QSet<int> found;
    for (const QString &entry : blacklist) {
        bool ok = false;
        const int tag = entry.toInt(&ok, 10);
        if (ok)
            found.insert(tag);
        else
            warnOnce(warned, u"tag "_s + entry, u"Cannot convert tag to integer"_s, where);
    }
    return found;
}

QStringList IOSConfig::classes() const
{
    QStringList unique = blacklistClasses;
    unique.removeDuplicates();
    return unique;
}

void IOSConfig::warnUnknownClass(const QString &className, QSet<QString> *warned,
                                 std::source_location where)
{
    warnOnce(warned, u"class "_s + className, u"Cannot convert class name to class"_s, where);
}

} // namespace VistrelKit
